// IDENTIFY data of any content (the input's first 512 bytes, zero-filled),
// as a drive or a packet device answers it: the parse into the drive's
// identification; then, when the probe takes the answer for a drive, the
// identification the storage module makes of it (the next 512 bytes are the
// SMART data page its temperature comes from) and every row shown or logged
// from it.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "core/globals.h"
#include "storage/identify_parser.h"
#include "storage/storage_rows.h"
#include "tests/fuzz/scripted_drive.h"

namespace {

constexpr uint8_t kIdentifyDevice = 0xEC;
constexpr uint8_t kSmart = 0xB0;
constexpr uint8_t kSmartReadData = 0xD0;

// Every text of the identification ends within its field.
void CheckTerminated(const CHAR16* Text, UINTN Chars) {
  for (UINTN I = 0; I < Chars; ++I)
    if (Text[I] == 0) return;
  std::abort();
}

void CheckIdentification(const tarvik::StorageDeviceInfo& Info) {
  CheckTerminated(Info.Uid, tarvik::UidChars);
  CheckTerminated(Info.DisplayName, tarvik::DisplayNameChars);
  CheckTerminated(Info.DeviceType, tarvik::DeviceTypeChars);
  CheckTerminated(Info.Manufacturer, tarvik::ManufacturerChars);
  CheckTerminated(Info.Model, tarvik::ModelChars);
  CheckTerminated(Info.SerialNumber, tarvik::SerialNumberChars);
  CheckTerminated(Info.FirmwareRevision, tarvik::FirmwareRevisionChars);
  if (Info.StandardVersionText == nullptr) std::abort();
}

// A row's texts exist once the getter succeeded, and go back to the pool.
void Release(EFI_STATUS Status, CHAR16* First, CHAR16* Second) {
  if (Status != EFI_SUCCESS) return;
  if (First == nullptr || Second == nullptr) std::abort();
  tarvik::gBS->FreePool(First);
  tarvik::gBS->FreePool(Second);
}

void ShowEveryRow(tarvik::StorageModule& Module, UINT64 Drive) {
  CHAR16 *First = nullptr, *Second = nullptr;
  Release(tarvik::StorageRunInfoRow(Module, 0, Drive, &First, &Second), First, Second);
  CHAR16* Name = nullptr;
  if (tarvik::StorageDeviceName(Module, Drive, &Name) == EFI_SUCCESS) tarvik::gBS->FreePool(Name);
  for (UINT64 Row = 0; Row < tarvik::SystemInfoRowsPerDrive; ++Row)
    Release(tarvik::StorageSystemInfoRow(Module, Drive * tarvik::SystemInfoRowsPerDrive + Row, &First, &Second),
            First, Second);
  for (UINT64 Row = 0; Row < tarvik::LogRowsPerDrive; ++Row)
    Release(tarvik::StorageLogRow(Module, Drive * tarvik::LogRowsPerDrive + Row, &First, &Second), First, Second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  const std::vector<uint8_t> Identify = fuzz_support::Slice(Data, Size, 0, tarvik::IdentifyDataBytes);
  tarvik::StorageDeviceInfo Info{};
  tarvik::ParseIdentifyData(Identify.data(), &Info);
  CheckIdentification(Info);
  if (!tarvik::SerialNumberIsPrintable(Identify.data())) return 0;

  const std::vector<uint8_t> SmartData = fuzz_support::Slice(Data, Size, tarvik::IdentifyDataBytes, 512);
  fuzz_support::WithScriptedDrive(
      [&](const EFI_ATA_COMMAND_BLOCK& Command) {
        testing_support::AtaReply Reply;
        if (Command.AtaCommand == kIdentifyDevice) Reply.data = Identify;
        if (Command.AtaCommand == kSmart && Command.AtaFeatures == kSmartReadData) Reply.data = SmartData;
        return Reply;
      },
      [](tarvik::StorageModule& Module, UINT64 Drive) {
        CheckIdentification(*Module.Drives.Devices[Drive].Info);
        ShowEveryRow(Module, Drive);
      });
  return 0;
}
