// The SMBIOS structures the application reads, laid out as the firmware
// publishes them (byte-packed). A string field holds the number (from 1) of
// a string in the set that follows the formatted area; 0 names no string.
#pragma once

#include "efi/base.h"

namespace tarvik {

#pragma pack(push, 1)

struct SmbiosHeader {
  UINT8 Type;
  UINT8 Length;  // of the formatted area, this header included
  UINT16 Handle;
};
static_assert(sizeof(SmbiosHeader) == 4);

// The 32-bit (2.x) entry point the configuration table points at.
struct SmbiosEntryPoint {
  UINT8 Anchor[4];  // "_SM_"
  UINT8 Checksum;
  UINT8 EntryPointLength;
  UINT8 MajorVersion;
  UINT8 MinorVersion;
  UINT16 MaxStructureSize;
  UINT8 EntryPointRevision;
  UINT8 FormattedArea[5];
  UINT8 IntermediateAnchor[5];  // "_DMI_"
  UINT8 IntermediateChecksum;
  UINT16 TableLength;
  UINT32 TableAddress;
  UINT16 NumberOfStructures;
  UINT8 BcdRevision;
};
static_assert(__builtin_offsetof(SmbiosEntryPoint, TableLength) == 0x16);
static_assert(__builtin_offsetof(SmbiosEntryPoint, TableAddress) == 0x18);
static_assert(__builtin_offsetof(SmbiosEntryPoint, NumberOfStructures) == 0x1C);
static_assert(sizeof(SmbiosEntryPoint) == 0x1F);

// The 64-bit (3.0) entry point. It counts no structures: the table ends with
// the end-of-table structure (type 127), within the maximum size.
struct Smbios3EntryPoint {
  UINT8 Anchor[5];  // "_SM3_"
  UINT8 Checksum;
  UINT8 EntryPointLength;
  UINT8 MajorVersion;
  UINT8 MinorVersion;
  UINT8 DocRevision;
  UINT8 EntryPointRevision;
  UINT8 Reserved;
  UINT32 TableMaximumSize;
  UINT64 TableAddress;
};
static_assert(__builtin_offsetof(Smbios3EntryPoint, TableMaximumSize) == 0x0C);
static_assert(__builtin_offsetof(Smbios3EntryPoint, TableAddress) == 0x10);
static_assert(sizeof(Smbios3EntryPoint) == 0x18);

enum class SmbiosType : UINT8 {
  BiosInformation = 0,
  SystemInformation = 1,
  ProcessorInformation = 4,
  BiosLanguage = 13,
  MemoryDevice = 17,
  EndOfTable = 127,
};

struct SmbiosBiosInformation {
  SmbiosHeader Header;
  UINT8 Vendor;
  UINT8 BiosVersion;
  UINT16 StartingAddressSegment;
  UINT8 ReleaseDate;
  UINT8 RomSize;
};
static_assert(__builtin_offsetof(SmbiosBiosInformation, Vendor) == 0x04);
static_assert(__builtin_offsetof(SmbiosBiosInformation, BiosVersion) == 0x05);
static_assert(__builtin_offsetof(SmbiosBiosInformation, ReleaseDate) == 0x08);
static_assert(sizeof(SmbiosBiosInformation) == 0x0A);

struct SmbiosSystemInformation {
  SmbiosHeader Header;
  UINT8 Manufacturer;
  UINT8 ProductName;
  UINT8 Version;
  UINT8 SerialNumber;
};
static_assert(__builtin_offsetof(SmbiosSystemInformation, Manufacturer) == 0x04);
static_assert(__builtin_offsetof(SmbiosSystemInformation, ProductName) == 0x05);
static_assert(__builtin_offsetof(SmbiosSystemInformation, Version) == 0x06);
static_assert(__builtin_offsetof(SmbiosSystemInformation, SerialNumber) == 0x07);
static_assert(sizeof(SmbiosSystemInformation) == 0x08);

struct SmbiosProcessorInformation {
  SmbiosHeader Header;
  UINT8 SocketDesignation;
  UINT8 ProcessorType;
  UINT8 ProcessorFamily;
  UINT8 ProcessorManufacturer;
  UINT64 ProcessorId;
  UINT8 ProcessorVersion;
};
static_assert(__builtin_offsetof(SmbiosProcessorInformation, ProcessorManufacturer) == 0x07);
static_assert(__builtin_offsetof(SmbiosProcessorInformation, ProcessorVersion) == 0x10);
static_assert(sizeof(SmbiosProcessorInformation) == 0x11);

struct SmbiosBiosLanguage {
  SmbiosHeader Header;
  UINT8 InstallableLanguages;
  UINT8 Flags;
  UINT8 Reserved[15];
  UINT8 CurrentLanguage;
};
static_assert(__builtin_offsetof(SmbiosBiosLanguage, CurrentLanguage) == 0x15);
static_assert(sizeof(SmbiosBiosLanguage) == 0x16);

struct SmbiosMemoryDevice {
  SmbiosHeader Header;
  UINT16 PhysicalMemoryArrayHandle;
  UINT16 MemoryErrorInformationHandle;
  UINT16 TotalWidth;
  UINT16 DataWidth;
  UINT16 Size;  // 0: no module in the slot
  UINT8 FormFactor;
  UINT8 DeviceSet;
  UINT8 DeviceLocator;
  UINT8 BankLocator;
  UINT8 MemoryType;
  UINT16 TypeDetail;
  UINT16 Speed;
  UINT8 Manufacturer;
  UINT8 SerialNumber;
  UINT8 AssetTag;
  UINT8 PartNumber;
};
static_assert(__builtin_offsetof(SmbiosMemoryDevice, Size) == 0x0C);
static_assert(__builtin_offsetof(SmbiosMemoryDevice, MemoryType) == 0x12);
static_assert(__builtin_offsetof(SmbiosMemoryDevice, Speed) == 0x15);
static_assert(__builtin_offsetof(SmbiosMemoryDevice, Manufacturer) == 0x17);
static_assert(__builtin_offsetof(SmbiosMemoryDevice, SerialNumber) == 0x18);
static_assert(__builtin_offsetof(SmbiosMemoryDevice, PartNumber) == 0x1A);
static_assert(sizeof(SmbiosMemoryDevice) == 0x1B);

#pragma pack(pop)

// Whether the formatted area of the structure at Record reaches past the
// field that starts at Offset and is Bytes long. Older firmware publishes
// shorter versions of a structure; a field it lacks is not there to read.
inline BOOLEAN SmbiosHolds(const VOID* Record, UINTN Offset, UINTN Bytes) {
  return Offset + Bytes <= static_cast<const SmbiosHeader*>(Record)->Length;
}

// A copy of the structure at Record in its full layout, the bytes beyond its
// formatted area zero: a field the firmware's version lacks reads as 0 (a
// string number 0 names no string). Record is a structure the SMBIOS
// service handed out.
template <typename Structure>
Structure ReadSmbiosStructure(const VOID* Record) {
  Structure Copy{};
  const UINT8* Bytes = static_cast<const UINT8*>(Record);
  const UINT8 Length = static_cast<const SmbiosHeader*>(Record)->Length;
  UINT8* Into = reinterpret_cast<UINT8*>(&Copy);
  for (UINTN I = 0; I < sizeof(Structure) && I < Length; ++I) Into[I] = Bytes[I];
  return Copy;
}

}  // namespace tarvik
