#!/usr/bin/env python3
"""The NVMe test on OVMF under QEMU: one NVMe drive beside the boot disk
whose sector 100000 cannot be read (blkdebug). Health Status passes, QEMU has
no Device Self-test, the full read scan fails naming the LBA; the saved log
holds the drive's section and result code; the drive's image is unchanged.
"""

import hashlib
import os
import pathlib
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

SCREEN_TIMEOUT = 60
RUN_TIMEOUT = 600  # a 64 MiB namespace, verified in 128 KiB commands under TCG
BAD_SECTOR = 100000
SERIAL = "TVKNVME1"


def digest(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


class NvmeRunTest(qemu_session.ImageTestCase):
    def test_a_run_of_all_algorithms_on_an_nvme_drive_is_logged_and_writes_nothing(self):
        drive = qemu_session.sparse_drive(os.path.join(self.tmp.name, "nvme.raw"), 64 << 20)
        with open(drive, "r+b") as f:  # some data, so that the hash means something
            f.seek(4096)
            f.write(os.urandom(65536))
        before = digest(drive)
        with QemuSession(self.image, nvmes=[f"{drive},serial={SERIAL},error_sector={BAD_SECTOR}"]) as q:
            q.wait_for("System Information")
            q.wait_for("Quick NVMe Device Test", SCREEN_TIMEOUT)

            q.send_key("right", "enter")
            q.wait_for("Machine Information", SCREEN_TIMEOUT)
            q.send_key("tab", "tab", "tab")
            q.wait_for(SERIAL, SCREEN_TIMEOUT)
            info = q.settled_screen(SCREEN_TIMEOUT).text()
            for text in ("Model Number:", "QEMU NVMe Ctrl", "LBA Size:", "512 bytes", "Percentage Used:"):
                self.assertIn(text, info)
            q.send_key("esc")
            q.wait_for_line(1, "Main Screen", SCREEN_TIMEOUT)

            # With one drive there is nothing to choose: the algorithms come first.
            q.send_key("left", "down", "down", "enter")
            q.wait_for("Run Test >", SCREEN_TIMEOUT)
            q.send_key("enter")
            q.wait_for("Problems were found", RUN_TIMEOUT)
            q.send_key("enter")
            q.wait_for("F3 = view log", SCREEN_TIMEOUT)
            q.send_key("f3")
            q.wait_for("F2 = save log", SCREEN_TIMEOUT)
            q.save_log_to_boot_volume(SCREEN_TIMEOUT)
            q.send_key("down", "enter")  # from the NVMe test to "Exit Application"
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")

        lines = qemu_session.saved_log_lines(self.image)
        self.assertIsNotNone(lines, "no \\Log\\Log.log on the boot volume")
        text = "\n".join(lines)
        for pattern in (rf"^\+\+\+ {qemu_session.LOG_STAMP} NVME {qemu_session.LOG_EPOCH_MS}$",
                        rf"^SERIAL: {SERIAL}$", r"^DISPLAYNAME: QEMU NVMe Ctrl NVMe Device$",
                        rf"^{qemu_session.LOG_STAMP} STOP NVMEHEALTH SUCCESS \d+ S$",
                        rf"^{qemu_session.LOG_STAMP} MESSAGE SMART_HEALTH TEMPERATURE -?\d+ PERCENTAGE_USED \d+ CRITICAL_WARNING 0$",
                        rf"^{qemu_session.LOG_STAMP} STOP NVMESHORTSELFTEST UNSUPPORTED$",
                        rf"^{qemu_session.LOG_STAMP} ERROR READ_SECTOR_ERROR {BAD_SECTOR}$",
                        rf"^{qemu_session.LOG_STAMP} STOP NVMEFULLREADSCAN FAILURE \d+ S$",
                        r"^STOP TESTS UNV\w{6}-\w{6}$", r"^--- NVME$"):
            self.assertTrue(any(re.search(pattern, line) for line in lines), f"{pattern}\n{text}")
        self.assertEqual(digest(drive), before, "the drive's image changed")


if __name__ == "__main__":
    qemu_session.main(NvmeRunTest, __doc__, "the application to boot (TarvikDiag.efi)")
