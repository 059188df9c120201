// Key-script text of any content. A script the parser refuses must be
// refused with std::invalid_argument naming the line; one it accepts is run
// to its end against a screen that shows the awaited texts of even length
// (the others time out), machine time moving an hour per step.
#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "hostfw/key_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  const std::string_view Text(reinterpret_cast<const char*>(Data), Size);
  hostfw::KeyScript Script;
  try {
    Script = hostfw::KeyScript(Text);
  } catch (const std::invalid_argument&) {
    return 0;
  }
  hostfw::KeyScript::Screen Screen{[](std::string_view Awaited) { return Awaited.size() % 2 == 0; },
                                   [](const std::string&) {}};
  constexpr uint64_t kHour = 3600ull * 1000 * 1000 * 1000;
  uint64_t Now = 0;
  EFI_INPUT_KEY Key{};
  for (;;) {
    const auto Progress = Script.advance(Now, Screen, &Key);
    if (Progress == hostfw::KeyScript::Progress::Finished || Progress == hostfw::KeyScript::Progress::TimedOut) break;
    if (Progress == hostfw::KeyScript::Progress::Key && Key.ScanCode == SCAN_NULL && Key.UnicodeChar == 0)
      __builtin_trap();  // a key step always names a key
    Now += kHour;
  }
  return 0;
}
