// The state of one drive algorithm's run: the callbacks RunTest was given,
// the keep-running flag StopTest clears and the last percentage. The
// algorithms report through it and read the flag between commands.
#pragma once

#include "efi/efi.h"
#include "registry/module_protocol.h"

namespace tarvik {

struct DriveRun {
  TestModuleProtocol* This;  // context of both callbacks
  TEST_PROGRESS_CALLBACK ProgressCallback;
  TEST_MESSAGE_CALLBACK MessageCallback;
  volatile UINT8 Running;  // 1 while the run may go on; StopTest clears it
  UINT64 Progress;         // the last percentage reported

  bool KeepRunning() const { return Running != 0; }

  // Progress = Percent, then the progress callback (when there is one).
  VOID ReportProgress(UINT64 Percent);
  // How an algorithm ends: 100 percent reported, Result returned.
  UINT64 Finish(UINT64 Result) {
    ReportProgress(100);
    return Result;
  }
  // One log line, formatted ("MESSAGE %s %ld", ...); cut at 255 characters.
  VOID EFIAPI Log(const CHAR16* Format, ...);
};

}  // namespace tarvik
