// EFI_SIMPLE_FILE_SYSTEM_PROTOCOL, EFI_FILE_PROTOCOL and the file and
// file-system information records.
#pragma once

#include "efi/base.h"

#define EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID \
  EFI_GUID { 0x964E5B22, 0x6459, 0x11D2, { 0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B } }
#define EFI_FILE_INFO_ID \
  EFI_GUID { 0x09576E92, 0x6D3F, 0x11D2, { 0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B } }
#define EFI_FILE_SYSTEM_INFO_ID \
  EFI_GUID { 0x09576E93, 0x6D3F, 0x11D2, { 0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B } }

#define EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_REVISION 0x00010000ULL
#define EFI_FILE_PROTOCOL_REVISION 0x00010000ULL

#define EFI_FILE_MODE_READ 0x0000000000000001ULL
#define EFI_FILE_MODE_WRITE 0x0000000000000002ULL
#define EFI_FILE_MODE_CREATE 0x8000000000000000ULL

#define EFI_FILE_READ_ONLY 0x0000000000000001ULL
#define EFI_FILE_HIDDEN 0x0000000000000002ULL
#define EFI_FILE_SYSTEM 0x0000000000000004ULL
#define EFI_FILE_RESERVED 0x0000000000000008ULL
#define EFI_FILE_DIRECTORY 0x0000000000000010ULL
#define EFI_FILE_ARCHIVE 0x0000000000000020ULL
#define EFI_FILE_VALID_ATTR 0x0000000000000037ULL

// SetPosition to this value moves to the end of the file.
#define EFI_FILE_POSITION_END 0xFFFFFFFFFFFFFFFFULL

struct EFI_FILE_PROTOCOL;
struct EFI_SIMPLE_FILE_SYSTEM_PROTOCOL;

typedef EFI_STATUS(EFIAPI* EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_OPEN_VOLUME)(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* This,
                                                                       EFI_FILE_PROTOCOL** Root);

struct EFI_SIMPLE_FILE_SYSTEM_PROTOCOL {
  UINT64 Revision;
  EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_OPEN_VOLUME OpenVolume;
};
static_assert(sizeof(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL) == 16);

typedef EFI_STATUS(EFIAPI* EFI_FILE_OPEN)(EFI_FILE_PROTOCOL* This, EFI_FILE_PROTOCOL** NewHandle,
                                          CHAR16* FileName, UINT64 OpenMode, UINT64 Attributes);
typedef EFI_STATUS(EFIAPI* EFI_FILE_CLOSE)(EFI_FILE_PROTOCOL* This);
typedef EFI_STATUS(EFIAPI* EFI_FILE_DELETE)(EFI_FILE_PROTOCOL* This);
typedef EFI_STATUS(EFIAPI* EFI_FILE_READ)(EFI_FILE_PROTOCOL* This, UINTN* BufferSize, VOID* Buffer);
typedef EFI_STATUS(EFIAPI* EFI_FILE_WRITE)(EFI_FILE_PROTOCOL* This, UINTN* BufferSize, VOID* Buffer);
typedef EFI_STATUS(EFIAPI* EFI_FILE_GET_POSITION)(EFI_FILE_PROTOCOL* This, UINT64* Position);
typedef EFI_STATUS(EFIAPI* EFI_FILE_SET_POSITION)(EFI_FILE_PROTOCOL* This, UINT64 Position);
typedef EFI_STATUS(EFIAPI* EFI_FILE_GET_INFO)(EFI_FILE_PROTOCOL* This, EFI_GUID* InformationType,
                                              UINTN* BufferSize, VOID* Buffer);
typedef EFI_STATUS(EFIAPI* EFI_FILE_SET_INFO)(EFI_FILE_PROTOCOL* This, EFI_GUID* InformationType,
                                              UINTN BufferSize, VOID* Buffer);
typedef EFI_STATUS(EFIAPI* EFI_FILE_FLUSH)(EFI_FILE_PROTOCOL* This);

struct EFI_FILE_PROTOCOL {
  UINT64 Revision;
  EFI_FILE_OPEN Open;
  EFI_FILE_CLOSE Close;
  EFI_FILE_DELETE Delete;
  EFI_FILE_READ Read;
  EFI_FILE_WRITE Write;
  EFI_FILE_GET_POSITION GetPosition;
  EFI_FILE_SET_POSITION SetPosition;
  EFI_FILE_GET_INFO GetInfo;
  EFI_FILE_SET_INFO SetInfo;
  EFI_FILE_FLUSH Flush;
  // Revision 2 additions; unused by the application.
  VOID* OpenEx;
  VOID* ReadEx;
  VOID* WriteEx;
  VOID* FlushEx;
};
static_assert(__builtin_offsetof(EFI_FILE_PROTOCOL, Write) == 40);
static_assert(__builtin_offsetof(EFI_FILE_PROTOCOL, SetPosition) == 56);
static_assert(__builtin_offsetof(EFI_FILE_PROTOCOL, GetInfo) == 64);
static_assert(__builtin_offsetof(EFI_FILE_PROTOCOL, Flush) == 80);
static_assert(sizeof(EFI_FILE_PROTOCOL) == 120);

struct EFI_FILE_INFO {
  UINT64 Size;  // of the whole record, file name included
  UINT64 FileSize;
  UINT64 PhysicalSize;
  EFI_TIME CreateTime;
  EFI_TIME LastAccessTime;
  EFI_TIME ModificationTime;
  UINT64 Attribute;
  CHAR16 FileName[1];  // NUL-terminated, variable length
};
static_assert(__builtin_offsetof(EFI_FILE_INFO, CreateTime) == 24);
static_assert(__builtin_offsetof(EFI_FILE_INFO, Attribute) == 72);
static_assert(__builtin_offsetof(EFI_FILE_INFO, FileName) == 80);
#define SIZE_OF_EFI_FILE_INFO 80

struct EFI_FILE_SYSTEM_INFO {
  UINT64 Size;  // of the whole record, label included
  BOOLEAN ReadOnly;
  UINT64 VolumeSize;
  UINT64 FreeSpace;
  UINT32 BlockSize;
  CHAR16 VolumeLabel[1];  // NUL-terminated, variable length
};
static_assert(__builtin_offsetof(EFI_FILE_SYSTEM_INFO, VolumeSize) == 16);
static_assert(__builtin_offsetof(EFI_FILE_SYSTEM_INFO, BlockSize) == 32);
static_assert(__builtin_offsetof(EFI_FILE_SYSTEM_INFO, VolumeLabel) == 36);
#define SIZE_OF_EFI_FILE_SYSTEM_INFO 36
