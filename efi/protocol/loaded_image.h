// EFI_LOADED_IMAGE_PROTOCOL: what the firmware knows of a loaded image.
#pragma once

#include "efi/base.h"
#include "efi/boot_services.h"
#include "efi/protocol/device_path.h"

#define EFI_LOADED_IMAGE_PROTOCOL_GUID \
  EFI_GUID { 0x5B1B31A1, 0x9562, 0x11D2, { 0x8E, 0x3F, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B } }
#define EFI_LOADED_IMAGE_PROTOCOL_REVISION 0x1000

struct EFI_SYSTEM_TABLE;

struct EFI_LOADED_IMAGE_PROTOCOL {
  UINT32 Revision;
  EFI_HANDLE ParentHandle;
  EFI_SYSTEM_TABLE* SystemTable;
  EFI_HANDLE DeviceHandle;
  EFI_DEVICE_PATH_PROTOCOL* FilePath;
  VOID* Reserved;
  UINT32 LoadOptionsSize;
  VOID* LoadOptions;
  VOID* ImageBase;
  UINT64 ImageSize;
  EFI_MEMORY_TYPE ImageCodeType;
  EFI_MEMORY_TYPE ImageDataType;
  EFI_IMAGE_UNLOAD Unload;
};
static_assert(__builtin_offsetof(EFI_LOADED_IMAGE_PROTOCOL, DeviceHandle) == 24);
static_assert(__builtin_offsetof(EFI_LOADED_IMAGE_PROTOCOL, LoadOptionsSize) == 48);
static_assert(__builtin_offsetof(EFI_LOADED_IMAGE_PROTOCOL, ImageBase) == 64);
static_assert(__builtin_offsetof(EFI_LOADED_IMAGE_PROTOCOL, ImageCodeType) == 80);
static_assert(__builtin_offsetof(EFI_LOADED_IMAGE_PROTOCOL, Unload) == 88);
static_assert(sizeof(EFI_LOADED_IMAGE_PROTOCOL) == 96);
