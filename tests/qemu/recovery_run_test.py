#!/usr/bin/env python3
"""The bad-sector tool's "Check bad sectors" under QEMU on a sparse 160 GiB
AHCI drive (48-bit commands of 65536 sectors): no bad sector found, the final
view and the saved recovery log exact, nothing written to the drive.

    recovery_run_test.py --efi build/TarvikDiag.efi [unittest options]
"""

import datetime
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
import screen_checks  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

SCREEN_TIMEOUT = 60
SCAN_TIMEOUT = 300  # the scan takes a few seconds under TCG

SECTORS = 335544320  # 160 GiB: 2^28 + 2^26 sectors of 512 bytes
DRIVE_PROPS = "model=TVK ROTA7200,serial=TVKHDD001,ver=HD1.07,rotation_rate=7200"

# The final view at 100x31: the information panel (box from column 1 to 48,
# texts from column 5, values from column 25) and the results panel (box from
# column 51 to 98, lines from column 55), both from row 4 to row 27.
BOX_ROWS = range(4, 28)
LEFT_BOX, RIGHT_BOX = range(1, 49), range(51, 99)
BAR_ROW, BAR_COLUMNS = 12, range(5, 45)
INFO_ROWS = [
    "Device 1: TVK ROTA7200",
    "Size:               160 GB",
    "Total sectors:      335544320",
    # The last command verified the last 65536 sectors.
    "Testing sectors:    335478784 - 335544320",
    "Operation: Check bad sectors",
    "",
    "         Progress of Operation",
    "                  100%",
]
TIME = r"(\d{4})-(\d\d)-(\d\d) (\d\d):(\d\d):(\d\d)"
STARTED = re.compile(rf"Recover started at: {TIME}\.")
FINISHED = re.compile(rf"Recover finished at: {TIME}\.")
DURATION = re.compile(r"Duration of Recover: (\d\d):(\d\d):(\d\d)\.")


def panel_row(left, right):
    return f" ║   {left:<43}║  ║   {right:<43}║"


def final_view(started, finished, duration):
    """The final view's rows but the last (the version line and clock)."""
    results = [started, "", "# No bad sector found #", "", finished, duration]
    rows = ["Tarvik Diagnostic".center(100).rstrip(), "Recover Bad Sectors Tool".center(100).rstrip(), "",
            "            Information about Recover                             Results of Recover",
            " ╔" + "═" * 46 + "╗  ╔" + "═" * 46 + "╗"]
    for row in range(22):
        rows.append(panel_row(INFO_ROWS[row] if row < len(INFO_ROWS) else "",
                              results[row] if row < len(results) else ""))
    rows += [" ╚" + "═" * 46 + "╝  ╚" + "═" * 46 + "╝", "", "ESC = exit  F3 = view log".center(100).rstrip()]
    return rows


def moment(match):
    return datetime.datetime(*(int(field) for field in match.groups()))


def stamp(when):
    """A log time stamp."""
    return when.strftime("%Y%m%dT%H%M%SUTC")


# The recovery log: its header and footer carry the run's start and end. Its
# device rows are those of the tool's first drive, the boot disk: the log is
# not told which drive the run was on.
STAMP = qemu_session.LOG_STAMP
EXPECTED_LOG = [
    rf"\+\+\+ {STAMP} RECOVER",
    "Operation: Check bad sectors",
    "Device 0: QEMU HARDDISK ",
    "Size: 0 GB",
    "# No bad sector found #",
    rf"--- {STAMP} RECOVER",
]


class RecoveryRunTest(qemu_session.ImageTestCase):
    def assert_final_view(self, screen):
        """The whole final view; returns the run's start and finish."""
        dump = screen.text()
        started = STARTED.fullmatch(screen.text_at(5, 55, 43).rstrip())
        finished = FINISHED.fullmatch(screen.text_at(9, 55, 43).rstrip())
        duration = DURATION.fullmatch(screen.text_at(10, 55, 43).rstrip())
        for match, what in ((started, "start"), (finished, "finish"), (duration, "duration")):
            self.assertIsNotNone(match, f"the {what} line\n{dump}")
        self.assertEqual(qemu_session.page(screen), final_view(started.group(), finished.group(), duration.group()))
        self.assertRegex(screen_checks.clock(screen), r"^\d\d:\d\d:\d\d$", dump)

        start, finish = moment(started), moment(finished)
        self.assertEqual(start.date(), datetime.date(2024, 3, 15), dump)
        self.assertLessEqual(start, finish, dump)
        hours, minutes, seconds = (int(field) for field in duration.groups())
        self.assertEqual(datetime.timedelta(hours=hours, minutes=minutes, seconds=seconds), finish - start, dump)

        # Both panels black on cyan, but the filled bar.
        for row in BOX_ROWS:
            for column in (*LEFT_BOX, *RIGHT_BOX):
                expected = (screen_checks.WHITE_ON_BLUE if row == BAR_ROW and column in BAR_COLUMNS
                            else screen_checks.BLACK_ON_CYAN)
                self.assertEqual(screen.attribute(row, column), expected, f"row {row} column {column}\n{dump}")
        return start, finish

    def assert_log_screen(self, screen, start):
        dump = screen.text()
        self.assertEqual(screen.line(1).strip(), "Logs", dump)
        self.assertEqual([screen.line(row) for row in range(3, 11)],
                         [" Tarvik Diagnostic Log", start.strftime(" %Y/%m/%d %H:%M:%S"), "",
                          " Operation: Check bad sectors", " Device 0: QEMU HARDDISK", " Size: 0 GB",
                          " # No bad sector found #", ""], dump)
        self.assertEqual(screen.line(screen.rows - 2).strip(), "ESC = exit  F2 = save log", dump)

    def test_a_check_of_a_whole_48_bit_drive_finds_no_bad_sector_and_its_log_is_saved(self):
        drive = qemu_session.sparse_drive(os.path.join(self.tmp.name, "rotating.raw"), SECTORS * 512)
        with QemuSession(self.image, memory=128, disks=[f"{drive},{DRIVE_PROPS}"],
                         qemu_args=["-rtc", "base=" + qemu_session.QEMU_CLOCK_START]) as q:
            # The Tools panel's last entry ends the main screen's second drawing.
            q.wait_for("Recover Bad Sectors Tool")
            q.wait_for("Recover Bad Sectors Tool")
            screen_checks.assert_main_screen_whole(self, q.screen)
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
            self.assertEqual(q.screen.line(6).strip(), "║[ ] Check and recover bad sectors       ║", q.screen.text())
            q.send_key("enter")
            q.wait_for("Do you want to proceed with test", SCREEN_TIMEOUT)
            scan_started = q.elapsed()
            q.send_key("y")
            q.wait_for("F3 = view log", SCAN_TIMEOUT)
            scan = q.elapsed() - scan_started
            start, finish = self.assert_final_view(q.settled_screen(SCREEN_TIMEOUT))

            q.send_key("f3")
            q.wait_for("F2 = save log", SCREEN_TIMEOUT)
            self.assert_log_screen(q.settled_screen(SCREEN_TIMEOUT), start)
            q.save_log_to_boot_volume(SCREEN_TIMEOUT)
            q.send_key("left", "down", "enter")  # from the tool to "Exit Application"
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            print(f"a check of {SECTORS} sectors took {scan:.1f} s", file=sys.stderr)

        lines = qemu_session.assert_saved_log(self, self.image, EXPECTED_LOG)
        # The stamps are the times the final view showed.
        self.assertEqual((lines[0], lines[-1]), (f"+++ {stamp(start)} RECOVER", f"--- {stamp(finish)} RECOVER"))

        self.assertEqual(qemu_session.written_extents(drive), [], "data was written to the checked drive")


if __name__ == "__main__":
    qemu_session.main(RecoveryRunTest, __doc__, "the application to boot (TarvikDiag.efi)")
