// Until the screens exist, the interface shows which services are installed
// and waits for a key before the machine restarts.
#include "ui/run_diagnostics_ui.h"

#include "core/diag_common.h"
#include "core/globals.h"

namespace tarvik {
namespace {

struct KnownService {
  EFI_GUID Guid;
  const CHAR16* Name;
};

constexpr KnownService KnownServices[] = {
    {DIAG_COMMON_PROTOCOL_GUID, u"DiagCommonProtocol (shared services)"},
    {EFI_GUID{0x1FA8F7CA, 0x5E1C, 0x4B3D, {0xAF, 0x8B, 0x83, 0xE1, 0x90, 0x47, 0x62, 0x49}},
     u"ErrorCodeProtocol (result code)"},
    {EFI_GUID{0xF4D9527E, 0x1A9E, 0x42FE, {0x8B, 0x76, 0xEB, 0x8B, 0x99, 0xE8, 0xCC, 0xE4}},
     u"SmBiosProtocol (system information)"},
    {EFI_GUID{0xE042195C, 0x7E59, 0x4A08, {0xBA, 0xB1, 0xE2, 0x37, 0x54, 0x7C, 0xA1, 0xEB}},
     u"LanguageProtocol (text resources)"},
    {EFI_GUID{0x600E0149, 0x1606, 0x44BF, {0xA7, 0x0C, 0x16, 0x2A, 0xF0, 0xA2, 0xD6, 0xC6}},
     u"TestCollectionProtocol (test registry)"},
    {EFI_GUID{0xF55FA725, 0x6E97, 0x42BD, {0x97, 0x28, 0x29, 0x2F, 0x1F, 0x01, 0x4A, 0x04}}, u"LogProtocol (log)"},
    {EFI_GUID{0x618FDFF7, 0xE23C, 0x462D, {0xBD, 0x03, 0x17, 0xA8, 0xE4, 0x02, 0xF6, 0x2B}},
     u"MemoryTestProtocol (memory test)"},
    {EFI_GUID{0x783E657F, 0x28DB, 0x4055, {0x98, 0xEB, 0xAE, 0x8B, 0x76, 0x1A, 0xC0, 0x77}},
     u"StorageTestProtocol (storage test)"},
    {EFI_GUID{0xDB11DB56, 0xB15E, 0x4874, {0x86, 0xC0, 0x89, 0x61, 0xBE, 0xB2, 0x00, 0xC1}},
     u"BadSectorsToolProtocol (bad sector tool)"},
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
