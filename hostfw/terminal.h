// The host terminal the simulated console draws on and the keyboard reads
// from: raw input, the alternate screen, a hidden host cursor, and a
// guarantee that the terminal is handed back in its original state however
// the program ends (return, exit, Ctrl-C, a crash).
//
// Only one terminal is open at a time; the signal handlers act on it.
// SIGALRM belongs to the machine's interval timer and is left alone.
#pragma once

#include <termios.h>

#include <memory>
#include <string>
#include <string_view>

namespace hostfw {

struct TerminalSize {
  int columns = 0;
  int rows = 0;
};

class Terminal {
 public:
  // The terminal on standard input and output; null when either is not a
  // terminal (or another Terminal is still open).
  static std::unique_ptr<Terminal> open();
  // The same on given descriptors (a pseudo-terminal in tests). The
  // descriptors stay owned by the caller.
  static std::unique_ptr<Terminal> open_on(int input_fd, int output_fd);

  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Back to the original modes, main screen and visible cursor; the signal
  // handlers are removed. Safe to call more than once.
  void restore();
  bool active() const { return active_; }

  // Output is collected until flush().
  void write(std::string_view bytes) { pending_.append(bytes); }
  void flush();

  // Columns and rows as the terminal reports them now.
  TerminalSize size() const;
  // True once after the window changed size (or the program came back from
  // a suspension): whatever is on the terminal has to be drawn again.
  bool take_resized();

  // Appends the bytes typed so far without waiting; false at end of input.
  bool read_available(std::string& out);
  int input_fd() const { return input_fd_; }

 private:
  Terminal(int input_fd, int output_fd);
  bool enter();

  int input_fd_;
  int output_fd_;
  termios saved_{};
  bool active_ = false;
  std::string pending_;
};

}  // namespace hostfw
