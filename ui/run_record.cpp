#include "ui/run_record.h"

#include "core/globals.h"
#include "core/pool.h"
#include "core/pool_text.h"
#include "registry/module_protocol.h"

namespace tarvik {
namespace {

template <typename T>
VOID Release(T*& Buffer) {
  if (Buffer != nullptr) gBS->FreePool(Buffer);
  Buffer = nullptr;
}

// A pair's lines: one block of MessagesPerPair buffers and the array that
// points into it.
CHAR16** AllocateMessageCell() {
  CHAR16** Lines = AllocateZeroedArray<CHAR16*>(MessagesPerPair);
  CHAR16* Block = AllocateZeroedArray<CHAR16>(MessagesPerPair * MessageLineBytes / sizeof(CHAR16));
  if (Lines == nullptr || Block == nullptr) {
    Release(Lines);
    Release(Block);
    return nullptr;
  }
  for (UINT64 I = 0; I < MessagesPerPair; ++I) Lines[I] = Block + I * (MessageLineBytes / sizeof(CHAR16));
  return Lines;
}

VOID ReleaseMessageCell(CHAR16**& Lines) {
  if (Lines == nullptr) return;
  gBS->FreePool(Lines[0]);
  Release(Lines);
}

}  // namespace

EFI_STATUS TestRunRecord::SetUp(UINT64 Devices, UINT64 Algorithms) {
  RunDeviceCount = Devices;
  RunAlgorithmCount = Algorithms;
  DeviceSelection = AllocateZeroedArray<UINT8>(Devices);
  AlgorithmSelection = AllocateZeroedArray<UINT8>(Algorithms);
  TestStates = AllocateZeroedArray<UINT8*>(Devices);
  TestMessages = AllocateZeroedArray<CHAR16***>(Devices);
  TestMessageCounts = AllocateZeroedArray<UINT64*>(Devices);
  DeviceResultCodes = AllocateZeroedArray<CHAR16*>(Devices);
  if (DeviceSelection == nullptr || AlgorithmSelection == nullptr || TestStates == nullptr ||
      TestMessages == nullptr || TestMessageCounts == nullptr || DeviceResultCodes == nullptr)
    return EFI_OUT_OF_RESOURCES;
  for (UINT64 D = 0; D < Devices; ++D) {
    TestStates[D] = AllocateZeroedArray<UINT8>(Algorithms);
    TestMessageCounts[D] = AllocateZeroedArray<UINT64>(Algorithms);
    TestMessages[D] = AllocateZeroedArray<CHAR16**>(Algorithms);
    if (TestStates[D] == nullptr || TestMessageCounts[D] == nullptr || TestMessages[D] == nullptr)
      return EFI_OUT_OF_RESOURCES;
    for (UINT64 A = 0; A < Algorithms; ++A)
      if ((TestMessages[D][A] = AllocateMessageCell()) == nullptr) return EFI_OUT_OF_RESOURCES;
  }
  return EFI_SUCCESS;
}

EFI_STATUS TestRunRecord::SetUpTimes(UINT64 Pairs) {
  RunTimes = AllocateZeroedArray<EFI_TIME>(Pairs + 2);
  RunDurations = AllocateZeroedArray<EFI_TIME>(Pairs);
  return RunTimes != nullptr && RunDurations != nullptr ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

VOID TestRunRecord::CollectSummary(const TestModuleProtocol& Module) {
  const UINT64 Count = Module.GetSummaryLineCount();
  SummaryLines = AllocateZeroedArray<CHAR16*>(Count);
  if (SummaryLines == nullptr) return;
  SummaryLineCount = Count;
  for (UINT64 I = 0; I < Count; ++I) Module.GetSummaryLine(I, &SummaryLines[I]);
}

TestRunRecord::~TestRunRecord() {
  Release(AlgorithmSelection);
  Release(DeviceSelection);
  for (UINT64 D = 0; D < RunDeviceCount; ++D) {
    if (TestStates != nullptr) Release(TestStates[D]);
    if (TestMessageCounts != nullptr) Release(TestMessageCounts[D]);
    if (TestMessages != nullptr && TestMessages[D] != nullptr) {
      for (UINT64 A = 0; A < RunAlgorithmCount; ++A) ReleaseMessageCell(TestMessages[D][A]);
      Release(TestMessages[D]);
    }
    if (DeviceResultCodes != nullptr) Release(DeviceResultCodes[D]);
  }
  Release(TestStates);
  Release(TestMessages);
  Release(TestMessageCounts);
  Release(DeviceResultCodes);
  Release(RunTimes);
  Release(RunDurations);
  FreeTextArray(SummaryLines, SummaryLineCount);
}

}  // namespace tarvik
