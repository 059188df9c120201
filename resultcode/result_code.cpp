// The 16-character result code of a device's run (result_code_layout.h).
#include "core/pool.h"
#include "core/wide_string.h"
#include "resultcode/error_code_protocol.h"
#include "resultcode/result_code_layout.h"

namespace tarvik {
namespace {

constinit ErrorCodeProtocol* ErrorCodeRecord = nullptr;

EFIAPI EFI_STATUS GenerateResultCode(const CHAR16* ModuleCode, const UINT8* ExecutedFlags, const UINT8* FailedFlags,
                                     const CHAR16* SerialNumber, const EFI_TIME* RunStart, CHAR16** Code) {
  if (ModuleCode == nullptr || SerialNumber == nullptr || RunStart == nullptr || Code == nullptr ||
      ExecutedFlags == nullptr || FailedFlags == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  *Code = nullptr;
  if (StrLen(ModuleCode) < 2 || StrLen(SerialNumber) < result_code::SerialCharactersNeeded) return EFI_ABORTED;

  PoolPtr<CHAR16> Buffer;
  EFI_STATUS Status = Buffer.Allocate((ResultCodeLength + 1) * sizeof(CHAR16));
  if (EFI_ERROR(Status)) return Status;
  CHAR16* Text = Buffer.get();
  using namespace result_code;
  Text[0] = Lead;
  Text[ModuleAt] = ModuleCode[0];
  Text[ModuleAt + 1] = ModuleCode[1];
  for (UINTN Digit = 0; Digit < 3; ++Digit) {
    Text[ExecutedAt + Digit] = Base32Digit(ExecutedFlags, FirstFlagOfDigit(Digit));
    Text[FailedAt + Digit] = Base32Digit(FailedFlags, FirstFlagOfDigit(Digit));
  }
  Text[DashAt] = Dash;
  for (const Mixed& Place : SerialPlaces) Text[Place.At] = ShiftCharacter(SerialNumber[Place.SerialIndex], Place.Shift);
  Text[YearPlace.At] = ShiftCharacter(DateCharacter(RunStart->Year), YearPlace.Shift);
  Text[MonthPlace.At] = ShiftCharacter(DateCharacter(RunStart->Month), MonthPlace.Shift);
  Text[DayPlace.At] = ShiftCharacter(DateCharacter(RunStart->Day), DayPlace.Shift);
  Text[result_code::Length] = 0;
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
