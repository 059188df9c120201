// The log of a bad-sector tool run: header, operation, the tool's device
// and size rows, the result lines as the tool screen collected them, footer.
#include "badsector/bad_sectors_tool_protocol.h"
#include "core/locate.h"
#include "core/pool.h"
#include "log/line_store.h"
#include "log/log_operations.h"

namespace tarvik {

EFIAPI EFI_STATUS BuildRecoverLog(UINT64 LineCount, CHAR16** Lines, UINT64 OperationIndex, const EFI_TIME* StartTime,
                                  const EFI_TIME* EndTime) {
  BadSectorsToolProtocol* Tool = LocateService<BadSectorsToolProtocol>(BadSectorsToolProtocolGuid);
  if (Tool == nullptr) return EFI_ABORTED;
  if (StartTime == nullptr || EndTime == nullptr || (LineCount > 0 && Lines == nullptr)) return EFI_INVALID_PARAMETER;

  EFI_STATUS Status = AllocateLogLines(LineCount + 5);
  if (EFI_ERROR(Status)) return Status;

  CurrentLogRun() = {.Kind = LogRunKind::Tool, .Start = *StartTime, .End = *EndTime};

  LogLineCursor Cursor;
  CHAR16 Stamp[TimeStampChars + 1];
  FormatTimeStamp(*StartTime, Stamp);
  Cursor.Next().Append(log_word::HeaderMark).Append(u" ").Append(Stamp).Append(u" ").Append(log_word::Recover);

  LogLineWriter Operation = Cursor.Next();
  Operation.Append(log_word::Operation).Append(u" ");
  CHAR16* Name = nullptr;
  if (!EFI_ERROR(Tool->GetAlgorithmName(Tool, OperationIndex, &Name))) {
    PoolPtr<CHAR16> OwnedName(Name);
    Operation.Append(Name);
  }

  // The tool's rows 0 and 1: the drive and its size.
  for (UINT64 Row = 0; Row < 2; ++Row) {
    LogLineWriter Line = Cursor.Next();
    CHAR16* Label = nullptr;
    CHAR16* Value = nullptr;
    if (EFI_ERROR(Tool->GetRunInfoRow(Tool, Row, 0, &Label, &Value))) continue;
    PoolPtr<CHAR16> OwnedLabel(Label), OwnedValue(Value);
    Line.Append(Label).Append(u" ").Append(Value);
  }

  for (UINT64 I = 0; I < LineCount; ++I) Cursor.Next().Append(Lines[I]);

  FormatTimeStamp(*EndTime, Stamp);
  Cursor.Next().Append(log_word::FooterMark).Append(u" ").Append(Stamp).Append(u" ").Append(log_word::Recover);
  return EFI_SUCCESS;
}

}  // namespace tarvik
