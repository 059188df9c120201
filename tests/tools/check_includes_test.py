#!/usr/bin/env python3
"""The include check on small source trees: what it lets through, what it
reports, and how it reads the table of the architecture notes."""

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
    def tree(self, files):
        root = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, root)
        for path, text in {"docs/architecture.md": NOTES, **files}.items():
            os.makedirs(os.path.join(root, os.path.dirname(path)), exist_ok=True)
            with open(os.path.join(root, path), "w", encoding="utf-8") as out:
                out.write(text)
        return root

    def run_check(self, files, *options):
        result = subprocess.run([sys.executable, CHECK, "--root", self.tree(files), *options],
                                capture_output=True, text=True)
        return result.returncode, result.stdout

    def test_includes_the_graph_allows_pass(self):
        code, out = self.run_check({
            "efi/protocol/console.h": '#include "efi/base.h"\n',
            "core/pool.h": '#include "efi/efi.h"\n#include "core/globals.h"\n#include "beside.h"\n',
            "ui/screen.cpp": '#include "core/pool.h"\n#include <stdint.h>\n',
            "tests/unit/screen_test.cpp": '#include "ui/screen.h"\n#include "hostfw/machine.h"\n',
            "hostfw/main.cpp": '#include "core/status_text.h"\n',
            "build/gen/x.cpp": '#include "ui/screen.h"\n',
            "tools/notes.txt": '#include "ui/screen.h"\n',
        })
        self.assertEqual((code, out), (0, ""))

    def test_each_include_against_the_graph_is_named_with_its_file_and_line(self):
        code, out = self.run_check({
            "core/startup.cpp": '#include "core/startup.h"\n\n#include "ui/screen.h"\n',
            "efi/base.h": '  #  include "core/pool.h"\n',
            "hostfw/volumes.cpp": '#include "core/status_text.h"\n',
            "hostfw/main.cpp": '#include "core/pool.h"\n',
        })
        self.assertEqual(code, 1)
        self.assertEqual(out.splitlines()[:-1], [
            'core/startup.cpp:3: includes "ui/screen.h"; core/ may include efi/',
            'efi/base.h:1: includes "core/pool.h"; efi/ may include nothing',
            'hostfw/main.cpp:1: includes "core/pool.h"; hostfw/ may include efi/, '
            'core/status_text.h (in hostfw/main.cpp only)',
            'hostfw/volumes.cpp:1: includes "core/status_text.h"; hostfw/ may include efi/, '
            'core/status_text.h (in hostfw/main.cpp only)',
        ])
        self.assertTrue(out.splitlines()[-1].startswith("4 include(s) against the folder graph"))

    def test_a_folder_the_table_does_not_name_is_reported(self):
        code, out = self.run_check({"storage/drive.cpp": '#include "core/pool.h"\n'})
        self.assertEqual(code, 1)
        self.assertIn("storage/: not in the table of", out)

    def test_the_projects_own_notes_are_readable(self):
        notes = os.path.join(os.path.dirname(CHECK), "..", "docs", "architecture.md")
        code, out = self.run_check({"core/a.cpp": '#include "app/application_plan.h"\n'}, "--doc", notes)
        self.assertEqual(code, 1)
        self.assertIn('core/a.cpp:1: includes "app/application_plan.h"; core/ may include efi/\n', out)


if __name__ == "__main__":
    unittest.main()
