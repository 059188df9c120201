#include "nvme/nvme_drive_operations.h"

#include "drives/lba_list.h"
#include "nvme/nvme_structures.h"

namespace tarvik {
namespace {

constexpr UINT32 MaxBlocksPerCommand = 0x10000;  // the 16-bit block count of Read and Verify
constexpr UINT8 MaxShift = 16;
// Polls after the self-test left the log's current operation while its
// result has not appeared yet.
constexpr UINT64 MissingResultPolls = 5;
constexpr UINTN MaxLoggedLbas = 256;  // the longest error log a controller keeps

DriveOutcome OutcomeOf(NvmeAnswer Answer) {
  if (Answer == NvmeAnswer::Done) return DriveOutcome::Passed;
  return Answer == NvmeAnswer::Silent ? DriveOutcome::NoAnswer : DriveOutcome::Refused;
}

// The first Bytes of log LogId into Page. The logs the drive operations read
// belong to the controller: they are asked for with no namespace of their own.
NvmeAnswer ReadControllerLog(const NvmeDevice& Device, UINT8 LogId, const NvmePages& Page, UINTN Bytes) {
  if (!Page) return NvmeAnswer::Refused;
  return NvmeGetLogPage(Device.PassThru, NvmeAllNamespaces, LogId, Page.get(), static_cast<UINT32>(Bytes));
}

}  // namespace

UINT32 NvmeBlocksPerCommand(const NvmeDevice& Device) {
  const UINT32 BlockBytes = Device.Namespace.BlockBytes == 0 ? 512 : Device.Namespace.BlockBytes;
  const UINT8 Shift = Device.Controller.MaxTransferShift;
  UINT64 Bytes = NvmeMaxCommandBytes;
  if (Shift != 0 && Shift < MaxShift && (static_cast<UINT64>(NvmePageBytes) << Shift) < Bytes)
    Bytes = static_cast<UINT64>(NvmePageBytes) << Shift;
  UINT64 Blocks = Bytes / BlockBytes;
  if (Blocks == 0) Blocks = 1;
  return static_cast<UINT32>(Blocks > MaxBlocksPerCommand ? MaxBlocksPerCommand : Blocks);
}

NvmeDriveOperations::NvmeDriveOperations(const NvmeDevice& Device, bool Reads)
    : Device_(Device),
      Buffer_(!Reads || Device.Controller.VerifySupported != 0 ? 0
                                                                : NvmeBlocksPerCommand(Device) * Device.Namespace.BlockBytes),
      Operations_{this,          Device.Namespace.Blocks, NvmeBlocksPerCommand(Device), Verify, StartSelfTest,
                  PollSelfTest, AbortSelfTest, ReadHealth, ListLoggedLbas} {}

DriveOutcome NvmeDriveOperations::Verify(VOID* Context, UINT64 Lba, UINT32 Blocks) {
  auto& Self = *static_cast<NvmeDriveOperations*>(Context);
  switch (Self.Device_.Controller.VerifySupported != 0 ? NvmeVerifyBlocks(Self.Device_, Lba, Blocks)
                                                       : NvmeReadBlocks(Self.Device_, Lba, Blocks, Self.Buffer_.get())) {
    case NvmeAnswer::Done: return DriveOutcome::Passed;
    case NvmeAnswer::Unreadable: return DriveOutcome::Unreadable;
    default: return DriveOutcome::NoAnswer;
  }
}

DriveOutcome NvmeDriveOperations::StartSelfTest(VOID* Context, UINT8 Code) {
  auto& Self = *static_cast<NvmeDriveOperations*>(Context);
  Self.Started_ = Code;
  Self.Percent_ = 0;
  Self.MissingPolls_ = 0;
  return OutcomeOf(NvmeDeviceSelfTest(Self.Device_.PassThru, Self.Device_.NamespaceId, Code));
}

SelfTestPoll NvmeDriveOperations::PollSelfTest(VOID* Context) {
  auto& Self = *static_cast<NvmeDriveOperations*>(Context);
  NvmePages Page(sizeof(NvmeSelfTestLog));
  const NvmeAnswer Answer = ReadControllerLog(Self.Device_, nvme_log::SelfTest, Page, sizeof(NvmeSelfTestLog));
  NvmeSelfTestFacts Facts{};
  if (Answer != NvmeAnswer::Done) return {OutcomeOf(Answer)};
  if (!ParseSelfTestLog(Page.get(), sizeof(NvmeSelfTestLog), &Facts)) return {DriveOutcome::Refused};
  if (Facts.RunningTest != 0) {
    Self.Percent_ = Facts.RunningPercent > 99 ? 99 : Facts.RunningPercent;
    return {DriveOutcome::Running, Self.Percent_};
  }
  const bool Logged = Facts.NewestTest == Self.Started_ && Facts.NewestOutcome != NvmeSelfTestOutcome::Unused;
  if (Self.Started_ != 0 && !Logged && ++Self.MissingPolls_ < MissingResultPolls)
    return {DriveOutcome::Running, Self.Percent_};
  if (Facts.NewestOutcome == NvmeSelfTestOutcome::Passed) return {DriveOutcome::Passed};
  return {DriveOutcome::Unreadable, 100, Facts.NewestLbaValid != 0, Facts.NewestFailingLba};
}

DriveOutcome NvmeDriveOperations::AbortSelfTest(VOID* Context) {
  auto& Self = *static_cast<NvmeDriveOperations*>(Context);
  return OutcomeOf(NvmeDeviceSelfTest(Self.Device_.PassThru, Self.Device_.NamespaceId, nvme_self_test::Abort));
}

HealthVerdict NvmeDriveOperations::ReadHealth(VOID* Context) {
  auto& Self = *static_cast<NvmeDriveOperations*>(Context);
  NvmePages Page(NvmeHealthLogBytes);
  const NvmeAnswer Answer = ReadControllerLog(Self.Device_, nvme_log::Health, Page, NvmeHealthLogBytes);
  if (Answer == NvmeAnswer::Silent) return HealthVerdict::NoAnswer;
  if (Answer != NvmeAnswer::Done || !ParseHealthLog(Page.get(), NvmeHealthLogBytes, &Self.Health_))
    return HealthVerdict::NotOffered;
  return HealthFailing(Self.Health_) ? HealthVerdict::Failing : HealthVerdict::Good;
}

DriveOutcome NvmeDriveOperations::ListLoggedLbas(VOID* Context, DriveRun&, LbaList& Lbas) {
  const NvmeDevice& Device = static_cast<NvmeDriveOperations*>(Context)->Device_;
  const UINT32 Bytes = static_cast<UINT32>(Device.Controller.ErrorLogEntries * NvmeErrorEntryBytes);
  NvmePages Page(Bytes);
  const NvmeAnswer Answer = ReadControllerLog(Device, nvme_log::ErrorInformation, Page, Bytes);
  if (Answer != NvmeAnswer::Done) return OutcomeOf(Answer);
  UINT64 Logged[MaxLoggedLbas];
  // The last entry first: the list puts each at its head, so it reads back in the log's order.
  for (UINTN I = ErrorLogLbas(Page.get(), Bytes, Device.NamespaceId, Logged, MaxLoggedLbas); I > 0; --I)
    if (EFI_ERROR(Lbas.Add(Logged[I - 1]))) break;
  return DriveOutcome::Passed;
}

}  // namespace tarvik
