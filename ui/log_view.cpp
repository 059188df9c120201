#include "ui/log_view.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "core/pool_text.h"
#include "core/wide_string.h"
#include "log/log_protocol.h"
#include "registry/test_collection_protocol.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {

constinit UINT64 LogScrollTop = 0;
constinit UINT64 LogVisibleLines = 0;
constinit UINT64 LogViewLineCount = 0;

namespace {

constexpr UINTN TextBytes = 2000;
constexpr UINTN TextChars = TextBytes / sizeof(CHAR16);
constexpr CHAR16 Indentation[] = u"    ";
constexpr UINTN StampLength = 18;  // yyyymmddThhmmssUTC

// Where the next display line goes: ScrolledLine's line and row.
struct ViewCursor {
  UINT64 Line = 0;
  UINTN Row = 3;
};

LogProtocol* Log() { return LocateService<LogProtocol>(LogProtocolGuid); }

UINTN EndColumn() { return ScreenColumns() - 2; }

// A piece of the display line; Last ends the line (padded to the end column).
VOID Piece(ViewCursor& At, const CHAR16* Text, BOOLEAN First, BOOLEAN Last) {
  const UINTN Column = First ? 1 : CursorColumn();
  ScrolledLine(LogVisibleLines, LogScrollTop, &At.Line, &At.Row, Column, Text, EndColumn(),
               Last ? LineMode::Finish : LineMode::Continue);
}

VOID WholeLine(ViewCursor& At, const CHAR16* Text) { Piece(At, Text, TRUE, TRUE); }

// "yyyy/mm/dd hh:mm:ss" from a log time stamp.
VOID DisplayTime(const CHAR16* Stamp, CHAR16* Out) {
  constexpr UINTN From[] = {0, 1, 2, 3, 99, 4, 5, 99, 6, 7, 98, 9, 10, 97, 11, 12, 97, 13, 14};
  UINTN Length = StrLen(Stamp);
  UINTN O = 0;
  for (UINTN Source : From) {
    if (Source == 99) Out[O++] = u'/';
    else if (Source == 98) Out[O++] = u' ';
    else if (Source == 97) Out[O++] = u':';
    else Out[O++] = Source < Length ? Stamp[Source] : u' ';
  }
  Out[O] = 0;
}

BOOLEAN IsDigit(CHAR16 C) { return C >= u'0' && C <= u'9'; }

BOOLEAN IsTimeStamped(const CHAR16* Line) {
  if (StrLen(Line) < StampLength) return FALSE;
  BOOLEAN Dashes = TRUE;
  for (UINTN I = 0; I < StampLength; ++I) Dashes = Dashes && Line[I] == u'-';
  if (Dashes) return TRUE;
  for (UINTN I = 0; I < 8; ++I)
    if (!IsDigit(Line[I])) return FALSE;
  if (Line[8] != u'T') return FALSE;
  for (UINTN I = 9; I < 15; ++I)
    if (!IsDigit(Line[I])) return FALSE;
  return Line[15] == u'U' && Line[16] == u'T' && Line[17] == u'C';
}

// The word at Text: up to the first blank, colon or end, as a new buffer.
PoolPtr<CHAR16> Word(const CHAR16* Text, UINTN* Length) {
  UINTN L = 0;
  while (Text[L] != 0 && Text[L] != u' ' && Text[L] != u':') ++L;
  PoolPtr<CHAR16> Copy;
  if (!EFI_ERROR(Copy.Allocate((L + 1) * sizeof(CHAR16)))) {
    for (UINTN I = 0; I < L; ++I) Copy.get()[I] = Text[I];
    Copy.get()[L] = 0;
  }
  *Length = L;
  return Copy;
}

// The module's text for a key; the key itself when the module has none.
class Translator {
 public:
  explicit Translator(TestModuleProtocol* Module) : Module_(Module) {}
  PoolPtr<CHAR16> operator()(const CHAR16* Key) const {
    CHAR16* Text = nullptr;
    if (Module_ != nullptr && Key != nullptr) Module_->TranslateKey(Module_, Key, &Text);
    if (Text == nullptr) CopyTextToPool(Key, &Text);
    return PoolPtr<CHAR16>(Text);
  }

 private:
  TestModuleProtocol* Module_;
};

const CHAR16* Or(const PoolPtr<CHAR16>& Text) { return Text ? Text.get() : u""; }

// "time Stop <algorithm> RESULT duration", in three pieces.
VOID StopLine(ViewCursor& At, const CHAR16* Time, const CHAR16* Rest, const Translator& Translate) {
  CHAR16 Text[TextChars];
  UINTN Length = 0;
  const PoolPtr<CHAR16> Algorithm = Word(Rest, &Length);
  SPrint(Text, TextBytes, u"%s %s %s ", Time, UiText(ui_text::LogStop), Or(Translate(Or(Algorithm))));
  Piece(At, Text, TRUE, FALSE);

  const CHAR16* AfterAlgorithm = Rest + Length + (Rest[Length] != 0 ? 1 : 0);
  const PoolPtr<CHAR16> Result = Word(AfterAlgorithm, &Length);
  struct ResultLook {
    const CHAR16* Word;
    UINTN Attribute;
    UINT64 Text;
  };
  constexpr ResultLook Looks[] = {{u"SUCCESS", 0x02, ui_text::Passed},
                                  {u"FAILURE", 0x34, ui_text::Failed},
                                  {u"ABORTED", 0x31, ui_text::Canceled},
                                  {u"UNSUPPORTED", 0x31, ui_text::NotSupported},
                                  {u"SKIPPED", 0x31, ui_text::NotExecuted}};
  const INT32 Remembered = gST->ConOut->Mode->Attribute;
  const CHAR16* Shown = u"";
  for (const ResultLook& Look : Looks) {
    if (StrCmp(Look.Word, Or(Result)) != 0) continue;
    SetColour(Look.Attribute);
    Shown = UiText(Look.Text);
  }
  Piece(At, Shown, FALSE, FALSE);
  SetColour(static_cast<UINTN>(Remembered));

  const CHAR16* AfterResult = AfterAlgorithm + Length;
  if (*AfterResult != 0) ++AfterResult;
  CHAR16* Number = nullptr;
  if (Log()->StripSecondsSuffix(AfterResult, &Number)) {
    SPrint(Text, TextBytes, u" %s%c", Number, u's');
  } else {
    SPrint(Text, TextBytes, u" %s", Number != nullptr ? Number : AfterResult);
  }
  if (Number != nullptr) gBS->FreePool(Number);
  Piece(At, Text, FALSE, TRUE);
}

// "time Kind <first word>" and then the rest, upper-case words translated.
VOID MessageLine(ViewCursor& At, const CHAR16* Time, const CHAR16* Kind, const CHAR16* Rest,
                 const Translator& Translate) {
  struct KindText {
    const CHAR16* Word;
    UINT64 Text;
  };
  constexpr KindText Kinds[] = {{u"MESSAGE", ui_text::LogMessage},
                                {u"CRITICAL", ui_text::LogCritical},
                                {u"ERROR", ui_text::LogError},
                                {u"WARNING", ui_text::LogWarning}};
  const CHAR16* KindShown = Kind;
  for (const KindText& K : Kinds)
    if (StrCmp(K.Word, Kind) == 0) KindShown = UiText(K.Text);
  UINTN Length = 0;
  const PoolPtr<CHAR16> First = Word(Rest, &Length);
  CHAR16 Text[TextChars];
  SPrint(Text, TextBytes, u"%s %s %s", Time, KindShown, Or(Translate(Or(First))));
  Piece(At, Text, TRUE, FALSE);
  for (const CHAR16* C = Rest + Length; *C != 0;) {
    if (*C >= u'A' && *C <= u'Z') {
      const PoolPtr<CHAR16> Key = Word(C, &Length);
      Piece(At, Or(Translate(Or(Key))), FALSE, FALSE);
      C += Length;
    } else {
      const CHAR16 One[2] = {*C, 0};
      Piece(At, One, FALSE, FALSE);
      ++C;
    }
  }
  Piece(At, u"", FALSE, TRUE);
}

VOID LogLineRule(ViewCursor& At, const CHAR16* Line, BOOLEAN& Indented, const Translator& Translate) {
  CHAR16 Text[TextChars];
  UINTN Length = 0;
  if (IsTimeStamped(Line)) {
    CHAR16 Time[24];
    DisplayTime(Line, Time);
    const CHAR16* Rest = StrLen(Line) > StampLength ? Line + StampLength + 1 : Line + StrLen(Line);
    const PoolPtr<CHAR16> W = Word(Rest, &Length);
    Rest += Length;
    if (*Rest != 0) ++Rest;
    if (StrCmp(Or(W), u"START") == 0) {
      const PoolPtr<CHAR16> Algorithm = Word(Rest, &Length);
      SPrint(Text, TextBytes, u"%s %s %s", Time, UiText(ui_text::LogStart), Or(Translate(Or(Algorithm))));
      WholeLine(At, Text);
    } else if (StrCmp(Or(W), u"STOP") == 0) {
      StopLine(At, Time, Rest, Translate);
    } else {
      MessageLine(At, Time, Or(W), Rest, Translate);
    }
    return;
  }
  const PoolPtr<CHAR16> W = Word(Line, &Length);
  const CHAR16* Rest = Line + Length;
  if (StrCmp(Or(W), u"INDEX") == 0) {
    SPrint(Text, TextBytes, u"%s%s%s", Indentation, UiText(ui_text::LogIndex), Rest);
  } else if (StrCmp(Or(W), u"START") == 0 || StrCmp(Or(W), u"STOP") == 0) {
    const UINT64 Which = StrCmp(Or(W), u"START") == 0 ? ui_text::LogStart : ui_text::LogStop;
    SPrint(Text, TextBytes, u"%s %s", UiText(Which), UiText(ui_text::LogTests));
  } else if (StrCmp(Or(W), u">>>") == 0) {
    // ">>> RESOURCE BANK": the group's heading; its rows are indented.
    const CHAR16* R = *Rest != 0 ? Rest + 1 : Rest;
    const PoolPtr<CHAR16> First = Word(R, &Length);
    R += Length;
    if (*R != 0) ++R;
    const PoolPtr<CHAR16> Group = Word(R, &Length);
    const BOOLEAN IsResource = StrCmp(Or(First), u"RESOURCE") == 0;
    SPrint(Text, TextBytes, u"%s: %s", IsResource ? UiText(ui_text::LogResource) : Or(First),
           Or(Translate(Or(Group))));
    Indented = TRUE;
  } else if (StrCmp(Or(W), u"<<<") == 0) {
    Text[0] = 0;
    Indented = FALSE;
  } else {
    SPrint(Text, TextBytes, u"%s%s%s", Indented ? Indentation : u"", Or(Translate(Or(W))), Rest);
  }
  WholeLine(At, Text);
}

}  // namespace

EFI_STATUS DrawTestLogView(UINT64 TestIndex) {
  LogProtocol* Logs = Log();
  if (Logs == nullptr) return EFI_SUCCESS;
  TestModuleProtocol* Module = nullptr;
  UiTests->GetTest(TestIndex, &Module);
  const Translator Translate(Module);
  const UINT64 LinesPerDevice = Logs->GetLogFirstDeviceLineCount();
  const UINT64 Devices = Logs->GetLogDeviceCount();
  LogViewLineCount = Devices * (LinesPerDevice + 2) + 2;
  SetColour(ui_colour::Screen);

  ViewCursor At;
  CHAR16 Text[TextChars];
  SPrint(Text, TextBytes, u"%s %s", UiText(ui_text::Title), UiText(ui_text::LogTitle));
  WholeLine(At, Text);
  CHAR16* ModuleKey = nullptr;
  Logs->GetLogModuleKey(&ModuleKey);
  const PoolPtr<CHAR16> OwnedKey(ModuleKey);
  CHAR16* First = nullptr;
  Logs->GetLine(0, &First);
  const PoolPtr<CHAR16> FirstLine(First);
  CHAR16 Time[24] = {0};
  if (FirstLine && StrLen(FirstLine.get()) > 4) DisplayTime(FirstLine.get() + 4, Time);
  SPrint(Text, TextBytes, u"%s - %s", Or(Translate(Or(OwnedKey))), Time);
  WholeLine(At, Text);

  BOOLEAN Indented = FALSE;
  UINT64 L = 0;
  for (UINT64 D = 0; D < Devices; ++D) {
    for (UINT64 J = 0; J < LinesPerDevice + 2; ++J) {
      ++L;
      if (J == 0) {
        WholeLine(At, u"");
      } else if (J == 1) {
        CHAR16* Name = nullptr;
        CHAR16* Code = nullptr;
        Logs->GetLogDisplayName(&Name, D);
        Logs->GetLogResultCode(&Code, D);
        const PoolPtr<CHAR16> OwnedName(Name), OwnedCode(Code);
        SPrint(Text, TextBytes, u"%s - %s %s", Or(Translate(Or(OwnedName))), UiText(ui_text::ResultCode),
               Or(OwnedCode));
        WholeLine(At, Text);
      } else {
        CHAR16* Line = nullptr;
        Logs->GetLine(L, &Line);
        const PoolPtr<CHAR16> OwnedLine(Line);
        LogLineRule(At, Or(OwnedLine), Indented, Translate);
      }
    }
  }
  DrawScrollBar(LogViewLineCount, LogVisibleLines, LogScrollTop, 3);
  return EFI_SUCCESS;
}

EFI_STATUS DrawRecoveryLogView() {
  LogProtocol* Logs = Log();
  if (Logs == nullptr) return EFI_SUCCESS;
  const UINT64 Lines = Logs->GetLineCount();
  LogViewLineCount = Lines + 1;
  SetColour(ui_colour::Screen);
  ViewCursor At;
  Piece(At, UiText(ui_text::Title), TRUE, FALSE);
  Piece(At, u" ", FALSE, FALSE);
  Piece(At, UiText(ui_text::LogTitle), FALSE, TRUE);
  CHAR16* First = nullptr;
  Logs->GetLine(0, &First);
  const PoolPtr<CHAR16> FirstLine(First);
  CHAR16 Time[24] = {0};
  if (FirstLine && StrLen(FirstLine.get()) > 4) DisplayTime(FirstLine.get() + 4, Time);
  WholeLine(At, Time);
  WholeLine(At, u"");
  for (UINT64 I = 1; I + 1 < Lines; ++I) {
    CHAR16* Line = nullptr;
    Logs->GetLine(I, &Line);
    const PoolPtr<CHAR16> OwnedLine(Line);
    WholeLine(At, Or(OwnedLine));
  }
  DrawScrollBar(LogViewLineCount, LogVisibleLines, LogScrollTop, 3);
  return EFI_SUCCESS;
}

}  // namespace tarvik
