// The simulated text console, driven through its protocol as the
// application drives it, and drawn on a pseudo-terminal.
#include "hostfw/console_out.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "hostfw/terminal.h"
#include "tests/support/test_machine.h"

namespace {

using hostfw::ConsoleOut;
constexpr auto npos = std::string::npos;

// The default machine: modes 80x25, 80x50 and 100x31.
class ConsoleTest : public ::testing::Test {
 protected:
  EFI_STATUS print(std::u16string text, EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* out = nullptr) {
    if (out == nullptr) out = out_;
    return out->OutputString(out, text.data());
  }
  ConsoleOut& console() { return machine_->console(); }

  testing_support::TestMachine machine_;
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* out_ = machine_->system_table()->ConOut;
};

TEST_F(ConsoleTest, ModesAreSetThroughTheModeRecordAndResetKeepsTheMode) {
  const SIMPLE_TEXT_OUTPUT_MODE* mode = out_->Mode;
  print(u"before");
  ASSERT_EQ(out_->SetMode(out_, 2), EFI_SUCCESS);
  EXPECT_FALSE(console().contains("before")) << "a new mode starts cleared";
  EXPECT_EQ(out_->SetMode(out_, 3), EFI_UNSUPPORTED);
  EXPECT_EQ(mode->Mode, 2);
  ASSERT_EQ(out_->SetCursorPosition(out_, 99, 30), EFI_SUCCESS);  // only valid in the larger mode
  EXPECT_EQ(out_->SetCursorPosition(out_, 100, 0) | out_->SetCursorPosition(out_, 0, 31), EFI_UNSUPPORTED);

  // Reset: grey on black, cleared, cursor home, mode kept.
  out_->SetAttribute(out_, 0x30);
  print(u"x");
  ASSERT_EQ(out_->Reset(out_, FALSE), EFI_SUCCESS);
  EXPECT_EQ(mode->Mode, 2);
  EXPECT_EQ(console().attribute_at(99, 30), 0x07);
  EXPECT_EQ(mode->CursorColumn + mode->CursorRow, 0);
  EXPECT_FALSE(console().contains("x"));
}

TEST_F(ConsoleTest, ControlCharactersMoveTheCursorTextWrapsAndTheBottomScrolls) {
  print(u"abc\r\nde\rX\b\b\bY");  // CR overwrites the row; backspace stops at column 0 and erases nothing
  EXPECT_EQ(console().row_text(1).substr(0, 3), "Ye ");
  print(u"\nZ");  // LF alone keeps the column
  EXPECT_EQ(console().cell(1, 2).ch, u'Z');

  out_->SetCursorPosition(out_, 0, 3);
  print(std::u16string(79, u'a') + u"bc");  // filling the last column sends the cursor to the next row
  EXPECT_EQ(console().cell(79, 3).ch, u'b');
  EXPECT_EQ(console().cell(0, 4).ch, u'c');

  ASSERT_EQ(out_->ClearScreen(out_), EFI_SUCCESS);
  for (char16_t c = u'A'; c < u'A' + 25; ++c) print(std::u16string(1, c) + u"\r\n");
  // 25 line feeds on a 25-row screen: the first line scrolled away.
  EXPECT_EQ(console().row_text(0)[0], 'B');
  // The bottom-right cell scrolls the screen as soon as it is written.
  out_->SetAttribute(out_, 0x1F);
  out_->SetCursorPosition(out_, 79, 24);
  print(u"Z");
  EXPECT_EQ(console().cell(79, 23).ch, u'Z');
  EXPECT_EQ(console().row_text(24), std::string(80, ' '));
  EXPECT_EQ(console().attribute_at(0, 24), 0x1F);  // the new row takes the current colours
  EXPECT_EQ(console().cursor_column() * 100 + console().cursor_row(), 24);
}

TEST_F(ConsoleTest, TextKeepsItsColoursAndUnknownCharactersShowAsQuestionMarks) {
  out_->SetAttribute(out_, EFI_TEXT_ATTR(EFI_WHITE, EFI_BLUE));
  print(u"Hi");
  EXPECT_EQ(console().attribute_at(1, 0), 0x1F);
  EXPECT_EQ(console().attribute_at(2, 0), 0x07);
  EXPECT_EQ(out_->SetAttribute(out_, 0x80), EFI_UNSUPPORTED);

  EXPECT_EQ(print(u"a\x4E2D" u"b\x2550"), EFI_WARN_UNKNOWN_GLYPH);
  EXPECT_EQ(console().row_text(0).substr(2, 6), "a?b\u2550");
  // The transcript keeps what the application wrote, not what was shown.
  EXPECT_EQ(console().transcript(), "Hia\u4E2Db\u2550");
}

// ---- Drawing on a terminal -----------------------------------------------------------

class PseudoTerminal {
 public:
  PseudoTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) return;
    slave_ = ::open(ptsname(master_), O_RDWR | O_NOCTTY);
    fcntl(master_, F_SETFL, O_NONBLOCK);
  }
  ~PseudoTerminal() {
    for (int fd : {slave_, master_})
      if (fd >= 0) ::close(fd);
  }
  int slave() const { return slave_; }
  void resize(int columns, int rows) {
    const winsize ws{static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
    ioctl(master_, TIOCSWINSZ, &ws);
  }
  // Everything drawn since the last call.
  std::string drawn() {
    std::string out;
    char buffer[4096];
    for (pollfd p{master_, POLLIN, 0}; ::poll(&p, 1, 20) > 0;) {
      const ssize_t n = ::read(master_, buffer, sizeof(buffer));
      if (n <= 0) break;
      out.append(buffer, static_cast<size_t>(n));
    }
    return out;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
};

TEST_F(ConsoleTest, DrawsOnATerminalLargeEnoughOnlyWhatChangedInItsColours) {
  PseudoTerminal pty;
  if (pty.slave() < 0) GTEST_SKIP() << "no pseudo-terminals on this host";
  pty.resize(80, 24);
  std::unique_ptr<hostfw::Terminal> terminal = hostfw::Terminal::open_on(pty.slave(), pty.slave());
  ASSERT_NE(terminal, nullptr);
  ConsoleOut screen(*machine_, {{100, 31}}, terminal.get());
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* out = screen.protocol();
  std::string drawn = pty.drawn();
  EXPECT_NE(drawn.find("\x1b[?1049h"), npos) << "the alternate screen";
  EXPECT_NE(drawn.find("Terminal too small: Tarvik needs 100x31, this terminal is 80x24."), npos) << drawn;
  print(u"Main Screen", out);
  EXPECT_EQ(pty.drawn().find("Main Screen"), npos);

  pty.resize(120, 40);
  raise(SIGWINCH);
  screen.refresh_if_resized();
  drawn = pty.drawn();
  EXPECT_NE(drawn.find("Main Screen"), npos);
  EXPECT_EQ(drawn.find("too small"), npos);

  out->SetAttribute(out, EFI_TEXT_ATTR(EFI_YELLOW, EFI_RED));
  print(u"Hi\x2550", out);
  drawn = pty.drawn();
  EXPECT_NE(drawn.find("\x1b[0;93;41mHi\u2550"), npos) << drawn;
  EXPECT_LT(drawn.size(), 40u) << "only the written cells are sent";
  out->SetAttribute(out, EFI_TEXT_ATTR(EFI_BLUE, EFI_CYAN));
  print(u"x", out);
  EXPECT_NE(pty.drawn().find("\x1b[0;34;46mx"), npos);

  terminal->restore();
  EXPECT_NE(pty.drawn().find("\x1b[?1049l"), npos);
  termios mode{};
  tcgetattr(pty.slave(), &mode);
  EXPECT_EQ(mode.c_lflag & (ECHO | ICANON), tcflag_t{ECHO | ICANON}) << "the line discipline is back";
}

}  // namespace
