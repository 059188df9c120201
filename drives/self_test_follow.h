// Following a self-test the drive runs on its own: one loop for every drive
// kind, the drive kind's lines and results left to its module.
#pragma once

#include "core/periodic_timer.h"
#include "drives/drive_operations.h"
#include "drives/drive_run.h"

namespace tarvik {

// The test result of a finished poll (passed, or an error found) or of a
// command about the self-test that failed, with the module's log lines.
using SelfTestOutcome = UINT64 (*)(DriveRun& Run, const SelfTestPoll& Poll);

// Polls a started self-test every TicksPerPoll ticks of Timer, reporting the
// percentage done, until the drive reports the outcome; a stop request ends
// the wait at the next tick and aborts the self-test on the drive.
UINT64 FollowSelfTest(DriveRun& Run, const DriveOperations& Drive, PeriodicTimer& Timer, UINT64 TicksPerPoll,
                      SelfTestOutcome Result);

}  // namespace tarvik
