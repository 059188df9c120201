// The record of one test run: what was chosen, the state and the messages of
// every (device, algorithm) pair, the times, the result codes and the
// module's summary. The run screen fills it and the log is built from it.
// D is the module's device count, A its algorithm count.
#pragma once

#include "efi/efi.h"

namespace tarvik {

inline constexpr UINT64 MessagesPerPair = 100;
inline constexpr UINT64 MessageLineBytes = 200;  // 99 characters and the terminator

extern UINT8** TestStates;          // D rows of A queue states
extern UINT8* DeviceSelection;      // D bytes, 1 = chosen
extern UINT8* AlgorithmSelection;   // A bytes, 1 = chosen
extern UINT64 SelectedDeviceCount;
extern UINT64 SelectedAlgorithmCount;
extern CHAR16**** TestMessages;     // D x A cells of MessagesPerPair line buffers
extern UINT64** TestMessageCounts;  // D x A lines stored per pair
extern CHAR16** DeviceResultCodes;  // D codes, null until requested
extern EFI_TIME* RunTimes;          // start of the test, of each pair that ran, end of the test
extern EFI_TIME* RunDurations;      // of each pair that ran (Hour, Minute, Second)
extern CHAR16** SummaryLines;
extern UINT64 SummaryLineCount;
extern UINT64 RunDeviceCount;       // D and A of the run's module
extern UINT64 RunAlgorithmCount;

// Allocates the selections, the states, the message cells, the counts and
// the result-code slots for D devices and A algorithms, all zeroed.
EFI_STATUS SetUpRun(UINT64 Devices, UINT64 Algorithms);

// Releases the record: level 0 what SetUpRun made; level 1 also the result
// codes, the spinner row and the times; level 2 also the summary lines.
VOID CleanUpRun(UINT8 Level);

}  // namespace tarvik
