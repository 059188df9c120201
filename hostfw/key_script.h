// Key scripts: the keys an unattended run types, in a small language.
//
// One step per line, or several on a line separated by ';':
//
//   wait "text"        no key until the text is on the console screen;
//                      the run is stopped as stuck after 60 s of machine time
//   wait 30 "text"     the same, giving up after 30 s
//   key NAME [COUNT]   a key, COUNT times (default 1). NAME is one of Up Down
//                      Left Right Home End PgUp PgDn Insert Delete F1 .. F10
//                      Esc Enter Tab Space Backspace (in any case), or a
//                      single character: key y, key "#", key ";"
//   type "text"        every character of the text as a key
//   pause MS           no key before MS milliseconds of machine time
//   snap "name"        keeps the screen as it is once the application has
//                      dealt with every key before (ConsoleOut::snapshot)
//   # comment          up to the end of the line
//
// Texts are in double quotes, with \" and \\ for a quote and a backslash;
// they are UTF-8. Keys are handed over one at a time: a step runs only once
// the application has read the key of the step before it. Time is the
// machine's clock, so under the virtual clock a script runs the same way
// every time.
//
// Example:
//   wait "Main Screen"
//   key Down 2; key Enter
//   wait 300 "Test completed"   # the memory test takes a while
//   key Esc
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "efi/efi.h"

namespace hostfw {

struct KeyStep {
  enum class Kind { Key, Wait, Pause, Snap };
  Kind kind = Kind::Key;
  EFI_INPUT_KEY key{};       // Key
  std::string text;          // Wait: the awaited text, UTF-8; Snap: the name
  uint64_t duration_ns = 0;  // Wait: how long to wait; Pause: how long to hold keys back
  int line = 0;              // where the step was written
  std::string source;        // the step as written, for messages
};

class KeyScript {
 public:
  static constexpr uint64_t kDefaultWaitNs = 60ull * 1000 * 1000 * 1000;

  KeyScript() = default;
  // Throws std::invalid_argument naming the line and what is wrong with it.
  explicit KeyScript(std::string_view text);

  const std::vector<KeyStep>& steps() const { return steps_; }
  bool empty() const { return steps_.empty(); }
  bool finished() const { return next_ >= steps_.size(); }
  // The step the script is at; null when finished.
  const KeyStep* current() const { return finished() ? nullptr : &steps_[next_]; }

  enum class Progress {
    Waiting,   // held back by a wait or a pause
    Key,       // a key to hand over
    TimedOut,  // current() is a wait whose text never appeared
    Finished,
  };
  // What the script needs of the screen.
  struct Screen {
    std::function<bool(std::string_view)> contains;
    std::function<void(const std::string&)> save_snapshot;
  };
  // Runs the script at machine time now_ns up to its next key. Call it again
  // only after the application has read the key it returned.
  Progress advance(uint64_t now_ns, const Screen& screen, EFI_INPUT_KEY* key);
  // Ends the script where it is.
  void stop() { next_ = steps_.size(); }

 private:
  std::vector<KeyStep> steps_;
  size_t next_ = 0;
  bool step_started_ = false;
  uint64_t step_started_ns_ = 0;
};

}  // namespace hostfw
