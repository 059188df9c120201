// EFI_ATA_PASS_THRU_PROTOCOL: raw ATA commands to the drives behind a
// controller, addressed by port and port-multiplier port.
#pragma once

#include "efi/base.h"
#include "efi/protocol/device_path.h"

#define EFI_ATA_PASS_THRU_PROTOCOL_GUID \
  EFI_GUID { 0x1D3DE7F0, 0x0807, 0x424F, { 0xAA, 0x69, 0x11, 0xA5, 0x4E, 0x19, 0xA4, 0x6F } }

#define EFI_ATA_PASS_THRU_ATTRIBUTES_PHYSICAL 0x0001
#define EFI_ATA_PASS_THRU_ATTRIBUTES_LOGICAL 0x0002
#define EFI_ATA_PASS_THRU_ATTRIBUTES_NONBLOCKIO 0x0004

struct EFI_ATA_PASS_THRU_MODE {
  UINT32 Attributes;
  UINT32 IoAlign;
};
static_assert(sizeof(EFI_ATA_PASS_THRU_MODE) == 8);

struct EFI_ATA_COMMAND_BLOCK {
  UINT8 Reserved1[2];
  UINT8 AtaCommand;
  UINT8 AtaFeatures;
  UINT8 AtaSectorNumber;
  UINT8 AtaCylinderLow;
  UINT8 AtaCylinderHigh;
  UINT8 AtaDeviceHead;
  UINT8 AtaSectorNumberExp;
  UINT8 AtaCylinderLowExp;
  UINT8 AtaCylinderHighExp;
  UINT8 AtaFeaturesExp;
  UINT8 AtaSectorCount;
  UINT8 AtaSectorCountExp;
  UINT8 Reserved2[6];
};
static_assert(sizeof(EFI_ATA_COMMAND_BLOCK) == 20);
static_assert(__builtin_offsetof(EFI_ATA_COMMAND_BLOCK, AtaCommand) == 2);
static_assert(__builtin_offsetof(EFI_ATA_COMMAND_BLOCK, AtaDeviceHead) == 7);
static_assert(__builtin_offsetof(EFI_ATA_COMMAND_BLOCK, AtaSectorCount) == 12);

struct EFI_ATA_STATUS_BLOCK {
  UINT8 Reserved1[2];
  UINT8 AtaStatus;
  UINT8 AtaError;
  UINT8 AtaSectorNumber;
  UINT8 AtaCylinderLow;
  UINT8 AtaCylinderHigh;
  UINT8 AtaDeviceHead;
  UINT8 AtaSectorNumberExp;
  UINT8 AtaCylinderLowExp;
  UINT8 AtaCylinderHighExp;
  UINT8 Reserved2;
  UINT8 AtaSectorCount;
  UINT8 AtaSectorCountExp;
  UINT8 Reserved3[6];
};
static_assert(sizeof(EFI_ATA_STATUS_BLOCK) == 20);
static_assert(__builtin_offsetof(EFI_ATA_STATUS_BLOCK, AtaStatus) == 2);
static_assert(__builtin_offsetof(EFI_ATA_STATUS_BLOCK, AtaSectorCount) == 12);

typedef UINT8 EFI_ATA_PASS_THRU_CMD_PROTOCOL;
#define EFI_ATA_PASS_THRU_PROTOCOL_ATA_HARDWARE_RESET 0x00
#define EFI_ATA_PASS_THRU_PROTOCOL_ATA_SOFTWARE_RESET 0x01
#define EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA 0x02
#define EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN 0x04
#define EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_OUT 0x05
#define EFI_ATA_PASS_THRU_PROTOCOL_DMA 0x06
#define EFI_ATA_PASS_THRU_PROTOCOL_DMA_QUEUED 0x07
#define EFI_ATA_PASS_THRU_PROTOCOL_DEVICE_DIAGNOSTIC 0x08
#define EFI_ATA_PASS_THRU_PROTOCOL_DEVICE_RESET 0x09
#define EFI_ATA_PASS_THRU_PROTOCOL_UDMA_DATA_IN 0x0A
#define EFI_ATA_PASS_THRU_PROTOCOL_UDMA_DATA_OUT 0x0B
#define EFI_ATA_PASS_THRU_PROTOCOL_FPDMA 0x0C
#define EFI_ATA_PASS_THRU_PROTOCOL_RETURN_RESPONSE 0xFF

typedef UINT8 EFI_ATA_PASS_THRU_LENGTH;
#define EFI_ATA_PASS_THRU_LENGTH_BYTES 0x80
#define EFI_ATA_PASS_THRU_LENGTH_MASK 0x70
#define EFI_ATA_PASS_THRU_LENGTH_NO_DATA_TRANSFER 0x00
#define EFI_ATA_PASS_THRU_LENGTH_FEATURES 0x10
#define EFI_ATA_PASS_THRU_LENGTH_SECTOR_COUNT 0x20
#define EFI_ATA_PASS_THRU_LENGTH_TPSIU 0x30
#define EFI_ATA_PASS_THRU_LENGTH_COUNT 0x0F

struct EFI_ATA_PASS_THRU_COMMAND_PACKET {
  EFI_ATA_STATUS_BLOCK* Asb;
  EFI_ATA_COMMAND_BLOCK* Acb;
  UINT64 Timeout;  // 100 ns units, 0 waits forever
  VOID* InDataBuffer;
  VOID* OutDataBuffer;
  UINT32 InTransferLength;
  UINT32 OutTransferLength;
  EFI_ATA_PASS_THRU_CMD_PROTOCOL Protocol;
  EFI_ATA_PASS_THRU_LENGTH Length;
};
static_assert(__builtin_offsetof(EFI_ATA_PASS_THRU_COMMAND_PACKET, Timeout) == 16);
static_assert(__builtin_offsetof(EFI_ATA_PASS_THRU_COMMAND_PACKET, InTransferLength) == 40);
static_assert(__builtin_offsetof(EFI_ATA_PASS_THRU_COMMAND_PACKET, Protocol) == 48);
static_assert(__builtin_offsetof(EFI_ATA_PASS_THRU_COMMAND_PACKET, Length) == 49);
static_assert(sizeof(EFI_ATA_PASS_THRU_COMMAND_PACKET) == 56);

struct EFI_ATA_PASS_THRU_PROTOCOL;

typedef EFI_STATUS(EFIAPI* EFI_ATA_PASS_THRU_PASSTHRU)(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port,
                                                       UINT16 PortMultiplierPort,
                                                       EFI_ATA_PASS_THRU_COMMAND_PACKET* Packet, EFI_EVENT Event);
typedef EFI_STATUS(EFIAPI* EFI_ATA_PASS_THRU_GET_NEXT_PORT)(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16* Port);
typedef EFI_STATUS(EFIAPI* EFI_ATA_PASS_THRU_GET_NEXT_DEVICE)(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port,
                                                              UINT16* PortMultiplierPort);
typedef EFI_STATUS(EFIAPI* EFI_ATA_PASS_THRU_BUILD_DEVICE_PATH)(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port,
                                                                UINT16 PortMultiplierPort,
                                                                EFI_DEVICE_PATH_PROTOCOL** DevicePath);
typedef EFI_STATUS(EFIAPI* EFI_ATA_PASS_THRU_GET_DEVICE)(EFI_ATA_PASS_THRU_PROTOCOL* This,
                                                         EFI_DEVICE_PATH_PROTOCOL* DevicePath, UINT16* Port,
                                                         UINT16* PortMultiplierPort);
typedef EFI_STATUS(EFIAPI* EFI_ATA_PASS_THRU_RESET_PORT)(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port);
typedef EFI_STATUS(EFIAPI* EFI_ATA_PASS_THRU_RESET_DEVICE)(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port,
                                                           UINT16 PortMultiplierPort);

struct EFI_ATA_PASS_THRU_PROTOCOL {
  EFI_ATA_PASS_THRU_MODE* Mode;
  EFI_ATA_PASS_THRU_PASSTHRU PassThru;
  EFI_ATA_PASS_THRU_GET_NEXT_PORT GetNextPort;
  EFI_ATA_PASS_THRU_GET_NEXT_DEVICE GetNextDevice;
  EFI_ATA_PASS_THRU_BUILD_DEVICE_PATH BuildDevicePath;
  EFI_ATA_PASS_THRU_GET_DEVICE GetDevice;
  EFI_ATA_PASS_THRU_RESET_PORT ResetPort;
  EFI_ATA_PASS_THRU_RESET_DEVICE ResetDevice;
};
static_assert(__builtin_offsetof(EFI_ATA_PASS_THRU_PROTOCOL, PassThru) == 8);
static_assert(__builtin_offsetof(EFI_ATA_PASS_THRU_PROTOCOL, GetNextDevice) == 24);
static_assert(__builtin_offsetof(EFI_ATA_PASS_THRU_PROTOCOL, ResetDevice) == 56);
static_assert(sizeof(EFI_ATA_PASS_THRU_PROTOCOL) == 64);
