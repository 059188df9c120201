#include "nvme/nvme_parsers.h"

#include "nvme/nvme_structures.h"

namespace tarvik {
namespace {

constexpr UINT32 OacsSelfTest = 1u << 4;
constexpr UINT32 OncsVerify = 1u << 7;
constexpr UINT8 MinBlockShift = 9;
constexpr UINT8 MaxBlockShift = 16;
constexpr INT32 KelvinAtZeroCelsius = 273;

// A page is copied into its structure, zero-filled beyond what was given,
// so no field is read from outside the caller's bytes.
template <typename T>
T PageAs(const UINT8* Page, UINTN Size) {
  T Value;
  auto* Bytes = reinterpret_cast<UINT8*>(&Value);
  for (UINTN I = 0; I < sizeof(T); ++I) Bytes[I] = I < Size ? Page[I] : 0;
  return Value;
}

// An ASCII field padded with spaces (or NULs) as text; FALSE when it is
// empty or holds an unprintable byte.
BOOLEAN FieldText(const UINT8* Field, UINTN Bytes, CHAR16* Text, UINTN Chars) {
  UINTN Length = Bytes;
  while (Length > 0 && (Field[Length - 1] == ' ' || Field[Length - 1] == 0)) --Length;
  if (Length + 1 > Chars) Length = Chars - 1;
  for (UINTN I = 0; I < Length; ++I) {
    if (Field[I] < 0x20 || Field[I] > 0x7E) return FALSE;
    Text[I] = Field[I];
  }
  Text[Length] = 0;
  return Length > 0;
}

UINT64 Saturated128(const UINT8* Counter) {
  for (UINTN I = 8; I < 16; ++I)
    if (Counter[I] != 0) return ~0ull;
  UINT64 Value = 0;
  for (UINTN I = 0; I < 8; ++I) Value |= static_cast<UINT64>(Counter[I]) << (8 * I);
  return Value;
}

}  // namespace

BOOLEAN ParseIdentifyController(const UINT8* Page, UINTN Size, NvmeControllerFacts* Facts) {
  if (Page == nullptr || Facts == nullptr || Size < NvmeIdentifyBytes) return FALSE;
  const auto Data = PageAs<NvmeIdentifyController>(Page, Size);
  *Facts = NvmeControllerFacts{};
  if (!FieldText(Data.SerialNumber, sizeof(Data.SerialNumber), Facts->Serial, NvmeSerialChars)) return FALSE;
  if (!FieldText(Data.ModelNumber, sizeof(Data.ModelNumber), Facts->Model, NvmeModelChars)) return FALSE;
  // Firmware revisions are text too, but an empty one does not make the
  // controller untrustworthy.
  if (!FieldText(Data.FirmwareRevision, sizeof(Data.FirmwareRevision), Facts->Firmware, NvmeFirmwareChars))
    Facts->Firmware[0] = 0;
  Facts->Version = Data.Version;
  Facts->NamespaceCount = Data.NamespaceCount;
  Facts->MaxTransferShift = Data.MaximumDataTransferSize;
  Facts->SelfTestSupported = (Data.OptionalAdminCommands & OacsSelfTest) != 0;
  Facts->VerifySupported = (Data.OptionalNvmCommands & OncsVerify) != 0;
  Facts->ErrorLogEntries = static_cast<UINT16>(Data.ErrorLogPageEntries + 1);
  return TRUE;
}

BOOLEAN ParseIdentifyNamespace(const UINT8* Page, UINTN Size, NvmeNamespaceFacts* Facts) {
  if (Page == nullptr || Facts == nullptr || Size < NvmeIdentifyBytes) return FALSE;
  const auto Data = PageAs<NvmeIdentifyNamespace>(Page, Size);
  const UINT8 Format = static_cast<UINT8>((Data.FormattedLbaSize & 0x0F) | ((Data.FormattedLbaSize & 0x60) >> 1));
  if (Data.Size == 0 || Format > Data.LbaFormatCount || Format >= 64) return FALSE;
  const UINT8 Shift = Data.LbaFormats[Format].DataSizeShift;
  if (Shift < MinBlockShift || Shift > MaxBlockShift) return FALSE;
  Facts->Blocks = Data.Size;
  Facts->BlockBytes = 1u << Shift;
  return TRUE;
}

BOOLEAN ParseHealthLog(const UINT8* Page, UINTN Size, NvmeHealthFacts* Facts) {
  if (Page == nullptr || Facts == nullptr || Size < NvmeHealthLogBytes) return FALSE;
  const auto Data = PageAs<NvmeHealthLog>(Page, Size);
  Facts->CriticalWarning = Data.CriticalWarning;
  Facts->TemperatureC = Data.CompositeTemperature == 0 ? 0 : static_cast<INT32>(Data.CompositeTemperature) - KelvinAtZeroCelsius;
  Facts->AvailableSpare = Data.AvailableSpare;
  Facts->SpareThreshold = Data.AvailableSpareThreshold;
  Facts->PercentageUsed = Data.PercentageUsed;
  Facts->PowerOnHours = Saturated128(Data.PowerOnHours);
  Facts->UnsafeShutdowns = Saturated128(Data.UnsafeShutdowns);
  Facts->MediaErrors = Saturated128(Data.MediaErrors);
  return TRUE;
}

BOOLEAN HealthFailing(const NvmeHealthFacts& Facts) {
  return Facts.CriticalWarning != 0 || Facts.AvailableSpare < Facts.SpareThreshold || Facts.PercentageUsed >= 100;
}

UINTN ErrorLogLbas(const UINT8* Page, UINTN Size, UINT32 NamespaceId, UINT64* Lbas, UINTN Capacity) {
  if (Page == nullptr || Lbas == nullptr) return 0;
  UINTN Found = 0;
  for (UINTN At = 0; At + NvmeErrorEntryBytes <= Size && Found < Capacity; At += NvmeErrorEntryBytes) {
    const auto Entry = PageAs<NvmeErrorEntry>(Page + At, NvmeErrorEntryBytes);
    if (Entry.ErrorCount == 0) continue;
    // An entry for no particular namespace names no block of this one.
    if (Entry.NamespaceId != NamespaceId) continue;
    Lbas[Found++] = Entry.Lba;
  }
  return Found;
}

BOOLEAN ParseSelfTestLog(const UINT8* Page, UINTN Size, NvmeSelfTestFacts* Facts) {
  if (Page == nullptr || Facts == nullptr || Size < __builtin_offsetof(NvmeSelfTestLog, Results)) return FALSE;
  const auto Data = PageAs<NvmeSelfTestLog>(Page, Size < sizeof(NvmeSelfTestLog) ? Size : sizeof(NvmeSelfTestLog));
  *Facts = NvmeSelfTestFacts{};
  Facts->RunningTest = Data.CurrentOperation & 0x0F;
  const UINT8 Percent = Data.CurrentCompletion & 0x7F;
  Facts->RunningPercent = Percent > 100 ? 100 : Percent;
  Facts->NewestOutcome = NvmeSelfTestOutcome::Unused;
  if (Size < __builtin_offsetof(NvmeSelfTestLog, Results) + sizeof(NvmeSelfTestResult)) return TRUE;
  const NvmeSelfTestResult& Newest = Data.Results[0];
  const UINT8 Result = Newest.Status & 0x0F;
  if (Result == 0x0F) return TRUE;
  Facts->NewestTest = Newest.Status >> 4;
  if (Result == 0x0)
    Facts->NewestOutcome = NvmeSelfTestOutcome::Passed;
  else if (Result == 0x1)
    Facts->NewestOutcome = NvmeSelfTestOutcome::AbortedByCommand;
  else if (Result >= 0x5 && Result <= 0x7)
    Facts->NewestOutcome = NvmeSelfTestOutcome::Failed;
  else
    Facts->NewestOutcome = NvmeSelfTestOutcome::Other;
  Facts->NewestLbaValid = (Newest.ValidDiagnostics & 0x02) != 0;
  Facts->NewestFailingLba = Newest.FailingLba;
  return TRUE;
}

}  // namespace tarvik
