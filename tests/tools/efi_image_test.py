#!/usr/bin/env python3
"""What firmware and shim check in the linked TarvikDiag.efi, read with
llvm-readobj and objdump: NX compatibility with no section both writable and
executable, and the .sbat section.
"""

import re
import subprocess
import sys
import unittest

EFI = None


def run(*cmd):
    return subprocess.run([*cmd, EFI], check=True, capture_output=True, text=True).stdout


class EfiImageTest(unittest.TestCase):
    def test_nx_compatible_sections_and_sbat(self):
        out = run("llvm-readobj", "--file-headers", "--sections")
        self.assertIn("IMAGE_DLL_CHARACTERISTICS_NX_COMPAT", out)
        flags = {m.group(1): set(re.findall(r"IMAGE_SCN_MEM_(\w+)", m.group(2)))
                 for m in re.finditer(r"Name: (\S+)(.*?)(?=Name: |\Z)", out, re.S)}
        self.assertIn("EXECUTE", flags[".text"])
        self.assertTrue(any("WRITE" in f for f in flags.values()), flags)
        for name, f in flags.items():
            self.assertFalse({"WRITE", "EXECUTE"} <= f, f"{name} is writable and executable")
        self.assertEqual(flags[".sbat"], {"READ"})

        dump = run("objdump", "-s", "-j", ".sbat").splitlines()
        data = b"".join(bytes.fromhex("".join(line[:46].split()[1:])) for line in dump if line.startswith(" "))
        lines = data.split(b"\0")[0].decode("ascii").splitlines()
        self.assertEqual(lines[0], "sbat,1,SBAT Version,sbat,1,https://github.com/rhboot/shim/blob/main/SBAT.md")
        self.assertEqual(len(lines), 2, lines)
        self.assertRegex(lines[1], r"^tarvik,[1-9][0-9]*,[^,]+,[^,]+,[^,]+,[^,]+$")


if __name__ == "__main__":
    at = sys.argv.index("--efi")
    EFI = sys.argv[at + 1]
    unittest.main(argv=[sys.argv[0], "-v", *sys.argv[1:at], *sys.argv[at + 2:]])
