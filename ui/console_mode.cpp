#include "ui/console_mode.h"

#include "core/globals.h"
#include "ui/ui_state.h"

namespace tarvik {

constinit INT32 SavedConsoleMode = 0;

VOID ChooseConsoleMode() {
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out = gST->ConOut;
  ScreenSize[0] = 0;
  ScreenSize[1] = 0;
  SavedConsoleMode = Out->Mode->Mode;
  UINTN Chosen = 0;
  for (INT32 Mode = 0; Mode < Out->Mode->MaxMode; ++Mode) {
    UINTN Columns = 0;
    UINTN Rows = 0;
    if (EFI_ERROR(Out->QueryMode(Out, static_cast<UINTN>(Mode), &Columns, &Rows))) continue;
    const BOOLEAN Preferred = Columns == 100 && Rows == 31;
    if (Preferred || (Columns > ScreenSize[0] && Rows > ScreenSize[1])) {
      Chosen = static_cast<UINTN>(Mode);
      ScreenSize[0] = Columns;
      ScreenSize[1] = Rows;
      if (Preferred) break;
    }
  }
  Out->SetMode(Out, Chosen);
}

}  // namespace tarvik
