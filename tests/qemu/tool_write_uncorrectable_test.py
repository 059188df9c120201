#!/usr/bin/env python3
"""The tool runner image runs the bad-sector tool's write uncorrectable on a
sparse scratch drive (SCRATCH7200) under QEMU, which refuses the command: the
tool reports the first sector, ends with 1004, and writes nothing.
"""

import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

RUN_TIMEOUT = 300
# More than 2^28 sectors, so the drive is addressed in the 48-bit form and the
# marked sector is drawn over the whole of it.
SCRATCH_SECTORS = (1 << 28) + (1 << 26)
SCRATCH_PROPS = "model=TVK SCRATCH7200,serial=TVKSCR001,ver=SC1,rotation_rate=7200"


class ToolWriteUncorrectableTest(qemu_session.ImageTestCase):
    def test_refused_write_uncorrectable_ends_with_1004_and_writes_nothing(self):
        scratch = qemu_session.sparse_drive(os.path.join(self.tmp.name, "scratch.raw"), SCRATCH_SECTORS * 512)
        with QemuSession(self.image, memory=128, disks=[f"{scratch},{SCRATCH_PROPS}"]) as q:
            q.wait_for("TOOL RESULT", RUN_TIMEOUT)
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            out = q.output

        # The boot disk comes first; the runner takes the scratch drive.
        self.assertIn("TOOL RUNNER: drive 0 is HARDDISK", out, out[-3000:])
        chosen = "TOOL RUNNER: write uncorrectable on drive 1"
        self.assertIn(chosen, out, out[-3000:])
        run = out[out.find(chosen):]
        reported = [line.strip() for line in run.splitlines()
                    if line.startswith(("TOOL ASKS", "TOOL PROGRESS", "TOOL LINE", "TOOL RESULT"))]
        # QEMU's attribute 5 (100, threshold 36) raises no health warning:
        # the one confirmation, then one sector tried and refused.
        marked = re.fullmatch(r"TOOL LINE: Writting to LBA (\d+)", reported[2] if len(reported) == 5 else "")
        self.assertIsNotNone(marked, "\n".join(reported))
        self.assertTrue(1 <= int(marked.group(1)) < SCRATCH_SECTORS, reported[2])
        self.assertRegex(reported[0], r"^TOOL ASKS \(kind 2\): This tool will identify and remap .* -> yes$")
        self.assertEqual(reported[1:2] + reported[3:],
                         ["TOOL PROGRESS 0", "TOOL LINE: Error in WriteUncorrectable", "TOOL RESULT 1004"])

        self.assertFalse(qemu_session.holds_data(scratch), "data was written to the scratch drive")


if __name__ == "__main__":
    qemu_session.main(ToolWriteUncorrectableTest, __doc__, "the tool runner test image (TarvikToolRunner.efi)")
