// The application's formatter. One pass over the format string, writing
// straight into the caller's buffer; nothing is allocated and nothing is
// written past the buffer, whatever the format and arguments.
#include "core/format.h"

#include "core/status_text.h"

namespace tarvik {
namespace {

// %r names the errors the shared status texts name (1 to 32 but for the
// two unassigned numbers 29 and 30) with those texts, and these beyond them.
// A number without a name is printed in hexadecimal.
constexpr const CHAR16* LaterErrorNames[] = {
    u"Compromised Data",     // 33
    u"IP Address Conflict",  // 34
    u"HTTP Error",           // 35
};
constexpr UINT64 FirstLaterError = 33;

constexpr const CHAR16* WarningNames[] = {
    u"Success",
    u"Warning Unknown Glyph",
    u"Warning Delete Failure",
    u"Warning Write Failure",
    u"Warning Buffer Too Small",
    u"Warning Stale Data",
    u"Warning File System",
    u"Warning Reset Required",
};
static_assert(sizeof(WarningNames) / sizeof(WarningNames[0]) == 8);

constexpr CHAR16 UpperDigits[] = u"0123456789ABCDEF";
constexpr CHAR16 LowerDigits[] = u"0123456789abcdef";

// Widths beyond this are clamped while parsing; the buffer ends long before.
constexpr UINTN MaxWidth = 0x7FFFFFFF;

// Where the formatted characters go. Limit is the room before the terminator.
struct Output {
  CHAR16* Buffer;
  UINTN Limit;
  UINTN Count;

  bool Full() const { return Count >= Limit; }
  void Put(CHAR16 Char) {
    if (Count < Limit) Buffer[Count++] = Char;
  }
  void Repeat(CHAR16 Char, UINTN Times) {
    for (; Times > 0 && Count < Limit; --Times) Buffer[Count++] = Char;
  }
};

// One conversion's flags, width and precision.
struct Spec {
  bool Left = false;     // '-'
  bool ZeroPad = false;  // '0'
  bool Group = false;    // ','
  bool Plus = false;     // '+'
  bool Space = false;    // ' '
  bool Long = false;     // 'l' or 'L'
  UINTN Width = 0;
  bool HasPrecision = false;
  UINTN Precision = 0;
};

inline bool IsDigit(CHAR16 Char) { return Char >= u'0' && Char <= u'9'; }

// Reads a run of decimal digits, clamping the value at MaxWidth.
inline UINTN ReadNumber(const CHAR16*& Cursor) {
  UINTN Value = 0;
  for (; IsDigit(*Cursor); ++Cursor) {
    Value = Value * 10 + static_cast<UINTN>(*Cursor - u'0');
    if (Value > MaxWidth) Value = MaxWidth;
  }
  return Value;
}

// Magnitude of a signed int without overflowing on the most negative value.
inline UINTN Magnitude(INT64 Value) {
  return Value < 0 ? 0 - static_cast<UINT64>(Value) : static_cast<UINT64>(Value);
}

inline CHAR16 Widen(CHAR16 Char) { return Char; }
inline CHAR16 Widen(CHAR8 Char) { return static_cast<CHAR16>(static_cast<UINT8>(Char)); }

// A string, cut to the precision and padded with spaces to the width.
template <typename Char>
void PutText(Output& Out, const Spec& Format, const Char* Text) {
  UINTN Length = 0;
  while (Text[Length] != 0 && (!Format.HasPrecision || Length < Format.Precision)) ++Length;
  UINTN Pad = Format.Width > Length ? Format.Width - Length : 0;
  if (!Format.Left) Out.Repeat(u' ', Pad);
  for (UINTN Index = 0; Index < Length && !Out.Full(); ++Index) Out.Put(Widen(Text[Index]));
  if (Format.Left) Out.Repeat(u' ', Pad);
}

// A number: optional sign, then the digits, grouped in threes with commas
// when asked (decimal only). Zero padding goes between sign and digits.
void PutNumber(Output& Out, const Spec& Format, UINT64 Value, bool Negative, bool Signed, UINT32 Radix,
               const CHAR16* Digits) {
  CHAR16 Reversed[32];  // 20 decimal digits and 6 commas at most
  UINTN Length = 0;
  bool Group = Format.Group && Radix == 10;
  UINTN InGroup = 0;
  do {
    if (Group && InGroup == 3) {
      Reversed[Length++] = u',';
      InGroup = 0;
    }
    Reversed[Length++] = Digits[Value % Radix];
    Value /= Radix;
    ++InGroup;
  } while (Value != 0);

  CHAR16 Sign = 0;
  if (Negative)
    Sign = u'-';
  else if (Signed && Format.Plus)
    Sign = u'+';
  else if (Signed && Format.Space)
    Sign = u' ';

  UINTN Total = Length + (Sign != 0 ? 1 : 0);
  UINTN Pad = Format.Width > Total ? Format.Width - Total : 0;
  if (!Format.Left && !Format.ZeroPad) Out.Repeat(u' ', Pad);
  if (Sign != 0) Out.Put(Sign);
  if (!Format.Left && Format.ZeroPad) Out.Repeat(u'0', Pad);
  while (Length > 0 && !Out.Full()) Out.Put(Reversed[--Length]);
  if (Format.Left) Out.Repeat(u' ', Pad);
}

// Fixed-width upper-case hexadecimal, optionally after "0x", as text so that
// width and '-' apply to it like to a string.
void PutFixedHex(Output& Out, const Spec& Format, UINT64 Value, bool Prefix) {
  CHAR16 Text[19];
  UINTN Length = 0;
  if (Prefix) {
    Text[Length++] = u'0';
    Text[Length++] = u'x';
  }
  for (int Shift = 60; Shift >= 0; Shift -= 4) Text[Length++] = UpperDigits[(Value >> Shift) & 0xF];
  Text[Length] = 0;
  Spec Plain = Format;
  Plain.HasPrecision = false;
  PutText(Out, Plain, Text);
}

}  // namespace

const CHAR16* StatusName(EFI_STATUS Status) {
  if ((Status & EFI_ERROR_BIT) != 0) {
    const UINT64 Code = Status & ~EFI_ERROR_BIT;
    if (Code == 0 || Code == 29 || Code == 30) return nullptr;
    if (Code < FirstLaterError) return StatusToString(Status);
    const UINT64 Later = Code - FirstLaterError;
    return Later < sizeof(LaterErrorNames) / sizeof(LaterErrorNames[0]) ? LaterErrorNames[Later] : nullptr;
  }
  return Status < sizeof(WarningNames) / sizeof(WarningNames[0]) ? WarningNames[Status] : nullptr;
}

UINTN FormatV(CHAR16* Buffer, UINTN Capacity, const CHAR16* Format, VA_LIST Args) {
  if (Buffer == nullptr || Capacity == 0) return 0;
  Output Out{Buffer, Capacity - 1, 0};
  const CHAR16* Cursor = Format != nullptr ? Format : u"";

  while (*Cursor != 0 && !Out.Full()) {
    // Line ends: "\n", "\n\r" and "\r\n" in the format all become "\r\n".
    if (*Cursor == u'\n') {
      Out.Put(u'\r');
      Out.Put(u'\n');
      Cursor += Cursor[1] == u'\r' ? 2 : 1;
      continue;
    }
    if (*Cursor == u'\r' && Cursor[1] == u'\n') {
      Out.Put(u'\r');
      Out.Put(u'\n');
      Cursor += 2;
      continue;
    }
    if (*Cursor != u'%') {
      Out.Put(*Cursor++);
      continue;
    }

    const CHAR16* Start = Cursor++;
    Spec Conversion;
    for (bool MoreFlags = true; MoreFlags;) {
      switch (*Cursor) {
        case u'-': Conversion.Left = true; break;
        case u'0': Conversion.ZeroPad = true; break;
        case u',': Conversion.Group = true; break;
        case u'+': Conversion.Plus = true; break;
        case u' ': Conversion.Space = true; break;
        default: MoreFlags = false; continue;
      }
      ++Cursor;
    }
    if (*Cursor == u'*') {
      ++Cursor;
      int Width = VA_ARG(Args, int);
      if (Width < 0) Conversion.Left = true;
      Conversion.Width = Magnitude(Width);
    } else {
      Conversion.Width = ReadNumber(Cursor);
    }
    if (*Cursor == u'.') {
      ++Cursor;
      Conversion.HasPrecision = true;
      if (*Cursor == u'*') {
        ++Cursor;
        int Precision = VA_ARG(Args, int);
        // A negative precision counts as none.
        Conversion.HasPrecision = Precision >= 0;
        Conversion.Precision = Precision >= 0 ? static_cast<UINTN>(Precision) : 0;
      } else {
        Conversion.Precision = ReadNumber(Cursor);
      }
    }
    while (*Cursor == u'l' || *Cursor == u'L') {
      Conversion.Long = true;
      ++Cursor;
    }

    switch (*Cursor) {
      case u's': {
        const CHAR16* Text = VA_ARG(Args, const CHAR16*);
        PutText(Out, Conversion, Text != nullptr ? Text : u"<null string>");
        break;
      }
      case u'a': {
        const CHAR8* Text = VA_ARG(Args, const CHAR8*);
        if (Text != nullptr)
          PutText(Out, Conversion, Text);
        else
          PutText(Out, Conversion, u"<null string>");
        break;
      }
      case u'c': {
        // A NUL character writes nothing but the padding.
        const CHAR16 Text[2] = {static_cast<CHAR16>(VA_ARG(Args, int)), 0};
        Spec Plain = Conversion;
        Plain.HasPrecision = false;
        PutText(Out, Plain, Text);
        break;
      }
      case u'd':
      case u'i': {
        INT64 Value = Conversion.Long ? VA_ARG(Args, INT64) : static_cast<INT64>(VA_ARG(Args, int));
        PutNumber(Out, Conversion, Magnitude(Value), Value < 0, true, 10, UpperDigits);
        break;
      }
      case u'u': {
        UINT64 Value = Conversion.Long ? VA_ARG(Args, UINT64) : static_cast<UINT64>(VA_ARG(Args, UINT32));
        PutNumber(Out, Conversion, Value, false, false, 10, UpperDigits);
        break;
      }
      case u'x':
      case u'X': {
        UINT64 Value = Conversion.Long ? VA_ARG(Args, UINT64) : static_cast<UINT64>(VA_ARG(Args, UINT32));
        PutNumber(Out, Conversion, Value, false, false, 16, *Cursor == u'X' ? UpperDigits : LowerDigits);
        break;
      }
      case u'p': {
        const VOID* Pointer = VA_ARG(Args, const VOID*);
        PutFixedHex(Out, Conversion, reinterpret_cast<UINTN>(Pointer), false);
        break;
      }
      case u'r': {
        EFI_STATUS Status = VA_ARG(Args, EFI_STATUS);
        const CHAR16* Name = StatusName(Status);
        if (Name != nullptr)
          PutText(Out, Conversion, Name);
        else
          PutFixedHex(Out, Conversion, Status, true);
        break;
      }
      case u'%':
        Out.Put(u'%');
        break;
      default:
        // Not a conversion: the directive is written as it stands and the
        // character after it (or the end of the format) is taken as text.
        for (const CHAR16* Literal = Start; Literal < Cursor; ++Literal) Out.Put(*Literal);
        continue;
    }
    ++Cursor;
  }

  Buffer[Out.Count] = 0;
  return Out.Count;
}

}  // namespace tarvik
