#include "log/log_line.h"

namespace tarvik {
namespace {

BOOLEAN IsDigit(CHAR16 C) { return C >= u'0' && C <= u'9'; }

BOOLEAN AllDigits(const CHAR16* Text, log_stamp::Field Field) {
  for (UINTN I = 0; I < Field.Width; ++I)
    if (!IsDigit(Text[Field.At + I])) return FALSE;
  return TRUE;
}

constexpr log_stamp::Field DigitFields[] = {log_stamp::Year, log_stamp::Month,  log_stamp::Day,
                                            log_stamp::Hour, log_stamp::Minute, log_stamp::Second};

}  // namespace

BOOLEAN LogWord::Is(const CHAR16* Text) const {
  UINTN I = 0;
  for (; I < Length; ++I)
    if (Text[I] != Start[I]) return FALSE;
  return Text[I] == 0;
}

LogWord WordAt(const CHAR16* Text) {
  UINTN Length = 0;
  while (Text[Length] != 0 && Text[Length] != log_word::Blank && Text[Length] != log_word::KeyEnd) ++Length;
  return {Text, Length};
}

BOOLEAN LineBeginsWith(const CHAR16* Line, const CHAR16* Word) {
  for (; *Word != 0; ++Line, ++Word)
    if (*Line != *Word) return FALSE;
  return TRUE;
}

BOOLEAN BeginsWithTimeStamp(const CHAR16* Text) {
  UINTN Length = 0;
  while (Length < TimeStampChars && Text[Length] != 0) ++Length;
  if (Length < TimeStampChars) return FALSE;
  BOOLEAN Dashes = TRUE;
  for (UINTN I = 0; I < TimeStampChars; ++I) Dashes = Dashes && Text[I] == u'-';
  if (Dashes) return TRUE;
  for (log_stamp::Field Digits : DigitFields)
    if (!AllDigits(Text, Digits)) return FALSE;
  return Text[log_stamp::TimeMark] == log_stamp::TimeLetter &&
         LineBeginsWith(Text + log_stamp::Zone, log_stamp::ZoneLetters);
}

ParsedLogLine ParseLogLine(const CHAR16* Line) {
  ParsedLogLine Parsed;
  if (Line == nullptr) return Parsed;
  if (BeginsWithTimeStamp(Line)) {
    Parsed.TimeStamped = TRUE;
    Parsed.Stamp = {Line, TimeStampChars};
    Parsed.Keyword = WordAt(PastSeparator(Parsed.Stamp.End()));
    Parsed.Rest = Parsed.Keyword.End();
    return Parsed;
  }
  Parsed.Keyword = WordAt(Line);
  Parsed.Rest = Parsed.Keyword.End();
  if (Parsed.Keyword.Is(log_word::HeaderMark) || Parsed.Keyword.Is(log_word::FooterMark)) {
    const CHAR16* After = PastSeparator(Parsed.Rest);
    if (BeginsWithTimeStamp(After)) {
      Parsed.Stamp = {After, TimeStampChars};
      After = PastSeparator(Parsed.Stamp.End());
    }
    Parsed.ModuleKey = WordAt(After);
  }
  return Parsed;
}

const CHAR16* ResourceValue(const ParsedLogLine& Line) {
  const CHAR16* Value = Line.Rest;
  if (*Value == log_word::KeyEnd) ++Value;
  if (*Value == log_word::Blank) ++Value;
  return Value;
}

}  // namespace tarvik
