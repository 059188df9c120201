#include "log/results_line.h"

#include "core/diag_common.h"
#include "core/pool.h"
#include "log/line_store.h"
#include "log/log_line.h"

namespace tarvik {
namespace {

// A finding with this key names an unreadable sector: its first value.
constexpr CHAR16 ReadSectorErrorKey[] = u"READ_SECTOR_ERROR";
constexpr const CHAR16* SerialKeys[] = {u"SERIAL", u"SERIAL_NUMBER"};
constexpr const CHAR16* SizeKeys[] = {u"SIZE", u"PHYSICAL_MEMORY"};
constexpr CHAR16 NoValue[] = u"-";

struct Severity {
  const CHAR16* Kind;
  const char* Name;
};
constexpr Severity Severities[] = {
    {log_word::Message, "message"}, {log_word::Warning, "warning"},
    {log_word::Error, "error"},     {log_word::Critical, "critical"},
};

struct Outcome {
  const CHAR16* Word;
  const char* Name;
};
constexpr Outcome Outcomes[] = {
    {log_word::Success, "passed"},         {log_word::Failure, "failed"},  {log_word::Aborted, "canceled"},
    {log_word::Unsupported, "not_supported"}, {log_word::Skipped, "not_run"},
};

BOOLEAN IsBlank(CHAR16 C) { return C == u' ' || C == u'\t'; }

LogWord Trimmed(const CHAR16* Text) {
  while (IsBlank(*Text)) ++Text;
  UINTN Length = 0;
  while (Text[Length] != 0) ++Length;
  while (Length > 0 && IsBlank(Text[Length - 1])) --Length;
  return {Text, Length};
}

// The next word from Cursor, past blanks; empty at the end of the text.
LogWord NextToken(const CHAR16*& Cursor) {
  while (IsBlank(*Cursor)) ++Cursor;
  const CHAR16* Start = Cursor;
  while (*Cursor != 0 && !IsBlank(*Cursor)) ++Cursor;
  return {Start, static_cast<UINTN>(Cursor - Start)};
}

INT32 HexValue(CHAR16 C) {
  if (C >= u'0' && C <= u'9') return C - u'0';
  if (C >= u'a' && C <= u'f') return C - u'a' + 10;
  if (C >= u'A' && C <= u'F') return C - u'A' + 10;
  return -1;
}

// A decimal number (commas between digit groups allowed) or 0x-hexadecimal
// that fits 64 bits.
BOOLEAN ParseNumber(const LogWord& Word, UINT64& Value) {
  Value = 0;
  if (Word.Length > 2 && Word.Start[0] == u'0' && (Word.Start[1] == u'x' || Word.Start[1] == u'X')) {
    for (UINTN I = 2; I < Word.Length; ++I) {
      const INT32 Digit = HexValue(Word.Start[I]);
      if (Digit < 0 || (Value >> 60) != 0) return FALSE;
      Value = Value * 16 + static_cast<UINT64>(Digit);
    }
    return TRUE;
  }
  BOOLEAN AfterComma = TRUE;  // nor may a comma come first
  for (UINTN I = 0; I < Word.Length; ++I) {
    const CHAR16 C = Word.Start[I];
    if (C == u',' && !AfterComma) {
      AfterComma = TRUE;
      continue;
    }
    if (C < u'0' || C > u'9') return FALSE;
    const UINT64 Digit = C - u'0';
    if (Value > (~0ull - Digit) / 10) return FALSE;
    Value = Value * 10 + Digit;
    AfterComma = FALSE;
  }
  return Word.Length > 0 && !AfterComma;
}

BOOLEAN IsFieldName(const LogWord& Word) {
  if (Word.Length == 0 || Word.Start[0] < u'A' || Word.Start[0] > u'Z') return FALSE;
  for (UINTN I = 1; I < Word.Length; ++I) {
    const CHAR16 C = Word.Start[I];
    if (!((C >= u'A' && C <= u'Z') || (C >= u'0' && C <= u'9') || C == u'_')) return FALSE;
  }
  return TRUE;
}

enum class PartKind { Field, Value, Text };

// The words of a finding after its key: NAME number pairs, lone numbers and
// other words, in order.
template <typename Visit>
VOID ForEachPart(const CHAR16* Text, Visit&& Visitor) {
  const CHAR16* Cursor = Text;
  for (LogWord Word = NextToken(Cursor); Word.Length > 0; Word = NextToken(Cursor)) {
    UINT64 Number = 0;
    if (IsFieldName(Word)) {
      const CHAR16* Peek = Cursor;
      if (ParseNumber(NextToken(Peek), Number)) {
        Visitor(PartKind::Field, Word, Number);
        Cursor = Peek;
        continue;
      }
    }
    if (ParseNumber(Word, Number)) {
      Visitor(PartKind::Value, Word, Number);
    } else {
      Visitor(PartKind::Text, Word, 0);
    }
  }
}

// The parts of a finding as "fields", "values" and "text", each only when
// there is one.
VOID WriteParts(JsonWriter& Json, const CHAR16* Text) {
  UINTN Counts[3] = {};
  ForEachPart(Text, [&](PartKind Kind, const LogWord&, UINT64) { ++Counts[static_cast<UINTN>(Kind)]; });
  if (Counts[0] > 0) {
    Json.Key("fields").BeginObject();
    ForEachPart(Text, [&](PartKind Kind, const LogWord& Word, UINT64 Number) {
      if (Kind != PartKind::Field) return;
      CHAR16 Lower[LogLineChars];
      UINTN I = 0;
      for (; I < Word.Length && I + 1 < LogLineChars; ++I) {
        const CHAR16 C = Word.Start[I];
        Lower[I] = C >= u'A' && C <= u'Z' ? static_cast<CHAR16>(C + 32) : C;
      }
      Json.Key(Lower, I).Number(Number);
    });
    Json.EndObject();
  }
  if (Counts[1] > 0) {
    Json.Key("values").BeginArray();
    ForEachPart(Text, [&](PartKind Kind, const LogWord&, UINT64 Number) {
      if (Kind == PartKind::Value) Json.Number(Number);
    });
    Json.EndArray();
  }
  if (Counts[2] > 0) {
    CHAR16 Joined[LogLineChars];
    UINTN Length = 0;
    ForEachPart(Text, [&](PartKind Kind, const LogWord& Word, UINT64) {
      if (Kind != PartKind::Text) return;
      if (Length > 0 && Length + 1 < LogLineChars) Joined[Length++] = u' ';
      for (UINTN I = 0; I < Word.Length && Length + 1 < LogLineChars; ++I) Joined[Length++] = Word.Start[I];
    });
    Json.Key("text").String(Joined, Length);
  }
}

const char* SeverityOf(const LogWord& Keyword) {
  for (const Severity& Entry : Severities)
    if (Keyword.Is(Entry.Kind)) return Entry.Name;
  return nullptr;
}

// A module's message line: the kind, then the key. A stamped line of any
// other keyword counts as a message whose key is that keyword.
struct Finding {
  const char* Severity;
  LogWord Key;
  const CHAR16* Rest;
};
Finding FindingOf(const ParsedLogLine& Line) {
  const char* Severity = SeverityOf(Line.Keyword);
  const LogWord Key = Severity != nullptr ? WordAt(PastSeparator(Line.Rest)) : Line.Keyword;
  return {Severity != nullptr ? Severity : "message", Key, PastSeparator(Key.End())};
}

VOID WriteFinding(JsonWriter& Json, const ParsedLogLine& Line) {
  const Finding Found = FindingOf(Line);
  Json.BeginObject().Key("severity").AsciiString(Found.Severity).Key("key").String(Found.Key.Start, Found.Key.Length);
  WriteParts(Json, Found.Rest);
  Json.EndObject();
}

// The first value of an unreadable-sector finding.
BOOLEAN UnreadableLba(const ParsedLogLine& Line, UINT64& Lba) {
  const Finding Found = FindingOf(Line);
  if (!Found.Key.Is(ReadSectorErrorKey)) return FALSE;
  BOOLEAN Seen = FALSE;
  ForEachPart(Found.Rest, [&](PartKind Kind, const LogWord&, UINT64 Number) {
    if (Kind == PartKind::Value && !Seen) {
      Lba = Number;
      Seen = TRUE;
    }
  });
  return Seen;
}

// Writes each unreadable LBA once, in the order first found, however many
// algorithms or tool lines name it. The writer takes no memory of its own:
// past the first MostRemembered distinct LBAs, repeats are written again.
class DistinctLbas {
 public:
  explicit DistinctLbas(JsonWriter& Json) : Json_(Json) {}
  VOID Add(UINT64 Lba) {
    for (UINTN I = 0; I < Count_; ++I)
      if (Seen_[I] == Lba) return;
    if (Count_ < MostRemembered) Seen_[Count_++] = Lba;
    Json_.Number(Lba);
  }

 private:
  static constexpr UINTN MostRemembered = 512;
  JsonWriter& Json_;
  UINT64 Seen_[MostRemembered];
  UINTN Count_ = 0;
};

VOID WriteTime(JsonWriter& Json, const EFI_TIME* Time) {
  if (Time == nullptr || Time->Year == 0) {
    Json.Null();
    return;
  }
  CHAR16 Text[40];
  SPrint(Text, sizeof(Text), u"%04d-%02d-%02dT%02d:%02d:%02d", static_cast<UINT32>(Time->Year),
         static_cast<UINT32>(Time->Month), static_cast<UINT32>(Time->Day), static_cast<UINT32>(Time->Hour),
         static_cast<UINT32>(Time->Minute), static_cast<UINT32>(Time->Second));
  Json.String(Text);
}

// A key of the log as the module names it on screen, or as written.
VOID WriteName(JsonWriter& Json, TestModuleProtocol* Module, const LogWord& Key) {
  CHAR16 Copy[LogLineChars];
  UINTN I = 0;
  for (; I < Key.Length && I + 1 < LogLineChars; ++I) Copy[I] = Key.Start[I];
  Copy[I] = 0;
  CHAR16* Text = nullptr;
  // A module may leave the slot empty.
  if (Module != nullptr && Module->TranslateKey != nullptr && !EFI_ERROR(Module->TranslateKey(Module, Copy, &Text)) &&
      Text != nullptr) {
    PoolPtr<CHAR16> Owned(Text);
    UINTN Length = 0;
    while (Length + 1 < LogLineChars && Owned.get()[Length] != 0) ++Length;
    Json.String(Owned.get(), Length);
    return;
  }
  Json.String(Copy, I);
}

VOID WriteMachine(JsonWriter& Json, const ResultsMachine& Machine) {
  Json.Key("machine").BeginObject();
  Json.Key("manufacturer").String(Machine.Manufacturer);
  Json.Key("product").String(Machine.Product);
  Json.Key("serial_number").String(Machine.SerialNumber);
  Json.Key("bios_vendor").String(Machine.BiosVendor);
  Json.Key("bios_version").String(Machine.BiosVersion);
  Json.EndObject();
}

// A device's section of a test log: from its "UID" line to its end line.
class DeviceSection {
 public:
  DeviceSection(const ResultsRun& Run, UINT64 First, UINT64 End) : Run_(Run), First_(First), End_(End) {}

  VOID Write(JsonWriter& Json) const {
    Json.BeginObject();
    Json.Key("name");
    const CHAR16* DisplayName = RowValue(log_word::DisplayName);
    if (DisplayName != nullptr) {
      WriteName(Json, Run_.Module, Trimmed(DisplayName));
    } else {
      Json.Null();
    }
    WriteKnownRow(Json, "serial_number", SerialKeys);
    WriteKnownRow(Json, "size", SizeKeys);
    Json.Key("result_code");
    const LogWord Code = End_ < Run_.LineCount ? DeviceResultCode(Parsed(End_)) : LogWord{};
    if (Code.Length > 0) {
      Json.String(Code.Start, Code.Length);
    } else {
      Json.Null();
    }
    WriteRows(Json);
    Json.Key("findings").BeginArray();
    ForEachTestLine([&](const ParsedLogLine& Line, BOOLEAN InAlgorithm) {
      if (!InAlgorithm && IsFindingLine(Line)) WriteFinding(Json, Line);
    });
    Json.EndArray();
    Json.Key("unreadable_lbas").BeginArray();
    DistinctLbas Lbas(Json);
    ForEachTestLine([&](const ParsedLogLine& Line, BOOLEAN) {
      UINT64 Lba = 0;
      if (IsFindingLine(Line) && UnreadableLba(Line, Lba)) Lbas.Add(Lba);
    });
    Json.EndArray();
    WriteAlgorithms(Json);
    Json.EndObject();
  }

 private:
  ParsedLogLine Parsed(UINT64 I) const { return ParseLogLine(Run_.Lines + I * LogLineChars); }

  static BOOLEAN IsRow(const ParsedLogLine& Line) {
    return !Line.TimeStamped && Line.Keyword.Length > 0 && *Line.Keyword.End() == log_word::KeyEnd;
  }
  static BOOLEAN IsFindingLine(const ParsedLogLine& Line) {
    return Line.TimeStamped && !Line.Keyword.Is(log_word::Start) && !Line.Keyword.Is(log_word::Stop);
  }
  // The line that opens the device's tests, or End_.
  UINT64 TestsStart() const {
    for (UINT64 I = First_; I < End_; ++I) {
      const ParsedLogLine Line = Parsed(I);
      if (!Line.TimeStamped && Line.Keyword.Is(log_word::Start)) return I;
    }
    return End_;
  }

  // Visitor(row, group) for every row; group is empty outside a group.
  template <typename Visit>
  VOID ForEachRow(Visit&& Visitor) const {
    LogWord Group;
    const UINT64 Last = TestsStart();
    for (UINT64 I = First_; I < Last; ++I) {
      const ParsedLogLine Line = Parsed(I);
      if (Line.Keyword.Is(log_word::GroupOpen)) {
        Group = WordAfter(WordAfter(Line.Keyword));
      } else if (Line.Keyword.Is(log_word::GroupClose)) {
        Group = {};
      } else if (IsRow(Line)) {
        Visitor(Line, Group);
      }
    }
  }

  // A row outside the groups, or null.
  const CHAR16* RowValue(const CHAR16* Key) const {
    const CHAR16* Found = nullptr;
    ForEachRow([&](const ParsedLogLine& Line, const LogWord& Group) {
      if (Found == nullptr && Group.Length == 0 && Line.Keyword.Is(Key)) Found = ResourceValue(Line);
    });
    return Found;
  }

  template <UINTN N>
  VOID WriteKnownRow(JsonWriter& Json, const char* Name, const CHAR16* const (&Keys)[N]) const {
    Json.Key(Name);
    for (const CHAR16* Key : Keys) {
      const CHAR16* Value = RowValue(Key);
      if (Value == nullptr) continue;
      const LogWord Text = Trimmed(Value);
      if (Text.Length == 0 || Text.Is(NoValue)) break;
      Json.String(Text.Start, Text.Length);
      return;
    }
    Json.Null();
  }

  VOID WriteRows(JsonWriter& Json) const {
    Json.Key("properties").BeginObject();
    ForEachRow([&](const ParsedLogLine& Line, const LogWord& Group) {
      if (Group.Length == 0) Json.Key(Line.Keyword.Start, Line.Keyword.Length).String(ResourceValue(Line));
    });
    Json.EndObject();
    Json.Key("groups").BeginArray();
    LogWord Open;
    BOOLEAN InGroup = FALSE;
    const UINT64 Last = TestsStart();
    for (UINT64 I = First_; I < Last; ++I) {
      const ParsedLogLine Line = Parsed(I);
      if (Line.Keyword.Is(log_word::GroupOpen)) {
        if (InGroup) Json.EndObject().EndObject();
        Open = WordAfter(WordAfter(Line.Keyword));
        Json.BeginObject().Key("group").String(Open.Start, Open.Length).Key("properties").BeginObject();
        InGroup = TRUE;
      } else if (Line.Keyword.Is(log_word::GroupClose)) {
        if (InGroup) Json.EndObject().EndObject();
        InGroup = FALSE;
      } else if (InGroup && IsRow(Line)) {
        Json.Key(Line.Keyword.Start, Line.Keyword.Length).String(ResourceValue(Line));
      }
    }
    if (InGroup) Json.EndObject().EndObject();
    Json.EndArray();
  }

  // Visitor(line, inside an algorithm) for every stamped line of the tests.
  template <typename Visit>
  VOID ForEachTestLine(Visit&& Visitor) const {
    BOOLEAN InAlgorithm = FALSE;
    for (UINT64 I = TestsStart(); I < End_; ++I) {
      const ParsedLogLine Line = Parsed(I);
      if (!Line.TimeStamped) continue;
      if (Line.Keyword.Is(log_word::Start)) InAlgorithm = TRUE;
      Visitor(Line, InAlgorithm);
      if (Line.Keyword.Is(log_word::Stop)) InAlgorithm = FALSE;
    }
  }

  VOID WriteAlgorithms(JsonWriter& Json) const {
    Json.Key("algorithms").BeginArray();
    BOOLEAN Open = FALSE;
    ForEachTestLine([&](const ParsedLogLine& Line, BOOLEAN) {
      if (Line.Keyword.Is(log_word::Start)) {
        if (Open) CloseAlgorithm(Json, nullptr);
        const LogWord Key = WordAfter(Line.Keyword);
        Json.BeginObject().Key("name");
        WriteName(Json, Run_.Module, Key);
        Json.Key("key").String(Key.Start, Key.Length).Key("findings").BeginArray();
        Open = TRUE;
      } else if (Line.Keyword.Is(log_word::Stop)) {
        if (Open) CloseAlgorithm(Json, &Line);
        Open = FALSE;
      } else if (Open) {
        WriteFinding(Json, Line);
      }
    });
    if (Open) CloseAlgorithm(Json, nullptr);
    Json.EndArray();
  }

  // Ends the open algorithm with what its stop line says (none: not run).
  static VOID CloseAlgorithm(JsonWriter& Json, const ParsedLogLine* Stop) {
    Json.EndArray();
    const char* Name = "not_run";
    BOOLEAN HasSeconds = FALSE;
    UINT64 Seconds = 0;
    if (Stop != nullptr) {
      const LogWord Word = WordAfter(WordAfter(Stop->Keyword));
      for (const Outcome& Entry : Outcomes)
        if (Word.Is(Entry.Word)) Name = Entry.Name;
      const LogWord Number = WordAfter(Word);
      const LogWord Unit = WordAfter(Number);
      HasSeconds = Unit.Length == 1 && Unit.Start[0] == log_word::SecondsUnit && ParseNumber(Number, Seconds);
    }
    Json.Key("outcome").AsciiString(Name).Key("seconds");
    if (HasSeconds) {
      Json.Number(Seconds);
    } else {
      Json.Null();
    }
    Json.EndObject();
  }

  const ResultsRun& Run_;
  UINT64 First_;
  UINT64 End_;
};

VOID WriteTestDevices(JsonWriter& Json, const ResultsRun& Run) {
  for (UINT64 I = 0; I < Run.LineCount; ++I) {
    if (!IsDeviceStartLine(Run.Lines + I * LogLineChars)) continue;
    UINT64 End = I + 1;
    while (End < Run.LineCount && !IsDeviceEndLine(Run.Lines + End * LogLineChars)) ++End;
    DeviceSection(Run, I, End).Write(Json);
    I = End;
  }
}

// What follows the first colon of a tool's row, trimmed.
LogWord AfterColon(const CHAR16* Line) {
  while (*Line != 0 && *Line != log_word::KeyEnd) ++Line;
  return Trimmed(PastSeparator(Line));
}
LogWord BeforeColon(const CHAR16* Line) {
  UINTN Length = 0;
  while (Line[Length] != 0 && Line[Length] != log_word::KeyEnd) ++Length;
  return {Line, Length};
}

// A tool line that reports a sector the scan found unreadable: a numbered
// "#001" word and the sector as its last word.
BOOLEAN ToolUnreadableLba(const CHAR16* Line, UINT64& Lba) {
  BOOLEAN Numbered = FALSE, Last = FALSE;
  const CHAR16* Cursor = Line;
  for (LogWord Word = NextToken(Cursor); Word.Length > 0; Word = NextToken(Cursor)) {
    UINT64 Ignored = 0;
    if (Word.Start[0] == u'#' && ParseNumber({Word.Start + 1, Word.Length - 1}, Ignored)) Numbered = TRUE;
    Last = ParseNumber(Word, Lba);
  }
  return Numbered && Last;
}

// The bad-sector tool's log: header, operation, the drive's two rows, its
// lines, footer.
VOID WriteToolDevice(JsonWriter& Json, const ResultsRun& Run) {
  constexpr UINT64 OperationLine = 1, DeviceLine = 2, SizeLine = 3, FirstToolLine = 4;
  if (Run.LineCount < FirstToolLine + 1) return;
  const auto Line = [&](UINT64 I) { return Run.Lines + I * LogLineChars; };
  const UINT64 Footer = Run.LineCount - 1;
  const LogWord Name = AfterColon(Line(DeviceLine)), Size = AfterColon(Line(SizeLine));
  const LogWord Operation = AfterColon(Line(OperationLine));
  UINT64 Lba = 0, Found = 0;
  BOOLEAN Canceled = FALSE;
  for (UINT64 I = FirstToolLine; I < Footer; ++I) {
    Found += ToolUnreadableLba(Line(I), Lba) ? 1 : 0;
    if (Run.ToolCanceledLine != nullptr && Trimmed(Line(I)).Is(Run.ToolCanceledLine)) Canceled = TRUE;
  }

  Json.BeginObject().Key("name").String(Name.Start, Name.Length).Key("serial_number").Null();
  Json.Key("size");
  if (Size.Length > 0) {
    Json.String(Size.Start, Size.Length);
  } else {
    Json.Null();
  }
  Json.Key("result_code").Null().Key("properties").BeginObject();
  constexpr UINT64 RowLines[] = {DeviceLine, SizeLine};
  for (UINT64 I : RowLines) {
    const LogWord Label = BeforeColon(Line(I)), Value = AfterColon(Line(I));
    Json.Key(Label.Start, Label.Length).String(Value.Start, Value.Length);
  }
  Json.EndObject().Key("groups").BeginArray().EndArray().Key("findings").BeginArray().EndArray();
  Json.Key("unreadable_lbas").BeginArray();
  DistinctLbas Lbas(Json);
  for (UINT64 I = FirstToolLine; I < Footer; ++I)
    if (ToolUnreadableLba(Line(I), Lba)) Lbas.Add(Lba);
  Json.EndArray();

  Json.Key("algorithms").BeginArray().BeginObject();
  Json.Key("name").String(Operation.Start, Operation.Length).Key("key").Null();
  Json.Key("findings").BeginArray();
  for (UINT64 I = FirstToolLine; I < Footer; ++I) {
    const LogWord Text = Trimmed(Line(I));
    Json.BeginObject().Key("severity").AsciiString("message").Key("key").Null();
    const CHAR16* Cursor = Line(I);
    LogWord LastWord;
    for (LogWord Word = NextToken(Cursor); Word.Length > 0; Word = NextToken(Cursor)) LastWord = Word;
    UINT64 Number = 0;
    if (ParseNumber(LastWord, Number)) Json.Key("values").BeginArray().Number(Number).EndArray();
    Json.Key("text").String(Text.Start, Text.Length).EndObject();
  }
  // A cancelled run is cancelled, whatever it found before.
  const char* Outcome = Canceled ? "canceled" : Found > 0 ? "failed" : "passed";
  Json.EndArray().Key("outcome").AsciiString(Outcome).Key("seconds");
  if (Run.Started != nullptr && Run.Ended != nullptr &&
      MillisecondsSince1970(*Run.Ended) >= MillisecondsSince1970(*Run.Started)) {
    Json.Number((MillisecondsSince1970(*Run.Ended) - MillisecondsSince1970(*Run.Started)) / 1000);
  } else {
    Json.Null();
  }
  Json.EndObject().EndArray().EndObject();
}

}  // namespace

UINTN ResultsLineCapacity(const ResultsRun& Run) {
  const auto Length = [](const CHAR16* Text) {
    UINTN N = 0;
    if (Text != nullptr)
      while (Text[N] != 0) ++N;
    return N;
  };
  const ResultsMachine& M = Run.Machine;
  const UINTN Texts = Length(Run.Version) + Length(Run.TestName) + Length(M.Manufacturer) + Length(M.Product) +
                      Length(M.SerialNumber) + Length(M.BiosVendor) + Length(M.BiosVersion);
  // Every character may take six bytes (\u00XX) and a line may be written
  // three times (row, name, finding), each with its keys and punctuation;
  // a module's name for a key is cut to a log line.
  return 8192 + 6 * Texts + static_cast<UINTN>(Run.LineCount) * (LogLineChars * 6 * 3 + 512);
}

VOID WriteResultsLine(JsonWriter& Json, const ResultsRun& Run) {
  Json.BeginObject();
  Json.Key("format").AsciiString("tarvik-results/1");
  Json.Key("version").String(Run.Version);
  Json.Key("started");
  WriteTime(Json, Run.Started);
  Json.Key("saved");
  WriteTime(Json, Run.Saved);
  WriteMachine(Json, Run.Machine);
  Json.Key("kind").AsciiString(Run.Tool ? "tool" : "test");
  Json.Key("test").String(Run.TestName);
  Json.Key("devices").BeginArray();
  if (Run.Lines != nullptr) {
    if (Run.Tool) {
      WriteToolDevice(Json, Run);
    } else {
      WriteTestDevices(Json, Run);
    }
  }
  Json.EndArray().EndObject().Raw(0x0A);
}

}  // namespace tarvik
