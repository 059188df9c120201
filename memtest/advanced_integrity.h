// The "Advanced Integrity Test": claims every free region of the firmware's
// memory map at its own address and runs the march passes over all of it.
#pragma once

#include "efi/efi.h"
#include "memtest/march_passes.h"
#include "memtest/memory_test_state.h"
#include "registry/module_protocol.h"

namespace tarvik {

// Results of the memory module beside the common ones, explained by its
// GetResultText.
inline constexpr UINT64 MEMORY_RESULT_LESS_THAN_20MB = 10;
inline constexpr UINT64 MEMORY_RESULT_CANNOT_CLAIM = 11;

// The test refuses to run on less free memory than this.
inline constexpr UINT64 MinimumFreePages = 5120;  // 20 MB
// Free regions claimed at most; a map with more leaves the rest untested.
inline constexpr UINT64 MaxMemoryBlocks = 1000;
inline constexpr UINT64 MaxPairRuns = 2 * MaxMemoryBlocks + 1;

// The claimed regions. The claimed memory is one array of TotalWords words,
// block after block in table order.
struct BlockTable {
  UINT64 BlockCount;
  UINT64 BlockWords[MaxMemoryBlocks];
  UINT64 BlockPages[MaxMemoryBlocks];
  UINT64 HalfWords;
  UINT64 TotalWords;
  UINT64 BlockBase[MaxMemoryBlocks];
};

// Splits the pairs (k, k + HalfWords) of the table's words into runs in
// which both words stay inside one block each; Runs holds MaxPairRuns.
// Returns how many runs.
UINT64 BuildPairRuns(const BlockTable& Table, PairRun* Runs);

// The test's RunTest body: TEST_RESULT_PASSED, _FAILED, _CANCELED,
// _PLATFORM_ERROR, or MEMORY_RESULT_LESS_THAN_20MB / _CANNOT_CLAIM. Sets
// State's page counts and runs while its KeepRunning stays 1.
UINT64 RunAdvancedIntegrityTest(MemoryTestState& State, TestModuleProtocol* This, TEST_PROGRESS_CALLBACK Progress,
                                TEST_MESSAGE_CALLBACK Message);

}  // namespace tarvik
