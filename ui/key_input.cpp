#include "ui/key_input.h"

#include "core/globals.h"

namespace tarvik {

UINT8 WaitForKeyPolling() {
  for (;;) {
    gBS->Stall(5000);
    if (gBS->CheckEvent(gST->ConIn->WaitForKey) == EFI_SUCCESS) return 1;
  }
}

EFI_INPUT_KEY ReadPolledKey() {
  WaitForKeyPolling();
  // The wait guarantees a pending key; a failed read leaves a key that no
  // screen reacts to.
  EFI_INPUT_KEY Key = {0, 0};
  gST->ConIn->ReadKeyStroke(gST->ConIn, &Key);
  return Key;
}

VOID ReadKey(EFI_INPUT_KEY* Key) {
  EFI_EVENT KeyEvent = gST->ConIn->WaitForKey;
  UINTN Index = 0;
  // Firmware refuses to wait above TPL_APPLICATION; polling still works there.
  if (EFI_ERROR(gBS->WaitForEvent(1, &KeyEvent, &Index))) WaitForKeyPolling();
  *Key = EFI_INPUT_KEY{0, 0};
  gST->ConIn->ReadKeyStroke(gST->ConIn, Key);
}

}  // namespace tarvik
