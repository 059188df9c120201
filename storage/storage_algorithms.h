// One storage algorithm run from start to end, as RunTest needs it: the run
// state reset, the algorithm of the index, SMART switched off again when the
// algorithm had to switch it on, and a stop request turned into 1003.
#pragma once

#include "core/diag_common.h"
#include "efi/efi.h"
#include "storage/storage_device.h"
#include "storage/storage_run.h"

namespace tarvik {

enum class StorageAlgorithm : UINT64 {
  SmartStatus = 0,
  ShortSelfTest = 1,
  DriveSelfTest = 2,
  RandomSeek = 3,
  FunnelSeek = 4,
  TargetedRead = 5,
  ExtendedSelfTest = 6,  // runnable, though the menus list only 0 to 5
};
inline constexpr UINT64 ListedStorageAlgorithms = 6;
inline constexpr UINT64 RunnableStorageAlgorithms = 7;

// Sets Run.Running to 1, SmartEnabledByTest and Progress to 0 (the callbacks
// are the caller's), runs algorithm Index on Device and returns its result
// code: 1001 when SMART cannot be switched off again afterwards, 1003
// whenever Running was cleared meanwhile. EFI_INVALID_PARAMETER for an index
// beyond the runnable ones.
UINT64 RunStorageAlgorithm(UINT64 Index, StorageRun& Run, StorageDevice& Device, const DiagCommonProtocol& Common);

}  // namespace tarvik
