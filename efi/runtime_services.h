// EFI_RUNTIME_SERVICES: the application uses GetTime and ResetSystem.
#pragma once

#include "efi/base.h"

enum EFI_RESET_TYPE : UINT32 { EfiResetCold, EfiResetWarm, EfiResetShutdown, EfiResetPlatformSpecific };

typedef EFI_STATUS(EFIAPI* EFI_GET_TIME)(EFI_TIME* Time, EFI_TIME_CAPABILITIES* Capabilities);
typedef EFI_STATUS(EFIAPI* EFI_SET_TIME)(EFI_TIME* Time);
typedef VOID(EFIAPI* EFI_RESET_SYSTEM)(EFI_RESET_TYPE ResetType, EFI_STATUS ResetStatus, UINTN DataSize,
                                       VOID* ResetData);

#define EFI_RUNTIME_SERVICES_SIGNATURE 0x56524553544e5552ULL

struct EFI_RUNTIME_SERVICES {
  EFI_TABLE_HEADER Hdr;
  EFI_GET_TIME GetTime;
  EFI_SET_TIME SetTime;
  VOID* GetWakeupTime;
  VOID* SetWakeupTime;
  VOID* SetVirtualAddressMap;
  VOID* ConvertPointer;
  VOID* GetVariable;
  VOID* GetNextVariableName;
  VOID* SetVariable;
  VOID* GetNextHighMonotonicCount;
  EFI_RESET_SYSTEM ResetSystem;
  VOID* UpdateCapsule;
  VOID* QueryCapsuleCapabilities;
  VOID* QueryVariableInfo;
};

static_assert(__builtin_offsetof(EFI_RUNTIME_SERVICES, GetTime) == 24);
static_assert(__builtin_offsetof(EFI_RUNTIME_SERVICES, ResetSystem) == 104);
static_assert(sizeof(EFI_RUNTIME_SERVICES) == 136);
