// The record of one test run: what was chosen, the state and the messages of
// every (device, algorithm) pair, the times, the result codes and the
// module's summary. The run screen fills it and the log is built from it, in
// the shapes the log service takes. The test flow owns it; its destructor
// releases every buffer, whichever step the flow ended at.
// D is the module's device count, A its algorithm count.
#pragma once

#include "efi/efi.h"
#include "log/log_protocol.h"

namespace tarvik {

struct TestModuleProtocol;

inline constexpr UINT64 MessagesPerPair = 100;
inline constexpr UINT64 MessageLineBytes = 200;  // 99 characters and the terminator

struct TestRunRecord {
  TestRunRecord() = default;
  ~TestRunRecord();
  TestRunRecord(const TestRunRecord&) = delete;
  TestRunRecord& operator=(const TestRunRecord&) = delete;

  // Allocates the selections, the states, the message cells, the counts and
  // the result-code slots for D devices and A algorithms, all zeroed.
  EFI_STATUS SetUp(UINT64 Devices, UINT64 Algorithms);
  // Allocates RunTimes and RunDurations, zeroed, for Pairs pairs.
  EFI_STATUS SetUpTimes(UINT64 Pairs);
  // Takes the summary lines the module gives after the run; none when the
  // pool is exhausted.
  VOID CollectSummary(const TestModuleProtocol& Module);

  QueueState State(UINT64 Device, UINT64 Algorithm) const {
    return static_cast<QueueState>(TestStates[Device][Algorithm]);
  }
  VOID SetState(UINT64 Device, UINT64 Algorithm, QueueState State) {
    TestStates[Device][Algorithm] = static_cast<UINT8>(State);
  }

  UINT64 RunDeviceCount = 0;  // D and A of the run's module
  UINT64 RunAlgorithmCount = 0;
  UINT8** TestStates = nullptr;          // D rows of A queue states
  UINT8* DeviceSelection = nullptr;      // D bytes, 1 = chosen
  UINT8* AlgorithmSelection = nullptr;   // A bytes, 1 = chosen
  UINT64 SelectedDeviceCount = 1;
  UINT64 SelectedAlgorithmCount = 1;
  CHAR16**** TestMessages = nullptr;     // D x A cells of MessagesPerPair line buffers
  UINT64** TestMessageCounts = nullptr;  // D x A lines stored per pair
  CHAR16** DeviceResultCodes = nullptr;  // D codes, null until requested
  EFI_TIME* RunTimes = nullptr;          // start of the test, of each pair that ran, end of the test
  EFI_TIME* RunDurations = nullptr;      // of each pair that ran (Hour, Minute, Second)
  CHAR16** SummaryLines = nullptr;
  UINT64 SummaryLineCount = 0;
};

}  // namespace tarvik
