#!/usr/bin/env python3
"""Boots the NVMe probe image (the firmware alone, no application) under QEMU
+ OVMF with one NVMe drive whose sector 4096 fails to read (blkdebug), and
checks the answers docs/qemu-nvme.md records: how OVMF's pass-through
behaves and what QEMU's controller reports. The probe only reads: the
drive's file must still hold no data.
"""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

RUN_TIMEOUT = 300

# key -> the whole answer, for each fact a test program relies on.
EXPECTED = {
    "controllers": "0x0",  # nothing until the controllers are connected
    "controllers_after_connect": "0x1",
    "io_align": "0x8",
    "version": "0x10100",
    "last_namespace_listed": "0x100",
    "serial": '"NVPROBE1            "',
    "mdts": "0x7",
    "oacs": "0x10a",
    "oncs": "0x15d",
    "identify_cns_unflagged": "efi=0x7 sct=0x0 sc=0xb more=0x0 dnr=0x1",
    "self_test_short": "efi=0x7 sct=0x0 sc=0x1 more=0x0 dnr=0x1",
    "self_test_log": "efi=0x7 sct=0x0 sc=0x2 more=0x0 dnr=0x1",
    "read_lba_0": "efi=0x0 sct=0x0 sc=0x0 more=0x0 dnr=0x0",
    "read_bad_lba": "efi=0x7 sct=0x2 sc=0x81 more=0x0 dnr=0x0",
    "read_8_over_bad_lba": "efi=0x7 sct=0x2 sc=0x81 more=0x0 dnr=0x0",
    "verify_bad_lba": "efi=0x7 sct=0x0 sc=0x6 more=0x0 dnr=0x0",
    "verify_65536_from_0": "efi=0x7 sct=0x0 sc=0x2 more=0x0 dnr=0x1",
    "read_beyond_end": "efi=0x7 sct=0x0 sc=0x80 more=0x0 dnr=0x1",
    "read_namespace_id_0": "efi=0x2 sct=0x0 sc=0x0 more=0x0 dnr=0x0",
    "read_misaligned_by_4": "efi=0x2 sct=0x0 sc=0x0 more=0x0 dnr=0x0",
    "read_twice_mdts": "efi=0x4 sct=0x0 sc=0x0 more=0x0 dnr=0x0",
    "read_twice_mdts_length_after": "0x80000",
}


class NvmeProbeTest(qemu_session.ImageTestCase):
    def test_firmware_and_controller_answer_as_documented(self):
        drive = qemu_session.sparse_drive(os.path.join(self.tmp.name, "nvme.raw"), 256 << 20)
        with QemuSession(self.image, memory=128, nvmes=[f"{drive},serial=NVPROBE1,error_sector=4096"]) as q:
            q.wait_for("NVME PROBE DONE", RUN_TIMEOUT)
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            out = q.output

        facts = [line[5:].strip().partition(" ")[::2] for line in out.splitlines() if line.startswith("NVME ")]
        answers = {}
        for key, value in facts:
            answers.setdefault(key, value)  # the first answer, before the health after the reads
        # The health figures, before and after the failed reads.
        health = [(key, value) for key, value in facts if key in ("media_errors", "error_log_entries")]
        for key, value in EXPECTED.items():
            self.assertEqual(answers.get(key), value, key)
        # The failed reads leave no trace in the health or error logs.
        self.assertEqual(health, [("media_errors", "0x0"), ("error_log_entries", "0x0")] * 2)
        self.assertNotIn("error_entry_lba", answers)
        self.assertFalse(qemu_session.holds_data(drive), "data was written to the NVMe drive")


if __name__ == "__main__":
    qemu_session.main(NvmeProbeTest, __doc__, "the NVMe probe image (TarvikNvmeProbe.efi)")
