#include "nvme/nvme_rows.h"

#include "core/diag_common.h"
#include "core/row_texts.h"
#include "core/wide_string.h"
#include "nvme/nvme_commands.h"
#include "nvme/nvme_discovery.h"
#include "nvme/nvme_structures.h"

namespace tarvik {
namespace {

constexpr UINTN RowBytes = 512;
constexpr UINTN DeviceNameBytes = 82;
constexpr UINTN DeviceNameChars = 19;
constexpr UINT64 BytesPerGigabyte = 1ull << 30;

// Gigabytes of 2^30 bytes, as the storage module counts them.
VOID FormatSize(const NvmeDevice& Device, CHAR16* Value) {
  const UINT64 Blocks = Device.Namespace.Blocks, BlockBytes = Device.Namespace.BlockBytes;
  const UINT64 Bytes = BlockBytes != 0 && Blocks > ~0ull / BlockBytes ? ~0ull : Blocks * BlockBytes;
  SPrint(Value, RowBytes, u"%ld GB", Bytes / BytesPerGigabyte);
}

VOID FormatVersion(const NvmeDevice& Device, CHAR16* Value) {
  UINT32 Version = Device.Controller.Version;
  if (Version == 0 && Device.PassThru != nullptr && Device.PassThru->Mode != nullptr)
    Version = Device.PassThru->Mode->NvmeVersion;
  const INT32 Major = static_cast<INT32>(Version >> 16), Minor = static_cast<INT32>((Version >> 8) & 0xFF),
              Tertiary = static_cast<INT32>(Version & 0xFF);
  if (Tertiary != 0)
    SPrint(Value, RowBytes, u"%d.%d.%d", Major, Minor, Tertiary);
  else
    SPrint(Value, RowBytes, u"%d.%d", Major, Minor);
}

// The health log's figures for the system-information rows; FALSE when the
// controller would not give it.
BOOLEAN ReadHealth(const NvmeDevice& Device, NvmeHealthFacts* Health) {
  NvmePages Page(NvmeHealthLogBytes);
  return Page &&
         NvmeGetLogPage(Device.PassThru, NvmeAllNamespaces, nvme_log::Health, Page.get(),
                        static_cast<UINT32>(NvmeHealthLogBytes)) == NvmeAnswer::Done &&
         ParseHealthLog(Page.get(), NvmeHealthLogBytes, Health);
}

VOID FillSystemRow(const NvmeModule& Module, const NvmeDevice& Device, UINT64 Row, CHAR16* L, CHAR16* V) {
  constexpr UINT64 Labels[NvmeSystemInfoRowsPerDrive] = {
      nvme_text::ModelNumber, nvme_text::SerialNumber, nvme_text::FirmwareRevision, nvme_text::Size,
      nvme_text::LbaSize,     nvme_text::Version,      nvme_text::Namespace,        nvme_text::Temperature,
      nvme_text::PercentageUsed, nvme_text::PowerOnHours, 0,
  };
  if (Row == NvmeSystemInfoRowsPerDrive - 1) return;  // a blank row between drives
  SPrint(L, RowBytes, u"%s:", NvmeText(Module, Labels[Row]));
  NvmeHealthFacts Health{};
  switch (Row) {
    case 0: SPrint(V, RowBytes, u"%s", Device.Controller.Model); return;
    case 1: SPrint(V, RowBytes, u"%s", Device.Controller.Serial); return;
    case 2: SPrint(V, RowBytes, u"%s", Device.Controller.Firmware); return;
    case 3: FormatSize(Device, V); return;
    case 4: SPrint(V, RowBytes, u"%ld bytes", static_cast<UINT64>(Device.Namespace.BlockBytes)); return;
    case 5: FormatVersion(Device, V); return;
    case 6: SPrint(V, RowBytes, u"%d", static_cast<INT32>(Device.NamespaceId)); return;
    default: break;
  }
  if (!ReadHealth(Device, &Health)) {
    SPrint(V, RowBytes, u"%s", NvmeText(Module, nvme_text::NotReported));
    return;
  }
  if (Row == 7) SPrint(V, RowBytes, u"%d C", Health.TemperatureC);
  if (Row == 8) SPrint(V, RowBytes, u"%d%%", static_cast<INT32>(Health.PercentageUsed));
  if (Row == 9) SPrint(V, RowBytes, u"%ld", Health.PowerOnHours);
}

VOID FillLogRow(const NvmeDevice& Device, UINT64 Row, CHAR16* K, CHAR16* V) {
  constexpr const CHAR16* Keys[NvmeLogRowsPerDrive] = {
      u"UID", u"DISPLAYNAME", u"TYPE", u"MODEL", u"SERIAL", u"FIRMWARE", u"SIZE", u"LBA_SIZE", u"NVME_VERSION",
      u"NAMESPACE",
  };
  SPrint(K, RowBytes, u"%s:", Keys[Row]);
  const NvmeControllerFacts& Controller = Device.Controller;
  switch (Row) {
    case 0: SPrint(V, RowBytes, u"%s-%s-%d", Controller.Model, Controller.Serial, static_cast<INT32>(Device.NamespaceId)); return;
    case 1: SPrint(V, RowBytes, u"%s NVMe Device", Controller.Model); return;
    case 2: SPrint(V, RowBytes, u"NVMe SSD"); return;
    case 3: SPrint(V, RowBytes, u"%s", Controller.Model); return;
    case 4: SPrint(V, RowBytes, u"%s", Controller.Serial); return;
    case 5: SPrint(V, RowBytes, u"%s", Controller.Firmware); return;
    case 6: FormatSize(Device, V); return;
    case 7: SPrint(V, RowBytes, u"%ld bytes", static_cast<UINT64>(Device.Namespace.BlockBytes)); return;
    case 8: FormatVersion(Device, V); return;
    default: SPrint(V, RowBytes, u"%d", static_cast<INT32>(Device.NamespaceId)); return;
  }
}

}  // namespace

EFI_STATUS NvmeRunInfoRow(const NvmeModule& Module, UINT64 Row, UINT64 DeviceIndex, CHAR16** Label, CHAR16** Value) {
  if (Label == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= NvmeRunInfoRows || DeviceIndex >= Module.Drives.DeviceCount) return EFI_INVALID_PARAMETER;
  const NvmeDevice& Device = Module.Drives.Devices[DeviceIndex];
  return HandOutRowTexts(RowBytes, Label, Value, [&](CHAR16* L, CHAR16*) {
    SPrint(L, RowBytes, u"%s: %s", NvmeText(Module, nvme_text::Device), Device.Controller.Model);
  });
}

EFI_STATUS NvmeDeviceName(const NvmeModule& Module, UINT64 DeviceIndex, CHAR16** Name) {
  if (Name == nullptr) return EFI_ABORTED;
  if (DeviceIndex >= Module.Drives.DeviceCount) return EFI_INVALID_PARAMETER;
  PoolPtr<CHAR16> Text;
  const EFI_STATUS Status = Text.Allocate(DeviceNameBytes);
  if (EFI_ERROR(Status)) return Status;
  // The namespaces of one controller share its model: a number tells them apart.
  const NvmeDevice& Device = Module.Drives.Devices[DeviceIndex];
  CHAR16 Suffix[16] = {};
  if (Device.NamespaceCount > 1) SPrint(Suffix, sizeof(Suffix), u" ns%u", Device.NamespaceId);
  const UINTN ModelChars = DeviceNameChars - StrLen(Suffix);
  const UINTN Used = SPrint(Text.get(), (ModelChars + 1) * sizeof(CHAR16), u"%s", Device.Controller.Model);
  SPrint(Text.get() + Used, DeviceNameBytes - Used * sizeof(CHAR16), u"%s", Suffix);
  *Name = Text.release();
  return EFI_SUCCESS;
}

EFI_STATUS NvmeSystemInfoRow(NvmeModule& Module, UINT64 Row, CHAR16** Label, CHAR16** Value) {
  if (Label == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= Module.Drives.DeviceCount * NvmeSystemInfoRowsPerDrive) return EFI_INVALID_PARAMETER;
  NvmeDevice& Device = Module.Drives.Devices[Row / NvmeSystemInfoRowsPerDrive];
  if (Row % NvmeSystemInfoRowsPerDrive == 0) {
    const EFI_STATUS Status = IdentifyNvmeDevice(Device);
    if (EFI_ERROR(Status)) return Status;
  }
  return HandOutRowTexts(RowBytes, Label, Value, [&](CHAR16* L, CHAR16* V) {
    FillSystemRow(Module, Device, Row % NvmeSystemInfoRowsPerDrive, L, V);
  });
}

EFI_STATUS NvmeLogRow(const NvmeModule& Module, UINT64 Row, CHAR16** Key, CHAR16** Value) {
  if (Key == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= Module.Drives.DeviceCount * NvmeLogRowsPerDrive) return EFI_INVALID_PARAMETER;
  const NvmeDevice& Device = Module.Drives.Devices[Row / NvmeLogRowsPerDrive];
  return HandOutRowTexts(RowBytes, Key, Value,
                         [&](CHAR16* K, CHAR16* V) { FillLogRow(Device, Row % NvmeLogRowsPerDrive, K, V); });
}

}  // namespace tarvik
