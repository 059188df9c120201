// Reading the keyboard. Screens poll for a key (5 ms stalls), so that timer
// notifications keep running between two keys; message boxes wait for one.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// Polls until a key is pending. Always 1: the wait only ends with a key.
UINT8 WaitForKeyPolling();
// WaitForKeyPolling, then the key.
EFI_INPUT_KEY ReadPolledKey();
// Waits on the console's key event, then reads the key.
VOID ReadKey(EFI_INPUT_KEY* Key);

inline constexpr CHAR16 CharEnter = 0x000D;
inline constexpr CHAR16 CharSpace = 0x0020;
inline constexpr CHAR16 CharTab = 0x0009;
inline constexpr UINT16 ScanEscape = 0x17;

}  // namespace tarvik
