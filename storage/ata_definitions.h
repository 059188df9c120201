// ATA command codes, register values and the IDENTIFY DEVICE data layout, as
// the drives and the ATA command set define them.
#pragma once

#include "efi/efi.h"

namespace tarvik::ata {

// Command codes.
inline constexpr UINT8 CmdIdentifyDevice = 0xEC;
inline constexpr UINT8 CmdReadVerifySectors = 0x40;
inline constexpr UINT8 CmdReadVerifySectorsExt = 0x42;
inline constexpr UINT8 CmdWriteSectors = 0x30;
inline constexpr UINT8 CmdWriteSectorsExt = 0x34;
inline constexpr UINT8 CmdReadLogExt = 0x2F;
inline constexpr UINT8 CmdSmart = 0xB0;
inline constexpr UINT8 CmdWriteUncorrectableExt = 0x45;

// SMART subcommands, sent in the Features register.
enum class SmartFeature : UINT8 {
  ReadData = 0xD0,
  ReadThresholds = 0xD1,
  ExecuteOffline = 0xD4,
  ReadLog = 0xD5,
  EnableOperations = 0xD8,
  DisableOperations = 0xD9,
  ReturnStatus = 0xDA,
};

// Subcommands of SMART EXECUTE OFF-LINE IMMEDIATE.
inline constexpr UINT8 OfflineShortSelfTest = 0x01;
inline constexpr UINT8 OfflineExtendedSelfTest = 0x02;
inline constexpr UINT8 OfflineDriveSelfTest = 0x50;  // vendor-specific
inline constexpr UINT8 OfflineAbortSelfTest = 0x7F;

// Every SMART command carries this key in LBA mid / LBA high; RETURN STATUS
// answers with it when no threshold is exceeded, with the exceeded pair
// otherwise.
inline constexpr UINT8 SmartKeyLow = 0x4F;
inline constexpr UINT8 SmartKeyHigh = 0xC2;
inline constexpr UINT8 SmartExceededLow = 0xF4;
inline constexpr UINT8 SmartExceededHigh = 0x2C;

// What a packet (ATAPI) device leaves in LBA mid / LBA high when it aborts
// IDENTIFY DEVICE.
inline constexpr UINT8 PacketSignatureLow = 0x14;
inline constexpr UINT8 PacketSignatureHigh = 0xEB;

// WRITE UNCORRECTABLE EXT feature: a pseudo-uncorrectable sector, logged.
inline constexpr UINT8 WriteUncorrectablePseudoLogged = 0x55;

// Status register bits, and error register bits after an error.
inline constexpr UINT8 StatusError = 0x01;
inline constexpr UINT8 ErrorAborted = 0x04;
inline constexpr UINT8 ErrorIdNotFound = 0x10;
inline constexpr UINT8 ErrorUncorrectable = 0x40;

// Device register: LBA addressing, bit 4 selects the device.
inline constexpr UINT8 DeviceLbaMode = 0xE0;

// Largest LBA and sector count of the 28- and 48-bit command forms.
inline constexpr UINT64 MaxLba28 = 0x0FFFFFFF;
inline constexpr UINT64 MaxLba48 = 0xFFFFFFFFFFFF;
inline constexpr UINT32 MaxCount28 = 256;
inline constexpr UINT32 MaxCount48 = 65536;

inline constexpr UINTN SectorBytes = 512;

// IDENTIFY DEVICE data: 256 little-endian words. Strings hold two characters
// per word, the first in the high byte.
struct [[gnu::packed]] IdentifyData {
  UINT16 GeneralConfiguration;  // 0: bit 15 set for a packet device
  UINT16 Words1To9[9];
  UINT8 SerialNumber[20];  // 10-19
  UINT16 Word20;
  UINT16 BufferSize;  // 21: cache, in logical sectors
  UINT16 Word22;
  UINT8 FirmwareRevision[8];  // 23-26
  UINT8 ModelNumber[40];      // 27-46
  UINT16 Words47To79[33];
  UINT16 MajorVersion;         // 80
  UINT16 MinorVersion;         // 81
  UINT16 CommandSetSupported;  // 82: bit 0 SMART
  UINT16 CommandSetSupported2; // 83: bit 10 48-bit addresses
  UINT16 CommandSetExtension;  // 84: bit 1 SMART self-test
  UINT16 CommandSetEnabled;    // 85: bit 0 SMART enabled
  UINT16 Words86To99[14];
  UINT16 MaxLba48[4];  // 100-103, least significant word first
  UINT16 Words104To105[2];
  UINT16 SectorSizes;  // 106
  UINT16 Words107To116[10];
  UINT16 LogicalSectorWords[2];  // 117-118: logical sector size in words, low word first
  UINT16 Words119To216[98];
  UINT16 NominalRotationRate;  // 217
  UINT16 Words218To255[38];
};
static_assert(sizeof(IdentifyData) == 512);
static_assert(__builtin_offsetof(IdentifyData, SerialNumber) == 2 * 10);
static_assert(__builtin_offsetof(IdentifyData, BufferSize) == 2 * 21);
static_assert(__builtin_offsetof(IdentifyData, FirmwareRevision) == 2 * 23);
static_assert(__builtin_offsetof(IdentifyData, ModelNumber) == 2 * 27);
static_assert(__builtin_offsetof(IdentifyData, MajorVersion) == 2 * 80);
static_assert(__builtin_offsetof(IdentifyData, CommandSetEnabled) == 2 * 85);
static_assert(__builtin_offsetof(IdentifyData, MaxLba48) == 2 * 100);
static_assert(__builtin_offsetof(IdentifyData, SectorSizes) == 2 * 106);
static_assert(__builtin_offsetof(IdentifyData, LogicalSectorWords) == 2 * 117);
static_assert(__builtin_offsetof(IdentifyData, NominalRotationRate) == 2 * 217);

}  // namespace tarvik::ata
