#include "drives/drive_run.h"

#include "core/format.h"

namespace tarvik {
namespace {

constexpr UINTN LineChars = 256;

}  // namespace

VOID DriveRun::ReportProgress(UINT64 Percent) {
  Progress = Percent;
  if (ProgressCallback != nullptr) ProgressCallback(This, Percent, 0);
}

VOID EFIAPI DriveRun::Log(const CHAR16* Format, ...) {
  CHAR16 Line[LineChars];
  VA_LIST Args;
  VA_START(Args, Format);
  FormatV(Line, LineChars, Format, Args);
  VA_END(Args);
  if (MessageCallback != nullptr) MessageCallback(This, Line, static_cast<UINT8>(TestMessageKind::LogLine), 0);
}

}  // namespace tarvik
