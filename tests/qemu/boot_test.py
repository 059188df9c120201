#!/usr/bin/env python3
"""Boots TarvikDiag.efi under QEMU + OVMF with a VGA card beside the serial
port (one joined console): the main screen comes up whole at 100x31 and stays
so while the clock ticks, System Information shows QEMU's SMBIOS strings, and
"Exit Application" resets the machine, ending QEMU with status 0.
"""

import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

SCREEN_TIMEOUT = 60  # seconds for a screen to come up once its key is sent


class BootTest(qemu_session.ImageTestCase):
    def test_main_screen_system_information_and_exit(self):
        smbios = qemu_session.smbios_values()
        with QemuSession(self.image, vga=True) as q:
            q.wait_for("Use Arrow keys to change between options")
            boot = q.elapsed()
            # The main screen is drawn twice; the Tools panel comes last. QEMU's
            # boot disk sits on the AHCI controller and reports no rotation
            # rate: the storage test finds it, and the bad-sector tool takes it
            # for a rotating drive.
            q.wait_for("Recover Bad Sectors Tool", SCREEN_TIMEOUT)
            q.wait_for("Recover Bad Sectors Tool", SCREEN_TIMEOUT)
            first = q.screen
            qemu_session.assert_main_screen_whole(self, first)
            entries = [[text.strip() for text in first.line(row).split("║") if text.strip()] for row in (5, 6, 7)]
            self.assertEqual(entries, [["Quick Memory Test", "System Information"],
                                       ["Quick Storage Device Test", "Recover Bad Sectors Tool"],
                                       ["Exit Application"]], first.text())

            # A few clock ticks later only the clock has changed.
            time.sleep(3)
            later = q.screen
            self.assertNotEqual(qemu_session.clock(later), qemu_session.clock(first))
            self.assertEqual(qemu_session.page(later), qemu_session.page(first))

            q.send_key("right", "enter")
            q.wait_for(smbios["PROCESSOR_VERSION"].split()[-1], SCREEN_TIMEOUT)
            # Labels from column 15, values from column 50; the processor
            # version goes on over a second row.
            version = smbios["PROCESSOR_VERSION"]
            cut = version.rfind(" ", 0, 36)
            expected = {
                7: ("Machine Manufacturer:", smbios["SYSTEM_MANUFACTURER"]),
                8: ("Product Name:", smbios["SYSTEM_PRODUCT"]),
                9: ("Product Version:", smbios["SYSTEM_VERSION"]),
                10: ("Machine Serial Number:", smbios["SYSTEM_SERIAL"]),
                15: ("BIOS Version:", smbios["BIOS_VERSION"]),
                16: ("BIOS Release Date:", smbios["BIOS_DATE"]),
                17: ("BIOS Manufacturer:", smbios["BIOS_VENDOR"]),
                22: ("Processor Manufacturer:", smbios["PROCESSOR_MANUFACTURER"]),
                23: ("Processor Version:", version[:cut]),
                24: ("", version[cut + 1:]),
            }
            screen = q.screen
            self.assertEqual({row: (screen.text_at(row, 15, 35).rstrip(), screen.text_at(row, 50, 35).rstrip())
                              for row in expected}, expected, screen.text())

            q.send_key("esc")
            q.wait_for("Main Screen", SCREEN_TIMEOUT)
            q.send_key("left", "up", "enter")
            status = q.wait_exit()
            print(f"main screen after {boot:.1f} s, QEMU ended {q.elapsed() - boot:.1f} s later", file=sys.stderr)
            self.assertEqual(status, 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")


if __name__ == "__main__":
    qemu_session.main(BootTest, __doc__, "the application to boot (TarvikDiag.efi)")
