#!/usr/bin/env python3
"""The bad-sector tool's "Check bad sectors" under QEMU on a sparse 160 GiB
AHCI drive (48-bit commands of 65536 sectors): no bad sector found, the final
view and the saved recovery log agree on the run's times, nothing written to
the drive.
"""

import datetime
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

SCREEN_TIMEOUT = 60
SCAN_TIMEOUT = 300  # the scan takes a few seconds under TCG

SECTORS = 335544320  # 160 GiB: 2^28 + 2^26 sectors of 512 bytes
DRIVE_PROPS = "model=TVK ROTA7200,serial=TVKHDD001,ver=HD1.07,rotation_rate=7200"

# The final view's information and results; the last command verified the
# last 65536 sectors.
FINAL_VIEW_TEXTS = ["Device 1: TVK ROTA7200", "Size:               160 GB", "Total sectors:      335544320",
                    "Testing sectors:    335478784 - 335544320", "Operation: Check bad sectors", "100%",
                    "# No bad sector found #"]
TIME = r"(\d{4})-(\d\d)-(\d\d) (\d\d):(\d\d):(\d\d)"
STARTED = re.compile(rf"Recover started at: {TIME}\.")
FINISHED = re.compile(rf"Recover finished at: {TIME}\.")
DURATION = re.compile(r"Duration of Recover: (\d\d):(\d\d):(\d\d)\.")

# The recovery log: its header and footer carry the run's start and end. Its
# device rows are those of the tool's first drive, the boot disk: the log is
# not told which drive the run was on.
STAMP = qemu_session.LOG_STAMP
EXPECTED_LOG = [rf"\+\+\+ {STAMP} RECOVER", "Operation: Check bad sectors", "Device 0: QEMU HARDDISK ", "Size: 0 GB",
                "# No bad sector found #", rf"--- {STAMP} RECOVER"]


def moment(match):
    return datetime.datetime(*(int(field) for field in match.groups()))


class RecoveryRunTest(qemu_session.ImageTestCase):
    def assert_final_view(self, screen):
        """The final view's texts and times; returns the run's start and finish."""
        dump = screen.text()
        for text in FINAL_VIEW_TEXTS:
            self.assertIn(text, dump)
        started, finished, duration = STARTED.search(dump), FINISHED.search(dump), DURATION.search(dump)
        for match, what in ((started, "start"), (finished, "finish"), (duration, "duration")):
            self.assertIsNotNone(match, f"the {what} line\n{dump}")
        start, finish = moment(started), moment(finished)
        self.assertEqual(start.date(), datetime.date(2024, 3, 15), dump)
        hours, minutes, seconds = (int(field) for field in duration.groups())
        self.assertEqual(datetime.timedelta(hours=hours, minutes=minutes, seconds=seconds), finish - start, dump)
        return start, finish

    def test_a_check_of_a_whole_48_bit_drive_finds_no_bad_sector_and_its_log_is_saved(self):
        drive = qemu_session.sparse_drive(os.path.join(self.tmp.name, "rotating.raw"), SECTORS * 512)
        with QemuSession(self.image, memory=128, disks=[f"{drive},{DRIVE_PROPS}"]) as q:
            # The Tools panel's last entry ends the main screen's second drawing.
            q.wait_for("Recover Bad Sectors Tool")
            q.wait_for("Recover Bad Sectors Tool")
            q.send_key("right", "down", "enter")

            # The boot disk reports no rotation rate, so the tool lists it
            # too; the run is on the rotating drive.
            q.wait_for("Next >", SCREEN_TIMEOUT)
            q.send_key("down", "space")
            q.wait_for_line(6, "║[X] ROTA7200                            ║", SCREEN_TIMEOUT)
            self.assertEqual(q.screen.line(5).strip(), "║[ ] HARDDISK                            ║", q.screen.text())
            q.send_key("enter")
            q.wait_for("Run Test >", SCREEN_TIMEOUT)
            q.wait_for_line(5, "║[X] Check bad sectors                   ║", SCREEN_TIMEOUT)
            q.send_key("enter")
            q.wait_for("Do you want to proceed with test", SCREEN_TIMEOUT)
            scan_started = q.elapsed()
            q.send_key("y")
            q.wait_for("F3 = view log", SCAN_TIMEOUT)
            scan = q.elapsed() - scan_started
            start, finish = self.assert_final_view(q.settled_screen(SCREEN_TIMEOUT))

            q.send_key("f3")
            q.wait_for("F2 = save log", SCREEN_TIMEOUT)
            q.save_log_to_boot_volume(SCREEN_TIMEOUT)
            q.send_key("left", "down", "enter")  # from the tool to "Exit Application"
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            print(f"a check of {SECTORS} sectors took {scan:.1f} s", file=sys.stderr)

        lines = qemu_session.assert_saved_log(self, self.image, EXPECTED_LOG)
        # The stamps are the times the final view showed.
        stamps = [when.strftime("%Y%m%dT%H%M%SUTC") for when in (start, finish)]
        self.assertEqual((lines[0], lines[-1]), (f"+++ {stamps[0]} RECOVER", f"--- {stamps[1]} RECOVER"))
        self.assertFalse(qemu_session.holds_data(drive), "data was written to the checked drive")


if __name__ == "__main__":
    qemu_session.main(RecoveryRunTest, __doc__, "the application to boot (TarvikDiag.efi)")
