#include "log/line_store.h"

#include "core/format.h"
#include "core/globals.h"
#include "core/pool.h"

namespace tarvik {
namespace {

constinit CHAR16* Lines = nullptr;
constinit UINT64 LineCount = 0;
constinit LogRunFacts RunFacts = {};

}  // namespace

LogRunFacts& CurrentLogRun() { return RunFacts; }

EFI_STATUS AllocateLogLines(UINT64 Count) {
  ReleaseLogLines();
  RunFacts = LogRunFacts{};
  if (Count == 0) return EFI_SUCCESS;
  const UINT64 Bytes = Count * LogLineChars * sizeof(CHAR16);
  PoolPtr<CHAR16> Block;
  EFI_STATUS Status = Block.Allocate(Bytes);
  if (EFI_ERROR(Status)) return Status;
  gBS->SetMem(Block.get(), Bytes, 0);
  Lines = Block.release();
  LineCount = Count;
  return EFI_SUCCESS;
}

VOID ReleaseLogLines() {
  if (Lines != nullptr) gBS->FreePool(Lines);
  Lines = nullptr;
  LineCount = 0;
}

UINT64 LogLineCount() { return LineCount; }

CHAR16* LogLine(UINT64 Index) { return Index < LineCount ? Lines + Index * LogLineChars : nullptr; }

LogLineWriter::LogLineWriter(CHAR16* Line) : Line_(Line) {
  if (Line_ != nullptr) {
    while (Length_ < LogLineChars - 1 && Line_[Length_] != 0) ++Length_;
  }
}

LogLineWriter& LogLineWriter::Append(const CHAR16* Text) {
  if (Line_ == nullptr || Text == nullptr) return *this;
  while (Length_ < LogLineChars - 1 && *Text != 0) Line_[Length_++] = *Text++;
  Line_[Length_] = 0;
  return *this;
}

EFIAPI LogLineWriter& LogLineWriter::AppendFormatted(const CHAR16* Format, ...) {
  if (Line_ == nullptr) return *this;
  VA_LIST Args;
  VA_START(Args, Format);
  Length_ += FormatV(Line_ + Length_, LogLineChars - Length_, Format, Args);
  VA_END(Args);
  return *this;
}

LogLineWriter LogLineCursor::Next() { return LogLineWriter(LogLine(Next_++)); }

LogLineWriter LogLineCursor::NextStamped(const EFI_TIME& Time) {
  CHAR16 Stamp[TimeStampChars + 1];
  FormatTimeStamp(Time, Stamp);
  LogLineWriter Writer = Next();
  Writer.Append(Stamp).Append(u" ");
  return Writer;
}

VOID FormatTimeStamp(const EFI_TIME& Time, CHAR16 (&Text)[TimeStampChars + 1]) {
  const auto Digits = [&Text](log_stamp::Field Field, UINT32 Value) {
    for (UINTN I = Field.Width; I > 0; --I, Value /= 10)
      Text[Field.At + I - 1] = static_cast<CHAR16>(u'0' + Value % 10);
  };
  Digits(log_stamp::Year, Time.Year);
  Digits(log_stamp::Month, Time.Month);
  Digits(log_stamp::Day, Time.Day);
  Text[log_stamp::TimeMark] = log_stamp::TimeLetter;
  Digits(log_stamp::Hour, Time.Hour);
  Digits(log_stamp::Minute, Time.Minute);
  Digits(log_stamp::Second, Time.Second);
  UINTN At = log_stamp::Zone;
  for (CHAR16 Letter : log_stamp::ZoneLetters) Text[At++] = Letter;  // the terminator too
}

UINT64 MillisecondsSince1970(const EFI_TIME& Time) {
  if (Time.Year < 1970) return 0;
  constexpr UINT32 DaysBeforeMonth[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  auto IsLeap = [](UINT32 Year) { return (Year % 4 == 0 && Year % 100 != 0) || Year % 400 == 0; };
  UINT64 Days = 365ull * (Time.Year - 1970u);
  for (UINT32 Year = 1970; Year < Time.Year; ++Year) Days += IsLeap(Year) ? 1 : 0;
  if (Time.Month >= 1 && Time.Month <= 12) Days += DaysBeforeMonth[Time.Month - 1];
  if (IsLeap(Time.Year) && Time.Month > 2) Days += 1;
  if (Time.Day > 0) Days += Time.Day - 1u;
  return (((Days * 24 + Time.Hour) * 60 + Time.Minute) * 60 + Time.Second) * 1000;
}

}  // namespace tarvik
