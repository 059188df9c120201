#include "ui/log_view.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "log/log_line.h"
#include "log/log_protocol.h"
#include "registry/module_registry_protocol.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINTN TextBytes = 2000;
constexpr UINTN TextChars = TextBytes / sizeof(CHAR16);
constexpr CHAR16 Indentation[] = u"    ";

// One drawing of a view: where the next display line goes (ScrolledLine's
// line and row), the module whose keys the log holds, and whether the rows
// of a resource group are being drawn.
struct ViewDrawing {
  const LogViewState& View;
  TestModuleProtocol* Module = nullptr;
  UINT64 Line = 0;
  UINTN Row = 3;
  BOOLEAN Indented = FALSE;
};

LogProtocol* Log() { return LocateService<LogProtocol>(LogProtocolGuid); }

UINTN EndColumn() { return ScreenColumns() - 2; }

// A piece of the display line; Last ends the line (padded to the end column).
VOID Piece(ViewDrawing& At, const CHAR16* Text, BOOLEAN First, BOOLEAN Last) {
  const UINTN Column = First ? 1 : CursorColumn();
  ScrolledLine(At.View.LogVisibleLines, At.View.LogScrollTop, &At.Line, &At.Row, Column, Text, EndColumn(),
               Last ? LineMode::Finish : LineMode::Continue);
}

VOID WholeLine(ViewDrawing& At, const CHAR16* Text) { Piece(At, Text, TRUE, TRUE); }

// A word of a line as a terminated text, on the stack.
struct WordCopy {
  explicit WordCopy(const LogWord& Word) {
    UINTN I = 0;
    for (; I < Word.Length && I + 1 < LogLineChars; ++I) Text[I] = Word.Start[I];
    Text[I] = 0;
  }
  CHAR16 Text[LogLineChars];
};

// A key of the log as the module names it (TranslateKey), or the key itself
// when the module has no text for it.
class Translated {
 public:
  Translated(TestModuleProtocol* Module, const CHAR16* Key) : Key_(Key != nullptr ? Key : u"") {
    CHAR16* Text = nullptr;
    if (Module != nullptr) Module->TranslateKey(Module, Key_, &Text);
    Text_.reset(Text);
  }
  const CHAR16* Text() const { return Text_ ? Text_.get() : Key_; }

 private:
  const CHAR16* Key_;
  PoolPtr<CHAR16> Text_;
};

// A key read from a line, translated.
class TranslatedWord {
 public:
  TranslatedWord(TestModuleProtocol* Module, const LogWord& Word) : Word_(Word), Translated_(Module, Word_.Text) {}
  const CHAR16* Text() const { return Translated_.Text(); }

 private:
  WordCopy Word_;
  Translated Translated_;
};

// "yyyy/mm/dd hh:mm:ss" from a log time stamp; what the stamp lacks shows
// as blanks.
constexpr UINTN DisplayTimeChars = 19;
VOID DisplayTime(const LogWord& Stamp, CHAR16 (&Out)[DisplayTimeChars + 1]) {
  struct Part {
    log_stamp::Field Field;
    CHAR16 After;
  };
  constexpr Part Parts[] = {{log_stamp::Year, u'/'},  {log_stamp::Month, u'/'},  {log_stamp::Day, u' '},
                            {log_stamp::Hour, u':'}, {log_stamp::Minute, u':'}, {log_stamp::Second, 0}};
  UINTN O = 0;
  for (const Part& P : Parts) {
    for (UINTN I = P.Field.At; I < P.Field.At + P.Field.Width; ++I) Out[O++] = I < Stamp.Length ? Stamp.Start[I] : u' ';
    if (P.After != 0) Out[O++] = P.After;
  }
  Out[O] = 0;
}

// The start time of the log, from its header; empty without one.
VOID HeadingTime(LogProtocol* Logs, CHAR16 (&Time)[DisplayTimeChars + 1]) {
  Time[0] = 0;
  CHAR16* Header = nullptr;
  Logs->GetLine(0, &Header);
  const PoolPtr<CHAR16> Owned(Header);
  const ParsedLogLine Parsed = ParseLogLine(Header);
  if (Parsed.Stamp.Length > 0) DisplayTime(Parsed.Stamp, Time);
}

// "time Stop <algorithm> RESULT duration", in three pieces. Rest holds the
// algorithm key, the result word and the duration.
VOID StopLine(ViewDrawing& At, const CHAR16* Time, const CHAR16* Rest) {
  CHAR16 Text[TextChars];
  const LogWord Algorithm = WordAt(Rest);
  SPrint(Text, TextBytes, u"%s %s %s ", Time, UiText(ui_text::LogStop), TranslatedWord(At.Module, Algorithm).Text());
  Piece(At, Text, TRUE, FALSE);

  const LogWord Result = WordAfter(Algorithm);
  struct ResultLook {
    const CHAR16* Word;
    UINTN Attribute;
    UINT64 Text;
  };
  constexpr ResultLook Looks[] = {{log_word::Success, ui_colour::Passed, ui_text::Passed},
                                  {log_word::Failure, ui_colour::Failed, ui_text::Failed},
                                  {log_word::Aborted, ui_colour::Status, ui_text::Canceled},
                                  {log_word::Unsupported, ui_colour::Status, ui_text::NotSupported},
                                  {log_word::Skipped, ui_colour::Status, ui_text::NotExecuted}};
  const INT32 Remembered = gST->ConOut->Mode->Attribute;
  const CHAR16* Shown = u"";
  for (const ResultLook& Look : Looks) {
    if (!Result.Is(Look.Word)) continue;
    SetColour(Look.Attribute);
    Shown = UiText(Look.Text);
  }
  Piece(At, Shown, FALSE, FALSE);
  SetColour(static_cast<UINTN>(Remembered));

  const CHAR16* Duration = PastSeparator(Result.End());
  CHAR16* Number = nullptr;
  if (Log()->StripSecondsSuffix(Duration, &Number)) {
    SPrint(Text, TextBytes, u" %s%c", Number, u's');
  } else {
    SPrint(Text, TextBytes, u" %s", Number != nullptr ? Number : Duration);
  }
  if (Number != nullptr) gBS->FreePool(Number);
  Piece(At, Text, FALSE, TRUE);
}

// "time Kind <first word>" and then the rest, upper-case words translated.
VOID MessageLine(ViewDrawing& At, const CHAR16* Time, const LogWord& Kind, const CHAR16* Rest) {
  struct KindText {
    const CHAR16* Word;
    UINT64 Text;
  };
  constexpr KindText Kinds[] = {{log_word::Message, ui_text::LogMessage},
                                {log_word::Critical, ui_text::LogCritical},
                                {log_word::Error, ui_text::LogError},
                                {log_word::Warning, ui_text::LogWarning}};
  const WordCopy KindWord(Kind);
  const CHAR16* KindShown = KindWord.Text;
  for (const KindText& K : Kinds)
    if (Kind.Is(K.Word)) KindShown = UiText(K.Text);
  const LogWord First = WordAt(Rest);
  CHAR16 Text[TextChars];
  SPrint(Text, TextBytes, u"%s %s %s", Time, KindShown, TranslatedWord(At.Module, First).Text());
  Piece(At, Text, TRUE, FALSE);
  for (const CHAR16* C = First.End(); *C != 0;) {
    if (*C >= u'A' && *C <= u'Z') {
      const LogWord Key = WordAt(C);
      Piece(At, TranslatedWord(At.Module, Key).Text(), FALSE, FALSE);
      C = Key.End();
    } else {
      const CHAR16 One[2] = {*C, 0};
      Piece(At, One, FALSE, FALSE);
      ++C;
    }
  }
  Piece(At, u"", FALSE, TRUE);
}

VOID StampedLine(ViewDrawing& At, const ParsedLogLine& Line) {
  CHAR16 Time[DisplayTimeChars + 1];
  DisplayTime(Line.Stamp, Time);
  const CHAR16* Rest = PastSeparator(Line.Rest);
  if (Line.Keyword.Is(log_word::Start)) {
    CHAR16 Text[TextChars];
    SPrint(Text, TextBytes, u"%s %s %s", Time, UiText(ui_text::LogStart),
           TranslatedWord(At.Module, WordAt(Rest)).Text());
    WholeLine(At, Text);
  } else if (Line.Keyword.Is(log_word::Stop)) {
    StopLine(At, Time, Rest);
  } else {
    MessageLine(At, Time, Line.Keyword, Rest);
  }
}

// ">>> RESOURCE BANK": the group's heading; its rows are indented.
VOID GroupHeading(ViewDrawing& At, const ParsedLogLine& Line, CHAR16 (&Text)[TextChars]) {
  const LogWord Kind = WordAt(PastSeparator(Line.Rest));
  const WordCopy KindWord(Kind);
  SPrint(Text, TextBytes, u"%s: %s", Kind.Is(log_word::Resource) ? UiText(ui_text::LogResource) : KindWord.Text,
         TranslatedWord(At.Module, WordAfter(Kind)).Text());
  At.Indented = TRUE;
}

VOID LogLineRule(ViewDrawing& At, const CHAR16* Raw) {
  const ParsedLogLine Line = ParseLogLine(Raw);
  if (Line.TimeStamped) {
    StampedLine(At, Line);
    return;
  }
  CHAR16 Text[TextChars];
  const LogWord& W = Line.Keyword;
  if (W.Is(log_word::Index)) {
    SPrint(Text, TextBytes, u"%s%s%s", Indentation, UiText(ui_text::LogIndex), Line.Rest);
  } else if (W.Is(log_word::Start) || W.Is(log_word::Stop)) {
    const UINT64 Which = W.Is(log_word::Start) ? ui_text::LogStart : ui_text::LogStop;
    SPrint(Text, TextBytes, u"%s %s", UiText(Which), UiText(ui_text::LogTests));
  } else if (W.Is(log_word::GroupOpen)) {
    GroupHeading(At, Line, Text);
  } else if (W.Is(log_word::GroupClose)) {
    Text[0] = 0;
    At.Indented = FALSE;
  } else {
    SPrint(Text, TextBytes, u"%s%s%s", At.Indented ? Indentation : u"", TranslatedWord(At.Module, W).Text(),
           Line.Rest);
  }
  WholeLine(At, Text);
}

}  // namespace

EFI_STATUS DrawTestLogView(LogViewState& View, UINT64 TestIndex) {
  LogProtocol* Logs = Log();
  if (Logs == nullptr) return EFI_SUCCESS;
  ViewDrawing At{View};
  UiTests->GetTest(TestIndex, &At.Module);
  SetColour(ui_colour::Screen);

  CHAR16 Text[TextChars];
  SPrint(Text, TextBytes, u"%s %s", UiText(ui_text::Title), UiText(ui_text::LogTitle));
  WholeLine(At, Text);
  CHAR16* ModuleKey = nullptr;
  Logs->GetLogModuleKey(&ModuleKey);
  const PoolPtr<CHAR16> OwnedKey(ModuleKey);
  CHAR16 Time[DisplayTimeChars + 1];
  HeadingTime(Logs, Time);
  SPrint(Text, TextBytes, u"%s - %s", Translated(At.Module, OwnedKey.get()).Text(), Time);
  WholeLine(At, Text);

  // Each device's section is laid out by its own lines: an empty line for
  // its UID line, its header for the line after it, then every line up to
  // its end line. Sections differ in length (the messages each device
  // reported); what lies outside them (the footer, lines the log reserved
  // and left empty) is not shown.
  const UINT64 Lines = Logs->GetLineCount();
  UINT64 Sections = 0;
  BOOLEAN InSection = FALSE;
  UINT64 J = 0;
  for (UINT64 L = 1; L < Lines; ++L) {
    CHAR16* Line = nullptr;
    Logs->GetLine(L, &Line);
    const PoolPtr<CHAR16> OwnedLine(Line);
    const CHAR16* Raw = OwnedLine ? OwnedLine.get() : u"";
    if (IsDeviceStartLine(Raw)) {
      InSection = TRUE;
      J = 0;
      ++Sections;
    }
    if (!InSection) continue;
    if (J == 0) {
      WholeLine(At, u"");
    } else if (J == 1) {
      CHAR16* Name = nullptr;
      CHAR16* Code = nullptr;
      Logs->GetLogDisplayName(&Name, Sections - 1);
      Logs->GetLogResultCode(&Code, Sections - 1);
      const PoolPtr<CHAR16> OwnedName(Name), OwnedCode(Code);
      SPrint(Text, TextBytes, u"%s - %s %s", Translated(At.Module, OwnedName.get()).Text(),
             UiText(ui_text::ResultCode), OwnedCode ? OwnedCode.get() : u"");
      WholeLine(At, Text);
    } else {
      LogLineRule(At, Raw);
      if (IsDeviceEndLine(Raw)) InSection = FALSE;
    }
    ++J;
  }
  View.LogViewLineCount = At.Line;
  DrawScrollBar(View.LogViewLineCount, View.LogVisibleLines, View.LogScrollTop, 3);
  return EFI_SUCCESS;
}

EFI_STATUS DrawRecoveryLogView(LogViewState& View) {
  LogProtocol* Logs = Log();
  if (Logs == nullptr) return EFI_SUCCESS;
  const UINT64 Lines = Logs->GetLineCount();
  View.LogViewLineCount = Lines + 1;
  SetColour(ui_colour::Screen);
  ViewDrawing At{View};
  Piece(At, UiText(ui_text::Title), TRUE, FALSE);
  Piece(At, u" ", FALSE, FALSE);
  Piece(At, UiText(ui_text::LogTitle), FALSE, TRUE);
  CHAR16 Time[DisplayTimeChars + 1];
  HeadingTime(Logs, Time);
  WholeLine(At, Time);
  WholeLine(At, u"");
  for (UINT64 I = 1; I + 1 < Lines; ++I) {
    CHAR16* Line = nullptr;
    Logs->GetLine(I, &Line);
    const PoolPtr<CHAR16> OwnedLine(Line);
    WholeLine(At, OwnedLine ? OwnedLine.get() : u"");
  }
  DrawScrollBar(View.LogViewLineCount, View.LogVisibleLines, View.LogScrollTop, 3);
  return EFI_SUCCESS;
}

}  // namespace tarvik
