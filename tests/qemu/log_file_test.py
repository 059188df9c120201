#!/usr/bin/env python3
"""Boots the log writer test image (the application's services with a fixed
memory run record) under QEMU + OVMF and reads the log it saved on the FAT
boot volume back with mtools: the first boot creates \\Log and Log.log, the
second appends the same bytes to it.
"""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402


# The fixed run's 18 lines as ASCII with bare line feeds, from its header to
# its footer (the lines themselves are those of the saved logs of the QEMU
# runs and of the host tests).
FIRST_LINE, LAST_LINE, LINES = "+++ 20240315T101500UTC MEMORY 1710497700000", "--- MEMORY", 18


class LogFileTest(qemu_session.ImageTestCase):
    def boot(self):
        with QemuSession(self.image, memory=128) as q:
            q.wait_for("LOG WRITER:")
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            self.assertIn("18 lines, save code 0", q.output, q.tail())

    def test_saves_then_appends_the_log_on_the_boot_volume(self):
        self.assertIsNone(qemu_session.read_from_volume(self.image, "/Log/Log.log"))
        self.boot()
        saved = qemu_session.read_from_volume(self.image, "/Log/Log.log")
        lines = saved.decode("ascii").split("\n")
        self.assertEqual((len(lines), lines[0], lines[-2:]), (LINES + 1, FIRST_LINE, [LAST_LINE, ""]), saved)
        self.assertNotIn(b"\r", saved)
        self.boot()
        self.assertEqual(qemu_session.read_from_volume(self.image, "/Log/Log.log"), saved * 2)


if __name__ == "__main__":
    qemu_session.main(LogFileTest, __doc__, "the log writer test image (TarvikLogWriter.efi)")
