// IDENTIFY data of any content, as a drive or a packet device answers it.
// Byte 0 names a pool allocation of the storage code that fails (0: none);
// bytes 1-512 are the IDENTIFY data (zero-filled), parsed into the drive's
// identification; then, when the probe takes the answer for a drive, the
// identification the storage module makes of it (bytes 513-1024 are the
// SMART data page its temperature comes from) and every row shown or logged
// from it. When byte 1025 is odd the device refuses IDENTIFY DEVICE instead,
// with the cylinder registers of bytes 1026-1027 (a packet device's
// signature among them), and the probe must pass it over.
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
constexpr uint8_t kAborted = 0x04;

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

// A text a getter returned ends within its pool buffer (a read past it is
// caught) and goes back to the pool.
void Free(CHAR16* Text) {
  if (Text == nullptr) std::abort();
  for (const CHAR16* At = Text; *At != 0; ++At) {
  }
  tarvik::gBS->FreePool(Text);
}

// Hands a row getter two out-pointers and frees what it handed out.
template <typename Getter>
void ShowRow(Getter Get) {
  CHAR16 *First = nullptr, *Second = nullptr;
  if (Get(&First, &Second) != EFI_SUCCESS) return;
  Free(First);
  Free(Second);
}

void ShowEveryRow(tarvik::StorageModule& Module, UINT64 Drive) {
  ShowRow([&](CHAR16** L, CHAR16** V) { return tarvik::StorageRunInfoRow(Module, 0, Drive, L, V); });
  CHAR16* Name = nullptr;
  if (tarvik::StorageDeviceName(Module, Drive, &Name) == EFI_SUCCESS) Free(Name);
  for (UINT64 Row = 0; Row < tarvik::SystemInfoRowsPerDrive; ++Row)
    ShowRow([&](CHAR16** L, CHAR16** V) {
      return tarvik::StorageSystemInfoRow(Module, Drive * tarvik::SystemInfoRowsPerDrive + Row, L, V);
    });
  for (UINT64 Row = 0; Row < tarvik::LogRowsPerDrive; ++Row)
    ShowRow([&](CHAR16** L, CHAR16** V) {
      return tarvik::StorageLogRow(Module, Drive * tarvik::LogRowsPerDrive + Row, L, V);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Input, size_t InputSize) {
  const fuzz_support::DriveInput In(Input, InputSize);
  const std::vector<uint8_t> Identify = fuzz_support::Slice(In.Data, In.Size, 0, tarvik::IdentifyDataBytes);
  tarvik::StorageDeviceInfo Info{};
  tarvik::ParseIdentifyData(Identify.data(), &Info);
  CheckIdentification(Info);

  const std::vector<uint8_t> SmartData = fuzz_support::Slice(In.Data, In.Size, tarvik::IdentifyDataBytes, 512);
  const std::vector<uint8_t> Refusal = fuzz_support::Slice(In.Data, In.Size, 2 * tarvik::IdentifyDataBytes, 3);
  const bool Refused = (Refusal[0] & 1) != 0;
  if (!Refused && !tarvik::SerialNumberIsPrintable(Identify.data())) return 0;
  bool Used = false;
  fuzz_support::WithScriptedDrive(
      In.FailPool,
      [&](const EFI_ATA_COMMAND_BLOCK& Command) {
        testing_support::AtaReply Reply;
        if (Command.AtaCommand == kIdentifyDevice && Refused) {
          Reply = testing_support::AtaReply::error(EFI_DEVICE_ERROR, kAborted);
          Reply.status_block.AtaCylinderLow = Refusal[1];
          Reply.status_block.AtaCylinderHigh = Refusal[2];
        } else if (Command.AtaCommand == kIdentifyDevice) {
          Reply.data = Identify;
        }
        if (Command.AtaCommand == kSmart && Command.AtaFeatures == kSmartReadData) Reply.data = SmartData;
        return Reply;
      },
      [&](tarvik::StorageModule& Module, UINT64 Drive) {
        Used = true;
        CheckIdentification(*Module.Drives.Devices[Drive].Info);
        ShowEveryRow(Module, Drive);
      });
  if (Refused && Used) __builtin_trap();  // a device that refused IDENTIFY is no drive
  return 0;
}
