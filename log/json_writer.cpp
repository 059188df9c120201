#include "log/json_writer.h"

namespace tarvik {
namespace {

constexpr char HexDigits[] = "0123456789abcdef";
constexpr UINT32 ReplacementCharacter = 0xFFFD;

constexpr BOOLEAN IsHighSurrogate(CHAR16 C) { return C >= 0xD800 && C <= 0xDBFF; }
constexpr BOOLEAN IsLowSurrogate(CHAR16 C) { return C >= 0xDC00 && C <= 0xDFFF; }

}  // namespace

VOID JsonWriter::Put(UINT8 Byte) {
  if (Size_ >= Capacity_) {
    Overflow_ = TRUE;
    return;
  }
  Buffer_[Size_++] = Byte;
}

VOID JsonWriter::PutAscii(const char* Text) {
  for (; *Text != 0; ++Text) Put(static_cast<UINT8>(*Text));
}

VOID JsonWriter::PutCodePoint(UINT32 C) {
  if (C == u'"' || C == u'\\') {
    Put('\\');
    Put(static_cast<UINT8>(C));
  } else if (C < 0x20 || C == 0x7F) {
    PutAscii("\\u00");
    Put(HexDigits[C >> 4]);
    Put(HexDigits[C & 0xF]);
  } else if (C < 0x80) {
    Put(static_cast<UINT8>(C));
  } else if (C < 0x800) {
    Put(static_cast<UINT8>(0xC0 | (C >> 6)));
    Put(static_cast<UINT8>(0x80 | (C & 0x3F)));
  } else if (C < 0x10000) {
    Put(static_cast<UINT8>(0xE0 | (C >> 12)));
    Put(static_cast<UINT8>(0x80 | ((C >> 6) & 0x3F)));
    Put(static_cast<UINT8>(0x80 | (C & 0x3F)));
  } else {
    Put(static_cast<UINT8>(0xF0 | (C >> 18)));
    Put(static_cast<UINT8>(0x80 | ((C >> 12) & 0x3F)));
    Put(static_cast<UINT8>(0x80 | ((C >> 6) & 0x3F)));
    Put(static_cast<UINT8>(0x80 | (C & 0x3F)));
  }
}

VOID JsonWriter::BeforeValue() {
  if (AfterKey_) {
    AfterKey_ = FALSE;
    return;
  }
  if (Depth_ > 0) {
    if (HasItems_[Depth_ - 1]) Put(',');
    HasItems_[Depth_ - 1] = TRUE;
  }
}

JsonWriter& JsonWriter::Open(UINT8 Bracket) {
  BeforeValue();
  Put(Bracket);
  if (Depth_ == MaxDepth) {
    Overflow_ = TRUE;
    return *this;
  }
  HasItems_[Depth_++] = FALSE;
  return *this;
}

JsonWriter& JsonWriter::Close(UINT8 Bracket) {
  if (Depth_ == 0) {
    Overflow_ = TRUE;
    return *this;
  }
  --Depth_;
  Put(Bracket);
  return *this;
}

JsonWriter& JsonWriter::BeginObject() { return Open('{'); }
JsonWriter& JsonWriter::EndObject() { return Close('}'); }
JsonWriter& JsonWriter::BeginArray() { return Open('['); }
JsonWriter& JsonWriter::EndArray() { return Close(']'); }

JsonWriter& JsonWriter::Key(const char* Name) {
  AsciiString(Name);
  Put(':');
  AfterKey_ = TRUE;
  return *this;
}

JsonWriter& JsonWriter::Key(const CHAR16* Name, UINTN Length) {
  String(Name != nullptr ? Name : u"", Name != nullptr ? Length : 0);
  Put(':');
  AfterKey_ = TRUE;
  return *this;
}

JsonWriter& JsonWriter::String(const CHAR16* Text, UINTN Length) {
  if (Text == nullptr) return Null();
  BeforeValue();
  Put('"');
  for (UINTN I = 0; I < Length; ++I) {
    const CHAR16 C = Text[I];
    if (IsHighSurrogate(C) && I + 1 < Length && IsLowSurrogate(Text[I + 1])) {
      PutCodePoint(0x10000 + ((static_cast<UINT32>(C) - 0xD800) << 10) + (Text[I + 1] - 0xDC00));
      ++I;
    } else {
      // A lone surrogate has no UTF-8 form.
      PutCodePoint(IsHighSurrogate(C) || IsLowSurrogate(C) ? ReplacementCharacter : C);
    }
  }
  Put('"');
  return *this;
}

JsonWriter& JsonWriter::String(const CHAR16* Text) {
  UINTN Length = 0;
  if (Text != nullptr)
    while (Text[Length] != 0) ++Length;
  return String(Text, Length);
}

JsonWriter& JsonWriter::AsciiString(const char* Text) {
  BeforeValue();
  Put('"');
  for (; *Text != 0; ++Text) PutCodePoint(static_cast<UINT8>(*Text));
  Put('"');
  return *this;
}

JsonWriter& JsonWriter::Number(UINT64 Value) {
  BeforeValue();
  char Digits[21];
  UINTN Count = 0;
  do {
    Digits[Count++] = static_cast<char>('0' + Value % 10);
    Value /= 10;
  } while (Value != 0);
  while (Count > 0) Put(static_cast<UINT8>(Digits[--Count]));
  return *this;
}

JsonWriter& JsonWriter::Null() {
  BeforeValue();
  PutAscii("null");
  return *this;
}

JsonWriter& JsonWriter::Raw(UINT8 Byte) {
  Put(Byte);
  return *this;
}

}  // namespace tarvik
