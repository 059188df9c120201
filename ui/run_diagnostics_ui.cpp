// The interface's entry: finds the services the screens need, sets up the
// console and the clock, runs the main screen until "Exit Application", and
// hands the console back in a plain state.
#include "ui/run_diagnostics_ui.h"

#include "badsector/bad_sectors_tool_protocol.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/periodic_timer.h"
#include "core/pool_text.h"
#include "registry/module_registry_protocol.h"
#include "text/language_protocol.h"
#include "ui/console_mode.h"
#include "ui/key_input.h"
#include "ui/main_screen.h"
#include "ui/screen_toolkit.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINT64 OneSecond = 10000000;  // in 100 ns units

// The interface state every screen shares, for one run of the interface:
// set up by Start, released on every way out (the clock stops first, so its
// notification never draws on a console being handed back).
class InterfaceSession {
 public:
  InterfaceSession() = default;
  InterfaceSession(const InterfaceSession&) = delete;
  InterfaceSession& operator=(const InterfaceSession&) = delete;
  ~InterfaceSession() {
    Clock_.Close();
    if (ScreenSize != nullptr) gBS->FreePool(ScreenSize);
    ScreenSize = nullptr;
    FreeTextArray(InterfaceStrings, InterfaceStringCount);
    InterfaceStringCount = 0;
    // The services may go with the image; no screen may reach them after.
    UiCommon = nullptr;
    UiLanguage = nullptr;
    UiTests = nullptr;
  }

  // The console size, the services and the "Interface" texts; EFI_ABORTED
  // when a service the screens need is missing.
  EFI_STATUS Start() {
    ClockEnabled = 1;
    VOID* Size = nullptr;
    if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, 2 * sizeof(UINT64), &Size))) return EFI_ABORTED;
    ScreenSize = static_cast<UINT64*>(Size);
    ScreenSize[0] = 0;
    ScreenSize[1] = 0;
    UiCommon = LocateService<DiagCommonProtocol>(DiagCommonProtocolGuid);
    UiLanguage = UiCommon != nullptr ? LocateService<LanguageProtocol>(LanguageProtocolGuid) : nullptr;
    UiTests = UiLanguage != nullptr ? LocateService<TestCollectionProtocol>(TestCollectionProtocolGuid) : nullptr;
    return UiTests != nullptr ? EFI_SUCCESS : EFI_ABORTED;
  }

  VOID FetchTexts() {
    if (EFI_ERROR(UiLanguage->GetStringTable(u"Interface", &InterfaceStringCount, &InterfaceStrings))) {
      InterfaceStrings = nullptr;
      InterfaceStringCount = 0;
    }
  }

  VOID StartClock() {
    gRT->GetTime(&ClockTime, nullptr);
    Clock_.StartNotifying(ClockTpl, ClockTick, nullptr, OneSecond);
  }

 private:
  PeriodicTimer Clock_;
};

// The main screen from start to "Exit Application". SavedMode gets the
// console mode the interface found, to be put back on exit.
EFI_STATUS RunMainScreen(INT32& SavedMode) {
  InterfaceSession Session;
  if (EFI_ERROR(Session.Start())) return EFI_ABORTED;
  MainScreen Screen;
  Screen.TestCount = UiTests->GetTestCount();
  Session.FetchTexts();
  Screen.ToolCount = LocateService<BadSectorsToolProtocol>(BadSectorsToolProtocolGuid) != nullptr ? 2 : 1;

  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out = gST->ConOut;
  SavedMode = ChooseConsoleMode();
  Out->EnableCursor(Out, FALSE);
  Session.StartClock();

  DrawMainScreen(Screen);
  DrawMainScreen(Screen);
  while (Screen.ExitRequested == 0) {
    const EFI_INPUT_KEY Key = ReadPolledKey();
    DispatchMainScreenKey(Screen, Key);
  }
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS RunDiagnosticsUi(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
  INT32 SavedMode = 0;
  if (EFI_ERROR(RunMainScreen(SavedMode))) return EFI_ABORTED;
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out = gST->ConOut;
  Out->Reset(Out, FALSE);
  Out->ClearScreen(Out);
  Out->SetMode(Out, static_cast<UINTN>(SavedMode));
  Out->SetCursorPosition(Out, 0, 0);
  Out->EnableCursor(Out, TRUE);
  Out->SetAttribute(Out, ui_colour::Plain);
  return EFI_SUCCESS;
}

}  // namespace tarvik
