// The main screen: the "Tests" panel (the registered test modules and "Exit
// Application") and the "Tools" panel, and the keys it dispatches until the
// technician leaves.
#pragma once

#include "efi/efi.h"

namespace tarvik {

inline constexpr UINT64 TestsPanel = 0;
inline constexpr UINT64 ToolsPanel = 1;

// The main screen's record, owned by the interface's entry for its run. The
// selection and the panel keep their values across the sub-screens.
struct MainScreen {
  UINT64 TestCount = 0;                // registered test modules, read once at start
  UINT64 ToolCount = 1;                // 2 when the bad-sector tool exists, else 1
  UINT64 MainMenuSelection = 0;        // highlighted entry of the active panel
  UINT64 ActivePanel = TestsPanel;     // 0 "Tests", 1 "Tools"
  UINT64 VisibleRows = 0;              // entries shown per panel
  UINT8 ExitRequested = 0;
};

// Frame and both panels.
VOID DrawMainScreen(MainScreen& Screen);
// Both panels, not the frame (after an arrow key).
VOID DrawMainPanels(const MainScreen& Screen);
// One key of the main screen; Enter runs the chosen screen to its end.
VOID DispatchMainScreenKey(MainScreen& Screen, const EFI_INPUT_KEY& Key);

}  // namespace tarvik
