#include "log/results_file.h"

#include "badsector/bad_sectors_tool_protocol.h"
#include "badsector/tool_state.h"
#include "core/locate.h"
#include "core/program_version.h"
#include "log/line_store.h"
#include "log/results_line.h"
#include "registry/module_registry_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "text/language_protocol.h"

namespace tarvik {
namespace {

// The SMBIOS strings of the machine, owned for the save.
struct MachineStrings {
  PoolPtr<CHAR16> Manufacturer, Product, SerialNumber, BiosVendor, BiosVersion;

  MachineStrings() {
    SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
    if (SmBios == nullptr) return;
    VOID* Record = nullptr;
    if (!EFI_ERROR(SmBios->GetSmbiosStructure(static_cast<UINT8>(SmbiosType::SystemInformation), &Record, 0))) {
      const SmbiosSystemInformation System = ReadSmbiosStructure<SmbiosSystemInformation>(Record);
      Manufacturer = SmbiosString(*SmBios, Record, System.Manufacturer);
      Product = SmbiosString(*SmBios, Record, System.ProductName);
      SerialNumber = SystemSerialNumber(*SmBios);
    }
    if (!EFI_ERROR(SmBios->GetSmbiosStructure(static_cast<UINT8>(SmbiosType::BiosInformation), &Record, 0))) {
      const SmbiosBiosInformation Bios = ReadSmbiosStructure<SmbiosBiosInformation>(Record);
      BiosVendor = SmbiosString(*SmBios, Record, Bios.Vendor);
      BiosVersion = SmbiosString(*SmBios, Record, Bios.BiosVersion);
    }
  }

  // An empty string is one the tables do not hold.
  static const CHAR16* OrNull(const PoolPtr<CHAR16>& Text) { return Text && Text.get()[0] != 0 ? Text.get() : nullptr; }
  ResultsMachine View() const {
    return {OrNull(Manufacturer), OrNull(Product), OrNull(SerialNumber), OrNull(BiosVendor), OrNull(BiosVersion)};
  }
};

// The line the bad-sector tool writes when a run is cancelled, from the
// table the tool writes its lines with; owned for the save.
class ToolCanceledText {
 public:
  ToolCanceledText() {
    LanguageProtocol* Language = LocateService<LanguageProtocol>(LanguageProtocolGuid);
    if (Language == nullptr || EFI_ERROR(Language->GetStringTable(u"Storage", &Count_, &Table_))) Table_ = nullptr;
  }
  ~ToolCanceledText() {
    if (Table_ == nullptr) return;
    for (UINT64 I = 0; I < Count_; ++I) gBS->FreePool(Table_[I]);
    gBS->FreePool(Table_);
  }
  ToolCanceledText(const ToolCanceledText&) = delete;
  ToolCanceledText& operator=(const ToolCanceledText&) = delete;

  const CHAR16* get() const { return Table_ != nullptr && tool_text::CanceledByUser < Count_ ? Table_[tool_text::CanceledByUser] : nullptr; }

 private:
  UINT64 Count_ = 0;
  CHAR16** Table_ = nullptr;
};

// The name of the test or tool that made the log, owned for the save.
PoolPtr<CHAR16> RunName(const LogRunFacts& Facts, TestModuleProtocol*& Module) {
  CHAR16* Name = nullptr;
  if (Facts.Kind == LogRunKind::Tool) {
    BadSectorsToolProtocol* Tool = LocateService<BadSectorsToolProtocol>(BadSectorsToolProtocolGuid);
    if (Tool == nullptr || Tool->GetToolName == nullptr || EFI_ERROR(Tool->GetToolName(nullptr, &Name))) Name = nullptr;
    return PoolPtr<CHAR16>(Name);
  }
  TestCollectionProtocol* Registry = LocateService<TestCollectionProtocol>(TestCollectionProtocolGuid);
  if (Registry == nullptr || EFI_ERROR(Registry->GetTest(Facts.ModuleIndex, &Module)) || Module == nullptr) {
    Module = nullptr;
    return PoolPtr<CHAR16>();
  }
  if (Module->GetTestName == nullptr || EFI_ERROR(Module->GetTestName(Module, &Name))) Name = nullptr;
  return PoolPtr<CHAR16>(Name);
}

}  // namespace

EFI_STATUS ResultsLineBytes(PoolPtr<UINT8>& Bytes, UINTN& Size) {
  const LogRunFacts& Facts = CurrentLogRun();
  Size = 0;
  // No run, no line: an empty log is saved as it always was.
  if (Facts.Kind == LogRunKind::None || LogLineCount() == 0) return EFI_SUCCESS;
  const MachineStrings Machine;
  TestModuleProtocol* Module = nullptr;
  const PoolPtr<CHAR16> Name = RunName(Facts, Module);
  EFI_TIME Saved = {};
  if (EFI_ERROR(gRT->GetTime(&Saved, nullptr))) Saved = {};

  ResultsRun Run;
  Run.Tool = Facts.Kind == LogRunKind::Tool;
  const ToolCanceledText Canceled;
  if (Run.Tool) Run.ToolCanceledLine = Canceled.get();
  Run.Version = ProgramVersion;
  Run.Started = &Facts.Start;
  Run.Saved = &Saved;
  Run.Ended = &Facts.End;
  Run.Machine = Machine.View();
  Run.TestName = Name.get();
  Run.Module = Module;
  Run.Lines = LogLine(0);
  Run.LineCount = LogLineCount();
  const UINTN Capacity = ResultsLineCapacity(Run);
  EFI_STATUS Status = Bytes.Allocate(Capacity);
  if (EFI_ERROR(Status)) return Status;
  JsonWriter Json(Bytes.get(), Capacity);
  WriteResultsLine(Json, Run);
  if (!Json.Complete()) return EFI_BUFFER_TOO_SMALL;
  Size = Json.Size();
  return EFI_SUCCESS;
}

}  // namespace tarvik
