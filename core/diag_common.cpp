#include "core/diag_common.h"

#include "core/format.h"
#include "core/globals.h"
#include "core/pool.h"
#include "core/protocol_registry.h"
#include "core/raised_tpl.h"
#include "core/random.h"
#include "core/start_image.h"
#include "core/startup_texts.h"
#include "core/status_text.h"
#include "core/wide_string.h"

namespace tarvik {

EFIAPI UINTN Print(const CHAR16* Format, ...) {
  PoolPtr<CHAR16> Text;
  if (gBS == nullptr || EFI_ERROR(Text.Allocate((PrintBufferChars + 1) * sizeof(CHAR16)))) return 0;
  VA_LIST Args;
  VA_START(Args, Format);
  UINTN Count = FormatV(Text.get(), PrintBufferChars + 1, Format, Args);
  VA_END(Args);
  if (Count != 0 && gST != nullptr && gST->ConOut != nullptr) {
    // At TPL_NOTIFY, so that a notification that prints runs before or after
    // the text, never between two of its characters.
    const RaisedTpl Held(TPL_NOTIFY);
    gST->ConOut->OutputString(gST->ConOut, Text.get());
  }
  return Count;
}

EFIAPI UINTN SPrint(CHAR16* Buffer, UINTN BufferSize, const CHAR16* Format, ...) {
  VA_LIST Args;
  VA_START(Args, Format);
  UINTN Count = FormatV(Buffer, BufferSize / sizeof(CHAR16), Format, Args);
  VA_END(Args);
  return Count;
}

EFI_STATUS InstallDiagCommon(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  PoolPtr<DiagCommonProtocol> Record;
  EFI_STATUS Status = Record.Allocate(sizeof(DiagCommonProtocol));
  if (EFI_ERROR(Status)) {
    Print(startup_text::SharedServicesFailed, StatusToString(Status));
    return EFI_ABORTED;
  }
  *Record.get() = DiagCommonProtocol{
      .Revision = 1,
      .ImageHandle = ImageHandle,
      .SystemTable = SystemTable,
      .Print = Print,
      .SPrint = SPrint,
      .StartImageFromFile = StartImageFromFile,
      .StatusToString = StatusToString,
      .StrLen = StrLen,
      .StrCat = StrCat,
      .StrCpy = StrCpy,
      .Random = Random,
      .RandomRange = RandomRange,
      .RandomInit = RandomInit,
      .InstallProtocol = InstallProtocol,
      .UninstallAllProtocols = UninstallAllProtocols,
      .StrCmp = StrCmp,
  };
  EFI_HANDLE Handle = ImageHandle;
  EFI_GUID Guid = DiagCommonProtocolGuid;
  Status = gBS->InstallMultipleProtocolInterfaces(&Handle, &Guid, Record.get(), nullptr);
  if (EFI_ERROR(Status)) {
    Print(startup_text::SharedServicesFailed, StatusToString(Status));
    return EFI_ABORTED;
  }
  gDiagCommon = Record.release();
  return EFI_SUCCESS;
}

VOID UninstallDiagCommon() {
  if (gDiagCommon == nullptr) return;
  EFI_GUID Guid = DiagCommonProtocolGuid;
  gBS->UninstallMultipleProtocolInterfaces(gDiagCommon->ImageHandle, &Guid, gDiagCommon, nullptr);
  gBS->FreePool(gDiagCommon);
  gDiagCommon = nullptr;
}

}  // namespace tarvik
