#!/usr/bin/env python3
"""Serial console between this terminal and a QEMU guest whose serial port is
on QEMU's stdin/stdout (-serial stdio). tools/qemu.sh starts it for
interactive runs:

    serial-console.py QEMU_BINARY QEMU_ARGS...

The firmware's serial terminal speaks PC-ANSI: it sends characters beyond
ASCII (box drawing) as code page 437 bytes and understands only PC-ANSI key
sequences. This console re-encodes the output as UTF-8 and rewrites the keys
of xterm-like terminals (ESC O Q for F2, ESC [ 5 ~ for Page Up, ...) into the
sequences the firmware decodes. Ctrl-] ends QEMU.
"""

import os
import select
import shutil
import signal
import subprocess
import sys
import termios
import tty

QUIT = b"\x1d"  # Ctrl-]

# Terminal key sequences -> PC-ANSI sequences of the firmware's terminal.
KEYMAP = {
    b"\x1bOA": b"\x1b[A", b"\x1bOB": b"\x1b[B", b"\x1bOC": b"\x1b[C", b"\x1bOD": b"\x1b[D",
    b"\x1bOH": b"\x1b[H", b"\x1b[1~": b"\x1b[H", b"\x1b[7~": b"\x1b[H",
    b"\x1bOF": b"\x1b[F", b"\x1b[4~": b"\x1b[F", b"\x1b[8~": b"\x1b[F",
    b"\x1b[5~": b"\x1b[I", b"\x1b[6~": b"\x1b[G",
    b"\x1b[2~": b"\x1b[@", b"\x1b[3~": b"\x7f",
    b"\x1bOP": b"\x1b[M", b"\x1bOQ": b"\x1b[N", b"\x1bOR": b"\x1b[O", b"\x1bOS": b"\x1b[P",
    b"\x1b[11~": b"\x1b[M", b"\x1b[12~": b"\x1b[N", b"\x1b[13~": b"\x1b[O", b"\x1b[14~": b"\x1b[P",
    b"\x1b[[A": b"\x1b[M", b"\x1b[[B": b"\x1b[N", b"\x1b[[C": b"\x1b[O", b"\x1b[[D": b"\x1b[P",
}
SEQUENCES = sorted(KEYMAP, key=len, reverse=True)


def translate_keys(data):
    """Rewrites terminal key sequences; the firmware takes 0x7F as Delete,
    so the Backspace key (0x7F on most terminals) becomes 0x08."""
    out = bytearray()
    i = 0
    while i < len(data):
        if data[i] == 0x1B:
            for seq in SEQUENCES:
                if data.startswith(seq, i):
                    out += KEYMAP[seq]
                    i += len(seq)
                    break
            else:
                out.append(0x1B)
                i += 1
        elif data[i] == 0x7F:
            out.append(0x08)
            i += 1
        else:
            out.append(data[i])
            i += 1
    return bytes(out)


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    stdin, stdout = sys.stdin.fileno(), sys.stdout.fileno()
    cols, rows = shutil.get_terminal_size()
    note = "Serial console: Ctrl-] ends QEMU."
    if cols < 100 or rows < 31:
        note += f" This terminal is {cols}x{rows}; the firmware's text modes go up to 100x31."
    print(note, flush=True)

    # fd 3 is the firmware variable store that tools/qemu.sh opened for QEMU.
    pass_fds = (3,) if os.path.exists("/proc/self/fd/3") else ()
    qemu = subprocess.Popen(sys.argv[1:], stdin=subprocess.PIPE, stdout=subprocess.PIPE, pass_fds=pass_fds)
    saved = termios.tcgetattr(stdin) if os.isatty(stdin) else None
    try:
        if saved:
            tty.setraw(stdin)
        guest_out = qemu.stdout.fileno()
        while True:
            ready, _, _ = select.select([stdin, guest_out], [], [])
            if guest_out in ready:
                data = os.read(guest_out, 65536)
                if not data:
                    break
                os.write(stdout, data.decode("cp437").encode("utf-8"))
            if stdin in ready:
                data = os.read(stdin, 1024)
                if not data or QUIT in data:
                    qemu.send_signal(signal.SIGTERM)
                    break
                try:
                    qemu.stdin.write(translate_keys(data))
                    qemu.stdin.flush()
                except BrokenPipeError:
                    break
    finally:
        if saved:
            termios.tcsetattr(stdin, termios.TCSADRAIN, saved)
        os.write(stdout, b"\x1b[0m\x1b[?25h\r\n")
    try:
        status = qemu.wait(10)
    except subprocess.TimeoutExpired:
        qemu.kill()
        status = qemu.wait()
    sys.exit(status if status >= 0 else 128 - status)


if __name__ == "__main__":
    main()
