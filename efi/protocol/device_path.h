// EFI_DEVICE_PATH_PROTOCOL: the generic node header and the node kinds the
// application builds (media file path, end of path).
#pragma once

#include "efi/base.h"

#define EFI_DEVICE_PATH_PROTOCOL_GUID \
  EFI_GUID { 0x09576E91, 0x6D3F, 0x11D2, { 0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B } }

struct EFI_DEVICE_PATH_PROTOCOL {
  UINT8 Type;
  UINT8 SubType;
  UINT8 Length[2];  // little-endian, includes this header
};
static_assert(sizeof(EFI_DEVICE_PATH_PROTOCOL) == 4);

#define HARDWARE_DEVICE_PATH 0x01
#define ACPI_DEVICE_PATH 0x02
#define MESSAGING_DEVICE_PATH 0x03
#define MEDIA_DEVICE_PATH 0x04
#define END_DEVICE_PATH_TYPE 0x7F

#define MEDIA_HARDDRIVE_DP 0x01
#define MEDIA_VENDOR_DP 0x03
#define MEDIA_FILEPATH_DP 0x04
#define MSG_SATA_DP 0x12
#define MSG_NVME_NAMESPACE_DP 0x17
#define END_ENTIRE_DEVICE_PATH_SUBTYPE 0xFF
#define END_INSTANCE_DEVICE_PATH_SUBTYPE 0x01

inline UINTN DevicePathNodeLength(const EFI_DEVICE_PATH_PROTOCOL* Node) {
  return (UINTN)Node->Length[0] | ((UINTN)Node->Length[1] << 8);
}

inline bool IsDevicePathEnd(const EFI_DEVICE_PATH_PROTOCOL* Node) {
  return Node->Type == END_DEVICE_PATH_TYPE && Node->SubType == END_ENTIRE_DEVICE_PATH_SUBTYPE;
}

inline const EFI_DEVICE_PATH_PROTOCOL* NextDevicePathNode(const EFI_DEVICE_PATH_PROTOCOL* Node) {
  return (const EFI_DEVICE_PATH_PROTOCOL*)((const UINT8*)Node + DevicePathNodeLength(Node));
}

// A namespace of an NVMe controller: its ID and its IEEE EUI-64 (0 when
// the namespace has none).
struct NVME_NAMESPACE_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 NamespaceId;
  UINT64 NamespaceUuid;
};
static_assert(__builtin_offsetof(NVME_NAMESPACE_DEVICE_PATH, NamespaceUuid) == 8);
static_assert(sizeof(NVME_NAMESPACE_DEVICE_PATH) == 16);
