// Until the screens exist, the interface shows which services are installed
// and waits for a key before the machine restarts.
#include "ui/run_diagnostics_ui.h"

#include "badsector/bad_sectors_tool_protocol.h"
#include "core/diag_common.h"
#include "core/globals.h"
#include "log/log_protocol.h"
#include "registry/test_collection_protocol.h"
#include "resultcode/error_code_protocol.h"
#include "sysinfo/smbios_protocol.h"
#include "text/language_protocol.h"

namespace tarvik {
namespace {

struct KnownService {
  EFI_GUID Guid;
  const CHAR16* Name;
};

constexpr KnownService KnownServices[] = {
    {DIAG_COMMON_PROTOCOL_GUID, u"DiagCommonProtocol (shared services)"},
    {ERROR_CODE_PROTOCOL_GUID, u"ErrorCodeProtocol (result code)"},
    {SMBIOS_PROTOCOL_GUID, u"SmBiosProtocol (system information)"},
    {LANGUAGE_PROTOCOL_GUID, u"LanguageProtocol (text resources)"},
    {TEST_COLLECTION_PROTOCOL_GUID, u"TestCollectionProtocol (test registry)"},
    {LOG_PROTOCOL_GUID, u"LogProtocol (log)"},
    {EFI_GUID{0x618FDFF7, 0xE23C, 0x462D, {0xBD, 0x03, 0x17, 0xA8, 0xE4, 0x02, 0xF6, 0x2B}},
     u"MemoryTestProtocol (memory test)"},
    {EFI_GUID{0x783E657F, 0x28DB, 0x4055, {0x98, 0xEB, 0xAE, 0x8B, 0x76, 0x1A, 0xC0, 0x77}},
     u"StorageTestProtocol (storage test)"},
    {BAD_SECTORS_TOOL_PROTOCOL_GUID, u"BadSectorsToolProtocol (bad sector tool)"},
};

}  // namespace

EFI_STATUS RunDiagnosticsUi(EFI_HANDLE, EFI_SYSTEM_TABLE* SystemTable) {
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Out = SystemTable->ConOut;
  Out->SetAttribute(Out, EFI_TEXT_ATTR(EFI_LIGHTGRAY, EFI_BLACK));
  Out->ClearScreen(Out);
  Print(u"Tarvik Diagnostic\n\nInstalled services:\n");
  for (const KnownService& Service : KnownServices) {
    EFI_GUID Guid = Service.Guid;
    VOID* Record = nullptr;
    if (!EFI_ERROR(gBS->LocateProtocol(&Guid, nullptr, &Record))) Print(u"  %s\n", Service.Name);
  }
  Print(u"\nPress any key to restart the machine.\n");

  EFI_SIMPLE_TEXT_INPUT_PROTOCOL* In = SystemTable->ConIn;
  EFI_EVENT KeyEvent = In->WaitForKey;
  UINTN Index = 0;
  EFI_INPUT_KEY Key;
  for (;;) {
    if (EFI_ERROR(gBS->WaitForEvent(1, &KeyEvent, &Index))) break;
    if (!EFI_ERROR(In->ReadKeyStroke(In, &Key))) break;
  }
  return EFI_SUCCESS;
}

}  // namespace tarvik
