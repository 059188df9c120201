// The NVMe module's algorithms: plain functions of the namespace and the run
// state, each reporting progress from 0 to 100 and returning a test result.
// A stop request ends each with TEST_RESULT_CANCELED.
#pragma once

#include "core/diag_common.h"
#include "drives/drive_run.h"
#include "nvme/nvme_device.h"

namespace tarvik {

// The SMART / Health log: FAILED on a critical warning, the spare below its
// threshold or the endurance used up; the figures logged one per line.
UINT64 NvmeHealthStatusTest(DriveRun& Run, const NvmeDevice& Device);

// Device Self-test with code 1h (short) or 2h (extended), followed through
// the self-test log; a stop request aborts it on the drive.
UINT64 NvmeSelfTest(DriveRun& Run, const NvmeDevice& Device, UINT8 Code);

// Single blocks all over the namespace.
UINT64 NvmeRandomReadTest(DriveRun& Run, const NvmeDevice& Device, const DiagCommonProtocol& Common);

// The blocks the Error Information log names, with their neighbours.
UINT64 NvmeErrorLogReadTest(DriveRun& Run, const NvmeDevice& Device);

// The whole namespace, every unreadable block logged.
UINT64 NvmeFullReadScan(DriveRun& Run, const NvmeDevice& Device);

}  // namespace tarvik
