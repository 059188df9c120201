#!/usr/bin/env python3
"""Boots TarvikDiag.efi under QEMU + OVMF on a machine with QEMU's standard
VGA card as well as the serial port, as on a PC or server with a display and
a serial console. OVMF joins the graphics console and the serial terminal in
one console, which offers 100x31 while the terminal behind it may still be in
another mode. The main screen must come up whole on the serial terminal at
100x31 and stay so while the clock ticks: the title on row 0, the clock in
the bottom-right corner, both boxes closed, nothing scrolled.

    vga_console_test.py --efi build/TarvikDiag.efi [unittest options]
"""

import os
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
import screen_checks  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

SCREEN_TIMEOUT = 60


class VgaConsoleTest(qemu_session.ImageTestCase):
    def test_main_screen_is_whole_on_the_joined_console(self):
        with QemuSession(self.image, vga=True, screen_size=(100, 31)) as q:
            # QEMU's boot disk reports no rotation rate, so it counts as a
            # rotating drive and the Tools panel ends with the bad-sector
            # tool: the last entry of the second drawing.
            q.wait_for("Recover Bad Sectors Tool", SCREEN_TIMEOUT)
            q.wait_for("Recover Bad Sectors Tool", SCREEN_TIMEOUT)
            first = q.screen
            screen_checks.assert_main_screen_whole(self, first)

            # A few clock ticks later only the clock has changed.
            time.sleep(3)
            later = q.screen
            screen_checks.assert_main_screen_whole(self, later)
            self.assertNotEqual(screen_checks.clock(later), screen_checks.clock(first))
            self.assertEqual(screen_checks.differences(first, later, skip=screen_checks.clock_cells(first)), [],
                             later.text())

            q.send_key("up", "enter")  # "Exit Application"
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")


def main():
    VgaConsoleTest.efi_file, rest = qemu_session.efi_argument(__doc__, "the application to boot (TarvikDiag.efi)")
    unittest.main(argv=[sys.argv[0], "-v", *rest])


if __name__ == "__main__":
    main()
