#!/usr/bin/env python3
"""Writes the seed inputs of the fuzz targets' corpora (tests/fuzz/corpus/).

The seeds are the structures the unit tests build: real SMBIOS tables (the
host firmware's tables of machines/*.ini, dumped as their declared length,
structure count and bytes into tests/fuzz/seeds/), module texts and log
lines, format strings the application uses. Inputs a fuzzer found are
committed beside them by hand and never rewritten here.

Every target but the formatter's begins its input with the number of the
pool allocation to fail (0: none).

    tests/fuzz/make_seeds.py [target...]
"""
import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
CORPUS = HERE / "corpus"
MACHINE_TABLES = {path.stem: path.read_bytes() for path in sorted((HERE / "seeds").glob("*.smbios"))}


def u8(v):
    return struct.pack("<B", v & 0xFF)


def u16(v):
    return struct.pack("<H", v & 0xFFFF)


def i32(v):
    return struct.pack("<i", v)


def u64(v):
    return struct.pack("<Q", v & 0xFFFFFFFFFFFFFFFF)


def wide(text):
    return text.encode("utf-16-le")


# ---- format: a program of literals, conversions and line ends -------------
CONVERSIONS = "sacdiuxXpr"


def f_literal(text):
    return u8(0) + u8(len(text)) + wide(text)


def f_conversion(conv, *, width=None, star_width=None, precision=None, star_precision=None,
                 flags="", long_values=False, value=0, text=""):
    w = 1 if width is not None else 2 if star_width is not None else 0
    p = 1 if precision is not None else 2 if star_precision is not None else 0
    shape = w + 3 * p + 9 * (1 if long_values else 0)
    bits = sum(1 << "-0,+ ".index(f) for f in flags)
    out = u8(1) + u8(shape) + u8(bits) + u8(CONVERSIONS.index(conv))
    for kind, digits, star in ((w, width, star_width), (p, precision, star_precision)):
        out += u16(digits) if kind == 1 else i32(star) if kind == 2 else b""
    if conv == "s":
        out += u8(len(text)) + wide(text)
    elif conv == "a":
        raw = text.encode("latin-1")
        out += u8(len(raw)) + raw
    else:
        out += u64(value)
    return out


def f_line_end(kind):
    return u8(3) + u8(kind)


def f_not_conversion(char):
    return u8(2) + u8(0) + u8(5) + wide(char)


def f_program(capacity, *ops):
    return u16(capacity) + u8(1) + b"".join(ops)


def f_raw(capacity, text):
    return u16(capacity) + u8(0) + wide(text)


def format_seeds():
    seeds = {
        "log-line-with-stamp": u16(200) + f_conversion("s", text="2026-11-22 09:30:00") + f_literal(" ")
        + f_conversion("s", text="START") + f_literal(" ") + f_conversion("s", text="MEMORY_TEST") + u8(0),
        "numbers-grouped-and-padded": u16(64) + f_conversion("d", flags=",", long_values=True, value=-1234567890123)
        + f_conversion("u", width=8, flags="0", value=42) + f_conversion("x", value=0xBEEF)
        + f_conversion("X", long_values=True, value=0x123456789ABCDEF0) + f_conversion("i", flags="+", value=7) + u8(0),
        "strings-cut-and-justified": u16(40) + f_conversion("s", star_width=-12, text="Korvan") + f_literal("|")
        + f_conversion("a", precision=3, text="Velora\xe9") + f_conversion("s", star_precision=2, text="abcdef")
        + f_conversion("c", width=3, value=0x2588) + u8(1),
        "status-pointer-and-line-ends": u16(120) + f_conversion("r", value=0x8000000000000002)
        + f_conversion("r", value=0x800000000000001D) + f_line_end(0) + f_conversion("p", value=0x1234ABCD)
        + f_line_end(1) + f_not_conversion("q") + f_line_end(2) + u8(0),
        "tiny-buffer": u16(1) + f_literal("abc") + f_line_end(0) + u8(0),
    }
    # The program seeds as written above begin with their capacity; the mode
    # byte after it chooses a program.
    seeds = {name: data[:2] + u8(1) + data[2:] for name, data in seeds.items()}
    seeds["raw-directives"] = f_raw(300, "%-0,+ *.*lLd %,ld %08.3s %q %*c %% %.*a %lX %r %p %")
    seeds["raw-log-format"] = f_raw(200, "%s %s %s %ld\n\r %s: %s")
    return seeds


# ---- SMBIOS tables: declared length, structure count, then the bytes ---------
def structure(type_, length, strings=(), fields=b""):
    formatted = bytearray(max(length, 4))
    formatted[0], formatted[1] = type_, length & 0xFF
    formatted[4:4 + len(fields)] = fields[:max(length - 4, 0)]
    body = bytes(formatted[:length]) if length >= 4 else bytes(formatted[:4])
    tail = b"".join(s.encode("latin-1") + b"\0" for s in strings) if strings else b"\0"
    return body + tail + b"\0"


def table(*structures, length=None, count=None):
    data = b"".join(structures)
    return u16(len(data) if length is None else length) + u16(len(structures) if count is None else count) + data


def language(current, installable=("en|US|iso8859-1", "pt|BR|iso8859-1"), length=0x16):
    fields = bytes([len(installable), 0]) + bytes(15) + bytes([current])
    return structure(13, length, installable, fields)


def memory_device(size_mb, type_, speed, strings=("Kestrel", "SN-0001", "KV-3200"), numbers=(1, 2, 3), length=0x1B):
    fields = bytearray(0x1B - 4)
    struct.pack_into("<H", fields, 0x0C - 4, size_mb)
    fields[0x12 - 4] = type_
    struct.pack_into("<H", fields, 0x15 - 4, speed)
    fields[0x17 - 4], fields[0x18 - 4], fields[0x1A - 4] = numbers
    return structure(17, length, strings, bytes(fields))


SYSTEM = structure(1, 8, ("Korvan Systems", "Korvan Pro 7400", "Rev A2", "KVN7400-2418-0095"), bytes([1, 2, 3, 4]))


def with_failures(seeds, failing=(1, 2, 5)):
    """Each seed without a failing allocation, and the first few also with one."""
    out = {name: u8(0) + data for name, data in seeds.items()}
    for (name, data), nth in zip(list(seeds.items()), failing):
        out[f"{name}-allocation-{nth}-fails"] = u8(nth) + data
    return out


def language_seeds():
    return with_failures({
        **MACHINE_TABLES,
        "portuguese": table(SYSTEM, language(2)),
        "current-language-past-the-strings": table(language(9)),
        "structure-too-short-for-the-current-language": table(language(1, length=0x15)),
        "one-letter-language": table(language(1, installable=("e",))),
        "empty-language-string": table(structure(13, 0x16, (), bytes(17) + bytes([1]))),
        "language-cut-by-the-table-end": table(language(1), length=0x16 + 6),
    })


def memory_rows_seeds():
    return with_failures({
        **MACHINE_TABLES,
        "four-slots-one-empty": table(SYSTEM, *[memory_device(4096, 24, 1600) for _ in range(3)],
                                      memory_device(0, 24, 0)),
        "odd-sizes-and-types": table(memory_device(0xFFFF, 255, 0xFFFF), memory_device(0x7FFF, 26, 1),
                                     memory_device(1, 2, 0, strings=("", "", ""))),
        "string-numbers-past-the-set": table(memory_device(2048, 24, 2400, numbers=(7, 255, 0))),
        "devices-older-and-shorter": table(memory_device(1024, 18, 400, length=0x15),
                                           memory_device(512, 19, 533, length=0x0E)),
        "long-serial-numbers": table(*[memory_device(8192, 24, 3200, strings=("M" * 120, "S" * 300, "P" * 90))
                                       for _ in range(5)]),
    }, failing=(3, 9, 14))


def smbios_seeds():
    """After the failing allocation: the entry points (0: 2.x, 1: 3.0, 2: both),
    the probe's type and offset, then the table."""
    good = table(SYSTEM, structure(0, 0x0A, ("Tarvik Firmware Works", "TFW 2.14.1", "03/18/2025"),
                                   bytes([1, 2, 0, 0, 3])), memory_device(4096, 24, 1600), language(1))
    probe = u8(17) + u16(8)
    end = structure(127, 4)
    v2, v3, both = u8(0), u8(1), u8(2)
    return with_failures({
        **{name: v2 + probe + table for name, table in MACHINE_TABLES.items()},
        **{name + "-smbios3": v3 + probe + table for name, table in MACHINE_TABLES.items()},
        "machine-bios-memory-language": v2 + probe + good,
        "both-entry-points": both + probe + good,
        "more-structures-counted-than-held": v2 + probe + table(SYSTEM, count=40),
        "length-below-the-header": v2 + u8(4) + u16(0) + table(SYSTEM, bytes([4, 2, 0, 0, 0, 0, 4, 4, 0, 0, 0, 0]), count=3),
        "string-set-cut-by-the-end": v2 + u8(4) + u16(12) + table(SYSTEM, bytes([4, 6, 0, 0, 0, 0]) + b"ab"),
        "declared-longer-than-given": v2 + u8(1) + u16(0) + table(SYSTEM, length=4000),
        "probe-past-the-end": v2 + u8(1) + u16(60000) + table(SYSTEM),
        "smbios3-without-end-of-table": v3 + probe + table(SYSTEM, memory_device(4096, 24, 1600)),
        "smbios3-end-of-table-in-the-middle": v3 + probe + table(SYSTEM, end, memory_device(4096, 24, 1600)),
        "smbios3-maximum-size-cuts-a-structure": v3 + probe + table(SYSTEM, memory_device(4096, 24, 1600), end,
                                                                   length=len(SYSTEM) + 20),
    }, failing=(1, 4, 10))


# ---- log: a stand-in module's texts and what a run collected ---------------
def l_text(text):
    units = len(text.encode("utf-16-le")) // 2
    half = (units + 1) // 2
    out = u8(half) + wide(text)
    return out + (u16(0) if units < 2 * half else b"")


def l_time(year, month, day, hour, minute, second):
    return struct.pack("<HBBBBBBIhBB", year, month, day, hour, minute, second, 0, 0, 0, 0, 0)


def log_run(key, algorithms, devices, summary=(), states=None, messages=None, codes=None,
            algorithm_selection=None, device_selection=None, times=None, durations=None, stray=""):
    """algorithms: keys; devices: lists of (key, value) rows, all as long."""
    rows = len(devices[0]) if devices else 0
    cells = [(d, a) for d in range(len(devices)) for a in range(len(algorithms))]
    out = l_text(key) + u8(len(algorithms) - 1) + u8(len(devices)) + u8(rows)
    out += b"".join(l_text(k) for k in algorithms)
    for device in devices:
        out += b"".join(l_text(k) + l_text(v) for k, v in device)
    out += u8(len(summary)) + b"".join(l_text(line) for line in summary)
    for d, a in cells:
        cell_messages = (messages or {}).get((d, a), [])
        out += u8((states or {}).get((d, a), 2)) + u8(len(cell_messages))
        out += b"".join(l_text(m) for m in cell_messages)
    out += b"".join(u8(v) for v in (algorithm_selection or [1] * len(algorithms)))
    out += b"".join(u8(v) for v in (device_selection or [1] * len(devices)))
    for d in range(len(devices)):
        code = (codes or [f"UXX00{d}000-XKUXDI" for _ in devices])[d]
        out += l_text(code or "") + u8(0 if code is None else 1)
    start = l_time(2024, 3, 15, 10, 15, 0)
    out += b"".join(times or [start] * (2 + len(cells)))
    out += b"".join(durations or [l_time(0, 0, 0, 0, 1, 15)] * len(cells))
    return out + l_text(stray)


def recovery(lines, operation=1, rows=2, names=("Check bad sectors", "Check and recover bad sectors"),
             row_texts=("Device 0: Ostrava HD2000", "", "Size:", "1863 GB")):
    out = b"".join(l_text(t) for t in names) + b"".join(l_text(t) for t in row_texts) + u8(rows)
    out += u8(len(lines)) + b"".join(l_text(line) for line in lines) + u8(operation)
    return out + l_time(2025, 2, 3, 4, 5, 6) + l_time(2025, 2, 3, 5, 6, 7)


MEMORY_ROWS = [("UID:", "SN-0001"), ("DISPLAYNAME:", "MAIN_MEMORY"), ("PHYSICAL_MEMORY:", "8 GB"),
               (">>> RESOURCE BANK", " "), ("INDEX:", "0"), ("MANUFACTURER:", "Kestrel"), ("SPEED:", "3200"),
               ("SIZE:", "8 GB"), ("PART_NUMBER:", "KV-3200"), ("SERIAL_NUMBER:", "SN-0001"),
               ("<<< RESOURCE", " ")]


def log_seeds():
    drive = [("UID:", "WD-WCC4N0123456"), ("DISPLAYNAME:", "HDD0"), ("MODEL:", "Kestrel KD1000"),
             ("SERIAL:", "WD-WCC4N0123456"), ("CAPACITY:", "1,000 GB")]
    seeds = {
        "memory-run": log_run("MEMORY", ["ADVANCED_INTEGRITY"], [MEMORY_ROWS],
                              summary=["MESSAGE TESTED_SIZE: 6,144 MB"], codes=["UME001000-XKUXDI"],
                              stray="20240315T101516UTC STOP ADVANCED_INTEGRITY SUCCESS 75 S"),
        "storage-run-two-drives": log_run(
            "STORAGE", ["SMART_STATUS", "SHORT_SELF_TEST", "RANDOM_SEEK"], [drive, drive],
            states={(0, 1): 3, (1, 2): 4, (1, 0): 0}, messages={(0, 1): ["ERROR SELF_TEST_FAILED 7", "WARNING x"]},
            codes=["UST0013D0-ABCDEF", None], algorithm_selection=[1, 1, 0], stray="STOP TESTS UST0013D0-ABCDEF"),
        "long-texts": log_run("K" * 150, ["A" * 250], [[("KEY" * 80 + ":", "V" * 300)]],
                              summary=["MESSAGE " + "m" * 300], messages={(0, 0): ["x" * 400]},
                              codes=["C" * 210], stray="+++ " + "9" * 300),
        "no-devices": log_run("MEMORY", ["A", "B"], [], stray="+++ ------------------ RECOVER"),
    }
    # Each run is followed by a recovery log.
    recoveries = [recovery(["Bad sectors found =\t2", "Corrected sector 1234"]),
                  recovery([], operation=0, rows=0),
                  recovery(["L" * 250] * 2, names=("N" * 210, ""), row_texts=("D" * 120, "V" * 120, "", "")),
                  recovery(["--- 20250203T050607UTC RECOVER"], operation=2, rows=1)]
    return with_failures({name: data + recoveries[i % len(recoveries)] for i, (name, data) in enumerate(seeds.items())},
                         failing=(1, 6, 3))


TARGETS = {"format": format_seeds, "language": language_seeds, "memory_rows": memory_rows_seeds,
           "smbios": smbios_seeds, "log": log_seeds}


def main(names):
    for name in names or TARGETS:
        directory = CORPUS / name
        directory.mkdir(parents=True, exist_ok=True)
        for seed, data in TARGETS[name]().items():
            (directory / f"seed-{seed}").write_bytes(data)


if __name__ == "__main__":
    main(sys.argv[1:])
