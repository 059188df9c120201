#!/usr/bin/env python3
"""The include check on a small source tree: every include against the folder
table of its architecture notes is reported with its file and line. (That it
lets the project's own includes through, read against the project's own
notes, is the include_dependencies test.)"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

CHECK = os.path.join(os.path.dirname(__file__), "..", "..", "tools", "check-includes.py")

NOTES = """# Notes

## Folder dependencies

| folder | may include |
|---|---|
| `efi/` | nothing |
| `core/` | `efi/` |
| `ui/` | `efi/`, `core/` |
| `hostfw/` | `efi/`; `core/status_text.h` in `main.cpp` only |
| `tests/` | every folder |

## Next section

| `ui/` | every folder |
"""


class IncludeCheck(unittest.TestCase):
    def run_check(self, files):
        """The check's exit status and report on a tree of these files and NOTES."""
        root = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, root)
        for path, text in {"docs/architecture.md": NOTES, **files}.items():
            os.makedirs(os.path.join(root, os.path.dirname(path)), exist_ok=True)
            with open(os.path.join(root, path), "w", encoding="utf-8") as out:
                out.write(text)
        result = subprocess.run([sys.executable, CHECK, "--root", root], capture_output=True, text=True)
        return result.returncode, result.stdout

    def test_each_include_against_the_graph_and_each_folder_not_in_the_table_is_reported(self):
        code, out = self.run_check({
            "core/startup.cpp": '#include "core/startup.h"\n\n#include "ui/screen.h"\n',
            "efi/base.h": '  #  include "core/pool.h"\n',
            "hostfw/volumes.cpp": '#include "core/status_text.h"\n',
            "hostfw/main.cpp": '#include "core/pool.h"\n',
            "storage/drive.cpp": '#include "core/pool.h"\n',
        })
        self.assertEqual(code, 1)
        self.assertIn("storage/: not in the table of", out)
        self.assertEqual([line for line in out.splitlines()[:-1] if not line.startswith("storage/")], [
            'core/startup.cpp:3: includes "ui/screen.h"; core/ may include efi/',
            'efi/base.h:1: includes "core/pool.h"; efi/ may include nothing',
            'hostfw/main.cpp:1: includes "core/pool.h"; hostfw/ may include efi/, '
            'core/status_text.h (in hostfw/main.cpp only)',
            'hostfw/volumes.cpp:1: includes "core/status_text.h"; hostfw/ may include efi/, '
            'core/status_text.h (in hostfw/main.cpp only)',
        ])
        self.assertTrue(out.splitlines()[-1].startswith("5 include(s) against the folder graph"))


if __name__ == "__main__":
    unittest.main()
