// The 16-character result code of a device's run:
//   U, module code (2), executed flags (3 base-32 digits), failed flags (3),
//   "-", then serial characters 0, 2, 4 interleaved with the run's year,
//   month and day, each shifted by a fixed amount.
#include "core/pool.h"
#include "core/wide_string.h"
#include "resultcode/error_code_protocol.h"

namespace tarvik {
namespace {

constinit ErrorCodeProtocol* ErrorCodeRecord = nullptr;

// Flags First .. First + 4 as one digit 0-9, A-V (First is the lowest bit).
constexpr CHAR16 Base32Digit(const UINT8* Flags, UINTN First) {
  UINT32 Value = 0;
  for (UINTN Bit = 0; Bit < 5; ++Bit) Value |= (Flags[First + Bit] ? 1u : 0u) << Bit;
  return static_cast<CHAR16>(Value < 10 ? u'0' + Value : u'A' + (Value - 10));
}

// Digits and letters move cyclically within their kind (a lower-case letter
// becomes upper-case first); every other character stays as it is.
constexpr CHAR16 ShiftCharacter(CHAR16 Character, INT32 Shift) {
  if (Character >= u'0' && Character <= u'9') {
    INT32 Digit = static_cast<INT32>(Character - u'0') + Shift;
    if (Digit > 9) Digit -= 10;
    if (Digit < 0) Digit += 10;
    return static_cast<CHAR16>(u'0' + Digit);
  }
  if (Character >= u'a' && Character <= u'z') Character = static_cast<CHAR16>(Character - 32);
  if (Character >= u'A' && Character <= u'Z') {
    INT32 Place = static_cast<INT32>(Character - u'A') + Shift;
    if (Place > 25) Place -= 26;
    if (Place < 0) Place += 26;
    return static_cast<CHAR16>(u'A' + Place);
  }
  return Character;
}

// The character 64 ("@") plus the sum of the decimal digits of Value.
constexpr CHAR16 DateCharacter(UINT32 Value) {
  UINT32 Sum = 0;
  for (; Value != 0; Value /= 10) Sum += Value % 10;
  return static_cast<CHAR16>(64 + Sum);
}

static_assert(ShiftCharacter(DateCharacter(29), 3) == u'N');
static_assert(ShiftCharacter(DateCharacter(12), -5) == u'X');
static_assert(ShiftCharacter(u'[', 3) == u'[' && ShiftCharacter(u'z', 1) == u'A');

EFIAPI EFI_STATUS GenerateResultCode(const CHAR16* ModuleCode, const UINT8* ExecutedFlags, const UINT8* FailedFlags,
                                     const CHAR16* SerialNumber, const EFI_TIME* RunStart, CHAR16** Code) {
  if (ModuleCode == nullptr || SerialNumber == nullptr || RunStart == nullptr || Code == nullptr ||
      ExecutedFlags == nullptr || FailedFlags == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  *Code = nullptr;
  if (StrLen(ModuleCode) < 2 || StrLen(SerialNumber) < 7) return EFI_ABORTED;

  PoolPtr<CHAR16> Buffer;
  EFI_STATUS Status = Buffer.Allocate((ResultCodeLength + 1) * sizeof(CHAR16));
  if (EFI_ERROR(Status)) return Status;
  CHAR16* Text = Buffer.get();
  Text[0] = u'U';
  Text[1] = ModuleCode[0];
  Text[2] = ModuleCode[1];
  Text[3] = Base32Digit(ExecutedFlags, 10);
  Text[4] = Base32Digit(ExecutedFlags, 5);
  Text[5] = Base32Digit(ExecutedFlags, 0);
  Text[6] = Base32Digit(FailedFlags, 10);
  Text[7] = Base32Digit(FailedFlags, 5);
  Text[8] = Base32Digit(FailedFlags, 0);
  Text[9] = u'-';
  Text[10] = ShiftCharacter(SerialNumber[0], 5);
  Text[11] = ShiftCharacter(DateCharacter(RunStart->Year), 3);
  Text[12] = ShiftCharacter(SerialNumber[2], -3);
  Text[13] = ShiftCharacter(DateCharacter(RunStart->Month), -5);
  Text[14] = ShiftCharacter(SerialNumber[4], 5);
  Text[15] = ShiftCharacter(DateCharacter(RunStart->Day), 3);
  Text[16] = 0;
  *Code = Buffer.release();
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS UnloadErrorCode(EFI_HANDLE) { return ReleaseServiceRecord(gBS, ErrorCodeRecord); }

VOID FillOperations(ErrorCodeProtocol& Record) { Record.GenerateResultCode = GenerateResultCode; }

}  // namespace

EFI_STATUS InstallErrorCode(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  ServiceDescriptor<ErrorCodeProtocol> Service = {
      .Guid = ErrorCodeProtocolGuid,
      .Name = u"Error Code Protocol",
      .ModuleRecord = &ErrorCodeRecord,
      .Unload = UnloadErrorCode,
      .FillOperations = FillOperations,
  };
  return InstallService(ImageHandle, SystemTable, Service);
}

}  // namespace tarvik
