#include "hostfw/keyboard.h"

#include <algorithm>
#include <stdexcept>

#include "hostfw/clock.h"
#include "hostfw/console_out.h"
#include "hostfw/terminal.h"

namespace hostfw {
namespace {

constexpr size_t kLongestSequence = 32;  // longer "sequences" are noise

// The key of a final letter: ESC O letter (application cursor keys, F1-F4),
// and ESC [ params letter the same way.
UINT16 ss3_scan(char final) {
  switch (final) {
    case 'A': return SCAN_UP;
    case 'B': return SCAN_DOWN;
    case 'C': return SCAN_RIGHT;
    case 'D': return SCAN_LEFT;
    case 'H': return SCAN_HOME;
    case 'F': return SCAN_END;
    case 'P': return SCAN_F1;
    case 'Q': return SCAN_F2;
    case 'R': return SCAN_F3;
    case 'S': return SCAN_F4;
    default: return SCAN_NULL;
  }
}

// The key of a CSI sequence (ESC [ params final); SCAN_NULL when unknown.
UINT16 csi_scan(std::string_view params, char final) {
  // Only plain numeric parameters: private ones (ESC [ ? ..., mouse reports)
  // are not keys.
  for (char c : params)
    if (!(c >= '0' && c <= '9') && c != ';') return SCAN_NULL;
  int first = 0;
  for (char c : params) {
    if (c == ';') break;
    first = first * 10 + (c - '0');
    if (first > 1000) return SCAN_NULL;
  }
  if (final != '~') return ss3_scan(final);  // ESC [ 1 ; 2 P: F1-F4 with modifiers
  switch (first) {
    case 1: case 7: return SCAN_HOME;
    case 2: return SCAN_INSERT;
    case 3: return SCAN_DELETE;
    case 4: case 8: return SCAN_END;
    case 5: return SCAN_PAGE_UP;
    case 6: return SCAN_PAGE_DOWN;
    case 11: return SCAN_F1;
    case 12: return SCAN_F2;
    case 13: return SCAN_F3;
    case 14: return SCAN_F4;
    case 15: return SCAN_F5;
    case 17: return SCAN_F6;
    case 18: return SCAN_F7;
    case 19: return SCAN_F8;
    case 20: return SCAN_F9;
    case 21: return SCAN_F10;
    default: return SCAN_NULL;
  }
}

}  // namespace

// ---- KeyDecoder ----------------------------------------------------------------------

void KeyDecoder::feed(std::string_view bytes, uint64_t now_ns) {
  if (bytes.empty()) return;
  held_.append(bytes);
  last_byte_ns_ = now_ns;
  while (!held_.empty()) {
    const size_t used = decode_one(false);
    if (used == 0) break;
    held_.erase(0, used);
  }
}

void KeyDecoder::expire(uint64_t now_ns) {
  if (held_.empty() || now_ns - last_byte_ns_ < kEscapeDelayNs) return;
  while (!held_.empty()) held_.erase(0, decode_one(true));
}

bool KeyDecoder::pop(EFI_INPUT_KEY& key) {
  if (keys_.empty()) return false;
  key = keys_.front();
  keys_.pop_front();
  return true;
}

void KeyDecoder::reset() {
  held_.clear();
  keys_.clear();
  after_cr_ = false;
}

// settle: no more bytes are coming for what is held; whatever is incomplete
// is decided now (a lone ESC is the Escape key, anything else is dropped).
size_t KeyDecoder::decode_one(bool settle) {
  const size_t size = held_.size();
  const unsigned char b = static_cast<unsigned char>(held_[0]);
  const bool was_after_cr = after_cr_;
  after_cr_ = false;

  if (b == 0x1B) {
    if (size == 1) {
      if (!settle) return 0;
      emit(SCAN_ESC, 0);
      return 1;
    }
    const char kind = held_[1];
    if (kind == 0x1B) {  // Escape pressed twice: the first is a key of its own
      emit(SCAN_ESC, 0);
      return 1;
    }
    if (kind == '[') {
      // The Linux console's F1-F5: ESC [ [ A .. E.
      if (size >= 3 && held_[2] == '[') {
        if (size < 4) return settle ? size : 0;
        const char f = held_[3];
        if (f >= 'A' && f <= 'E') emit(static_cast<UINT16>(SCAN_F1 + (f - 'A')), 0);
        return 4;
      }
      size_t i = 2;
      while (i < size && held_[i] >= 0x30 && held_[i] <= 0x3F) ++i;
      const size_t params_end = i;
      while (i < size && held_[i] >= 0x20 && held_[i] <= 0x2F) ++i;
      if (i == size) {
        if (settle || size > kLongestSequence) return size;  // cut short: dropped
        return 0;
      }
      const char final = held_[i];
      if (final < 0x40 || final > 0x7E) return i;  // broken off by another byte: drop what came before it
      if (params_end == i) {
        const UINT16 scan = csi_scan(std::string_view(held_).substr(2, params_end - 2), final);
        if (scan != SCAN_NULL) emit(scan, 0);
      }
      return i + 1;
    }
    if (kind == 'O') {
      if (size < 3) return settle ? size : 0;
      const char final = held_[2];
      if (final < 0x40 || final > 0x7E) return 2;
      if (final == 'M') {
        emit(SCAN_NULL, 0x000D);  // keypad Enter
      } else {
        const UINT16 scan = ss3_scan(final);
        if (scan != SCAN_NULL) emit(scan, 0);
      }
      return 3;
    }
    return 2;  // ESC with a character (Alt and a key): not a key here
  }

  if (b == '\r') {
    emit(SCAN_NULL, 0x000D);
    after_cr_ = true;
    return 1;
  }
  if (b == '\n') {
    if (!was_after_cr) emit(SCAN_NULL, 0x000D);
    return 1;
  }
  if (b == '\t') {
    emit(SCAN_NULL, 0x0009);
    return 1;
  }
  if (b == 0x7F || b == 0x08) {
    emit(SCAN_NULL, 0x0008);
    return 1;
  }
  if (b < 0x20) return 1;  // other control characters are not keys
  if (b < 0x80) {
    emit(SCAN_NULL, b);
    return 1;
  }

  // UTF-8.
  const size_t length = (b >> 5) == 0x6 ? 2 : (b >> 4) == 0xE ? 3 : (b >> 3) == 0x1E ? 4 : 0;
  if (length == 0) return 1;  // a stray continuation byte or an invalid lead
  if (size < length) {
    for (size_t k = 1; k < size; ++k)
      if ((static_cast<unsigned char>(held_[k]) & 0xC0) != 0x80) return k;
    return settle ? size : 0;
  }
  char32_t c = length == 2 ? (b & 0x1F) : length == 3 ? (b & 0x0F) : (b & 0x07);
  for (size_t k = 1; k < length; ++k) {
    const unsigned char next = static_cast<unsigned char>(held_[k]);
    if ((next & 0xC0) != 0x80) return k;
    c = (c << 6) | (next & 0x3F);
  }
  const char32_t smallest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
  const bool representable = c >= smallest && c <= 0xFFFF && !(c >= 0xD800 && c <= 0xDFFF);
  if (representable && c >= 0xA0) emit(SCAN_NULL, static_cast<CHAR16>(c));  // C1 controls are not keys
  return length;
}

// ---- Keyboard --------------------------------------------------------------------------

namespace {

EFIAPI EFI_STATUS Reset(EFI_SIMPLE_TEXT_INPUT_PROTOCOL* This, BOOLEAN) {
  return serve<Keyboard>(This, [](Keyboard& k) { return k.reset(); });
}
EFIAPI EFI_STATUS ReadKeyStroke(EFI_SIMPLE_TEXT_INPUT_PROTOCOL* This, EFI_INPUT_KEY* key) {
  return serve<Keyboard>(This, [&](Keyboard& k) { return k.read_key_stroke(key); });
}

}  // namespace

Keyboard::Keyboard(Machine& machine, Terminal* terminal, const std::string& key_script)
    : machine_(machine), terminal_(terminal), script_(key_script) {
  instance_.protocol.Reset = Reset;
  instance_.protocol.ReadKeyStroke = ReadKeyStroke;
  instance_.protocol.WaitForKey = nullptr;
  instance_.owner = this;
  const EFI_STATUS status =
      machine_.events().create(EVT_NOTIFY_WAIT, TPL_NOTIFY, on_wait_for_key, this, &instance_.protocol.WaitForKey);
  if (EFI_ERROR(status)) throw std::runtime_error("the keyboard's WaitForKey event cannot be created");
}

Keyboard::~Keyboard() {
  if (instance_.protocol.WaitForKey != nullptr) machine_.events().close(instance_.protocol.WaitForKey);
}

Events& Keyboard::events() const { return machine_.events(); }

bool Keyboard::can_provide_more() const {
  return (terminal_open_ && terminal_->active()) || !script_.finished();
}

void Keyboard::push(const EFI_INPUT_KEY& key) {
  if (queue_.size() < kQueueLimit) queue_.push_back(key);  // a full buffer drops keys, as a real one does
}

void Keyboard::poll() {
  bool timed_out = false;
  {
    TplGuard level(machine_.events(), TPL_NOTIFY);
    if (terminal_ != nullptr && terminal_->active()) {
      machine_.console().refresh_if_resized();
      read_terminal();
    }
    timed_out = run_script();
  }
  // Outside the priority scope: ending the run does not come back.
  if (timed_out) machine_.end_run(stuck_);
}

void Keyboard::read_terminal() {
  input_.clear();
  if (terminal_open_ && !terminal_->read_available(input_)) terminal_open_ = false;
  const uint64_t now = host_monotonic_ns();  // typing happens in real time, whatever the machine's clock
  decoder_.feed(input_, now);
  decoder_.expire(now);
  EFI_INPUT_KEY key;
  while (decoder_.pop(key))
    if (script_.finished()) push(key);  // while a script types, the terminal's keys are dropped
}

bool Keyboard::run_script() {
  // One key at a time: the next step waits until the application has read
  // every key handed over so far.
  if (script_.finished() || !queue_.empty()) return false;
  EFI_INPUT_KEY key{};
  const KeyScript::Screen screen{
      [this](std::string_view text) { return machine_.console().contains(text); },
      [this](const std::string& name) { machine_.console().save_snapshot(name); }};
  const KeyScript::Progress progress = script_.advance(machine_.clock().now_ns(), screen, &key);
  if (progress == KeyScript::Progress::Key) {
    push(key);
    return false;
  }
  if (progress != KeyScript::Progress::TimedOut) return false;

  const KeyStep& step = *script_.current();
  stuck_ = RunResult{};
  stuck_.end = RunResult::End::Stuck;
  stuck_.status = EFI_TIMEOUT;
  stuck_.reason = "key script line " + std::to_string(step.line) + ": waited " +
                  std::to_string(step.duration_ns / 1000000000ull) + " s for \"" + step.text +
                  "\", which never appeared on the screen. The screen showed:\n" + machine_.console().screen_text();
  script_.stop();
  return true;
}

EFI_STATUS Keyboard::reset() {
  TplGuard level(machine_.events(), TPL_NOTIFY);
  queue_.clear();
  decoder_.reset();
  return EFI_SUCCESS;
}

EFI_STATUS Keyboard::read_key_stroke(EFI_INPUT_KEY* key) {
  if (key == nullptr) return EFI_INVALID_PARAMETER;
  poll();
  TplGuard level(machine_.events(), TPL_NOTIFY);
  if (queue_.empty()) return EFI_NOT_READY;
  *key = queue_.front();
  queue_.pop_front();
  return EFI_SUCCESS;
}

// WaitForKey's notification: checked each time the application looks at the
// event; signals it when a key is there.
void Keyboard::on_wait_for_key(EFI_EVENT event, void* context) {
  Keyboard& keyboard = *static_cast<Keyboard*>(context);
  keyboard.poll();
  const bool have_key = !keyboard.queue_.empty();
  if (have_key) keyboard.machine_.events().signal(event);
  // A run that waits for keys that can never come is ended by the machine.
  keyboard.machine_.input_polled(have_key || keyboard.can_provide_more());
}

}  // namespace hostfw
