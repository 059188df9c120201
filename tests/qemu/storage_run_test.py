#!/usr/bin/env python3
"""The storage test under QEMU on four sparse AHCI drives (rotating, solid
state, single-word models, one past 28-bit addresses): the Storage tab shows
each as IDENTIFY describes it; all six algorithms on the rotating drive end as
QEMU allows (no self-test bit, no log directory); the saved log is exact.
"""

import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qemu_session  # noqa: E402
from qemu_session import QemuSession  # noqa: E402

SCREEN_TIMEOUT = 60
RUN_TIMEOUT = 300  # six algorithms on a 64 MiB drive take seconds under TCG

MIB = 1 << 20
# (file name, size, ide-hd properties). QEMU pads the model with spaces.
DRIVES = [
    ("rotating.raw", 64 * MIB, "model=TVK ROTA7200,serial=TVKHDD001,ver=HD1.07,rotation_rate=7200"),
    ("solid.raw", 64 * MIB, "model=TVK SOLID1,serial=TVKSSD002,ver=SS2.1,rotation_rate=1"),
    ("flash.raw", 64 * MIB, "model=TVKFLASH9,serial=TVKFL0003,ver=F9"),
    # 2^28 + 2^26 sectors: the size comes from the 48-bit words.
    ("large.raw", 160 << 30, "model=ST4000TV202,serial=ZTVK0004,ver=0001,rotation_rate=5400"),
]

# What System Information shows for each drive, by serial number: the model
# field split into maker and model (a single word is the model; its maker is
# named by a known prefix, else generic), the firmware revision, the size in
# whole gigabytes, the rotation rate and the sector count.
EXPECTED_DRIVES = {
    "TVKHDD001": {"Manufacter:": "TVK", "Model number:": "ROTA7200", "Firmware revision:": "HD1.07",
                  "Size:": "0 GB", "Rotation rate:": "7200 rpm", "Temperature:": "-",
                  "Phisycal sector size:": "512 bytes", "Number of logical sectors:": "131072 sectors"},
    "TVKSSD002": {"Manufacter:": "TVK", "Model number:": "SOLID1", "Firmware revision:": "SS2.1",
                  "Size:": "0 GB", "Rotation rate:": "Non-rotating media detected"},
    "TVKFL0003": {"Manufacter:": "Generic Vendor", "Model number:": "TVKFLASH9", "Firmware revision:": "F9",
                  "Rotation rate:": "Not reported"},
    "ZTVK0004": {"Manufacter:": "SEAGATE", "Model number:": "ST4000TV202", "Firmware revision:": "0001",
                 "Size:": "160 GB", "Rotation rate:": "5400 rpm",
                 "Number of logical sectors:": "335544320 sectors"},
}
LABEL_COLUMN, VALUE_COLUMN = 15, 50  # of the System Information box at 100 columns
ROWS_PER_DRIVE = 11  # from "Manufacter:" to "Number of logical sectors:"

# The result code is made from the machine's serial number (tools/qemu.sh)
# and the date of the run.
RESULT_CODE = "UHD00P000-YKHXVI"
STAMP = qemu_session.LOG_STAMP
EXPECTED_LOG = [
    rf"\+\+\+ {STAMP} STORAGE {qemu_session.LOG_EPOCH_MS}",
    # The serial number and firmware fields keep QEMU's padding at their end.
    "UID: TVK-ROTA7200-TVKHDD001           ",
    "DISPLAYNAME: ROTA7200 ATA Device",
    "TYPE: Internal HDD",
    "MODEL: ROTA7200",
    "MANUFACTURER: TVK",
    "SERIAL: TVKHDD001           ",
    "FIRMWARE: HD1.07  ",
    "SIZE: 0 GB",
    "ROTATION_RATE: 7200 rpm",
    "CACHE: 0 MB",
    "TEMPERATURE: 0 C",  # QEMU has no attribute 194
    "PHYSICAL_SECTOR_SIZE: 512 bytes",
    "LOGICAL_SECTOR_SIZE: 512 bytes",
    "LOGICAL_SECTORS: 131072 sectors",
    "SUPPORTED_STANDARDS:   ATA/ATAPI 4, ATA/ATAPI 5, ATA/ATAPI 6, ATA/ATAPI 7, ATA8_ACS. ",
    "SPEC_VERSION: ATA/ATAPI-5 published, ANSI INCITS 340-2000",
    "START TESTS",
    # Each algorithm's start and stop; the targeted read finds no log directory.
    *(line for key, stop in (("SMARTSTATUS", r"SUCCESS \d+ S"), ("SMARTSHORTSELFTEST", "UNSUPPORTED"),
                             ("SMARTDRIVESELFTEST", "UNSUPPORTED"), ("RANDOMSEEK", r"SUCCESS \d+ S"),
                             ("FUNNELSEEK", r"SUCCESS \d+ S"), ("TARGETEDREAD", "UNSUPPORTED"))
      for line in (rf"{STAMP} START {key}", *[rf"{STAMP} WARNING CANT_PERFORM_TEST"] * (key == "TARGETEDREAD"),
                   rf"{STAMP} STOP {key} {stop}")),
    f"STOP TESTS {RESULT_CODE}",
    "--- STORAGE",
]


class StorageRunTest(qemu_session.ImageTestCase):
    def storage_tab_drives(self, q):
        """The drives of the Storage tab, by serial number: label -> value,
        collected page by page. A drive cut by the box's edge is taken from
        the page that shows it whole."""
        found, last = {}, None
        for _ in range(12):
            screen = q.settled_screen(SCREEN_TIMEOUT)
            for row in range(screen.rows - ROWS_PER_DRIVE):
                if screen.text_at(row, LABEL_COLUMN, 35).strip() != "Manufacter:":
                    continue
                fields = {screen.text_at(r, LABEL_COLUMN, 35).strip(): screen.text_at(r, VALUE_COLUMN, 34).strip()
                          for r in range(row, row + ROWS_PER_DRIVE)}
                if "Number of logical sectors:" in fields:
                    found[fields.get("Serial number:")] = fields
            if qemu_session.page(screen) == last:
                return found  # the last page
            last = qemu_session.page(screen)
            q.send_key("pgdn")
        return found

    def test_drives_are_identified_and_a_run_of_all_algorithms_is_logged(self):
        drives = [qemu_session.sparse_drive(os.path.join(self.tmp.name, name), size) + "," + props
                  for name, size, props in DRIVES]
        with QemuSession(self.image, disks=drives) as q:
            q.wait_for("System Information")
            q.wait_for("System Information")
            q.send_key("right", "enter")
            q.wait_for("Machine Information", SCREEN_TIMEOUT)
            q.send_key("tab", "tab")
            q.wait_for("Quick Storage Device Test", SCREEN_TIMEOUT)
            shown = self.storage_tab_drives(q)
            self.assertEqual({serial: {label: shown.get(serial, {}).get(label) for label in fields}
                              for serial, fields in EXPECTED_DRIVES.items()}, EXPECTED_DRIVES)
            self.assertEqual(len(shown), 1 + len(EXPECTED_DRIVES), list(shown))  # and QEMU's boot disk
            q.send_key("esc")
            q.wait_for_line(1, "Main Screen", SCREEN_TIMEOUT)

            # The boot disk is listed first, then the drives in order; only the
            # rotating drive stays selected.
            q.send_key("left", "down", "enter")
            q.wait_for("Next >", SCREEN_TIMEOUT)
            q.send_key("space", "down", "down", "space", "down", "space", "down", "space")
            time.sleep(1)
            self.assertIn("[X] TVK ROTA7200", q.screen.text())
            self.assertEqual(q.screen.text().count("[X]"), 1, q.screen.text())
            q.send_key("enter")
            q.wait_for("Run Test >", SCREEN_TIMEOUT)
            started = q.elapsed()
            q.send_key("enter")
            q.wait_for("F3 = view log", RUN_TIMEOUT)
            run = q.elapsed() - started
            # The outcomes are those of the saved log.
            q.send_key("f3")
            q.wait_for("F2 = save log", SCREEN_TIMEOUT)
            q.save_log_to_boot_volume(SCREEN_TIMEOUT)
            q.send_key("down", "enter")  # from the storage test to "Exit Application"
            self.assertEqual(q.wait_exit(), 0, f"QEMU exit status\n{q.tail()}\n{q.stderr}")
            print(f"six algorithms on a 64 MiB drive took {run:.1f} s", file=sys.stderr)

        # The rows reserved for the 4 drives left out (16 each) are saved as empty lines.
        qemu_session.assert_saved_log(self, self.image, EXPECTED_LOG + [""] * (4 * 16))


if __name__ == "__main__":
    qemu_session.main(StorageRunTest, __doc__, "the application to boot (TarvikDiag.efi)")
