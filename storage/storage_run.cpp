#include "storage/storage_run.h"

#include "core/diag_common.h"

namespace tarvik {
namespace {

// Every line is formatted into 2000 bytes, 999 characters at most.
constexpr UINTN LineBytes = 2000;

}  // namespace

VOID StorageRun::ReportProgress(UINT64 Percent) {
  Progress = Percent;
  if (ProgressCallback != nullptr) ProgressCallback(This, Percent, 0);
}

VOID StorageRun::LogKey(const CHAR16* Format, const CHAR16* Key) {
  CHAR16 Line[LineBytes / sizeof(CHAR16)];
  SPrint(Line, sizeof(Line), Format, Key);
  if (MessageCallback != nullptr) MessageCallback(This, Line, static_cast<UINT8>(TestMessageKind::LogLine), 0);
}

VOID StorageRun::LogReadError(UINT64 Lba) {
  CHAR16 Line[LineBytes / sizeof(CHAR16)];
  SPrint(Line, sizeof(Line), u"ERROR %s %ld", KeyReadSectorError, Lba);
  if (MessageCallback != nullptr) MessageCallback(This, Line, static_cast<UINT8>(TestMessageKind::LogLine), 0);
}

}  // namespace tarvik
