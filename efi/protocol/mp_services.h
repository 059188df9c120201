// EFI_MP_SERVICES_PROTOCOL (Platform Initialization, DXE): the processors of
// the machine, and running a procedure on the application processors (APs).
// Only the boot processor (BSP) may call its services; a procedure running
// on an AP must call no firmware service at all.
#pragma once

#include "efi/base.h"

#define EFI_MP_SERVICES_PROTOCOL_GUID \
  EFI_GUID { 0x3FDDA605, 0xA76E, 0x4F46, { 0xAD, 0x29, 0x12, 0xF4, 0x53, 0x1B, 0x3D, 0x08 } }

// EFI_PROCESSOR_INFORMATION.StatusFlag
#define PROCESSOR_AS_BSP_BIT 0x00000001
#define PROCESSOR_ENABLED_BIT 0x00000002
#define PROCESSOR_HEALTH_STATUS_BIT 0x00000004

// Ends a FailedCpuList.
#define END_OF_CPU_LIST 0xFFFFFFFFFFFFFFFFull

struct EFI_CPU_PHYSICAL_LOCATION {
  UINT32 Package;
  UINT32 Core;
  UINT32 Thread;
};

struct EFI_CPU_PHYSICAL_LOCATION2 {
  UINT32 Package;
  UINT32 Module;
  UINT32 Tile;
  UINT32 Die;
  UINT32 Core;
  UINT32 Thread;
};

union EXTENDED_PROCESSOR_INFORMATION {
  EFI_CPU_PHYSICAL_LOCATION2 Location2;
};

struct EFI_PROCESSOR_INFORMATION {
  UINT64 ProcessorId;
  UINT32 StatusFlag;
  EFI_CPU_PHYSICAL_LOCATION Location;
  EXTENDED_PROCESSOR_INFORMATION ExtendedInformation;
};
static_assert(__builtin_offsetof(EFI_PROCESSOR_INFORMATION, StatusFlag) == 8);
static_assert(__builtin_offsetof(EFI_PROCESSOR_INFORMATION, Location) == 12);
static_assert(__builtin_offsetof(EFI_PROCESSOR_INFORMATION, ExtendedInformation) == 24);
static_assert(sizeof(EFI_PROCESSOR_INFORMATION) == 48);

typedef VOID(EFIAPI* EFI_AP_PROCEDURE)(VOID* ProcedureArgument);

struct EFI_MP_SERVICES_PROTOCOL;

typedef EFI_STATUS(EFIAPI* EFI_MP_SERVICES_GET_NUMBER_OF_PROCESSORS)(EFI_MP_SERVICES_PROTOCOL* This,
                                                                      UINTN* NumberOfProcessors,
                                                                      UINTN* NumberOfEnabledProcessors);
typedef EFI_STATUS(EFIAPI* EFI_MP_SERVICES_GET_PROCESSOR_INFO)(EFI_MP_SERVICES_PROTOCOL* This,
                                                                UINTN ProcessorNumber,
                                                                EFI_PROCESSOR_INFORMATION* ProcessorInfoBuffer);
// WaitEvent null: blocks until every AP returned. Otherwise returns at once;
// the event is signalled when every AP has returned or the timeout passed
// (0: none).
typedef EFI_STATUS(EFIAPI* EFI_MP_SERVICES_STARTUP_ALL_APS)(EFI_MP_SERVICES_PROTOCOL* This,
                                                             EFI_AP_PROCEDURE Procedure, BOOLEAN SingleThread,
                                                             EFI_EVENT WaitEvent, UINTN TimeoutInMicroSeconds,
                                                             VOID* ProcedureArgument, UINTN** FailedCpuList);
typedef EFI_STATUS(EFIAPI* EFI_MP_SERVICES_STARTUP_THIS_AP)(EFI_MP_SERVICES_PROTOCOL* This,
                                                             EFI_AP_PROCEDURE Procedure, UINTN ProcessorNumber,
                                                             EFI_EVENT WaitEvent, UINTN TimeoutInMicroseconds,
                                                             VOID* ProcedureArgument, BOOLEAN* Finished);
typedef EFI_STATUS(EFIAPI* EFI_MP_SERVICES_SWITCH_BSP)(EFI_MP_SERVICES_PROTOCOL* This, UINTN ProcessorNumber,
                                                        BOOLEAN EnableOldBSP);
typedef EFI_STATUS(EFIAPI* EFI_MP_SERVICES_ENABLEDISABLEAP)(EFI_MP_SERVICES_PROTOCOL* This, UINTN ProcessorNumber,
                                                             BOOLEAN EnableAP, UINT32* HealthFlag);
typedef EFI_STATUS(EFIAPI* EFI_MP_SERVICES_WHOAMI)(EFI_MP_SERVICES_PROTOCOL* This, UINTN* ProcessorNumber);

struct EFI_MP_SERVICES_PROTOCOL {
  EFI_MP_SERVICES_GET_NUMBER_OF_PROCESSORS GetNumberOfProcessors;
  EFI_MP_SERVICES_GET_PROCESSOR_INFO GetProcessorInfo;
  EFI_MP_SERVICES_STARTUP_ALL_APS StartupAllAPs;
  EFI_MP_SERVICES_STARTUP_THIS_AP StartupThisAP;
  EFI_MP_SERVICES_SWITCH_BSP SwitchBSP;
  EFI_MP_SERVICES_ENABLEDISABLEAP EnableDisableAP;
  EFI_MP_SERVICES_WHOAMI WhoAmI;
};
static_assert(__builtin_offsetof(EFI_MP_SERVICES_PROTOCOL, StartupAllAPs) == 16);
static_assert(__builtin_offsetof(EFI_MP_SERVICES_PROTOCOL, WhoAmI) == 48);
static_assert(sizeof(EFI_MP_SERVICES_PROTOCOL) == 56);
