// EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL: raw NVMe admin and I/O commands to a
// controller and its namespaces, one protocol instance per controller.
#pragma once

#include "efi/base.h"
#include "efi/protocol/device_path.h"

#define EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL_GUID \
  EFI_GUID { 0x52C78312, 0x8EDC, 0x4233, { 0x98, 0xF2, 0x1A, 0x1A, 0xA5, 0xE3, 0x88, 0xA5 } }

#define EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_PHYSICAL 0x0001
#define EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_LOGICAL 0x0002
#define EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_NONBLOCKIO 0x0004
#define EFI_NVM_EXPRESS_PASS_THRU_ATTRIBUTES_CMD_SET_NVM 0x0008

struct EFI_NVM_EXPRESS_PASS_THRU_MODE {
  UINT32 Attributes;
  UINT32 IoAlign;
  UINT32 NvmeVersion;  // the controller's VS register: major << 16 | minor << 8 | tertiary
};
static_assert(sizeof(EFI_NVM_EXPRESS_PASS_THRU_MODE) == 12);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_MODE, NvmeVersion) == 8);

// FusedOperation values of command dword 0.
#define NORMAL_CMD 0x00
#define FUSED_FIRST_CMD 0x01
#define FUSED_SECOND_CMD 0x02

struct NVME_CDW0 {
  UINT32 Opcode : 8;
  UINT32 FusedOperation : 2;
  UINT32 Reserved : 22;
};
static_assert(sizeof(NVME_CDW0) == 4);

// EFI_NVM_EXPRESS_COMMAND.Flags: which of the optional dwords the
// firmware copies into the submission queue entry.
#define CDW2_VALID 0x01
#define CDW3_VALID 0x02
#define CDW10_VALID 0x04
#define CDW11_VALID 0x08
#define CDW12_VALID 0x10
#define CDW13_VALID 0x20
#define CDW14_VALID 0x40
#define CDW15_VALID 0x80

struct EFI_NVM_EXPRESS_COMMAND {
  NVME_CDW0 Cdw0;
  UINT8 Flags;
  UINT32 Nsid;
  UINT32 Cdw2;
  UINT32 Cdw3;
  UINT32 Cdw10;
  UINT32 Cdw11;
  UINT32 Cdw12;
  UINT32 Cdw13;
  UINT32 Cdw14;
  UINT32 Cdw15;
};
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_COMMAND, Flags) == 4);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_COMMAND, Nsid) == 8);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_COMMAND, Cdw2) == 12);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_COMMAND, Cdw10) == 20);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_COMMAND, Cdw15) == 40);
static_assert(sizeof(EFI_NVM_EXPRESS_COMMAND) == 44);

// The four dwords of the completion queue entry. DW3 bits 31:17 are the
// status field: SC in bits 24:17, SCT in 27:25, DNR in 31.
struct EFI_NVM_EXPRESS_COMPLETION {
  UINT32 DW0;
  UINT32 DW1;
  UINT32 DW2;
  UINT32 DW3;
};
static_assert(sizeof(EFI_NVM_EXPRESS_COMPLETION) == 16);

// EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET.QueueType
#define NVME_ADMIN_QUEUE 0x00
#define NVME_IO_QUEUE 0x01

struct EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET {
  UINT64 CommandTimeout;  // 100 ns units, 0 waits forever
  VOID* TransferBuffer;
  UINT32 TransferLength;
  VOID* MetadataBuffer;
  UINT32 MetadataLength;
  UINT8 QueueType;
  EFI_NVM_EXPRESS_COMMAND* NvmeCmd;
  EFI_NVM_EXPRESS_COMPLETION* NvmeCompletion;
};
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET, TransferBuffer) == 8);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET, TransferLength) == 16);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET, MetadataBuffer) == 24);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET, MetadataLength) == 32);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET, QueueType) == 36);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET, NvmeCmd) == 40);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET, NvmeCompletion) == 48);
static_assert(sizeof(EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET) == 56);

struct EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL;

// NamespaceId 0 addresses the controller (admin commands); 0xFFFFFFFF all
// namespaces. GetNextNamespace starts from 0xFFFFFFFF and ends with
// EFI_NOT_FOUND.
typedef EFI_STATUS(EFIAPI* EFI_NVM_EXPRESS_PASS_THRU_PASSTHRU)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This,
                                                               UINT32 NamespaceId,
                                                               EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET* Packet,
                                                               EFI_EVENT Event);
typedef EFI_STATUS(EFIAPI* EFI_NVM_EXPRESS_PASS_THRU_GET_NEXT_NAMESPACE)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This,
                                                                         UINT32* NamespaceId);
typedef EFI_STATUS(EFIAPI* EFI_NVM_EXPRESS_PASS_THRU_BUILD_DEVICE_PATH)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This,
                                                                        UINT32 NamespaceId,
                                                                        EFI_DEVICE_PATH_PROTOCOL** DevicePath);
typedef EFI_STATUS(EFIAPI* EFI_NVM_EXPRESS_PASS_THRU_GET_NAMESPACE)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* This,
                                                                    EFI_DEVICE_PATH_PROTOCOL* DevicePath,
                                                                    UINT32* NamespaceId);

struct EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL {
  EFI_NVM_EXPRESS_PASS_THRU_MODE* Mode;
  EFI_NVM_EXPRESS_PASS_THRU_PASSTHRU PassThru;
  EFI_NVM_EXPRESS_PASS_THRU_GET_NEXT_NAMESPACE GetNextNamespace;
  EFI_NVM_EXPRESS_PASS_THRU_BUILD_DEVICE_PATH BuildDevicePath;
  EFI_NVM_EXPRESS_PASS_THRU_GET_NAMESPACE GetNamespace;
};
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL, PassThru) == 8);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL, GetNextNamespace) == 16);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL, BuildDevicePath) == 24);
static_assert(__builtin_offsetof(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL, GetNamespace) == 32);
static_assert(sizeof(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL) == 40);
