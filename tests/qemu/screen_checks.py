"""Checks of whole screens as the technician's terminal shows them
(qemu_session.Screen), shared by the QEMU tests."""

WHITE_ON_BLACK = 0x0F   # title, version line, clock
BLACK_ON_CYAN = 0x30    # the screen's background
WHITE_ON_BLUE = 0x1F    # the selected entry
GREEN_ON_BLACK = 0x02   # a passed test's state


def clock(screen):
    """The clock's text: hh:mm:ss, two columns left of the last row's end."""
    return screen.text_at(screen.rows - 1, screen.columns - 10, 8)


def assert_main_screen_whole(test, screen):
    """The main screen drawn whole at the screen's size: the title on row 0,
    the subtitle on row 1, the version line and the clock in the bottom-right
    corner, and the Tests and Tools boxes closed on all four sides."""
    columns, rows, dump = screen.columns, screen.rows, screen.text()
    test.assertEqual(screen.line(0).strip(), "Tarvik Diagnostic", dump)
    test.assertEqual(screen.attribute(0, columns // 2), WHITE_ON_BLACK, dump)
    test.assertEqual(screen.line(1).strip(), "Main Screen", dump)
    test.assertEqual(screen.text_at(rows - 1, 0, columns - 10).strip(), "Version 00.1207", dump)
    test.assertRegex(clock(screen), r"^\d\d:\d\d:\d\d$", dump)
    test.assertEqual(screen.text_at(rows - 1, columns - 2, 2), "  ", dump)
    test.assertEqual(screen.attribute(rows - 1, columns - 3), WHITE_ON_BLACK, dump)

    # Each panel is 40% of the width, 5% in from its half; its box one column outside.
    width = columns * 40 // 100
    for left in (columns * 5 // 100 - 1, columns // 2 + columns * 5 // 100 - 1):
        test.assertEqual(screen.text_at(4, left, width + 2), "╔" + "═" * width + "╗", dump)
        bottom = next((row for row in range(5, rows) if screen.text_at(row, left, 1) == "╚"), None)
        test.assertIsNotNone(bottom, f"the box at column {left} has no bottom\n{dump}")
        test.assertEqual(screen.text_at(bottom, left, width + 2), "╚" + "═" * width + "╝", dump)
        for row in range(5, bottom):
            sides = screen.text_at(row, left, 1) + screen.text_at(row, left + width + 1, 1)
            test.assertEqual(sides, "║║", f"row {row}\n{dump}")
    test.assertEqual(screen.attribute(3, 0), BLACK_ON_CYAN, dump)


def differences(before, after, skip=()):
    """(row, column) of the cells whose text or colour changed, but those in skip."""
    return [(row, column) for row in range(before.rows) for column in range(before.columns)
            if (row, column) not in skip
            and (before.text_at(row, column, 1), before.attribute(row, column))
            != (after.text_at(row, column, 1), after.attribute(row, column))]


def clock_cells(screen):
    """The cells of the clock."""
    return {(screen.rows - 1, column) for column in range(screen.columns - 10, screen.columns - 2)}


BLUE_ON_CYAN = 0x31     # a queue state or result other than passed and failed

