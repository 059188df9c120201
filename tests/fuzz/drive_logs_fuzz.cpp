// The drive's logs of any content. The input is a byte naming a pool
// allocation of the storage code that fails (0: none), then the SMART log
// directory (512 bytes), the general-purpose log directory (512) and the
// pages every other log read returns (the rest, zero-filled to what was
// asked).
// The readers of the five log layouts and the directories take the raw input
// at every page offset, so that a short tail shows any read past the buffer;
// then the targeted read runs on a scripted drive that keeps these logs,
// whatever page counts the directories claim, with every sector it reads
// unreadable so that it ends at its fifth error.
#include <cstdint>
#include <vector>

#include "storage/drive_logs.h"
#include "storage/targeted_read.h"
#include "tests/fuzz/scripted_drive.h"

namespace {

constexpr size_t kPage = tarvik::DriveLogPageBytes;
constexpr size_t kLogsStart = 2 * kPage;
constexpr uint64_t kLba28Limit = 1ull << 28;

constexpr tarvik::DriveLog kLogs[] = {tarvik::DriveLog::SummaryError, tarvik::DriveLog::ComprehensiveError,
                                      tarvik::DriveLog::ExtComprehensiveError, tarvik::DriveLog::SelfTest,
                                      tarvik::DriveLog::ExtSelfTest};

bool Is28Bit(tarvik::DriveLog Log) {
  return Log != tarvik::DriveLog::ExtComprehensiveError && Log != tarvik::DriveLog::ExtSelfTest;
}

void ReadEveryEntry(const uint8_t* Data, size_t Size) {
  for (unsigned Address = 0; Address <= 0xFF; ++Address)
    tarvik::DirectoryPageCount(Data, Size, static_cast<UINT8>(Address));
  for (size_t Offset = 0; Offset <= Size; Offset += kPage) {
    const size_t Bytes = Size - Offset;
    for (tarvik::DriveLog Log : kLogs) {
      // One entry past the page's last: the reader must refuse it.
      for (UINTN Entry = 0; Entry <= tarvik::LogEntriesPerPage(Log); ++Entry) {
        UINT64 Lbas[tarvik::MaxLbasPerLogEntry];
        const UINTN Count = tarvik::LogEntryLbas(Log, Data + Offset, Bytes, Entry, Lbas);
        if (Count > tarvik::MaxLbasPerLogEntry) __builtin_trap();
        if ((Bytes < kPage || Entry == tarvik::LogEntriesPerPage(Log)) && Count != 0) __builtin_trap();
        for (UINTN K = 0; K < Count; ++K)
          if (Is28Bit(Log) && Lbas[K] >= kLba28Limit) __builtin_trap();
      }
    }
  }
}

EFIAPI EFI_STATUS IgnoreProgress(VOID*, UINT64, UINT64) { return EFI_SUCCESS; }
EFIAPI EFI_STATUS IgnoreMessage(VOID*, const CHAR16*, UINT8, UINT64) { return EFI_SUCCESS; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Input, size_t InputSize) {
  const fuzz_support::DriveInput In(Input, InputSize);
  ReadEveryEntry(In.Data, In.Size);

  const std::vector<uint8_t> SmartDirectory = fuzz_support::Slice(In.Data, In.Size, 0, kPage);
  const std::vector<uint8_t> GeneralDirectory = fuzz_support::Slice(In.Data, In.Size, kPage, kPage);
  const std::vector<uint8_t> Identify =
      testing_support::IdentifyPage::typical("Fuzz LG-1", "FUZZ0001", 1000000000).data();
  fuzz_support::WithScriptedDrive(
      In.FailPool,
      [&](const EFI_ATA_COMMAND_BLOCK& Command) {
        testing_support::AtaReply Reply;
        const bool SmartLog = Command.AtaCommand == 0xB0 && Command.AtaFeatures == 0xD5;
        const bool ExtLog = Command.AtaCommand == 0x2F;
        const size_t Pages = ExtLog ? (Command.AtaSectorCount | Command.AtaSectorCountExp << 8) : Command.AtaSectorCount;
        if (Command.AtaCommand == 0xEC) Reply.data = Identify;
        if (Command.AtaCommand == 0xB0 && Command.AtaFeatures == 0xD0) Reply.data.assign(kPage, 0);
        if ((SmartLog || ExtLog) && Command.AtaSectorNumber == 0) Reply.data = SmartLog ? SmartDirectory : GeneralDirectory;
        if ((SmartLog || ExtLog) && Command.AtaSectorNumber != 0)
          Reply.data = fuzz_support::Slice(In.Data, In.Size, kLogsStart, Pages * kPage);
        if (Command.AtaCommand == 0x42 || Command.AtaCommand == 0x40)
          return testing_support::AtaReply::error(EFI_DEVICE_ERROR, 0x40);
        return Reply;
      },
      [](tarvik::StorageModule& Module, UINT64 Drive) {
        tarvik::StorageRun& Run = Module.Run;
        Run.ProgressCallback = IgnoreProgress;
        Run.MessageCallback = IgnoreMessage;
        Run.Running = 1;
        tarvik::StorageDevice& Device = Module.Drives.Devices[Drive];
        for (tarvik::DriveLog Log : kLogs) tarvik::GetLogPageCount(Device, Log);
        tarvik::TargetedReadTest(Run, Device);
      });
  return 0;
}
