// Time-stamp and duration lines of the run and recovery screens.
#include "core/diag_common.h"
#include "ui/screen_toolkit.h"

namespace tarvik {
namespace {

constexpr UINTN TimeLineBytes = 200;
constexpr CHAR16 DateTimeFormat[] = u"%s %d-%02d-%02d %02d:%02d:%02d.";

VOID AddDateTimeLine(const CHAR16* Label, const EFI_TIME& Time, UINT64 Visible, UINT64 Top, UINT64* Line,
                     UINTN* Row, UINTN Column, UINTN EndColumn) {
  CHAR16 Text[TimeLineBytes / sizeof(CHAR16)];
  SPrint(Text, sizeof(Text), DateTimeFormat, Label, Time.Year, Time.Month, Time.Day, Time.Hour, Time.Minute,
         Time.Second);
  ScrolledLine(Visible, Top, Line, Row, Column, Text, EndColumn, LineMode::Finish);
}

}  // namespace

VOID AddTimeLine(const CHAR16* Label, const EFI_TIME& Time, UINT64 Visible, UINT64 Top, UINT64* Line, UINTN* Row,
                 UINTN Column, UINTN EndColumn) {
  AddDateTimeLine(Label, Time, Visible, Top, Line, Row, Column, EndColumn);
  ScrolledLine(Visible, Top, Line, Row, Column, nullptr, EndColumn, LineMode::Finish);
}

VOID AddTimeAndDurationLines(const CHAR16* Label, const CHAR16* DurationLabel, const EFI_TIME& Start,
                             const EFI_TIME& End, UINT64 Visible, UINT64 Top, UINT64* Line, UINTN* Row,
                             UINTN Column, UINTN EndColumn) {
  AddDateTimeLine(Label, End, Visible, Top, Line, Row, Column, EndColumn);
  EFI_TIME Span = {};
  ElapsedTime(Start, End, &Span);
  CHAR16 Text[TimeLineBytes / sizeof(CHAR16)];
  SPrint(Text, sizeof(Text), u"%s %02d:%02d:%02d.", DurationLabel, Span.Hour, Span.Minute, Span.Second);
  ScrolledLine(Visible, Top, Line, Row, Column, Text, EndColumn, LineMode::Finish);
  ScrolledLine(Visible, Top, Line, Row, Column, nullptr, EndColumn, LineMode::Finish);
}

}  // namespace tarvik
