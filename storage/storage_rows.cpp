#include "storage/storage_rows.h"

#include "core/diag_common.h"
#include "core/row_texts.h"
#include "storage/drive_discovery.h"

namespace tarvik {
namespace {

// Rows go out in 2048-byte buffers but are formatted to half of that: a
// long drive text is cut at 511 characters.
constexpr UINTN RowBytes = 2048;
constexpr UINTN RowFormatBytes = 1024;
// Device names: an 82-byte buffer holding at most 19 characters.
constexpr UINTN DeviceNameBytes = 82;
constexpr UINTN DeviceNameChars = 19;

constexpr UINT64 BytesPerGigabyte = 1ull << 30;
constexpr UINT64 BytesPerMegabyte = 1ull << 20;

// The ATA standards IDENTIFY word 80 names, bit by bit: the label of the
// system-information row and the name in the log's list.
struct Standard {
  UINT16 Bit;
  const CHAR16* SystemLabel;
  const CHAR16* LogName;
};
constexpr Standard Standards[] = {
    {4, u"   ATA/ATAPI 4:", u"   ATA/ATAPI 4"}, {5, u"   ATA/ATAPI 5:", u"ATA/ATAPI 5"},
    {6, u"   ATA/ATAPI 6:", u"ATA/ATAPI 6"},    {7, u"   ATA/ATAPI 7:", u"ATA/ATAPI 7"},
    {8, u"   ATA8_ACS:", u"ATA8_ACS"},
};
constexpr UINT64 FirstStandardRow = 12;

BOOLEAN SupportsStandard(const StorageDeviceInfo& Info, const Standard& Entry) {
  return (Info.MajorVersion & (1u << Entry.Bit)) != 0;
}

const CHAR16* OrEmpty(const CHAR16* Text) { return Text != nullptr ? Text : u""; }

// Writes Text into Row's buffer at Used characters; returns the new length.
UINTN Append(CHAR16* Row, UINTN Used, const CHAR16* Format, const CHAR16* Text) {
  if (Used * sizeof(CHAR16) + sizeof(CHAR16) >= RowFormatBytes) return Used;
  return Used + SPrint(Row + Used, RowFormatBytes - Used * sizeof(CHAR16), Format, Text);
}

// Values the system-information rows and the log rows share.
VOID FormatSize(const StorageDeviceInfo& Info, CHAR16* Value) {
  SPrint(Value, RowFormatBytes, u"%ld GB", Info.SizeBytes / BytesPerGigabyte);
}

VOID FormatCache(const StorageDeviceInfo& Info, CHAR16* Value) {
  if (Info.CacheBytes == 0)
    SPrint(Value, RowFormatBytes, u" - ");
  else
    SPrint(Value, RowFormatBytes, u"%ld MB", static_cast<UINT64>(Info.CacheBytes) / BytesPerMegabyte);
}

VOID FormatRotation(const StorageModule& Module, const StorageDevice& Device, CHAR16* Value) {
  const INT32 Class = GetRotationClass(&Device);
  if (Class == 0)
    SPrint(Value, RowFormatBytes, u"%s", StorageText(Module, storage_text::NotReported));
  else if (Class == 1)
    SPrint(Value, RowFormatBytes, u"%s", StorageText(Module, storage_text::NonRotating));
  else
    SPrint(Value, RowFormatBytes, u"%d rpm", Class);
}

VOID FormatSectorSize(UINT32 Bytes, CHAR16* Value) {
  SPrint(Value, RowFormatBytes, u"%ld bytes", static_cast<UINT64>(Bytes));
}

VOID FormatSectorCount(const StorageModule& Module, const StorageDeviceInfo& Info, CHAR16* Value) {
  SPrint(Value, RowFormatBytes, u"%ld %s", Info.TotalSectors, StorageText(Module, storage_text::Sectors));
}

VOID FormatTemperature(const StorageDeviceInfo& Info, CHAR16* Value) {
  SPrint(Value, RowFormatBytes, u"%d C", static_cast<INT32>(Info.Temperature));
}

VOID FillSystemRow(const StorageModule& Module, const StorageDevice& Device, UINT64 Row, CHAR16* L, CHAR16* V) {
  const StorageDeviceInfo& Info = *Device.Info;
  const auto Label = [&](UINT64 Text) { SPrint(L, RowFormatBytes, u"%s:", StorageText(Module, Text)); };
  const auto Text = [&](const CHAR16* Value) { SPrint(V, RowFormatBytes, u"%s", OrEmpty(Value)); };
  switch (Row) {
    case 0: Label(storage_text::Manufacturer); Text(Info.Manufacturer); return;
    case 1: Label(storage_text::ModelNumber); Text(Info.Model); return;
    case 2: Label(storage_text::SerialNumber); Text(Info.SerialNumber); return;
    case 3: Label(storage_text::FirmwareRevision); Text(Info.FirmwareRevision); return;
    case 4: Label(storage_text::Size); FormatSize(Info, V); return;
    case 5: Label(storage_text::CacheSize); FormatCache(Info, V); return;
    case 6: Label(storage_text::RotationRate); FormatRotation(Module, Device, V); return;
    case 7:
      Label(storage_text::Temperature);
      if (Info.Temperature == 0)
        SPrint(V, RowFormatBytes, u" - ");
      else
        FormatTemperature(Info, V);
      return;
    case 8: Label(storage_text::PhysicalSectorSize); FormatSectorSize(Info.PhysicalSectorSize, V); return;
    case 9: Label(storage_text::LogicalSectorSize); FormatSectorSize(Info.LogicalSectorSize, V); return;
    case 10: Label(storage_text::LogicalSectors); FormatSectorCount(Module, Info, V); return;
    case 11: Label(storage_text::SupportedStandards); return;
    case 17:
      SPrint(L, RowFormatBytes, u"%s", StorageText(Module, storage_text::StandardVersion));
      Text(Info.StandardVersionText);
      return;
    case 18: return;
    default: break;
  }
  const Standard& Entry = Standards[Row - FirstStandardRow];
  SPrint(L, RowFormatBytes, u"%s", Entry.SystemLabel);
  Text(StorageText(Module, SupportsStandard(Info, Entry) ? storage_text::Supported : storage_text::NotSupported));
}

// "SUPPORTED_STANDARDS:" followed by the standards the drive supports,
// joined by ", ", and a full stop.
VOID FormatStandardsKey(const StorageDeviceInfo& Info, CHAR16* Key) {
  UINTN Used = SPrint(Key, RowFormatBytes, u"%s:", u"SUPPORTED_STANDARDS");
  BOOLEAN First = TRUE;
  for (const Standard& Entry : Standards) {
    if (!SupportsStandard(Info, Entry)) continue;
    Used = Append(Key, Used, First ? u"%s" : u", %s", Entry.LogName);
    First = FALSE;
  }
  Append(Key, Used, u"%s", u".");
}

VOID FillLogRow(const StorageModule& Module, const StorageDevice& Device, UINT64 Row, CHAR16* K, CHAR16* V) {
  const StorageDeviceInfo& Info = *Device.Info;
  constexpr const CHAR16* Keys[LogRowsPerDrive] = {
      u"UID",     u"DISPLAYNAME",   u"TYPE",  u"MODEL",       u"MANUFACTURER",         u"SERIAL",
      u"FIRMWARE", u"SIZE",         u"ROTATION_RATE", u"CACHE", u"TEMPERATURE", u"PHYSICAL_SECTOR_SIZE",
      u"LOGICAL_SECTOR_SIZE", u"LOGICAL_SECTORS", u"SUPPORTED_STANDARDS", u"SPEC_VERSION",
  };
  SPrint(K, RowFormatBytes, u"%s:", Keys[Row]);
  const auto Text = [&](const CHAR16* Value) { SPrint(V, RowFormatBytes, u"%s", OrEmpty(Value)); };
  switch (Row) {
    case 0: Text(Info.Uid); return;
    case 1: Text(Info.DisplayName); return;
    case 2: Text(Info.DeviceType); return;
    case 3: Text(Info.Model); return;
    case 4: Text(Info.Manufacturer); return;
    case 5: Text(Info.SerialNumber); return;
    case 6: Text(Info.FirmwareRevision); return;
    case 7: FormatSize(Info, V); return;
    case 8: FormatRotation(Module, Device, V); return;
    case 9: FormatCache(Info, V); return;
    case 10: FormatTemperature(Info, V); return;
    case 11: FormatSectorSize(Info.PhysicalSectorSize, V); return;
    case 12: FormatSectorSize(Info.LogicalSectorSize, V); return;
    case 13: FormatSectorCount(Module, Info, V); return;
    case 14: FormatStandardsKey(Info, K); return;
    default: Text(Info.StandardVersionText); return;
  }
}

}  // namespace

EFI_STATUS StorageRunInfoRow(const StorageModule& Module, UINT64 Row, UINT64 DeviceIndex, CHAR16** Label,
                             CHAR16** Value) {
  if (Label == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= StorageRunInfoRows || DeviceIndex >= Module.Drives.DeviceCount) return EFI_INVALID_PARAMETER;
  const StorageDeviceInfo& Info = *Module.Drives.Devices[DeviceIndex].Info;
  return HandOutRowTexts(RowBytes, Label, Value, [&](CHAR16* L, CHAR16*) {
    SPrint(L, RowFormatBytes, u"%s: %s %s", StorageText(Module, storage_text::Device), Info.Manufacturer, Info.Model);
  });
}

EFI_STATUS StorageDeviceName(const StorageModule& Module, UINT64 DeviceIndex, CHAR16** Name) {
  if (Name == nullptr) return EFI_ABORTED;
  if (DeviceIndex >= Module.Drives.DeviceCount) return EFI_INVALID_PARAMETER;
  const StorageDeviceInfo& Info = *Module.Drives.Devices[DeviceIndex].Info;
  PoolPtr<CHAR16> Text;
  const EFI_STATUS Status = Text.Allocate(DeviceNameBytes);
  if (EFI_ERROR(Status)) return Status;
  SPrint(Text.get(), (DeviceNameChars + 1) * sizeof(CHAR16), u"%s %s", Info.Manufacturer, Info.Model);
  *Name = Text.release();
  return EFI_SUCCESS;
}

EFI_STATUS StorageSystemInfoRow(StorageModule& Module, UINT64 Row, CHAR16** Label, CHAR16** Value) {
  if (Label == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= Module.Drives.DeviceCount * SystemInfoRowsPerDrive) return EFI_INVALID_PARAMETER;
  StorageDevice& Device = Module.Drives.Devices[Row / SystemInfoRowsPerDrive];
  const EFI_STATUS Status = IdentifyDevice(&Device);
  if (EFI_ERROR(Status)) return Status;
  return HandOutRowTexts(RowBytes, Label, Value, [&](CHAR16* L, CHAR16* V) {
    FillSystemRow(Module, Device, Row % SystemInfoRowsPerDrive, L, V);
  });
}

EFI_STATUS StorageLogRow(const StorageModule& Module, UINT64 Row, CHAR16** Key, CHAR16** Value) {
  if (Key == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= Module.Drives.DeviceCount * LogRowsPerDrive) return EFI_INVALID_PARAMETER;
  const StorageDevice& Device = Module.Drives.Devices[Row / LogRowsPerDrive];
  return HandOutRowTexts(RowBytes, Key, Value,
                         [&](CHAR16* K, CHAR16* V) { FillLogRow(Module, Device, Row % LogRowsPerDrive, K, V); });
}

}  // namespace tarvik
