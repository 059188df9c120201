#include "storage/ata_commands.h"

#include "core/globals.h"
#include "storage/ata_definitions.h"

namespace tarvik {

namespace {

using ata::SmartFeature;

// Register values of one command; every register not named stays zero.
struct CommandRegisters {
  UINT8 Command = 0;
  UINT8 Features = 0;
  UINT8 SectorNumber = 0;
  UINT8 CylinderLow = 0;
  UINT8 CylinderHigh = 0;
  UINT8 DeviceLowBits = 0;  // LBA bits 24-27 of a 28-bit command
  UINT8 SectorNumberExp = 0;
  UINT8 CylinderLowExp = 0;
  UINT8 CylinderHighExp = 0;
  UINT8 SectorCount = 0;
  UINT8 SectorCountExp = 0;
};

// Direction and size of what a command transfers.
struct Transfer {
  VOID* InBuffer = nullptr;
  VOID* OutBuffer = nullptr;
  UINT32 Bytes = 0;
};

enum class Group { B, SmartLog };

struct PacketShape {
  EFI_ATA_PASS_THRU_CMD_PROTOCOL Protocol;
  EFI_ATA_PASS_THRU_LENGTH Length;
  UINT64 Timeout;
};

// Log pages and thresholds: the length in bytes, the count field marked.
constexpr PacketShape PioIn{EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN,
                            EFI_ATA_PASS_THRU_LENGTH_BYTES | EFI_ATA_PASS_THRU_LENGTH_COUNT, AtaDefaultTimeout};
constexpr PacketShape NonData{EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA, EFI_ATA_PASS_THRU_LENGTH_NO_DATA_TRANSFER,
                              AtaDefaultTimeout};

CommandRegisters LbaRegisters(UINT8 Command, UINT64 Lba, UINT32 Count, bool Form48) {
  CommandRegisters R;
  R.Command = Command;
  R.SectorNumber = static_cast<UINT8>(Lba);
  R.CylinderLow = static_cast<UINT8>(Lba >> 8);
  R.CylinderHigh = static_cast<UINT8>(Lba >> 16);
  R.SectorCount = static_cast<UINT8>(Count);  // 256 and 65536 are sent as 0
  if (Form48) {
    R.SectorNumberExp = static_cast<UINT8>(Lba >> 24);
    R.CylinderLowExp = static_cast<UINT8>(Lba >> 32);
    R.CylinderHighExp = static_cast<UINT8>(Lba >> 40);
    R.SectorCountExp = static_cast<UINT8>(Count >> 8);
  } else {
    R.DeviceLowBits = static_cast<UINT8>((Lba >> 24) & 0x0F);
  }
  return R;
}

CommandRegisters SmartRegisters(SmartFeature Feature) {
  CommandRegisters R;
  R.Command = ata::CmdSmart;
  R.Features = static_cast<UINT8>(Feature);
  R.CylinderLow = ata::SmartKeyLow;
  R.CylinderHigh = ata::SmartKeyHigh;
  return R;
}

bool StatusBlockShowsError(const EFI_ATA_STATUS_BLOCK* Block) {
  return Block != nullptr && ((Block->AtaStatus & ata::StatusError) != 0 || Block->AtaError != 0);
}

// Builds the command in the drive's shared packet and hands it to the
// firmware; returns the firmware's status as it stands.
EFI_STATUS Send(StorageDevice* Device, UINT16 Port, UINT16 PortMultiplierPort, const CommandRegisters& R,
                bool IdentifyCommand, const PacketShape& Shape, const Transfer& Data) {
  // Some controllers want the command block aligned like the status block.
  alignas(16) EFI_ATA_COMMAND_BLOCK Acb{};
  Acb.AtaCommand = R.Command;
  Acb.AtaFeatures = R.Features;
  Acb.AtaSectorNumber = R.SectorNumber;
  Acb.AtaCylinderLow = R.CylinderLow;
  Acb.AtaCylinderHigh = R.CylinderHigh;
  if (!IdentifyCommand)
    Acb.AtaDeviceHead =
        static_cast<UINT8>(ata::DeviceLbaMode | ((PortMultiplierPort & 1) << 4) | R.DeviceLowBits);
  Acb.AtaSectorNumberExp = R.SectorNumberExp;
  Acb.AtaCylinderLowExp = R.CylinderLowExp;
  Acb.AtaCylinderHighExp = R.CylinderHighExp;
  Acb.AtaSectorCount = R.SectorCount;
  Acb.AtaSectorCountExp = R.SectorCountExp;

  EFI_ATA_PASS_THRU_COMMAND_PACKET* Packet = Device->CommandPacket;
  gBS->SetMem(Packet, sizeof(*Packet), 0);
  Packet->Asb = Device->StatusBlock;
  Packet->Acb = &Acb;
  Packet->Timeout = Shape.Timeout;
  Packet->InDataBuffer = Data.InBuffer;
  Packet->OutDataBuffer = Data.OutBuffer;
  if (Data.InBuffer != nullptr) Packet->InTransferLength = Data.Bytes;
  if (Data.OutBuffer != nullptr) Packet->OutTransferLength = Data.Bytes;
  Packet->Protocol = Shape.Protocol;
  Packet->Length = Shape.Length;
  // The status block is cleared so that a firmware that leaves it untouched
  // cannot make an old error look like this command's.
  if (Device->StatusBlock != nullptr) gBS->SetMem(Device->StatusBlock, sizeof(EFI_ATA_STATUS_BLOCK), 0);
  const EFI_STATUS Status = Device->PassThru->PassThru(Device->PassThru, Port, PortMultiplierPort, Packet, nullptr);
  // The packet outlives the call; the command block does not.
  Packet->Acb = nullptr;
  return Status;
}

EFI_STATUS SendGroupA(StorageDevice* Device, const CommandRegisters& R, const PacketShape& Shape,
                      const Transfer& Data) {
  const EFI_STATUS Status = Send(Device, Device->Port, Device->PortMultiplierPort, R, false, Shape, Data);
  if (EFI_ERROR(Status)) return Status;
  return StatusBlockShowsError(Device->StatusBlock) ? EFI_DEVICE_ERROR : Status;
}

// Group B, and SMART READ LOG with its own rule for firmware errors. Where
// LastPacket is set differs by command: before the call for the SMART reads
// of the data page, after a call without a firmware error for the others.
enum class LastPacketRule { BeforeCall, AfterSuccess };

UINT64 SendGroupB(StorageDevice* Device, const CommandRegisters& R, const PacketShape& Shape, const Transfer& Data,
                  LastPacketRule Rule, Group Kind = Group::B) {
  if (Rule == LastPacketRule::BeforeCall) Device->LastPacket = Device->CommandPacket;
  const EFI_STATUS Status = Send(Device, Device->Port, Device->PortMultiplierPort, R, false, Shape, Data);
  if (EFI_ERROR(Status)) return Kind == Group::SmartLog ? Status : ATA_COMMAND_FAILED;
  if (Rule == LastPacketRule::AfterSuccess) Device->LastPacket = Device->CommandPacket;
  return StatusBlockShowsError(Device->StatusBlock) ? ATA_COMMAND_FAILED : Status;
}

bool UsesLba48(const StorageDevice* Device) { return Device->Info != nullptr && Device->Info->Lba48 != 0; }

// Whether Count sectors from Lba lie within what the command form addresses.
bool RangeFits(UINT64 Lba, UINT32 Count, bool Form48) {
  const UINT64 Last = Form48 ? ata::MaxLba48 : ata::MaxLba28;
  const UINT32 MaxCount = Form48 ? ata::MaxCount48 : ata::MaxCount28;
  return Count != 0 && Count <= MaxCount && Lba <= Last && Count - 1 <= Last - Lba;
}

}  // namespace

EFIAPI EFI_STATUS AtaIdentifyDevice(StorageDevice* Device, UINT16 Port, UINT16 PortMultiplierPort,
                                    UINT64 TimeoutSeconds) {
  CommandRegisters R;
  R.Command = ata::CmdIdentifyDevice;
  const PacketShape Shape{EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, EFI_ATA_PASS_THRU_LENGTH_BYTES,
                          TimeoutSeconds * AtaTimeoutUnitsPerSecond};
  const EFI_STATUS Status =
      Send(Device, Port, PortMultiplierPort, R, true, Shape, {Device->DataBuffer, nullptr, ata::SectorBytes});
  if (EFI_ERROR(Status)) return Status;
  return StatusBlockShowsError(Device->StatusBlock) ? EFI_DEVICE_ERROR : Status;
}

EFIAPI EFI_STATUS AtaReadVerify(StorageDevice* Device, UINT64 Lba, UINT32 Count) {
  const bool Form48 = UsesLba48(Device);
  if (!RangeFits(Lba, Count, Form48)) return EFI_INVALID_PARAMETER;
  const CommandRegisters R =
      LbaRegisters(Form48 ? ata::CmdReadVerifySectorsExt : ata::CmdReadVerifySectors, Lba, Count, Form48);
  return SendGroupA(Device, R,
                    {EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA, EFI_ATA_PASS_THRU_LENGTH_SECTOR_COUNT, AtaDefaultTimeout},
                    {});
}

EFIAPI EFI_STATUS AtaWriteSector(StorageDevice* Device, UINT64 Lba, VOID* Buffer, UINT32 Length) {
  const bool Form48 = UsesLba48(Device);
  if (!RangeFits(Lba, 1, Form48)) return EFI_INVALID_PARAMETER;
  const CommandRegisters R = LbaRegisters(Form48 ? ata::CmdWriteSectorsExt : ata::CmdWriteSectors, Lba, 1, Form48);
  return SendGroupA(Device, R,
                    {EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_OUT, EFI_ATA_PASS_THRU_LENGTH_BYTES, AtaDefaultTimeout},
                    {nullptr, Buffer, Length});
}

EFIAPI EFI_STATUS AtaWriteUncorrectable(StorageDevice* Device, UINT64 Lba) {
  if (!RangeFits(Lba, 1, true)) return EFI_INVALID_PARAMETER;
  CommandRegisters R = LbaRegisters(ata::CmdWriteUncorrectableExt, Lba, 1, true);
  R.Features = ata::WriteUncorrectablePseudoLogged;
  return SendGroupA(Device, R,
                    {EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA, EFI_ATA_PASS_THRU_LENGTH_SECTOR_COUNT, AtaDefaultTimeout},
                    {});
}

EFIAPI UINT64 AtaReadLogExt(StorageDevice* Device, UINT8 LogAddress, UINT16 PageCount) {
  CommandRegisters R;
  R.Command = ata::CmdReadLogExt;
  R.SectorNumber = LogAddress;
  R.SectorCount = static_cast<UINT8>(PageCount);
  R.SectorCountExp = static_cast<UINT8>(PageCount >> 8);
  return SendGroupB(Device, R, PioIn,
                    {Device->LogBuffer, nullptr, static_cast<UINT32>(PageCount) * static_cast<UINT32>(ata::SectorBytes)},
                    LastPacketRule::AfterSuccess);
}

EFIAPI UINT64 SmartReadData(StorageDevice* Device) {
  const PacketShape Shape{EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, EFI_ATA_PASS_THRU_LENGTH_BYTES, SmartReadDataTimeout};
  return SendGroupB(Device, SmartRegisters(SmartFeature::ReadData), Shape,
                    {Device->DataBuffer, nullptr, ata::SectorBytes}, LastPacketRule::BeforeCall);
}

EFIAPI UINT64 SmartReadThresholds(StorageDevice* Device) {
  return SendGroupB(Device, SmartRegisters(SmartFeature::ReadThresholds), PioIn,
                    {Device->DataBuffer, nullptr, ata::SectorBytes}, LastPacketRule::BeforeCall);
}

EFIAPI UINT64 SmartEnableOperations(StorageDevice* Device) {
  return SendGroupB(Device, SmartRegisters(SmartFeature::EnableOperations), NonData, {}, LastPacketRule::AfterSuccess);
}

EFIAPI UINT64 SmartDisableOperations(StorageDevice* Device) {
  return SendGroupB(Device, SmartRegisters(SmartFeature::DisableOperations), NonData, {},
                    LastPacketRule::AfterSuccess);
}

EFIAPI UINT64 SmartReturnStatus(StorageDevice* Device) {
  return SendGroupB(Device, SmartRegisters(SmartFeature::ReturnStatus), NonData, {}, LastPacketRule::AfterSuccess);
}

EFIAPI UINT64 SmartExecuteOffline(StorageDevice* Device, UINT8 Subcommand, UINT8 Count) {
  CommandRegisters R = SmartRegisters(SmartFeature::ExecuteOffline);
  R.SectorNumber = Subcommand;
  R.SectorCount = Count;
  return SendGroupB(Device, R, NonData, {}, LastPacketRule::AfterSuccess);
}

EFIAPI UINT64 SmartReadLog(StorageDevice* Device, UINT8 LogAddress, UINT8 PageCount) {
  CommandRegisters R = SmartRegisters(SmartFeature::ReadLog);
  R.SectorNumber = LogAddress;
  R.SectorCount = PageCount;
  return SendGroupB(Device, R, PioIn,
                    {Device->LogBuffer, nullptr, static_cast<UINT32>(PageCount) * static_cast<UINT32>(ata::SectorBytes)},
                    LastPacketRule::AfterSuccess, Group::SmartLog);
}

UINT64 FailingLba(const StorageDevice* Device) {
  const EFI_ATA_STATUS_BLOCK& B = *Device->StatusBlock;
  const UINT64 Low = static_cast<UINT64>(B.AtaSectorNumber) | static_cast<UINT64>(B.AtaCylinderLow) << 8 |
                     static_cast<UINT64>(B.AtaCylinderHigh) << 16;
  if (!UsesLba48(Device)) return Low | static_cast<UINT64>(B.AtaDeviceHead & 0x0F) << 24;
  return Low | static_cast<UINT64>(B.AtaSectorNumberExp) << 24 | static_cast<UINT64>(B.AtaCylinderLowExp) << 32 |
         static_cast<UINT64>(B.AtaCylinderHighExp) << 40;
}

}  // namespace tarvik
