// The interface's entry: finds the services the screens need, sets up the
// console and the clock, runs the main screen until "Exit Application", and
// hands the console back in a plain state.
#include "ui/run_diagnostics_ui.h"

#include "badsector/bad_sectors_tool_protocol.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "registry/test_collection_protocol.h"
#include "text/language_protocol.h"
#include "ui/console_mode.h"
#include "ui/key_input.h"
#include "ui/main_screen.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINT64 OneSecond = 10000000;  // in 100 ns units

EFIAPI VOID ClockTick(EFI_EVENT, VOID*) {
  gRT->GetTime(&ClockTime, nullptr);
  if (ClockEnabled == 1) DrawClock(0);
}

VOID ReleaseInterfaceState() {
  if (ScreenSize != nullptr) gBS->FreePool(ScreenSize);
  ScreenSize = nullptr;
  if (InterfaceStrings != nullptr) {
    for (UINT64 I = 0; I < InterfaceStringCount; ++I)
      if (InterfaceStrings[I] != nullptr) gBS->FreePool(InterfaceStrings[I]);
    gBS->FreePool(InterfaceStrings);
  }
  InterfaceStrings = nullptr;
  InterfaceStringCount = 0;
}

// Where the interface starts (also when it runs a second time in one boot).
VOID ResetInterfaceState() {
  MainMenuSelection = 0;
  ActivePanel = TestsPanel;
  ExitRequested = 0;
  ClockEnabled = 1;
  CurrentTest = nullptr;
}

}  // namespace

EFI_STATUS RunDiagnosticsUi(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
  ResetInterfaceState();
  VOID* Size = nullptr;
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, 2 * sizeof(UINT64), &Size))) return EFI_ABORTED;
  ScreenSize = static_cast<UINT64*>(Size);
  ScreenSize[0] = 0;
  ScreenSize[1] = 0;
  UiCommon = LocateService<DiagCommonProtocol>(DiagCommonProtocolGuid);
  UiLanguage = UiCommon != nullptr ? LocateService<LanguageProtocol>(LanguageProtocolGuid) : nullptr;
  UiTests = UiLanguage != nullptr ? LocateService<TestCollectionProtocol>(TestCollectionProtocolGuid) : nullptr;
  if (UiTests == nullptr) {
    ReleaseInterfaceState();
    return EFI_ABORTED;
  }
  TestCount = UiTests->GetTestCount();
  if (EFI_ERROR(UiLanguage->GetStringTable(u"Interface", &InterfaceStringCount, &InterfaceStrings))) {
    InterfaceStrings = nullptr;
    InterfaceStringCount = 0;
  }
  ToolCount = LocateService<BadSectorsToolProtocol>(BadSectorsToolProtocolGuid) != nullptr ? 2 : 1;

  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out = gST->ConOut;
  ChooseConsoleMode();
  Out->EnableCursor(Out, FALSE);
  gRT->GetTime(&ClockTime, nullptr);
  ClockTimerEvent = nullptr;
  if (!EFI_ERROR(gBS->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_NOTIFY, ClockTick, nullptr,
                                  &ClockTimerEvent)))
    gBS->SetTimer(ClockTimerEvent, TimerPeriodic, OneSecond);

  DrawMainScreen();
  DrawMainScreen();
  while (ExitRequested == 0) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    DispatchMainScreenKey(Key);
  }

  if (ClockTimerEvent != nullptr) gBS->CloseEvent(ClockTimerEvent);
  ClockTimerEvent = nullptr;
  ReleaseInterfaceState();
  Out->Reset(Out, FALSE);
  Out->ClearScreen(Out);
  Out->SetMode(Out, static_cast<UINTN>(SavedConsoleMode));
  Out->SetCursorPosition(Out, 0, 0);
  Out->EnableCursor(Out, TRUE);
  Out->SetAttribute(Out, ui_colour::Plain);
  return EFI_SUCCESS;
}

}  // namespace tarvik
