#!/usr/bin/env python3
"""The tarvik program as a fleet and a support desk use it: every saved run's
line in Results.jsonl validates against docs/results.schema.json and agrees
with Log.log; --decode reads back the codes of real runs; the command line
says what is wrong at once. A storage run, an NVMe run and a cancelled
recovery-tool run stand for all: the other modules' lines are built by the
same code, whose unit tests follow each kind."""
import json
import os
import pty
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import jsonschema

TARVIK = sys.argv.pop(1)
ROOT = Path(__file__).resolve().parents[2]
SCHEMA = json.loads((ROOT / "docs" / "results.schema.json").read_text())
SAVE = 'wait 900 "F3 = view log"; key F3; wait "F2 = save log"; key F2; wait "Save Log"; key Enter; wait "Log saved"; key Enter;'
RUNS = {
    # module: (keys up to the end of the run, keys from its log to the exit), on the default machine
    "storage": ('wait "Main Screen"; key Down; key Enter; wait "Select Devices"; key Enter;'
                'wait "Select Algorithms"; key Down 6; key Space; key Up; key Space; key Up 5; key Space;'
                'key Enter; wait 900 "Press ENTER"; key Enter;', 'key Esc; wait "Main Screen"; key Down 2; key Enter'),
    # Health Status and Error Log Read Test on both NVMe drives, the worn one failing.
    "nvme": ('wait "Main Screen"; key Down 2; key Enter; wait "Select Devices"; key Enter; wait "Select Algorithms";'
             'key Down; key Space; key Down; key Space; key Down; key Space; key Down 2; key Space; key Enter;'
             'wait 900 "Press ENTER"; key Enter;', 'key Esc; wait "Main Screen"; key Down; key Enter'),
    # The recovery tool's check, cancelled once it has found a sector.
    "recovery": ('wait "Main Screen"; key Right; key Down; key Enter; wait "Select Devices"; key Enter;'
                 'wait "Select Algorithms"; key Enter; wait "Do you want to proceed"; type "y"; wait "#001"; key Esc;',
                 'key Esc; wait "Main Screen"; key Left; key Down 2; key Enter'),
}


def run(args, **kwargs):
    return subprocess.run([TARVIK, *args], capture_output=True, text=True, timeout=600, **kwargs)


class SavedRuns(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory()
        cls.runs = {}
        for name, (keys, back) in RUNS.items():
            folder = Path(cls.tmp.name) / name
            folder.mkdir()
            machine = folder / "machine.ini"
            machine.write_text(run(["--print-machine"]).stdout)
            # Saved twice: the file gains a line per save and keeps the first.
            script = keys + SAVE + 'key F2; wait "Save Log"; key Enter; wait "Log saved"; key Enter;' + back
            done = run(["--machine", str(machine), "--virtual-clock", "--no-terminal", "--keys-text", script])
            assert done.returncode == 0, name + ": " + done.stderr
            log_dir = next(folder.glob("volumes/*/Log"))
            serial = re.search(r"^serial\s*=\s*(\S+)", machine.read_text(), re.M).group(1)
            cls.runs[name] = (log_dir, serial)

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def lines(self, name):
        text = (self.runs[name][0] / "Results.jsonl").read_bytes()
        self.assertTrue(text.endswith(b"\n") and not text.startswith(b"\xef\xbb\xbf"))
        return [json.loads(line) for line in text.decode("utf-8").splitlines()]

    def test_every_saved_run_validates_and_agrees_with_the_log(self):
        for name in RUNS:
            with self.subTest(name):
                saved = self.lines(name)
                self.assertEqual(len(saved), 2)
                for record in saved:
                    jsonschema.Draft202012Validator(SCHEMA).validate(record)
                self.assertEqual(saved[0]["devices"], saved[1]["devices"])
                log = (self.runs[name][0] / "Log.log").read_text(errors="replace")
                codes = re.findall(r"^STOP TESTS (\S+)$", log, re.M)
                self.assertEqual([d["result_code"] for d in saved[0]["devices"] if d["result_code"]], codes[:len(codes) // 2])

    def test_findings_come_structured(self):
        storage = self.lines("storage")[0]
        self.assertEqual(storage["machine"]["serial_number"], self.runs["storage"][1])
        unreadable = sorted(sum((d["unreadable_lbas"] for d in storage["devices"]), []))
        self.assertEqual(unreadable, list(range(204800, 204805)))
        worn = self.lines("nvme")[0]["devices"][1]
        health = worn["algorithms"][0]
        self.assertEqual((health["name"], health["outcome"]), ("Health Status", "failed"))
        self.assertEqual(health["findings"][0]["fields"]["percentage_used"], 112)
        self.assertEqual(worn["unreadable_lbas"], [123456789])
        recovery = self.lines("recovery")[0]
        self.assertEqual(recovery["kind"], "tool")
        check = recovery["devices"][0]
        self.assertEqual((check["algorithms"][0]["outcome"], check["unreadable_lbas"][0]), ("canceled", 1000))

    def test_decode_reads_the_codes_of_real_runs(self):
        for name in ("storage", "nvme"):
            record = self.lines(name)[0]
            serial = self.runs[name][1]
            for device in record["devices"]:
                decoded = json.loads(run(["--decode", device["result_code"], "--serial", serial, "--json"]).stdout)
                self.assertEqual(decoded["module"]["name"], record["test"])
                self.assertTrue(decoded["serial"]["fits"])
                # The code marks an algorithm as run when it passed or failed.
                ran = [a["name"] for a in device["algorithms"] if a["outcome"] in ("passed", "failed")]
                self.assertEqual([a["name"] for a in decoded["algorithms"]], ran)
                failed = [a["name"] for a in device["algorithms"] if a["outcome"] == "failed"]
                self.assertEqual([a["name"] for a in decoded["algorithms"] if a["failed"]], failed)
                date = decoded["date"]
                y, m, d = map(int, record["started"][:10].split("-"))
                self.assertIn(y, date["years"]); self.assertIn(m, date["months"]); self.assertIn(d, date["days"])


class CommandLine(unittest.TestCase):
    def test_documented_decode_examples(self):
        # docs/results.md: a storage code and a memory code.
        out = run(["--decode", "UHD011010-PMKW9G", "--serial", "KVN7400-2418-0095"]).stdout
        self.assertIn("Failed:     Targeted Read Test", out)
        self.assertIn("fits the code", out)
        out = run(["--decode", "UME001001-GMKVMI", "--serial", "TENCH-0001"]).stdout
        self.assertIn("Failed:     Advanced Integrity Test", out)
        self.assertIn("does NOT fit", out)

    def test_malformed_codes_are_refused_with_their_reason(self):
        for code, reason in [("UHD0110", "16 characters"), ("XHD011010-PMKW9G", "begins with U"),
                             ("UHD011010+PMKW9G", "dash"), ("UHD01W010-PMKW9G", "algorithms"),
                             ("UHD010011-PMKW9G", "failed but not run"), ("UHD011010-P1KW9G", "date")]:
            with self.subTest(code):
                done = run(["--decode", code])
                self.assertEqual(done.returncode, 2)
                self.assertIn(reason, done.stderr)

    def test_profiles_that_cannot_be_read_say_why(self):
        # The reasons of files that cannot be read are the profile tests'; here that they reach the user.
        done = run(["--machine", "/tmp"])
        self.assertEqual(done.returncode, 2)
        self.assertIn("/tmp: is a folder", done.stderr)

    def test_a_terminal_input_with_piped_output_is_refused_at_once(self):
        main, secondary = pty.openpty()
        try:
            done = run([], stdin=secondary)
        finally:
            os.close(main)
            os.close(secondary)
        self.assertEqual(done.returncode, 2)
        self.assertIn("the output is not a terminal", done.stderr)
        self.assertIn("--keys", done.stderr)
        self.assertNotIn("key script had ended", done.stderr)


if __name__ == "__main__":
    unittest.main()
