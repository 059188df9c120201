#include "ui/ui_state.h"

#include "core/globals.h"
#include "core/raised_tpl.h"
#include "text/language_protocol.h"

namespace tarvik {

constinit UINT64* ScreenSize = nullptr;
constinit CHAR16** InterfaceStrings = nullptr;
constinit UINT64 InterfaceStringCount = 0;
constinit EFI_TIME ClockTime = {};
constinit volatile UINT8 ClockEnabled = 1;

constinit DiagCommonProtocol* UiCommon = nullptr;
constinit LanguageProtocol* UiLanguage = nullptr;
constinit TestCollectionProtocol* UiTests = nullptr;

const CHAR16* UiText(UINT64 Id) {
  if (UiLanguage == nullptr || InterfaceStrings == nullptr || Id >= InterfaceStringCount) return u"";
  const CHAR16* Text = UiLanguage->GetString(Id, InterfaceStrings);
  return Text != nullptr ? Text : u"";
}

VOID SetColour(UINTN Attribute) {
  const RaisedTpl Held(DrawingTpl);
  gST->ConOut->SetAttribute(gST->ConOut, Attribute);
}

VOID MoveCursor(UINTN Column, UINTN Row) {
  const RaisedTpl Held(DrawingTpl);
  gST->ConOut->SetCursorPosition(gST->ConOut, Column, Row);
}

VOID ClearConsole() {
  const RaisedTpl Held(DrawingTpl);
  gST->ConOut->ClearScreen(gST->ConOut);
}

// The console does not change the text it is given.
VOID PutText(const CHAR16* Text) {
  if (Text == nullptr || Text[0] == 0) return;
  const RaisedTpl Held(DrawingTpl);
  gST->ConOut->OutputString(gST->ConOut, const_cast<CHAR16*>(Text));
}

namespace {

constexpr CHAR16 ShownCharacter(CHAR16 Character) {
  return Character < 0x20 || (Character >= 0x7F && Character <= 0x9F) ? u' ' : Character;
}

}  // namespace

UINTN PutOutsideText(const CHAR16* Text, UINTN Room) {
  if (Text == nullptr) return 0;
  CHAR16 Chunk[65];
  UINTN Used = 0;
  UINTN Put = 0;
  for (; *Text != 0 && Put < Room; ++Text, ++Put) {
    Chunk[Used++] = ShownCharacter(*Text);
    if (Used == 64) {
      Chunk[Used] = 0;
      PutText(Chunk);
      Used = 0;
    }
  }
  Chunk[Used] = 0;
  PutText(Chunk);
  return Put;
}

VOID PutChar(CHAR16 Character) {
  const CHAR16 Text[2] = {Character, 0};
  PutText(Text);
}

VOID PutBlanks(UINTN Count) {
  static constexpr CHAR16 Blanks[] = u"                                                                ";
  constexpr UINTN Chunk = sizeof(Blanks) / sizeof(Blanks[0]) - 1;
  while (Count > 0) {
    const UINTN Now = Count < Chunk ? Count : Chunk;
    PutText(Blanks + (Chunk - Now));
    Count -= Now;
  }
}

UINTN CursorColumn() {
  const INT32 Column = gST->ConOut->Mode->CursorColumn;
  return Column > 0 ? static_cast<UINTN>(Column) : 0;
}

ConsoleStateKeeper::ConsoleStateKeeper()
    : Attribute_(gST->ConOut->Mode->Attribute),
      Column_(gST->ConOut->Mode->CursorColumn),
      Row_(gST->ConOut->Mode->CursorRow) {}

ConsoleStateKeeper::~ConsoleStateKeeper() {
  SetColour(static_cast<UINTN>(Attribute_));
  // A cursor left on the last column (after a band drawn up to it) goes back
  // one: no screen writes there, so whatever comes next positions the cursor
  // first, and a serial terminal behind the firmware's console may not be
  // sent to the 100th column (its cursor sequence holds two digits; the
  // rest would show as text).
  UINTN Column = Column_ > 0 ? static_cast<UINTN>(Column_) : 0;
  if (ScreenColumns() > 0 && Column + 1 >= ScreenColumns() && Column > 0) --Column;
  MoveCursor(Column, static_cast<UINTN>(Row_ > 0 ? Row_ : 0));
}

}  // namespace tarvik
