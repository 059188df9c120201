#!/usr/bin/env python3
"""Boots the log writer test image (the application's services with a fixed
memory run record) under QEMU + OVMF and reads the log it saved on the FAT
boot volume back with mtools, byte for byte: the first boot creates \\Log
and Log.log, the second appends to it.

    log_file_test.py --efi build/TarvikLogWriter.efi [unittest options]
"""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402


# The result code follows from the serial number tools/qemu.sh gives the
# machine and the run's date, 15 March 2024.
EXPECTED_LOG = (
    "+++ 20240315T101500UTC MEMORY 1710497700000\n"
    "UID: QEMU-DIMM-0\n"
    "DISPLAYNAME: MAIN_MEMORY\n"
    "PHYSICAL_MEMORY: 0 GB\n"
    ">>> RESOURCE BANK  \n"
    "INDEX: 0\n"
    "MANUFACTURER: QEMU\n"
    "SPEED: 0\n"
    "SIZE: 0 GB\n"
    "PART_NUMBER: -\n"
    "SERIAL_NUMBER: QEMU-DIMM-0\n"
    "<<< RESOURCE  \n"
    "START TESTS\n"
    "20240315T101501UTC MESSAGE TESTED_SIZE: 6,144 MB\n"
    "20240315T101501UTC START ADVANCED_INTEGRITY\n"
    "20240315T101616UTC STOP ADVANCED_INTEGRITY SUCCESS 75 S\n"
    "STOP TESTS UME001000-YKHXVI\n"
    "--- MEMORY\n"
).encode("ascii")


class LogFileTest(qemu_session.ImageTestCase):
    def boot(self):
        with QemuSession(self.image, memory=128) as q:
            q.wait_for("LOG WRITER:")
            status = q.wait_exit()
            self.assertEqual(status, 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            self.assertIn("18 lines, save code 0", q.output, q.tail())

    def test_saves_then_appends_the_log_on_the_boot_volume(self):
        self.assertIsNone(qemu_session.read_from_volume(self.image, "/Log/Log.log"))
        self.boot()
        self.assertEqual(qemu_session.read_from_volume(self.image, "/Log/Log.log"), EXPECTED_LOG)
        self.boot()
        self.assertEqual(qemu_session.read_from_volume(self.image, "/Log/Log.log"), EXPECTED_LOG * 2)


if __name__ == "__main__":
    qemu_session.main(LogFileTest, __doc__, "the log writer test image (TarvikLogWriter.efi)")
