"""Drives an image booted under QEMU + OVMF (tools/qemu.sh --console stdio)
through the firmware's PC-ANSI serial terminal.

`output` is the serial text without escape sequences (a cursor move becomes a
line break); `screen` is a VT terminal (pyte) of the console mode's size, 100
by 31, fed with them. Non-ASCII arrives as code page 437. A lone ESC counts as the ESC
key only after about two seconds of silence, so send_key waits after one.
"""

import os
import re
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import pyte  # Debian's python3-pyte

REPO_ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
TOOLS = os.path.join(REPO_ROOT, "tools")

# Firmware boot plus application start. OVMF reaches the application in a few
# seconds under TCG on a loaded two-core machine; the margin is for CI.
BOOT_TIMEOUT = float(os.environ.get("TARVIK_QEMU_BOOT_TIMEOUT", 120))
EXIT_TIMEOUT = float(os.environ.get("TARVIK_QEMU_EXIT_TIMEOUT", 60))

KEYS = {"up": b"\x1b[A", "down": b"\x1b[B", "right": b"\x1b[C", "left": b"\x1b[D", "pgdn": b"\x1b[G",
        "f2": b"\x1b[N", "f3": b"\x1b[O", "esc": b"\x1b", "enter": b"\r", "tab": b"\t", "space": b" "}
SCREEN_SIZE = (100, 31)  # the console mode the application picks on QEMU
ESC_SETTLE = 2.5  # seconds after a lone ESC before the next byte

_CSI = re.compile(r"\x1b\[([0-?]*)([A-Za-z])")
_CSI_PREFIX = re.compile(r"\x1b(\[[0-?]{0,16})?$")  # a sequence cut short
_PC_ANSI_MODE = re.compile(r"\x1b\[=\d*[hl]")


def strip_ansi(text):
    """Text without escape sequences; a cursor move becomes a line break."""
    return _CSI.sub(lambda m: "\n" if m.group(2) in "Hf" else "", text).replace("\x1b", "")


def make_image(out, efi):
    subprocess.run([os.path.join(TOOLS, "make-image.sh"), out, efi], check=True)
    return out


PARTITION_OFFSET = 2048 * 512  # where tools/make-image.sh puts the volume


def read_from_volume(image, path):
    """A file of the image's FAT volume, read with mtools; None when absent."""
    env = dict(os.environ, MTOOLS_SKIP_CHECK="1")
    done = subprocess.run(["mtype", "-i", f"{image}@@{PARTITION_OFFSET}", f"::{path}"],
                          capture_output=True, env=env)
    return done.stdout if done.returncode == 0 else None


def saved_log_lines(image):
    """The lines of \\Log\\Log.log on the boot volume, or None; a last line
    without a line feed comes back marked."""
    saved = read_from_volume(image, "/Log/Log.log")
    if saved is None:
        return None
    *lines, last = saved.decode("latin-1").split("\n")
    return lines + [last + " [no line feed at the end of the file]"] * (last != "")


def sparse_drive(path, size):
    """A raw drive file of size bytes, all zeros, taking no room."""
    with open(path, "wb") as f:
        f.truncate(size)
    return path


def holds_data(path):
    """Whether a sparse file holds data anywhere: something wrote to it."""
    with open(path, "rb") as f:
        try:
            return os.lseek(f.fileno(), 0, os.SEEK_DATA) >= 0
        except OSError:  # ENXIO: the file is one hole
            return False


# The tests start QEMU's clock here, so the date in logs and result codes is
# known. A run on a loaded machine may take many minutes: stamps match any
# time of that morning, and the run's epoch milliseconds any second of it.
QEMU_CLOCK_START = "2024-03-15T10:15:00"
LOG_STAMP = r"20240315T1[01]\d{4}UTC"
LOG_EPOCH_MS = r"1710\d{6}000"


def assert_saved_log(test, image, expected):
    """Checks the saved log's lines against expected, where a text with a
    backslash is a regular expression and any other is exact. Returns the
    lines."""
    lines = saved_log_lines(image)
    test.assertIsNotNone(lines, "no \\Log\\Log.log on the boot volume")
    text = "\n".join(lines)
    test.assertEqual(len(lines), len(expected), text)
    for line, pattern in zip(lines, expected):
        test.assertRegex(line, "^" + (pattern if "\\" in pattern else re.escape(pattern)) + "$", text)
    return lines


def smbios_values():
    """The SMBIOS values tools/qemu.sh gives the guest, e.g. SYSTEM_SERIAL."""
    out = subprocess.run([os.path.join(TOOLS, "qemu.sh"), "--smbios"], check=True,
                         capture_output=True, text=True).stdout
    return dict(line.split("=", 1) for line in out.splitlines() if "=" in line)


class Screen:
    """The terminal's screen at one moment; rows and columns count from 0."""

    def __init__(self, lines):
        self.lines, self.rows, self.columns = lines, len(lines), len(lines[0])

    def text_at(self, row, column, width):
        return self.lines[row][column:column + width]

    def line(self, row):
        return self.lines[row].rstrip()

    def text(self):
        return "\n".join(self.line(r) for r in range(self.rows)).rstrip("\n")


def page(screen):
    """The screen's rows but the last, which holds the clock."""
    return [screen.line(row) for row in range(screen.rows - 1)]


def clock(screen):
    """The clock's text: hh:mm:ss, two columns left of the last row's end."""
    return screen.text_at(screen.rows - 1, screen.columns - 10, 8)


def assert_main_screen_whole(test, screen):
    """The main screen drawn whole at the screen's size: title, subtitle, the
    version line and the clock on the last row, and the Tests and Tools boxes
    (each 40% of the width, 5% in from its half) closed on all four sides."""
    columns, rows, dump = screen.columns, screen.rows, screen.text()
    test.assertEqual([screen.line(0).strip(), screen.line(1).strip()], ["Tarvik Diagnostic", "Main Screen"], dump)
    test.assertEqual(screen.text_at(rows - 1, 0, columns - 10).strip(), "Version 00.1207", dump)
    test.assertRegex(clock(screen), r"^\d\d:\d\d:\d\d$", dump)
    width = columns * 40 // 100
    for left in (columns * 5 // 100 - 1, columns // 2 + columns * 5 // 100 - 1):
        test.assertEqual(screen.text_at(4, left, width + 2), "╔" + "═" * width + "╗", dump)
        bottom = next((row for row in range(5, rows) if screen.text_at(row, left, 1) == "╚"), None)
        test.assertIsNotNone(bottom, f"the box at column {left} has no bottom\n{dump}")
        test.assertEqual(screen.text_at(bottom, left, width + 2), "╚" + "═" * width + "╝", dump)
        for row in range(5, bottom):
            test.assertEqual(screen.text_at(row, left, 1) + screen.text_at(row, left + width + 1, 1), "║║", dump)


class QemuError(AssertionError):
    pass


class QemuSession:
    """One QEMU run of a disk image; use as a context manager."""

    def __init__(self, image, memory=None, disks=(), vga=False, nvmes=(), smp=None, secure_boot=None):
        """nvmes and secure_boot: as tools/qemu.sh --nvme and --secure-boot
        take them. The guest's clock starts at QEMU_CLOCK_START."""
        cmd = [os.path.join(TOOLS, "qemu.sh"), "--console", "stdio"] + (["--vga"] if vga else [])
        for option, value in (("--secure-boot", secure_boot), ("--memory", memory), ("--smp", smp)):
            if value:
                cmd += [option, str(value)]
        cmd += [arg for disk in disks for arg in ("--disk", disk)]
        cmd += [arg for nvme in nvmes for arg in ("--nvme", nvme)]
        self.command = cmd + [image, "--", "-rtc", "base=" + QEMU_CLOCK_START]
        self._terminal = pyte.Screen(*SCREEN_SIZE)
        self._stream = pyte.Stream(self._terminal)
        self._raw = bytearray()
        self._text = []  # plain-text pieces of the serial output, in order
        self._pending = ""
        self._stderr = bytearray()
        self._lock = threading.Condition()
        self._mark = 0
        self._esc_until = 0.0
        self.proc = None
        self.started_at = None

    # ---- process ---------------------------------------------------------------
    def start(self):
        self.started_at = time.monotonic()
        self.proc = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE)
        self._readers = [threading.Thread(target=self._pump, args=(self.proc.stdout, self._raw), daemon=True),
                         threading.Thread(target=self._pump, args=(self.proc.stderr, self._stderr), daemon=True)]
        for t in self._readers:
            t.start()
        return self

    def _pump(self, pipe, buf):
        fd = pipe.fileno()
        while True:
            try:
                chunk = os.read(fd, 65536)
            except OSError:
                chunk = b""
            with self._lock:
                if chunk:
                    buf.extend(chunk)
                    if buf is self._raw:
                        self._take(chunk.decode("cp437"))  # non-ASCII comes as code page 437
                self._lock.notify_all()
            if not chunk:
                return

    def _take(self, text):
        # An escape sequence may be split between two reads: hold back an
        # unfinished one until the rest arrives.
        text = self._pending + text
        unfinished = _CSI_PREFIX.search(text)
        if unfinished:
            text, self._pending = text[:unfinished.start()], unfinished.group()
        else:
            self._pending = ""
        self._text.append(strip_ansi(text))
        self._stream.feed(_PC_ANSI_MODE.sub("", text))

    def close(self):
        if self.proc:
            self.proc.kill()  # nothing when QEMU has ended
            self.proc.wait()
            for t in self._readers:
                t.join(5)
            for pipe in (self.proc.stdin, self.proc.stdout, self.proc.stderr):
                try:
                    pipe.close()
                except OSError:
                    pass  # the guest is gone; nothing left to flush

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.close()

    def elapsed(self):
        return time.monotonic() - self.started_at

    # ---- output ----------------------------------------------------------------
    @property
    def screen(self):
        """The terminal's screen as it is now (a copy)."""
        with self._lock:
            return Screen(list(self._terminal.display))

    @property
    def output(self):
        """All serial output so far as plain text."""
        with self._lock:
            return self._joined()

    def _joined(self):
        if len(self._text) > 1:
            self._text[:] = ["".join(self._text)]
        return self._text[0] if self._text else ""

    @property
    def stderr(self):
        with self._lock:
            return self._stderr.decode("cp437")

    def tail(self, chars=3000):
        return self.output[-chars:]

    def _failure(self, what):
        status = self.proc.poll()
        state = "still running" if status is None else f"exited with status {status}"
        return QemuError(f"{what} (QEMU {state}, {self.elapsed():.1f} s)\n"
                         f"--- last serial output ---\n{self.tail()}\n"
                         f"--- QEMU stderr ---\n{self.stderr[-2000:]}")

    def wait_for(self, text, timeout=BOOT_TIMEOUT):
        """Waits until `text` appears in the output after the previous match;
        returns the output from there up to and including the match."""
        deadline = time.monotonic() + timeout
        with self._lock:
            while True:
                out = self._joined()
                found = out.find(text, self._mark)
                if found >= 0:
                    start, self._mark = self._mark, found + len(text)
                    return out[start:self._mark]
                if b"KVM internal error" in self._stderr:
                    raise self._failure("KVM cannot run this guest; set TARVIK_QEMU_ACCEL=tcg")
                left = deadline - time.monotonic()
                if self.proc.poll() is not None and not any(t.is_alive() for t in self._readers):
                    raise self._failure(f"QEMU ended before {text!r} appeared")
                if left <= 0:
                    raise self._failure(f"{text!r} did not appear within {timeout:.0f} s")
                self._lock.wait(min(left, 0.5))

    def settled_screen(self, timeout=60):
        """The screen once its rows but the clock's stop changing for a second."""
        last = self.screen
        for _ in range(int(timeout)):
            time.sleep(1)
            now = self.screen
            if page(now) == page(last):
                return now
            last = now
        raise self._failure(f"the screen kept changing\n{last.text()}")

    def wait_for_line(self, row, text, timeout=60):
        """Waits until the screen's row reads text (the clock may cut a text
        on the serial line, so the output is not searched)."""
        deadline = time.monotonic() + timeout
        while self.screen.line(row).strip() != text:
            if time.monotonic() > deadline:
                raise self._failure(f"{text!r} not on row {row}\n{self.screen.text()}")
            time.sleep(0.5)

    def save_log_to_boot_volume(self, timeout=60):
        """On a log screen: F2, the boot volume, then back to the main screen."""
        self.send_key("f2")
        self.wait_for("Cancel", timeout)
        self.send_key("enter")
        self.wait_for("Log saved successfully!", timeout)
        self.send_key("enter", "esc")
        self.wait_for_line(1, "Main Screen", timeout)

    # ---- input -----------------------------------------------------------------
    def send(self, data):
        if isinstance(data, str):
            data = data.encode("latin-1")
        wait = self._esc_until - time.monotonic()
        if wait > 0:
            time.sleep(wait)
        self.proc.stdin.write(data)
        self.proc.stdin.flush()

    def send_key(self, *names, gap=0.1):
        """Sends keys by name (KEYS) or single characters, in order."""
        for name in names:
            self.send(KEYS.get(name.lower(), name) if len(name) > 1 else name)
            if name.lower() == "esc":
                self._esc_until = time.monotonic() + ESC_SETTLE
            else:
                time.sleep(gap)

    def wait_exit(self, timeout=EXIT_TIMEOUT):
        """Waits for QEMU to end by itself; returns its exit status."""
        try:
            return self.proc.wait(timeout)
        except subprocess.TimeoutExpired:
            raise self._failure(f"QEMU did not exit within {timeout:.0f} s") from None


class ImageTestCase(unittest.TestCase):
    """A test with a fresh disk image (self.image) holding `efi_file`."""
    efi_file = None

    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory(prefix="tarvik-qemu-")
        self.image = os.path.join(self.tmp.name, "tarvik-usb.img")
        self.addCleanup(self.tmp.cleanup)
        make_image(self.image, type(self).efi_file)


def main(test_class, description, what, options=()):
    """Runs a QEMU test script's tests on the --efi file it is given; each
    name in options sets that class attribute (required when it is None)."""
    import argparse
    parser = argparse.ArgumentParser(description=description,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--efi", required=True, help=what)
    for name in options:
        default = getattr(test_class, name)
        parser.add_argument("--" + name, required=default is None, default=default,
                            type=str if default is None else type(default))
    args, rest = parser.parse_known_args()
    test_class.efi_file = os.path.abspath(args.efi)
    if not os.path.isfile(test_class.efi_file):
        parser.error(f"no such file: {test_class.efi_file}")
    for name in options:
        setattr(test_class, name, getattr(args, name))
    unittest.main(argv=[sys.argv[0], "-v", *rest])
