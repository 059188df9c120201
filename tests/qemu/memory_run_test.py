#!/usr/bin/env python3
"""The memory test under QEMU (256 MiB, --smp processors): the run passes
with its result code, the saved log is exact (with the number of processors
when there are several), and \Log\Results.jsonl holds the run with the
screen's code.
"""

import json
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

RUN_TIMEOUT = 600  # the march test over ~200 MB under TCG on a loaded machine
SCREEN_TIMEOUT = 60

# The serial number tools/qemu.sh gives the machine and the date of the run
# make the result code; QEMU's memory device has no serial number and reports
# its size in megabytes (0 whole gigabytes).
# The run starts at 10:15 and may take minutes on a loaded machine.
STAMP = qemu_session.LOG_STAMP
EXPECTED_LOG = [
    rf"\+\+\+ {STAMP} MEMORY {qemu_session.LOG_EPOCH_MS}",
    "UID: -",
    "DISPLAYNAME: MAIN_MEMORY",
    "PHYSICAL_MEMORY: 0 GB",
    ">>> RESOURCE BANK  ",
    "INDEX: 0",
    "MANUFACTURER: QEMU",
    "SPEED: 0",
    "SIZE: 0 GB",
    "PART_NUMBER: -",
    "SERIAL_NUMBER: -",
    "<<< RESOURCE  ",
    "START TESTS",
    rf"{STAMP} MESSAGE TESTED_SIZE: \d+ MB",
    rf"{STAMP} START ADVANCED_INTEGRITY",
    "PROCESSORS",  # replaced by the processors line, or dropped on one processor
    rf"{STAMP} STOP ADVANCED_INTEGRITY SUCCESS \d+ S",
    "STOP TESTS UME001000-YKHXVI",
    "--- MEMORY",
]


class MemoryRunTest(qemu_session.ImageTestCase):
    smp = 1

    def test_memory_test_passes_and_its_log_is_saved_on_the_boot_volume(self):
        with QemuSession(self.image, memory=256, smp=self.smp) as q:
            # The Tools panel's last entry ends the main screen's second drawing.
            q.wait_for("Recover Bad Sectors Tool")
            q.wait_for("Recover Bad Sectors Tool")
            q.send_key("enter")  # the Quick Memory Test: one device, one algorithm: no selection screens
            q.wait_for("F3 = view log", RUN_TIMEOUT)
            run = q.elapsed()
            q.send_key("f3")
            q.wait_for("F2 = save log", SCREEN_TIMEOUT)
            q.save_log_to_boot_volume(SCREEN_TIMEOUT)
            q.send_key("up", "enter")  # "Exit Application"
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            print(f"the memory test ended {run:.1f} s after boot (-smp {self.smp})", file=sys.stderr)

        processors = [rf"{STAMP} MESSAGE PROCESSORS: {self.smp}"] if self.smp > 1 else []
        at = EXPECTED_LOG.index("PROCESSORS")
        qemu_session.assert_saved_log(self, self.image, EXPECTED_LOG[:at] + processors + EXPECTED_LOG[at + 1:])
        # \Log\Results.jsonl, written beside the log, holds the run.
        saved = qemu_session.read_from_volume(self.image, "/Log/Results.jsonl")
        self.assertIsNotNone(saved, "no \\Log\\Results.jsonl")
        [line] = saved.decode("utf-8").splitlines()
        [device] = json.loads(line)["devices"]
        self.assertEqual((device["result_code"], device["algorithms"][0]["outcome"]), ("UME001000-YKHXVI", "passed"))


if __name__ == "__main__":
    qemu_session.main(MemoryRunTest, __doc__, "the application to boot (TarvikDiag.efi)", options=["smp"])
