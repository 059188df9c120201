// EFI_BOOT_SERVICES: memory, events and timers, task priority, the handle
// database, images and miscellaneous services. Slots the application never
// calls keep their place as VOID* so the table's layout holds.
#pragma once

#include "efi/base.h"
#include "efi/protocol/device_path.h"

// ---- Task priority levels -------------------------------------------------
#define TPL_APPLICATION 4
#define TPL_CALLBACK 8
#define TPL_NOTIFY 16
#define TPL_HIGH_LEVEL 31

// ---- Memory ------------------------------------------------------------------
enum EFI_ALLOCATE_TYPE : UINT32 {
  AllocateAnyPages,
  AllocateMaxAddress,
  AllocateAddress,
  MaxAllocateType
};

enum EFI_MEMORY_TYPE : UINT32 {
  EfiReservedMemoryType,
  EfiLoaderCode,
  EfiLoaderData,
  EfiBootServicesCode,
  EfiBootServicesData,
  EfiRuntimeServicesCode,
  EfiRuntimeServicesData,
  EfiConventionalMemory,
  EfiUnusableMemory,
  EfiACPIReclaimMemory,
  EfiACPIMemoryNVS,
  EfiMemoryMappedIO,
  EfiMemoryMappedIOPortSpace,
  EfiPalCode,
  EfiPersistentMemory,
  EfiUnacceptedMemoryType,
  EfiMaxMemoryType
};

#define EFI_PAGE_SIZE 4096ULL
#define EFI_PAGE_SHIFT 12
#define EFI_SIZE_TO_PAGES(s) (((s) >> EFI_PAGE_SHIFT) + (((s) & (EFI_PAGE_SIZE - 1)) ? 1 : 0))

#define EFI_MEMORY_UC 0x0000000000000001ULL
#define EFI_MEMORY_WC 0x0000000000000002ULL
#define EFI_MEMORY_WT 0x0000000000000004ULL
#define EFI_MEMORY_WB 0x0000000000000008ULL
#define EFI_MEMORY_RUNTIME 0x8000000000000000ULL

#define EFI_MEMORY_DESCRIPTOR_VERSION 1

// Firmware may hand out descriptors larger than this record: callers step
// through a memory map by the DescriptorSize it returns, never by sizeof.
struct EFI_MEMORY_DESCRIPTOR {
  UINT32 Type;
  EFI_PHYSICAL_ADDRESS PhysicalStart;
  EFI_VIRTUAL_ADDRESS VirtualStart;
  UINT64 NumberOfPages;
  UINT64 Attribute;
};
static_assert(sizeof(EFI_MEMORY_DESCRIPTOR) == 40);
static_assert(__builtin_offsetof(EFI_MEMORY_DESCRIPTOR, PhysicalStart) == 8);
static_assert(__builtin_offsetof(EFI_MEMORY_DESCRIPTOR, NumberOfPages) == 24);
static_assert(__builtin_offsetof(EFI_MEMORY_DESCRIPTOR, Attribute) == 32);

// ---- Events ------------------------------------------------------------------
#define EVT_TIMER 0x80000000U
#define EVT_RUNTIME 0x40000000U
#define EVT_NOTIFY_WAIT 0x00000100U
#define EVT_NOTIFY_SIGNAL 0x00000200U
#define EVT_SIGNAL_EXIT_BOOT_SERVICES 0x00000201U
#define EVT_SIGNAL_VIRTUAL_ADDRESS_CHANGE 0x60000202U

typedef VOID(EFIAPI* EFI_EVENT_NOTIFY)(EFI_EVENT Event, VOID* Context);

enum EFI_TIMER_DELAY : UINT32 { TimerCancel, TimerPeriodic, TimerRelative };

// ---- Handle database -------------------------------------------------------
enum EFI_INTERFACE_TYPE : UINT32 { EFI_NATIVE_INTERFACE };

enum EFI_LOCATE_SEARCH_TYPE : UINT32 { AllHandles, ByRegisterNotify, ByProtocol };

#define EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL 0x00000001U
#define EFI_OPEN_PROTOCOL_GET_PROTOCOL 0x00000002U
#define EFI_OPEN_PROTOCOL_TEST_PROTOCOL 0x00000004U
#define EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER 0x00000008U
#define EFI_OPEN_PROTOCOL_BY_DRIVER 0x00000010U
#define EFI_OPEN_PROTOCOL_EXCLUSIVE 0x00000020U

// ---- Function types ----------------------------------------------------------
typedef EFI_TPL(EFIAPI* EFI_RAISE_TPL)(EFI_TPL NewTpl);
typedef VOID(EFIAPI* EFI_RESTORE_TPL)(EFI_TPL OldTpl);
typedef EFI_STATUS(EFIAPI* EFI_ALLOCATE_PAGES)(EFI_ALLOCATE_TYPE Type, EFI_MEMORY_TYPE MemoryType,
                                               UINTN Pages, EFI_PHYSICAL_ADDRESS* Memory);
typedef EFI_STATUS(EFIAPI* EFI_FREE_PAGES)(EFI_PHYSICAL_ADDRESS Memory, UINTN Pages);
typedef EFI_STATUS(EFIAPI* EFI_GET_MEMORY_MAP)(UINTN* MemoryMapSize, EFI_MEMORY_DESCRIPTOR* MemoryMap,
                                               UINTN* MapKey, UINTN* DescriptorSize,
                                               UINT32* DescriptorVersion);
typedef EFI_STATUS(EFIAPI* EFI_ALLOCATE_POOL)(EFI_MEMORY_TYPE PoolType, UINTN Size, VOID** Buffer);
typedef EFI_STATUS(EFIAPI* EFI_FREE_POOL)(VOID* Buffer);
typedef EFI_STATUS(EFIAPI* EFI_CREATE_EVENT)(UINT32 Type, EFI_TPL NotifyTpl, EFI_EVENT_NOTIFY NotifyFunction,
                                             VOID* NotifyContext, EFI_EVENT* Event);
typedef EFI_STATUS(EFIAPI* EFI_SET_TIMER)(EFI_EVENT Event, EFI_TIMER_DELAY Type, UINT64 TriggerTime);
typedef EFI_STATUS(EFIAPI* EFI_WAIT_FOR_EVENT)(UINTN NumberOfEvents, EFI_EVENT* Event, UINTN* Index);
typedef EFI_STATUS(EFIAPI* EFI_SIGNAL_EVENT)(EFI_EVENT Event);
typedef EFI_STATUS(EFIAPI* EFI_CLOSE_EVENT)(EFI_EVENT Event);
typedef EFI_STATUS(EFIAPI* EFI_CHECK_EVENT)(EFI_EVENT Event);
typedef EFI_STATUS(EFIAPI* EFI_INSTALL_PROTOCOL_INTERFACE)(EFI_HANDLE* Handle, EFI_GUID* Protocol,
                                                           EFI_INTERFACE_TYPE InterfaceType, VOID* Interface);
typedef EFI_STATUS(EFIAPI* EFI_UNINSTALL_PROTOCOL_INTERFACE)(EFI_HANDLE Handle, EFI_GUID* Protocol,
                                                             VOID* Interface);
typedef EFI_STATUS(EFIAPI* EFI_HANDLE_PROTOCOL)(EFI_HANDLE Handle, EFI_GUID* Protocol, VOID** Interface);
typedef EFI_STATUS(EFIAPI* EFI_LOCATE_HANDLE)(EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID* Protocol,
                                              VOID* SearchKey, UINTN* BufferSize, EFI_HANDLE* Buffer);
typedef EFI_STATUS(EFIAPI* EFI_IMAGE_LOAD)(BOOLEAN BootPolicy, EFI_HANDLE ParentImageHandle,
                                           EFI_DEVICE_PATH_PROTOCOL* DevicePath, VOID* SourceBuffer,
                                           UINTN SourceSize, EFI_HANDLE* ImageHandle);
typedef EFI_STATUS(EFIAPI* EFI_IMAGE_START)(EFI_HANDLE ImageHandle, UINTN* ExitDataSize, CHAR16** ExitData);
typedef EFI_STATUS(EFIAPI* EFI_EXIT)(EFI_HANDLE ImageHandle, EFI_STATUS ExitStatus, UINTN ExitDataSize,
                                     CHAR16* ExitData);
typedef EFI_STATUS(EFIAPI* EFI_IMAGE_UNLOAD)(EFI_HANDLE ImageHandle);
typedef EFI_STATUS(EFIAPI* EFI_STALL)(UINTN Microseconds);
typedef EFI_STATUS(EFIAPI* EFI_SET_WATCHDOG_TIMER)(UINTN Timeout, UINT64 WatchdogCode, UINTN DataSize,
                                                   CHAR16* WatchdogData);
typedef EFI_STATUS(EFIAPI* EFI_CONNECT_CONTROLLER)(EFI_HANDLE ControllerHandle, EFI_HANDLE* DriverImageHandle,
                                                   EFI_DEVICE_PATH_PROTOCOL* RemainingDevicePath,
                                                   BOOLEAN Recursive);
typedef EFI_STATUS(EFIAPI* EFI_OPEN_PROTOCOL)(EFI_HANDLE Handle, EFI_GUID* Protocol, VOID** Interface,
                                              EFI_HANDLE AgentHandle, EFI_HANDLE ControllerHandle,
                                              UINT32 Attributes);
typedef EFI_STATUS(EFIAPI* EFI_CLOSE_PROTOCOL)(EFI_HANDLE Handle, EFI_GUID* Protocol, EFI_HANDLE AgentHandle,
                                               EFI_HANDLE ControllerHandle);
typedef EFI_STATUS(EFIAPI* EFI_LOCATE_HANDLE_BUFFER)(EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID* Protocol,
                                                     VOID* SearchKey, UINTN* NoHandles, EFI_HANDLE** Buffer);
typedef EFI_STATUS(EFIAPI* EFI_LOCATE_PROTOCOL)(EFI_GUID* Protocol, VOID* Registration, VOID** Interface);
typedef EFI_STATUS(EFIAPI* EFI_INSTALL_MULTIPLE_PROTOCOL_INTERFACES)(EFI_HANDLE* Handle, ...);
typedef EFI_STATUS(EFIAPI* EFI_UNINSTALL_MULTIPLE_PROTOCOL_INTERFACES)(EFI_HANDLE Handle, ...);
typedef VOID(EFIAPI* EFI_COPY_MEM)(VOID* Destination, VOID* Source, UINTN Length);
typedef VOID(EFIAPI* EFI_SET_MEM)(VOID* Buffer, UINTN Size, UINT8 Value);

#define EFI_BOOT_SERVICES_SIGNATURE 0x56524553544f4f42ULL

struct EFI_BOOT_SERVICES {
  EFI_TABLE_HEADER Hdr;

  EFI_RAISE_TPL RaiseTPL;
  EFI_RESTORE_TPL RestoreTPL;

  EFI_ALLOCATE_PAGES AllocatePages;
  EFI_FREE_PAGES FreePages;
  EFI_GET_MEMORY_MAP GetMemoryMap;
  EFI_ALLOCATE_POOL AllocatePool;
  EFI_FREE_POOL FreePool;

  EFI_CREATE_EVENT CreateEvent;
  EFI_SET_TIMER SetTimer;
  EFI_WAIT_FOR_EVENT WaitForEvent;
  EFI_SIGNAL_EVENT SignalEvent;
  EFI_CLOSE_EVENT CloseEvent;
  EFI_CHECK_EVENT CheckEvent;

  EFI_INSTALL_PROTOCOL_INTERFACE InstallProtocolInterface;
  VOID* ReinstallProtocolInterface;
  EFI_UNINSTALL_PROTOCOL_INTERFACE UninstallProtocolInterface;
  EFI_HANDLE_PROTOCOL HandleProtocol;
  VOID* Reserved;
  VOID* RegisterProtocolNotify;
  EFI_LOCATE_HANDLE LocateHandle;
  VOID* LocateDevicePath;
  VOID* InstallConfigurationTable;

  EFI_IMAGE_LOAD LoadImage;
  EFI_IMAGE_START StartImage;
  EFI_EXIT Exit;
  EFI_IMAGE_UNLOAD UnloadImage;
  VOID* ExitBootServices;

  VOID* GetNextMonotonicCount;
  EFI_STALL Stall;
  EFI_SET_WATCHDOG_TIMER SetWatchdogTimer;

  EFI_CONNECT_CONTROLLER ConnectController;
  VOID* DisconnectController;

  EFI_OPEN_PROTOCOL OpenProtocol;
  EFI_CLOSE_PROTOCOL CloseProtocol;
  VOID* OpenProtocolInformation;

  VOID* ProtocolsPerHandle;
  EFI_LOCATE_HANDLE_BUFFER LocateHandleBuffer;
  EFI_LOCATE_PROTOCOL LocateProtocol;
  EFI_INSTALL_MULTIPLE_PROTOCOL_INTERFACES InstallMultipleProtocolInterfaces;
  EFI_UNINSTALL_MULTIPLE_PROTOCOL_INTERFACES UninstallMultipleProtocolInterfaces;

  VOID* CalculateCrc32;

  EFI_COPY_MEM CopyMem;
  EFI_SET_MEM SetMem;
  VOID* CreateEventEx;
};

static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, RaiseTPL) == 24);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, AllocatePages) == 40);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, GetMemoryMap) == 56);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, AllocatePool) == 64);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, CreateEvent) == 80);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, WaitForEvent) == 96);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, CheckEvent) == 120);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, InstallProtocolInterface) == 128);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, HandleProtocol) == 152);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, LocateHandle) == 176);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, LoadImage) == 200);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, UnloadImage) == 224);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, Stall) == 248);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, SetWatchdogTimer) == 256);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, OpenProtocol) == 280);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, LocateHandleBuffer) == 312);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, LocateProtocol) == 320);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, InstallMultipleProtocolInterfaces) == 328);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, UninstallMultipleProtocolInterfaces) == 336);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, CopyMem) == 352);
static_assert(__builtin_offsetof(EFI_BOOT_SERVICES, SetMem) == 360);
static_assert(sizeof(EFI_BOOT_SERVICES) == 376);
