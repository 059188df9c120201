#include "hostfw/terminal.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace hostfw {
namespace {

// Alternate screen, no automatic wrap at the right margin (the console
// places every character itself), hidden cursor, cleared.
constexpr char kEnterSequence[] = "\x1b[?1049h\x1b[?7l\x1b[?25l\x1b[0m\x1b[2J\x1b[H";
constexpr char kLeaveSequence[] = "\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";

// The state the signal handlers need, kept in plain globals: they may only
// use write() and tcsetattr() on them.
volatile sig_atomic_t g_engaged = 0;  // the terminal is in raw mode on the alternate screen
volatile sig_atomic_t g_resized = 0;
int g_input_fd = -1;
int g_output_fd = -1;
termios g_original{};
termios g_raw{};
Terminal* g_open = nullptr;

// Signals after which the program ends; the terminal is restored first.
constexpr int kFatalSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};
constexpr int kFatalCount = sizeof(kFatalSignals) / sizeof(kFatalSignals[0]);
struct sigaction g_previous_fatal[kFatalCount];
bool g_installed_fatal[kFatalCount] = {};
struct sigaction g_previous_winch;
struct sigaction g_previous_tstp;
bool g_installed_tstp = false;

void write_all_signal_safe(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return;  // nothing better to do on the way out
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
}

int set_attributes(int fd, const termios& mode) {
  int result;
  do {
    result = tcsetattr(fd, TCSANOW, &mode);
  } while (result != 0 && errno == EINTR);
  return result;
}

// Async-signal-safe.
void leave_raw_state() {
  if (!g_engaged) return;
  g_engaged = 0;
  write_all_signal_safe(g_output_fd, kLeaveSequence, sizeof(kLeaveSequence) - 1);
  set_attributes(g_input_fd, g_original);
}

// Async-signal-safe.
void enter_raw_state() {
  g_engaged = 1;
  set_attributes(g_input_fd, g_raw);
  write_all_signal_safe(g_output_fd, kEnterSequence, sizeof(kEnterSequence) - 1);
}

int fatal_index(int sig) {
  for (int i = 0; i < kFatalCount; ++i)
    if (kFatalSignals[i] == sig) return i;
  return -1;
}

void on_fatal_signal(int sig, siginfo_t* info, void*) {
  const int saved_errno = errno;
  leave_raw_state();
  // Back to what was there before (the default action, or a sanitizer's
  // report), then let the signal take its course.
  const int i = fatal_index(sig);
  if (i >= 0) sigaction(sig, &g_previous_fatal[i], nullptr);
  const bool fault = (sig == SIGSEGV || sig == SIGBUS || sig == SIGFPE || sig == SIGILL) && info != nullptr &&
                     info->si_code > 0;
  // A fault repeats by itself when the instruction is retried; anything
  // sent by a process is sent again.
  if (!fault) raise(sig);
  errno = saved_errno;
}

void on_window_change(int) { g_resized = 1; }

// Ctrl-Z: hand the terminal back while stopped, take it again on return.
void on_stop(int) {
  const int saved_errno = errno;
  const bool was_engaged = g_engaged;
  leave_raw_state();
  struct sigaction stop_default {};
  stop_default.sa_handler = SIG_DFL;
  sigemptyset(&stop_default.sa_mask);
  struct sigaction ours {};
  sigaction(SIGTSTP, &stop_default, &ours);
  sigset_t just_stop;
  sigemptyset(&just_stop);
  sigaddset(&just_stop, SIGTSTP);
  sigprocmask(SIG_UNBLOCK, &just_stop, nullptr);
  raise(SIGTSTP);  // stopped here until continued
  sigprocmask(SIG_BLOCK, &just_stop, nullptr);
  sigaction(SIGTSTP, &ours, nullptr);
  if (was_engaged) {
    enter_raw_state();
    g_resized = 1;  // the screen has to be drawn again
  }
  errno = saved_errno;
}

bool ignored(int sig) {
  struct sigaction current {};
  sigaction(sig, nullptr, &current);
  return (current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == SIG_IGN;
}

void install_handlers() {
  for (int i = 0; i < kFatalCount; ++i) {
    const int sig = kFatalSignals[i];
    // A signal the program was told to ignore (nohup, a background job)
    // stays ignored.
    g_installed_fatal[i] = !ignored(sig);
    if (!g_installed_fatal[i]) continue;
    struct sigaction action {};
    action.sa_sigaction = on_fatal_signal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigaction(sig, &action, &g_previous_fatal[i]);
  }
  struct sigaction winch {};
  winch.sa_handler = on_window_change;
  sigemptyset(&winch.sa_mask);
  winch.sa_flags = SA_RESTART;
  sigaction(SIGWINCH, &winch, &g_previous_winch);

  g_installed_tstp = !ignored(SIGTSTP);
  if (g_installed_tstp) {
    struct sigaction stop {};
    stop.sa_handler = on_stop;
    sigemptyset(&stop.sa_mask);
    stop.sa_flags = SA_RESTART;
    sigaction(SIGTSTP, &stop, &g_previous_tstp);
  }
}

void remove_handlers() {
  for (int i = 0; i < kFatalCount; ++i)
    if (g_installed_fatal[i]) sigaction(kFatalSignals[i], &g_previous_fatal[i], nullptr);
  sigaction(SIGWINCH, &g_previous_winch, nullptr);
  if (g_installed_tstp) sigaction(SIGTSTP, &g_previous_tstp, nullptr);
  std::memset(g_installed_fatal, 0, sizeof(g_installed_fatal));
  g_installed_tstp = false;
}

void restore_at_exit() { leave_raw_state(); }

}  // namespace

std::unique_ptr<Terminal> Terminal::open() { return open_on(STDIN_FILENO, STDOUT_FILENO); }

std::unique_ptr<Terminal> Terminal::open_on(int input_fd, int output_fd) {
  if (g_open != nullptr || !isatty(input_fd) || !isatty(output_fd)) return nullptr;
  std::unique_ptr<Terminal> terminal(new Terminal(input_fd, output_fd));
  if (!terminal->enter()) return nullptr;
  return terminal;
}

Terminal::Terminal(int input_fd, int output_fd) : input_fd_(input_fd), output_fd_(output_fd) {}

Terminal::~Terminal() { restore(); }

bool Terminal::enter() {
  if (tcgetattr(input_fd_, &saved_) != 0) return false;
  termios raw = saved_;
  // Keys arrive one by one and unechoed; Ctrl-C and Ctrl-Z keep working.
  raw.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | IEXTEN);
  raw.c_iflag &= ~static_cast<tcflag_t>(IXON | ICRNL | INLCR | IGNCR | ISTRIP);
  raw.c_cc[VMIN] = 0;  // reads return at once with whatever is there
  raw.c_cc[VTIME] = 0;

  static bool exit_hook_registered = false;
  if (!exit_hook_registered) {
    std::atexit(restore_at_exit);
    exit_hook_registered = true;
  }
  g_input_fd = input_fd_;
  g_output_fd = output_fd_;
  g_original = saved_;
  g_raw = raw;
  g_resized = 0;
  install_handlers();
  enter_raw_state();
  g_open = this;
  active_ = true;
  return true;
}

void Terminal::restore() {
  if (!active_) return;
  flush();
  sigset_t all, previous;
  sigfillset(&all);
  sigdelset(&all, SIGALRM);  // the machine's timer keeps ticking
  sigprocmask(SIG_BLOCK, &all, &previous);
  leave_raw_state();
  remove_handlers();
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  g_open = nullptr;
  active_ = false;
}

void Terminal::flush() {
  size_t done = 0;
  while (done < pending_.size()) {
    const ssize_t n = ::write(output_fd_, pending_.data() + done, pending_.size() - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      pollfd out{output_fd_, POLLOUT, 0};
      while (::poll(&out, 1, 100) < 0 && errno == EINTR) {
      }
    } else {
      break;  // the terminal is gone; drop the output
    }
  }
  pending_.clear();
}

TerminalSize Terminal::size() const {
  winsize ws{};
  if (ioctl(output_fd_, TIOCGWINSZ, &ws) != 0 && ioctl(input_fd_, TIOCGWINSZ, &ws) != 0) return {80, 24};
  if (ws.ws_col == 0 || ws.ws_row == 0) return {80, 24};
  return {ws.ws_col, ws.ws_row};
}

bool Terminal::take_resized() {
  if (g_resized == 0) return false;
  g_resized = 0;
  return true;
}

bool Terminal::read_available(std::string& out) {
  for (;;) {
    pollfd in{input_fd_, POLLIN, 0};
    const int ready = ::poll(&in, 1, 0);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (ready == 0) return true;
    if ((in.revents & POLLIN) == 0) return false;  // hung up or closed
    char buffer[256];
    const ssize_t n = ::read(input_fd_, buffer, sizeof(buffer));
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno == EAGAIN || errno == EWOULDBLOCK;
    }
    if (n == 0) return true;
    out.append(buffer, static_cast<size_t>(n));
    if (static_cast<size_t>(n) < sizeof(buffer)) return true;
  }
}

}  // namespace hostfw
