// Reading a built log back: copies of lines and the fields the log screens
// look for (module key, display names, result codes).
#include "core/pool.h"
#include "core/pool_text.h"
#include "core/wide_string.h"
#include "log/line_store.h"
#include "log/log_line.h"
#include "log/log_operations.h"

namespace tarvik {
namespace {

// A new text holding Word.
EFI_STATUS CopyWord(const LogWord& Word, CHAR16** Text) {
  PoolPtr<CHAR16> Copy;
  EFI_STATUS Status = Copy.Allocate((Word.Length + 1) * sizeof(CHAR16));
  if (EFI_ERROR(Status)) return Status;
  for (UINTN I = 0; I < Word.Length; ++I) Copy.get()[I] = Word.Start[I];
  Copy.get()[Word.Length] = 0;
  *Text = Copy.release();
  return EFI_SUCCESS;
}

// The N-th line (from 0) that begins with Word, or null.
const CHAR16* NthLineBeginningWith(const CHAR16* Word, UINT64 N) {
  for (UINT64 I = 0; I < LogLineCount(); ++I) {
    const CHAR16* Line = LogLine(I);
    if (LineBeginsWith(Line, Word) && N-- == 0) return Line;
  }
  return nullptr;
}

}  // namespace

EFIAPI UINT64 GetLineCount() { return LogLineCount(); }

EFIAPI EFI_STATUS GetLine(UINT64 Index, CHAR16** Copy) {
  const CHAR16* Line = LogLine(Index);
  if (Line == nullptr || Copy == nullptr) return EFI_INVALID_PARAMETER;
  PoolPtr<CHAR16> Buffer;
  const UINTN Bytes = (LogLineChars + 1) * sizeof(CHAR16);
  EFI_STATUS Status = Buffer.Allocate(Bytes);
  if (EFI_ERROR(Status)) return Status;
  gBS->SetMem(Buffer.get(), Bytes, 0);
  StrCpy(Buffer.get(), Line);
  *Copy = Buffer.release();
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS FreeLog() {
  ReleaseLogLines();
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS GetLogModuleKey(CHAR16** Text) {
  const CHAR16* Header = LogLine(0);
  if (Header == nullptr) return EFI_NOT_FOUND;
  if (Text == nullptr) return EFI_INVALID_PARAMETER;
  return CopyWord(ParseLogLine(Header).ModuleKey, Text);
}

EFIAPI EFI_STATUS GetLogDisplayName(CHAR16** Text, UINT64 N) {
  const CHAR16* Line = NthLineBeginningWith(log_word::DisplayName, N);
  if (Line == nullptr || Text == nullptr) return EFI_SUCCESS;
  return CopyTextToPool(ResourceValue(ParseLogLine(Line)), Text);
}

EFIAPI EFI_STATUS GetLogResultCode(CHAR16** Text, UINT64 N) {
  const CHAR16* Line = NthLineBeginningWith(log_word::Stop, N);  // the N-th device end line
  if (Line == nullptr || Text == nullptr) return EFI_SUCCESS;
  return CopyWord(DeviceResultCode(ParseLogLine(Line)), Text);
}

EFIAPI UINT64 GetLogDeviceCount() {
  UINT64 Count = 0;
  for (UINT64 I = 0; I < LogLineCount(); ++I) Count += IsDeviceStartLine(LogLine(I)) ? 1 : 0;
  return Count;
}

// Lines after the first display-name line up to and including the first
// device end line; 0 without a display-name line or with nothing after it.
// Without a device end line the count stops at the last line.
EFIAPI UINT64 GetLogFirstDeviceLineCount() {
  UINT64 First = 0;
  while (First < LogLineCount() && !LineBeginsWith(LogLine(First), log_word::DisplayName)) ++First;
  if (First + 1 >= LogLineCount()) return 0;
  UINT64 Count = 0;
  for (UINT64 I = First + 1; I < LogLineCount(); ++I) {
    ++Count;
    if (IsDeviceEndLine(LogLine(I))) break;
  }
  return Count;
}

EFIAPI BOOLEAN StripSecondsSuffix(const CHAR16* Text, CHAR16** Copy) {
  if (Text == nullptr || Copy == nullptr) return FALSE;
  const UINTN Length = StrLen(Text);
  const BOOLEAN HasSuffix = Length >= 3 && Text[Length - 1] == log_word::SecondsUnit &&
                            Text[Length - 2] == log_word::Blank &&
                            Text[Length - 3] >= u'0' && Text[Length - 3] <= u'9';
  if (EFI_ERROR(CopyTextToPool(Text, Copy))) return FALSE;
  if (HasSuffix) (*Copy)[Length - 2] = 0;
  return HasSuffix;
}

}  // namespace tarvik
