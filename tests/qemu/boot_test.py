#!/usr/bin/env python3
"""Boots TarvikDiag.efi from a USB disk image under QEMU + OVMF and checks the
whole life of the application on real firmware: it starts, shows its screen,
and on a key tears down and cold-resets the machine, which ends QEMU
(-no-reboot) with status 0.

    boot_test.py --efi build/TarvikDiag.efi [unittest options]
"""

import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

EFI_FILE = None
PROMPT = "Press any key to restart the machine."


class BootTest(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory(prefix="tarvik-qemu-")
        self.image = os.path.join(self.tmp.name, "tarvik-usb.img")
        qemu_session.make_image(self.image, EFI_FILE)

    def tearDown(self):
        self.tmp.cleanup()

    def test_boots_shows_screen_and_resets_on_key(self):
        with QemuSession(self.image) as q:
            q.wait_for(PROMPT)
            boot = q.elapsed()
            self.assertIn("Tarvik Diagnostic", q.output)
            for service in ("DiagCommonProtocol", "ErrorCodeProtocol", "SmBiosProtocol", "LanguageProtocol",
                            "TestCollectionProtocol", "LogProtocol"):
                self.assertIn(service, q.output, f"{service} is not installed on this firmware")
            q.send_key("enter")
            status = q.wait_exit()
            print(f"prompt after {boot:.1f} s, QEMU ended {q.elapsed() - boot:.1f} s after the key",
                  file=sys.stderr)
            self.assertEqual(status, 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")


def main():
    global EFI_FILE
    EFI_FILE, rest = qemu_session.efi_argument(__doc__, "the application to boot (TarvikDiag.efi)")
    unittest.main(argv=[sys.argv[0], "-v", *rest])


if __name__ == "__main__":
    main()
