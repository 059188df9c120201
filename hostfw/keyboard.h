// The keyboard (EFI_SIMPLE_TEXT_INPUT_PROTOCOL): keys typed on the host
// terminal, or the keys of a key script (hostfw/key_script.h).
//
// With a key script, terminal input is read and dropped until the script
// has ended; after that the terminal's keys are delivered. Reset empties the
// key buffer, a scripted key not yet read included (the script goes on).
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "efi/efi.h"
#include "hostfw/key_script.h"
#include "hostfw/machine.h"
#include "hostfw/protocol_thunk.h"

namespace hostfw {

// Turns the bytes a terminal sends into key strokes: escape sequences for
// arrows, Home/End, page keys, Insert/Delete and F1-F10 in their common
// variants, Enter, Tab, Backspace, and UTF-8 characters. A sequence it does
// not know is dropped whole. A lone ESC is the Escape key once nothing has
// followed it for kEscapeDelayNs.
class KeyDecoder {
 public:
  static constexpr uint64_t kEscapeDelayNs = 50ull * 1000 * 1000;

  // Bytes received at host time now_ns.
  void feed(std::string_view bytes, uint64_t now_ns);
  // Settles what was held back waiting for more bytes (a lone ESC, a cut
  // sequence) once kEscapeDelayNs have passed without any.
  void expire(uint64_t now_ns);
  bool pop(EFI_INPUT_KEY& key);
  bool holding() const { return !held_.empty(); }
  void reset();

 private:
  // How many bytes at the start of held_ form one complete unit; 0 when
  // more bytes are needed to tell.
  size_t decode_one(bool settle);
  void emit(UINT16 scan, CHAR16 ch) { keys_.push_back(EFI_INPUT_KEY{scan, ch}); }

  std::string held_;
  uint64_t last_byte_ns_ = 0;
  bool after_cr_ = false;  // a LF straight after a CR is the same Enter
  std::deque<EFI_INPUT_KEY> keys_;
};

class Keyboard {
 public:
  // Throws std::invalid_argument for a malformed key script.
  Keyboard(Machine& machine, Terminal* terminal, const std::string& key_script);
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  EFI_SIMPLE_TEXT_INPUT_PROTOCOL* protocol() { return &instance_.protocol; }
  Events& events() const;

  // Reads the terminal and runs the key script. Called while the machine
  // idles and whenever the application looks for a key.
  void poll();
  // Queues a key as if it had been typed.
  void push(const EFI_INPUT_KEY& key);
  size_t queued() const { return queue_.size(); }
  // Whether keys may still come: from a terminal, or from a script that has
  // steps left.
  bool can_provide_more() const;
  const KeyScript& script() const { return script_; }

  // ---- The protocol's operations ---------------------------------------------
  EFI_STATUS reset();
  EFI_STATUS read_key_stroke(EFI_INPUT_KEY* key);

 private:
  static constexpr size_t kQueueLimit = 64;  // a firmware keyboard buffer's worth

  static EFIAPI void on_wait_for_key(EFI_EVENT event, void* context);
  void read_terminal();
  // True when a wait of the script ran out of time (stuck_ says why).
  bool run_script();

  HostedProtocol<EFI_SIMPLE_TEXT_INPUT_PROTOCOL, Keyboard> instance_;
  Machine& machine_;
  Terminal* terminal_;
  bool terminal_open_ = terminal_ != nullptr;
  KeyScript script_;
  KeyDecoder decoder_;
  std::deque<EFI_INPUT_KEY> queue_;
  std::string input_;
  // Kept here rather than on the stack: ending the run leaves poll() with a
  // long jump, past any destructor.
  RunResult stuck_;
};

}  // namespace hostfw
