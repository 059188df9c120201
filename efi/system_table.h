// EFI_SYSTEM_TABLE and the configuration table.
#pragma once

#include "efi/base.h"
#include "efi/boot_services.h"
#include "efi/runtime_services.h"
#include "efi/protocol/simple_text_input.h"
#include "efi/protocol/simple_text_output.h"

#define EFI_SYSTEM_TABLE_SIGNATURE 0x5453595320494249ULL
#define EFI_2_70_SYSTEM_TABLE_REVISION ((2 << 16) | (70))

struct EFI_CONFIGURATION_TABLE {
  EFI_GUID VendorGuid;
  VOID* VendorTable;
};
static_assert(sizeof(EFI_CONFIGURATION_TABLE) == 24);

struct EFI_SYSTEM_TABLE {
  EFI_TABLE_HEADER Hdr;
  CHAR16* FirmwareVendor;
  UINT32 FirmwareRevision;
  EFI_HANDLE ConsoleInHandle;
  EFI_SIMPLE_TEXT_INPUT_PROTOCOL* ConIn;
  EFI_HANDLE ConsoleOutHandle;
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* ConOut;
  EFI_HANDLE StandardErrorHandle;
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* StdErr;
  EFI_RUNTIME_SERVICES* RuntimeServices;
  EFI_BOOT_SERVICES* BootServices;
  UINTN NumberOfTableEntries;
  EFI_CONFIGURATION_TABLE* ConfigurationTable;
};

static_assert(__builtin_offsetof(EFI_SYSTEM_TABLE, FirmwareVendor) == 24);
static_assert(__builtin_offsetof(EFI_SYSTEM_TABLE, ConIn) == 48);
static_assert(__builtin_offsetof(EFI_SYSTEM_TABLE, ConOut) == 64);
static_assert(__builtin_offsetof(EFI_SYSTEM_TABLE, RuntimeServices) == 88);
static_assert(__builtin_offsetof(EFI_SYSTEM_TABLE, BootServices) == 96);
static_assert(__builtin_offsetof(EFI_SYSTEM_TABLE, NumberOfTableEntries) == 104);
static_assert(__builtin_offsetof(EFI_SYSTEM_TABLE, ConfigurationTable) == 112);
static_assert(sizeof(EFI_SYSTEM_TABLE) == 120);

// SMBIOS entry points published in the configuration table.
#define SMBIOS_TABLE_GUID \
  EFI_GUID { 0xEB9D2D31, 0x2D88, 0x11D3, { 0x9A, 0x16, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D } }
#define SMBIOS3_TABLE_GUID \
  EFI_GUID { 0xF2FD1544, 0x9794, 0x4A2C, { 0x99, 0x2E, 0xE5, 0xBB, 0xCF, 0x20, 0xE3, 0x94 } }
