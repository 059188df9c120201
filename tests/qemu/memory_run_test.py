#!/usr/bin/env python3
"""The memory test under QEMU (256 MiB, --smp processors): the run passes
with its result code, the saved log is exact (with the number of processors
when there are several), and \Log\Results.jsonl holds the run with the
screen's code.

    memory_run_test.py --efi build/TarvikDiag.efi [--smp N] [unittest options]
"""

import json
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
import screen_checks  # noqa: E402
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
        self.assertEqual(qemu_session.smbios_values()["SYSTEM_SERIAL"], "TVK-QEMU-0001",
                         "the expected result code was worked out for this serial number")
        with QemuSession(self.image, memory=256, screen_size=(100, 31),
                         qemu_args=["-rtc", "base=" + qemu_session.QEMU_CLOCK_START], smp=self.smp) as q:
            # The Tools panel's last entry ends the main screen's second drawing.
            q.wait_for("Recover Bad Sectors Tool")
            q.wait_for("Recover Bad Sectors Tool")
            screen_checks.assert_main_screen_whole(self, q.screen)
            self.assertIn(" Quick Memory Test ", q.screen.line(5))
            q.send_key("enter")  # one device, one algorithm: no selection screens
            q.wait_for("F3 = view log", RUN_TIMEOUT)
            run = q.elapsed()
            screen = q.screen
            self.assertEqual(screen.line(0).strip(), "Tarvik Diagnostic", screen.text())
            self.assertIn("Result Code: UME001000-YKHXVI", screen.text())
            at = screen.find("Advanced Integrity Test PASSED")
            self.assertIsNotNone(at, screen.text())
            row, column = at[0], at[1] + len("Advanced Integrity Test ")
            self.assertEqual([screen.attribute(row, c) for c in range(column, column + 6)],
                             [screen_checks.GREEN_ON_BLACK] * 6, "PASSED in green")

            q.send_key("f3")
            q.wait_for("F2 = save log", SCREEN_TIMEOUT)
            if self.smp > 1:
                self.assertIn(f"Message Processors: {self.smp}", q.screen.text(), "the log view")
            q.save_log_to_boot_volume(SCREEN_TIMEOUT)
            q.send_key("up", "enter")  # "Exit Application"
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            print(f"the memory test ended {run:.1f} s after boot (-smp {self.smp})", file=sys.stderr)

        processors = [rf"{STAMP} MESSAGE PROCESSORS: {self.smp}"] if self.smp > 1 else []
        at = EXPECTED_LOG.index("PROCESSORS")
        qemu_session.assert_saved_log(self, self.image, EXPECTED_LOG[:at] + processors + EXPECTED_LOG[at + 1:])
        self.assert_results_line()

    def assert_results_line(self):
        import jsonschema
        saved = qemu_session.read_from_volume(self.image, "/Log/Results.jsonl")
        self.assertIsNotNone(saved, "no \\Log\\Results.jsonl")
        lines = saved.decode("utf-8").splitlines()
        self.assertEqual(len(lines), 1, saved)
        record = json.loads(lines[0])
        schema_file = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "results.schema.json")
        with open(schema_file) as f:
            jsonschema.Draft202012Validator(json.load(f)).validate(record)
        self.assertEqual((record["test"], record["machine"]["serial_number"]), ("Quick Memory Test", "TVK-QEMU-0001"))
        self.assertTrue(record["started"].startswith("2024-03-15T10:1"), record["started"])
        [device] = record["devices"]
        self.assertEqual(device["result_code"], "UME001000-YKHXVI")
        self.assertEqual([(a["name"], a["outcome"]) for a in device["algorithms"]],
                         [("Advanced Integrity Test", "passed")])


if __name__ == "__main__":
    qemu_session.main(MemoryRunTest, __doc__, "the application to boot (TarvikDiag.efi)", options=["smp"])
