// A JSON text written into a caller's byte buffer, never past its end: the
// commas between members and items come from the writer, strings from
// UCS-2 become UTF-8 with quotes, backslashes and control bytes escaped.
#pragma once

#include "efi/base.h"

namespace tarvik {

class JsonWriter {
 public:
  JsonWriter(UINT8* Buffer, UINTN Capacity) : Buffer_(Buffer), Capacity_(Capacity) {}

  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  // The name of the next member of the open object.
  JsonWriter& Key(const char* Name);
  JsonWriter& Key(const CHAR16* Name, UINTN Length);
  // Length characters of Text; a null Text writes null.
  JsonWriter& String(const CHAR16* Text, UINTN Length);
  JsonWriter& String(const CHAR16* Text);
  JsonWriter& AsciiString(const char* Text);
  JsonWriter& Number(UINT64 Value);
  JsonWriter& Null();
  // Appends one raw byte (the line feed that ends a JSON line).
  JsonWriter& Raw(UINT8 Byte);

  // Every byte fit and every object and array was closed.
  BOOLEAN Complete() const { return !Overflow_ && Depth_ == 0; }
  UINTN Size() const { return Size_; }

 private:
  static constexpr UINTN MaxDepth = 16;
  VOID Put(UINT8 Byte);
  VOID PutAscii(const char* Text);
  VOID PutCodePoint(UINT32 CodePoint);
  // The comma before a value or key that is not the first of its container.
  VOID BeforeValue();
  JsonWriter& Open(UINT8 Bracket);
  JsonWriter& Close(UINT8 Bracket);

  UINT8* Buffer_;
  UINTN Capacity_;
  UINTN Size_ = 0;
  BOOLEAN Overflow_ = FALSE;
  UINTN Depth_ = 0;
  BOOLEAN HasItems_[MaxDepth] = {};
  BOOLEAN AfterKey_ = FALSE;
};

}  // namespace tarvik
