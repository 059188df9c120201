// The formatter on formats and arguments of any content. Mostly the input
// is a program that writes a format string and, for each conversion, the
// argument it reads, so the arguments always match their conversions (as
// they do in the application); the texts of %s and %a and every number
// come from the input. Otherwise the format is the input's own text, with
// every argument 0 (a null text, a zero number), which any conversion reads
// safely, and more of them than its '%' signs can consume. Checks that nothing is written past the buffer (ASan),
// that the text is terminated where the count says, and that a smaller
// buffer gets a prefix of what a large one gets.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "core/format.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

constexpr size_t kArgumentSlots = 48;
// A directive reads at most three arguments ('*' width, '*' precision, value).
constexpr size_t kMostPercentSigns = kArgumentSlots / 3;
constexpr size_t kLargeCapacity = 4096;

EFIAPI UINTN Fmt(CHAR16* buffer, UINTN capacity, const CHAR16* format, ...) {
  VA_LIST args;
  VA_START(args, format);
  const UINTN count = tarvik::FormatV(buffer, capacity, format, args);
  VA_END(args);
  return count;
}

// Every slot is passed as one variable argument: each takes 8 bytes in the
// EFIAPI convention, so a conversion reads the value the program stored for it.
template <size_t... I>
UINTN FormatWith(CHAR16* buffer, UINTN capacity, const CHAR16* format, const std::vector<UINT64>& slots,
                 std::index_sequence<I...>) {
  return Fmt(buffer, capacity, format, slots[I]...);
}

bool IsDirectiveCharacter(char16_t c) {
  return c == 0 || std::u16string_view(u"sacdiuxXpr%-0123456789,+ *.lL").find(c) != std::u16string_view::npos;
}

// The format and its arguments, written from the input.
struct Program {
  std::u16string format;
  std::vector<UINT64> slots;
  std::deque<std::u16string> wide_texts;  // stable addresses for %s
  std::deque<std::string> narrow_texts;   // and for %a

  bool room(size_t needed) const { return slots.size() + needed <= kArgumentSlots; }

  void literal(fuzz_support::FuzzInput& in) {
    const size_t length = in.take<uint8_t>() % 16;
    for (size_t i = 0; i < length && in.remaining() >= 2; ++i) {
      const char16_t c = in.take<char16_t>();
      if (c == 0) continue;
      format += c == u'%' ? u"%%" : std::u16string(1, c);
    }
  }

  // A '*' width or precision and the int it reads.
  void star(fuzz_support::FuzzInput& in) {
    format += u'*';
    slots.push_back(static_cast<UINT64>(static_cast<int64_t>(in.take<int32_t>() % 5000)));
  }

  void conversion(fuzz_support::FuzzInput& in) {
    const uint8_t shape = in.take<uint8_t>();
    const uint8_t flags = in.take<uint8_t>();
    const uint8_t type = in.take<uint8_t>();
    static constexpr char16_t kConversions[] = u"sacdiuxXpr";
    const char16_t conversion = kConversions[type % 10];
    const uint8_t width = shape % 3, precision = (shape / 3) % 3;  // none, digits, '*'
    const bool long_values = (shape / 9) % 2 != 0;
    if (!room((width == 2) + (precision == 2) + 1)) return;
    format += u'%';
    static constexpr char16_t kFlags[] = u"-0,+ ";
    for (int bit = 0; bit < 5; ++bit)
      if (flags & (1u << bit)) format += kFlags[bit];
    if (width == 1) format += Digits(in.take<uint16_t>());
    if (width == 2) star(in);
    if (precision != 0) format += u'.';
    if (precision == 1) format += Digits(in.take<uint16_t>() % 300);
    if (precision == 2) star(in);
    if (long_values) format += (flags & 0x80) ? u'L' : u'l';
    format += conversion;
    switch (conversion) {
      case u's': {
        const std::u16string& text = wide_texts.emplace_back(in.take_text(in.take<uint8_t>()));
        slots.push_back((flags & 0x40) ? 0 : reinterpret_cast<UINT64>(text.c_str()));
        break;
      }
      case u'a': {
        std::string& text = narrow_texts.emplace_back();
        for (uint8_t b : in.take_bytes(in.take<uint8_t>()))
          if (b != 0) text.push_back(static_cast<char>(b));
        slots.push_back((flags & 0x40) ? 0 : reinterpret_cast<UINT64>(text.c_str()));
        break;
      }
      default:
        slots.push_back(in.take<UINT64>());
        break;
    }
  }

  // '%', flags and a width, then a character that is no conversion: the
  // formatter writes it all as text and reads no argument.
  void not_a_conversion(fuzz_support::FuzzInput& in) {
    format += u'%';
    if (in.take<uint8_t>() % 2) format += u'-';
    format += Digits(in.take<uint8_t>());
    const char16_t c = in.take<char16_t>();
    format += IsDirectiveCharacter(c) ? u'q' : c;
  }

  static std::u16string Digits(unsigned value) {
    const std::string digits = std::to_string(value);
    return std::u16string(digits.begin(), digits.end());
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_support::FuzzInput in(data, size);
  const size_t capacity = in.take<uint16_t>() % 600;
  Program program;
  const bool raw = in.take<uint8_t>() % 4 == 0;
  if (raw) {
    program.format = in.take_text(2000);
    if (static_cast<size_t>(std::count(program.format.begin(), program.format.end(), u'%')) >= kMostPercentSigns)
      return 0;
  }
  while (!raw && in.remaining() > 0 && program.format.size() < 2000) {
    switch (in.take<uint8_t>() % 4) {
      case 0: program.literal(in); break;
      case 1: program.conversion(in); break;
      case 2: program.not_a_conversion(in); break;
      default: program.literal(in); break;  // line ends among any other characters
    }
  }
  if (in.take<uint8_t>() % 2) program.format += u'%';  // a trailing '%'
  program.slots.resize(kArgumentSlots, 0);

  std::vector<CHAR16> large(kLargeCapacity);
  const UINTN large_count = FormatWith(large.data(), large.size(), program.format.c_str(), program.slots,
                                       std::make_index_sequence<kArgumentSlots>());
  // Exactly `capacity` characters, so ASan sees a write past the end.
  std::vector<CHAR16> small(capacity);
  const UINTN count = FormatWith(capacity == 0 ? nullptr : small.data(), capacity, program.format.c_str(),
                                 program.slots, std::make_index_sequence<kArgumentSlots>());
  const bool fits = capacity == 0 ? count == 0 : count < capacity && small[count] == 0;
  const bool prefix = std::u16string_view(small.data(), count) == std::u16string_view(large.data(), count);
  if (!fits || large_count >= kLargeCapacity || large[large_count] != 0 || count > large_count || !prefix) {
    std::fprintf(stderr, "format: count %zu into %zu (%zu into %zu), terminated %d, prefix %d\n",
                 static_cast<size_t>(count), capacity, static_cast<size_t>(large_count), kLargeCapacity, fits, prefix);
    std::abort();
  }
  return 0;
}
