#include "ui/test_flow.h"

#include "core/globals.h"
#include "core/pool.h"
#include "registry/test_collection_protocol.h"
#include "ui/main_screen.h"
#include "ui/selection_screen.h"
#include "ui/ui_state.h"

namespace tarvik {

constinit UINT8* DeviceSelection = nullptr;
constinit UINT8* AlgorithmSelection = nullptr;
constinit UINT64 SelectedDeviceCount = 1;
constinit UINT64 SelectedAlgorithmCount = 1;

namespace {

// The selections live for one flow; the owners free them however it ends.
struct FlowRecord {
  PoolPtr<UINT8> Devices;
  PoolPtr<UINT8> Algorithms;
  PoolPtr<CHAR16> TestName;

  ~FlowRecord() {
    DeviceSelection = nullptr;
    AlgorithmSelection = nullptr;
  }
};

}  // namespace

VOID RunTestFlow() {
  if (EFI_ERROR(UiTests->GetTest(MainMenuSelection, &CurrentTest)) || CurrentTest == nullptr) return;
  FlowRecord Flow;
  CHAR16* Name = nullptr;
  CurrentTest->GetTestName(CurrentTest, &Name);
  Flow.TestName.reset(Name);
  const CHAR16* Title = Name != nullptr ? Name : u"";

  const UINT64 Devices = CurrentTest->GetDeviceCount(CurrentTest);
  const UINT64 Algorithms = CurrentTest->GetAlgorithmCount(CurrentTest);
  if (EFI_ERROR(Flow.Devices.Allocate(Devices > 0 ? Devices : 1)) ||
      EFI_ERROR(Flow.Algorithms.Allocate(Algorithms > 0 ? Algorithms : 1)))
    return;
  DeviceSelection = Flow.Devices.get();
  AlgorithmSelection = Flow.Algorithms.get();

  SelectedDeviceCount = 1;
  if (SelectionScreen(CurrentTest, Title, Devices, &SelectedDeviceCount, DeviceSelection,
                      SelectionKind::TestDevices, ChoiceMode::Several) != EFI_SUCCESS)
    return;
  SelectedAlgorithmCount = 1;
  if (SelectionScreen(CurrentTest, Title, Algorithms, &SelectedAlgorithmCount, AlgorithmSelection,
                      SelectionKind::TestAlgorithms, ChoiceMode::Several) != EFI_SUCCESS)
    return;
  // The chosen pairs are run by the run screen, which comes with the first
  // test module; until then the flow ends with the choice.
}

}  // namespace tarvik
