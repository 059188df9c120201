#!/usr/bin/env python3
"""What firmware and boot loaders check in the linked TarvikDiag.efi, read
with llvm-readobj and objdump: NX compatibility with no section both writable
and executable, and the .sbat section that shim reads.

    efi_image_test.py --efi build/TarvikDiag.efi
"""

import argparse
import re
import subprocess
import sys
import unittest

SBAT_HEADER = "sbat,1,SBAT Version,sbat,1,https://github.com/rhboot/shim/blob/main/SBAT.md"
EFI = None


def run(*cmd):
    return subprocess.run(cmd, check=True, capture_output=True, text=True).stdout


def sections():
    """{name: set of IMAGE_SCN_MEM_* flags} and the DLL characteristics."""
    out = run("llvm-readobj", "--file-headers", "--sections", EFI)
    found, name = {}, None
    for line in out.splitlines():
        m = re.match(r"\s*Name: (\S+)", line)
        if m:
            name = m.group(1)
            found[name] = set()
        m = re.match(r"\s*IMAGE_SCN_MEM_(\w+)", line)
        if m and name:
            found[name].add(m.group(1))
    return found, set(re.findall(r"IMAGE_DLL_CHARACTERISTICS_(\w+)", out))


def sbat_text():
    data = bytearray()
    for line in run("objdump", "-s", "-j", ".sbat", EFI).splitlines():
        m = re.match(r"\s*[0-9a-f]+ ((?:[0-9a-f]{2,8} ?){1,4})", line)
        if m and not line.startswith("Contents"):
            data += bytes.fromhex(m.group(1).replace(" ", ""))
    return data.split(b"\0")[0].decode("ascii")


class EfiImageTest(unittest.TestCase):
    def test_nx_compatible_with_separate_writable_and_executable_sections(self):
        found, dll = sections()
        self.assertIn("NX_COMPAT", dll)
        self.assertIn("EXECUTE", found[".text"])
        self.assertTrue(any("WRITE" in flags for flags in found.values()), found)
        for name, flags in found.items():
            self.assertFalse({"WRITE", "EXECUTE"} <= flags, f"{name} is writable and executable")

    def test_sbat_names_the_format_and_the_products_generation(self):
        found, _ = sections()
        self.assertEqual(found[".sbat"], {"READ"})
        lines = sbat_text().splitlines()
        self.assertEqual(lines[0], SBAT_HEADER)
        self.assertEqual(len(lines), 2, lines)
        fields = lines[1].split(",")
        self.assertEqual(len(fields), 6, fields)
        self.assertEqual(fields[0], "tarvik")
        self.assertRegex(fields[1], r"^[1-9][0-9]*$")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--efi", required=True)
    args, rest = parser.parse_known_args()
    EFI = args.efi
    unittest.main(argv=[sys.argv[0], "-v", *rest])
