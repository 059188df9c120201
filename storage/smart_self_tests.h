// The algorithms that ask the drive itself for its health: the SMART status
// test and the short, drive and extended self-tests.
//
// Each reports progress and log lines through Run and returns a test result
// code: 1000 passed, 1001 failed (a command the drive refused or did not
// answer, a threshold exceeded, an error found by the self-test), 1002 when
// the drive cannot run it, 1003 when a stop request (Run.Running cleared)
// ended it.
#pragma once

#include "efi/efi.h"
#include "storage/storage_device.h"
#include "storage/storage_run.h"

namespace tarvik {

// The self-test an algorithm asks the drive for.
enum class SelfTestKind : CHAR16 {
  Short = u'd',     // SMART short self-test, off-line mode
  Drive = u'e',     // the vendor's drive self-test; a drive that refuses it cannot run it
  Extended = u'f',  // SMART extended self-test, off-line mode
};

// Eleven SMART RETURN STATUS polls, 150 ms apart.
UINT64 SmartStatusTest(StorageRun& Run, StorageDevice& Device);

// Starts the self-test of Kind (aborting one already running) and polls the
// drive every five seconds until it reports the outcome. A stop request
// aborts the self-test on the drive.
UINT64 SmartSelfTest(StorageRun& Run, StorageDevice& Device, SelfTestKind Kind);

}  // namespace tarvik
