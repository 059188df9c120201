// Centred message boxes that wait for their answer.
#include "ui/key_input.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {

VOID DrawMessageFrame(UINTN LineCount, const CHAR16* Title, UINTN* InnerLeft, UINTN* InnerTop, UINTN* InnerRight,
                      UINTN* InnerBottom, UINT8 Compact) {
  const UINTN Columns = ScreenColumns();
  const UINTN Rows = ScreenRows();
  const UINTN Left = Columns / 4;
  const UINTN Right = Columns / 2 + Columns / 4;
  const UINTN Top = Rows > LineCount + 7 ? (Rows - LineCount - 7) / 2 : 0;
  const UINTN Bottom = Top + LineCount + (Compact == 1 ? 3 : 5);

  ClearArea(Left, Right, Top, Bottom);
  SetColour(ui_colour::MessageBorder);
  PrintCentered(Title, Top, Left, Right);
  PrintCentered(u"", Bottom, Left, Right);
  for (UINTN Row = Top; Row <= Bottom; ++Row) {
    MoveCursor(Left, Row);
    PutChar(u' ');
    MoveCursor(Right, Row);
    PutChar(u' ');
  }
  *InnerLeft = Left + 2;
  *InnerTop = Top + 2;
  *InnerRight = Right - 2;
  *InnerBottom = Bottom - 2;
}

EFI_STATUS ShowMessageBox(const CHAR16* Text, UINT8 Type) {
  if (Type > static_cast<UINT8>(MessageBoxType::Question)) return EFI_INVALID_PARAMETER;
  const MessageBoxType Kind = static_cast<MessageBoxType>(Type);

  UINTN Lines = 1;
  PrintWrapped(Text, &Lines, 0, 0, 0, 0);
  const CHAR16* Title = Kind == MessageBoxType::Success ? UiText(ui_text::Success)
                        : Kind == MessageBoxType::Error ? UiText(ui_text::Error)
                                                        : u"";
  UINTN Left, Top, Right, Bottom;
  DrawMessageFrame(Lines, Title, &Left, &Top, &Right, &Bottom, 0);
  SetColour(ui_colour::Screen);
  PrintWrapped(Text, nullptr, 1, Top, Left, Right);
  const UINT64 Prompt = Kind == MessageBoxType::Question ? ui_text::PressYesNo : ui_text::PressEnter;
  PrintCentered(UiText(Prompt), Top + Lines + 1, Left, Right);

  for (;;) {
    EFI_INPUT_KEY Key;
    ReadKey(&Key);
    switch (Kind) {
      case MessageBoxType::Success:
      case MessageBoxType::Error:
        if (Key.UnicodeChar == CharEnter) return EFI_SUCCESS;
        break;
      case MessageBoxType::Notice:
        if (Key.UnicodeChar == CharEnter) return EFI_SUCCESS;
        if (Key.ScanCode == ScanEscape) return EFI_ABORTED;
        break;
      case MessageBoxType::Question:
        if (Key.UnicodeChar == u'y' || Key.UnicodeChar == u'Y') return EFI_SUCCESS;
        if (Key.UnicodeChar == u'n' || Key.UnicodeChar == u'N') return EFI_ABORTED;
        break;
    }
  }
}

}  // namespace tarvik
