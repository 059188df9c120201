// The main screen: the "Tests" panel (the registered test modules and "Exit
// Application") and the "Tools" panel, and the loop that dispatches its keys
// until the technician leaves.
#pragma once

#include "efi/efi.h"

namespace tarvik {

struct TestModuleProtocol;

extern UINT64 TestCount;          // registered test modules, read once at start
extern UINT64 ToolCount;          // 2 when the bad-sector tool exists, else 1
extern UINT64 MainMenuSelection;  // highlighted entry of the active panel
extern UINT64 ActivePanel;        // 0 "Tests", 1 "Tools"
extern UINT64 VisibleRows;        // entries shown per panel
extern UINT8 ExitRequested;
extern EFI_EVENT ClockTimerEvent;
// The test module the test flow works on.
extern TestModuleProtocol* CurrentTest;

inline constexpr UINT64 TestsPanel = 0;
inline constexpr UINT64 ToolsPanel = 1;

// Frame and both panels.
VOID DrawMainScreen();
// Both panels, not the frame (after an arrow key).
VOID DrawMainPanels();
// One key of the main screen; Enter runs the chosen screen to its end.
VOID DispatchMainScreenKey(const EFI_INPUT_KEY& Key);

}  // namespace tarvik
