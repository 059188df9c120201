#include "ui/selection_screen.h"

#include "badsector/bad_sectors_tool_protocol.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "registry/module_protocol.h"
#include "ui/key_input.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

struct KindTexts {
  UINT64 Header;
  UINT64 Confirm;
  UINT64 Footer;
};

constexpr KindTexts TextsOfKind[] = {
    {ui_text::SelectDevices, ui_text::Next, ui_text::TestDevicesFooter},
    {ui_text::SelectAlgorithms, ui_text::RunTest, ui_text::TestAlgorithmsFooter},
    {ui_text::SelectDevices, ui_text::Next, ui_text::ToolDevicesFooter},
    {ui_text::SelectAlgorithms, ui_text::RunTest, ui_text::ToolAlgorithmsFooter},
};

BOOLEAN KnownKind(SelectionKind Kind) { return static_cast<UINT8>(Kind) <= static_cast<UINT8>(SelectionKind::ToolAlgorithms); }

const CHAR16* KindText(SelectionKind Kind, UINT64 KindTexts::*Which) {
  return KnownKind(Kind) ? UiText(TextsOfKind[static_cast<UINT8>(Kind)].*Which) : u"";
}

CHAR16* FetchName(VOID* Module, SelectionKind Kind, UINT64 Index) {
  CHAR16* Name = nullptr;
  auto* Test = static_cast<TestModuleProtocol*>(Module);
  switch (Kind) {
    case SelectionKind::TestDevices:
      Test->GetDeviceName(Test, Index, &Name);
      break;
    case SelectionKind::TestAlgorithms:
      Test->GetAlgorithmName(Test, Index, &Name);
      break;
    case SelectionKind::ToolDevices:
    case SelectionKind::ToolAlgorithms: {
      auto* Tool = LocateService<BadSectorsToolProtocol>(BadSectorsToolProtocolGuid);
      if (Tool == nullptr) break;
      if (Kind == SelectionKind::ToolDevices) {
        Tool->GetDeviceName(nullptr, Index, &Name);
      } else {
        Tool->GetAlgorithmName(nullptr, Index, &Name);
      }
      break;
    }
  }
  return Name;
}

UINT64 ChosenCount(const UINT8* Selection, UINT64 Count) {
  UINT64 Chosen = 0;
  for (UINT64 I = 0; I < Count; ++I) Chosen += Selection[I] == 1 ? 1 : 0;
  return Chosen;
}

VOID Confirm(const UINT8* Selection, UINT64 Count, UINT8* Running, UINT64* SelectedCount) {
  const UINT64 Chosen = ChosenCount(Selection, Count);
  if (Chosen == 0) return;
  *Running = 0;
  *SelectedCount = Chosen;
}

// Moves the cursor one line, wrapping, and over the blank lines.
UINT64 Step(UINT64 Cursor, UINT64 LineCount, UINT64 Count, BOOLEAN Up) {
  const auto Move = [&](UINT64 From) {
    if (Up) return From == 0 ? LineCount - 1 : From - 1;
    return From + 1 >= LineCount ? 0 : From + 1;
  };
  Cursor = Move(Cursor);
  if (Cursor == Count || Cursor == LineCount - 2) Cursor = Move(Cursor);
  return Cursor;
}

// The text of list line I, or null for a blank line.
const CHAR16* LineText(UINT64 I, UINT64 Count, ChoiceMode Mode, CHAR16* const* Names, const UINT8* Selection,
                       AllState All, const CHAR16* ConfirmText, UINTN NameRoom, CHAR16* Buffer, UINTN BufferBytes) {
  const UINT64 ConfirmLine = Mode == ChoiceMode::Several ? Count + 3 : Count + 1;
  if (I < Count) {
    const CHAR16* Name = Names[I] != nullptr ? Names[I] : u"";
    SPrint(Buffer, BufferBytes, u"[%s] %.*s", Selection[I] == 1 ? u"X" : u" ", static_cast<INT32>(NameRoom), Name);
  } else if (Mode == ChoiceMode::Several && I == Count + 1) {
    const CHAR16 Mark = All == AllState::All ? u'X' : All == AllState::None ? u' ' : u'-';
    SPrint(Buffer, BufferBytes, u"[%c] %s", Mark, UiText(ui_text::SelectDeselectAll));
  } else if (I == ConfirmLine) {
    SPrint(Buffer, BufferBytes, u"    %s >", ConfirmText);
  } else {
    return nullptr;
  }
  return Buffer;
}

}  // namespace

EFI_STATUS CheckBoxKey(const EFI_INPUT_KEY& Key, UINT64* Cursor, UINT64 LineCount, UINT64 Count, ChoiceMode Mode,
                       UINT8* Selection, AllState* All, UINT8* Running, UINT64* SelectedCount) {
  if (Key.ScanCode == SCAN_UP) *Cursor = Step(*Cursor, LineCount, Count, TRUE);
  if (Key.ScanCode == SCAN_DOWN) *Cursor = Step(*Cursor, LineCount, Count, FALSE);
  if (Key.UnicodeChar == CharSpace) {
    if (*Cursor < Count && Mode == ChoiceMode::Several) {
      Selection[*Cursor] = static_cast<UINT8>(1 - Selection[*Cursor]);
      const UINT64 Chosen = ChosenCount(Selection, Count);
      *All = Chosen == Count ? AllState::All : Chosen == 0 ? AllState::None : AllState::Some;
    } else if (*Cursor < Count) {
      for (UINT64 I = 0; I < Count; ++I) Selection[I] = I == *Cursor ? 1 : 0;
    } else if (Mode == ChoiceMode::Several && *Cursor == Count + 1) {
      *All = *All == AllState::All ? AllState::None : AllState::All;
      for (UINT64 I = 0; I < Count; ++I) Selection[I] = *All == AllState::All ? 1 : 0;
    } else if (*Cursor == LineCount - 1) {
      Confirm(Selection, Count, Running, SelectedCount);
    }
  }
  if (Key.UnicodeChar == CharEnter) Confirm(Selection, Count, Running, SelectedCount);
  if (Key.ScanCode == ScanEscape) return EFI_ABORTED;
  return EFI_SUCCESS;
}

EFI_STATUS CheckBoxList(const CHAR16* Header, const CHAR16* ConfirmText, UINT64 Count, CHAR16* const* Names,
                        UINT8* Selection, UINT64* SelectedCount, ChoiceMode Mode) {
  if (Count > MaxSelectionEntries) Count = MaxSelectionEntries;
  const UINTN Columns = ScreenColumns();
  const UINTN Left = Columns * 3 / 10;
  const UINTN Right = Left + Columns * 4 / 10;
  const UINT64 LineCount = Count + (Mode == ChoiceMode::Several ? 4 : 2);
  const UINTN NameRoom = Right - Left > 5 ? Right - Left - 5 : 0;

  SetColour(ui_colour::Screen);
  PrintCentered(Header, 3, Left, Columns * 7 / 10);

  UINT64 Cursor = 0;
  AllState All = AllState::All;
  UINT8 Running = 1;
  while (Running == 1) {
    DrawDoubleBox(Left - 1, Right, 4, LineCount + 5);
    for (UINT64 I = 0; I < LineCount; ++I) {
      CHAR16 Text[PrintBufferChars];
      const CHAR16* Line =
          LineText(I, Count, Mode, Names, Selection, All, ConfirmText, NameRoom, Text, sizeof(Text));
      if (Line == nullptr) continue;
      SetColour(I == Cursor ? ui_colour::Highlight : ui_colour::Screen);
      ClearRowSegment(5 + I, PrintWithin(Line, 5 + I, Left, Right), Right);
    }
    const EFI_INPUT_KEY Key = ReadPolledKey();
    const EFI_STATUS Status =
        CheckBoxKey(Key, &Cursor, LineCount, Count, Mode, Selection, &All, &Running, SelectedCount);
    if (Status != EFI_SUCCESS) return Status;
  }
  return EFI_SUCCESS;
}

EFI_STATUS SelectionScreen(VOID* Module, const CHAR16* Title, UINT64 Count, UINT64* SelectedCount,
                           UINT8* Selection, SelectionKind Kind, ChoiceMode Mode) {
  for (UINT64 I = 0; I < Count; ++I) Selection[I] = Mode == ChoiceMode::Several || I == 0 ? 1 : 0;
  if (Count == 1) return EFI_SUCCESS;

  const UINT64 Shown = Count > MaxSelectionEntries ? MaxSelectionEntries : Count;
  PoolPtr<CHAR16*> Names;
  if (EFI_ERROR(Names.Allocate((Shown > 0 ? Shown : 1) * sizeof(CHAR16*)))) return EFI_ABORTED;
  for (UINT64 I = 0; I < Shown; ++I) Names.get()[I] = KnownKind(Kind) ? FetchName(Module, Kind, I) : nullptr;

  DrawScreenFrame(Title, KindText(Kind, &KindTexts::Footer));
  const EFI_STATUS Status = CheckBoxList(KindText(Kind, &KindTexts::Header), KindText(Kind, &KindTexts::Confirm),
                                         Shown, Names.get(), Selection, SelectedCount, Mode);
  for (UINT64 I = 0; I < Shown; ++I)
    if (Names.get()[I] != nullptr) gBS->FreePool(Names.get()[I]);
  return Status;
}

}  // namespace tarvik
