// The layout of a result code, written once: GenerateResultCode writes a
// code with it and the host's decoder reads one back.
//
//   U, module code (2), executed flags (3 base-32 digits), failed flags (3),
//   "-", then serial characters 0, 2, 4 interleaved with the run's year,
//   month and day, each shifted by a fixed amount.
#pragma once

#include "efi/base.h"

namespace tarvik::result_code {

inline constexpr UINTN Length = 16;  // characters, terminator excluded
inline constexpr UINTN AlgorithmFlags = 15;
inline constexpr CHAR16 Lead = u'U';
inline constexpr UINTN ModuleAt = 1;    // two characters
inline constexpr UINTN ExecutedAt = 3;  // three digits, the highest flags first
inline constexpr UINTN FailedAt = 6;
inline constexpr UINTN DashAt = 9;
inline constexpr CHAR16 Dash = u'-';
inline constexpr UINTN SerialCharactersNeeded = 7;

// A character of the code's last part: the serial's character or the
// date's, and its shift.
struct Mixed {
  UINTN At;
  UINTN SerialIndex;  // used when the place holds a serial character
  INT32 Shift;
};
inline constexpr Mixed SerialPlaces[] = {{10, 0, 5}, {12, 2, -3}, {14, 4, 5}};
inline constexpr Mixed YearPlace = {11, 0, 3};
inline constexpr Mixed MonthPlace = {13, 0, -5};
inline constexpr Mixed DayPlace = {15, 0, 3};

// Flags First .. First + 4 as one digit 0-9, A-V (First is the lowest bit).
constexpr CHAR16 Base32Digit(const UINT8* Flags, UINTN First) {
  UINT32 Value = 0;
  for (UINTN Bit = 0; Bit < 5; ++Bit) Value |= (Flags[First + Bit] ? 1u : 0u) << Bit;
  return static_cast<CHAR16>(Value < 10 ? u'0' + Value : u'A' + (Value - 10));
}
// The five flags of a digit, or -1 for a character that is no digit.
constexpr INT32 Base32Value(CHAR16 Digit) {
  if (Digit >= u'0' && Digit <= u'9') return Digit - u'0';
  if (Digit >= u'A' && Digit <= u'V') return Digit - u'A' + 10;
  return -1;
}
// The digits' flags, highest first: digit D holds flags 10 - 5 * D .. + 4.
constexpr UINTN FirstFlagOfDigit(UINTN Digit) { return 10 - 5 * Digit; }

// Digits and letters move cyclically within their kind (a lower-case letter
// becomes upper-case first); every other character stays as it is.
constexpr CHAR16 ShiftCharacter(CHAR16 Character, INT32 Shift) {
  if (Character >= u'0' && Character <= u'9') {
    INT32 Digit = static_cast<INT32>(Character - u'0') + Shift;
    if (Digit > 9) Digit -= 10;
    if (Digit < 0) Digit += 10;
    return static_cast<CHAR16>(u'0' + Digit);
  }
  if (Character >= u'a' && Character <= u'z') Character = static_cast<CHAR16>(Character - 32);
  if (Character >= u'A' && Character <= u'Z') {
    INT32 Place = static_cast<INT32>(Character - u'A') + Shift;
    if (Place > 25) Place -= 26;
    if (Place < 0) Place += 26;
    return static_cast<CHAR16>(u'A' + Place);
  }
  return Character;
}

// The character 64 ("@") plus the sum of the decimal digits of Value.
constexpr CHAR16 DateCharacter(UINT32 Value) {
  UINT32 Sum = 0;
  for (; Value != 0; Value /= 10) Sum += Value % 10;
  return static_cast<CHAR16>(64 + Sum);
}

static_assert(ShiftCharacter(DateCharacter(29), 3) == u'N');
static_assert(ShiftCharacter(DateCharacter(12), -5) == u'X');
static_assert(ShiftCharacter(u'[', 3) == u'[' && ShiftCharacter(u'z', 1) == u'A');

}  // namespace tarvik::result_code
