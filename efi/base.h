// Base UEFI types, calling convention, status codes and GUIDs.
//
// Written from the UEFI specification. The same header serves the real
// firmware build (x86_64 PE/COFF) and the host build on Linux: EFIAPI is the
// Microsoft x64 calling convention on both, so the host firmware calls the
// application, and is called by it, exactly as real firmware is.
//
// No system header is included: the application is freestanding.
#pragma once

#define EFIAPI __attribute__((ms_abi))

typedef unsigned char UINT8;
typedef signed char INT8;
typedef unsigned short UINT16;
typedef short INT16;
typedef unsigned int UINT32;
typedef int INT32;
typedef unsigned long long UINT64;
typedef long long INT64;
typedef UINT64 UINTN;
typedef INT64 INTN;
typedef char CHAR8;
typedef char16_t CHAR16;  // UTF-16 code unit; u"..." literals on both platforms
typedef UINT8 BOOLEAN;
typedef void VOID;

typedef UINTN EFI_STATUS;
typedef VOID* EFI_HANDLE;
typedef VOID* EFI_EVENT;
typedef UINTN EFI_TPL;
typedef UINT64 EFI_LBA;
typedef UINT64 EFI_PHYSICAL_ADDRESS;
typedef UINT64 EFI_VIRTUAL_ADDRESS;

static_assert(sizeof(UINT8) == 1 && sizeof(UINT16) == 2 && sizeof(UINT32) == 4 && sizeof(UINT64) == 8);
static_assert(sizeof(UINTN) == sizeof(VOID*));
static_assert(sizeof(CHAR16) == 2);

#define TRUE ((BOOLEAN)1)
#define FALSE ((BOOLEAN)0)

#ifndef NULL
#define NULL nullptr
#endif

// Variable arguments of EFIAPI (ms_abi) functions.
typedef __builtin_ms_va_list VA_LIST;
#define VA_START(ap, last) __builtin_ms_va_start(ap, last)
#define VA_ARG(ap, type) __builtin_va_arg(ap, type)
#define VA_END(ap) __builtin_ms_va_end(ap)

struct EFI_GUID {
  UINT32 Data1;
  UINT16 Data2;
  UINT16 Data3;
  UINT8 Data4[8];
};
static_assert(sizeof(EFI_GUID) == 16);

constexpr bool operator==(const EFI_GUID& a, const EFI_GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}

struct EFI_TABLE_HEADER {
  UINT64 Signature;
  UINT32 Revision;
  UINT32 HeaderSize;
  UINT32 CRC32;
  UINT32 Reserved;
};
static_assert(sizeof(EFI_TABLE_HEADER) == 24);

// ---- Status codes --------------------------------------------------------
#define EFI_ERROR_BIT 0x8000000000000000ULL
#define EFIERR(a) (EFI_ERROR_BIT | (a))
#define EFI_ERROR(s) (((INTN)(EFI_STATUS)(s)) < 0)

#define EFI_SUCCESS 0ULL
#define EFI_LOAD_ERROR EFIERR(1)
#define EFI_INVALID_PARAMETER EFIERR(2)
#define EFI_UNSUPPORTED EFIERR(3)
#define EFI_BAD_BUFFER_SIZE EFIERR(4)
#define EFI_BUFFER_TOO_SMALL EFIERR(5)
#define EFI_NOT_READY EFIERR(6)
#define EFI_DEVICE_ERROR EFIERR(7)
#define EFI_WRITE_PROTECTED EFIERR(8)
#define EFI_OUT_OF_RESOURCES EFIERR(9)
#define EFI_VOLUME_CORRUPTED EFIERR(10)
#define EFI_VOLUME_FULL EFIERR(11)
#define EFI_NO_MEDIA EFIERR(12)
#define EFI_MEDIA_CHANGED EFIERR(13)
#define EFI_NOT_FOUND EFIERR(14)
#define EFI_ACCESS_DENIED EFIERR(15)
#define EFI_NO_RESPONSE EFIERR(16)
#define EFI_NO_MAPPING EFIERR(17)
#define EFI_TIMEOUT EFIERR(18)
#define EFI_NOT_STARTED EFIERR(19)
#define EFI_ALREADY_STARTED EFIERR(20)
#define EFI_ABORTED EFIERR(21)
#define EFI_ICMP_ERROR EFIERR(22)
#define EFI_TFTP_ERROR EFIERR(23)
#define EFI_PROTOCOL_ERROR EFIERR(24)
#define EFI_INCOMPATIBLE_VERSION EFIERR(25)
#define EFI_SECURITY_VIOLATION EFIERR(26)
#define EFI_CRC_ERROR EFIERR(27)
#define EFI_END_OF_MEDIA EFIERR(28)
#define EFI_END_OF_FILE EFIERR(31)
#define EFI_INVALID_LANGUAGE EFIERR(32)
#define EFI_COMPROMISED_DATA EFIERR(33)
#define EFI_IP_ADDRESS_CONFLICT EFIERR(34)
#define EFI_HTTP_ERROR EFIERR(35)

#define EFI_WARN_UNKNOWN_GLYPH 1ULL
#define EFI_WARN_DELETE_FAILURE 2ULL
#define EFI_WARN_WRITE_FAILURE 3ULL
#define EFI_WARN_BUFFER_TOO_SMALL 4ULL
#define EFI_WARN_STALE_DATA 5ULL
#define EFI_WARN_FILE_SYSTEM 6ULL
#define EFI_WARN_RESET_REQUIRED 7ULL

// ---- Time ------------------------------------------------------------------
struct EFI_TIME {
  UINT16 Year;  // 1900 - 9999
  UINT8 Month;  // 1 - 12
  UINT8 Day;    // 1 - 31
  UINT8 Hour;
  UINT8 Minute;
  UINT8 Second;
  UINT8 Pad1;
  UINT32 Nanosecond;
  INT16 TimeZone;  // -1440 to 1440 or EFI_UNSPECIFIED_TIMEZONE
  UINT8 Daylight;
  UINT8 Pad2;
};
static_assert(sizeof(EFI_TIME) == 16);
static_assert(__builtin_offsetof(EFI_TIME, Nanosecond) == 8);
static_assert(__builtin_offsetof(EFI_TIME, TimeZone) == 12);
static_assert(__builtin_offsetof(EFI_TIME, Daylight) == 14);

#define EFI_UNSPECIFIED_TIMEZONE 0x07FF

struct EFI_TIME_CAPABILITIES {
  UINT32 Resolution;
  UINT32 Accuracy;
  BOOLEAN SetsToZero;
};

// ---- Keys ------------------------------------------------------------------
struct EFI_INPUT_KEY {
  UINT16 ScanCode;
  CHAR16 UnicodeChar;
};
static_assert(sizeof(EFI_INPUT_KEY) == 4);

#define SCAN_NULL 0x0000
#define SCAN_UP 0x0001
#define SCAN_DOWN 0x0002
#define SCAN_RIGHT 0x0003
#define SCAN_LEFT 0x0004
#define SCAN_HOME 0x0005
#define SCAN_END 0x0006
#define SCAN_INSERT 0x0007
#define SCAN_DELETE 0x0008
#define SCAN_PAGE_UP 0x0009
#define SCAN_PAGE_DOWN 0x000A
#define SCAN_F1 0x000B
#define SCAN_F2 0x000C
#define SCAN_F3 0x000D
#define SCAN_F4 0x000E
#define SCAN_F5 0x000F
#define SCAN_F6 0x0010
#define SCAN_F7 0x0011
#define SCAN_F8 0x0012
#define SCAN_F9 0x0013
#define SCAN_F10 0x0014
#define SCAN_ESC 0x0017

#define CHAR_NULL 0x0000
#define CHAR_BACKSPACE 0x0008
#define CHAR_TAB 0x0009
#define CHAR_LINEFEED 0x000A
#define CHAR_CARRIAGE_RETURN 0x000D
