// The "Machine" tab: machine, BIOS and processor as the SMBIOS tables
// describe them (structure types 1, 0 and 4).
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "core/wide_string.h"
#include "sysinfo/smbios_protocol.h"
#include "sysinfo/smbios_strings.h"
#include "ui/screen_toolkit.h"
#include "ui/system_info_screen.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

// A labelled SMBIOS string of a Structure: its field Number names the string.
template <typename Structure>
struct SmbiosField {
  UINTN Row;
  UINT64 Label;
  UINT8 Structure::*Number;
};

// The serial number, row 10, comes from the helper the result codes use.
constexpr SmbiosField<SmbiosSystemInformation> MachineFields[] = {
    {7, ui_text::MachineManufacturer, &SmbiosSystemInformation::Manufacturer},
    {8, ui_text::ProductName, &SmbiosSystemInformation::ProductName},
    {9, ui_text::ProductVersion, &SmbiosSystemInformation::Version},
};
constexpr UINTN MachineSerialNumberRow = 10;
constexpr SmbiosField<SmbiosBiosInformation> BiosFields[] = {
    {15, ui_text::BiosVersion, &SmbiosBiosInformation::BiosVersion},
    {16, ui_text::BiosReleaseDate, &SmbiosBiosInformation::ReleaseDate},
    {17, ui_text::BiosManufacturer, &SmbiosBiosInformation::Vendor},
};
constexpr UINTN ProcessorManufacturerRow = 22;
constexpr UINTN ProcessorVersionRow = 23;

struct Layout {
  UINTN Left;         // labels
  UINTN Right;        // the boxes' right edge
  UINTN ValueColumn;  // values
};

Layout TabLayout() {
  const UINTN Columns = ScreenColumns();
  return {Columns * 15 / 100, Columns * 85 / 100, Columns / 2};
}

VOID PrintLabel(const Layout& At, UINTN Row, UINT64 Label) {
  MoveCursor(At.Left, Row);
  Print(u"%s:", UiText(Label));
}

// SMBIOS strings may be of any length and hold any byte: cut at the box.
VOID PrintValue(const Layout& At, UINTN Row, const CHAR16* Value) {
  PrintWithin(Value, Row, At.ValueColumn, At.Right);
}

VOID PrintRow(const Layout& At, UINTN Row, UINT64 Label, const PoolPtr<CHAR16>& Value) {
  PrintLabel(At, Row, Label);
  PrintValue(At, Row, Value.get());
}

template <typename Structure, UINTN Count>
VOID PrintFields(SmBiosProtocol* SmBios, const VOID* Record, const Layout& At,
                 const SmbiosField<Structure> (&Fields)[Count]) {
  const Structure Fixed = ReadSmbiosStructure<Structure>(Record);
  for (const SmbiosField<Structure>& Field : Fields)
    PrintRow(At, Field.Row, Field.Label, SmbiosString(*SmBios, Record, Fixed.*Field.Number));
}

// Heading centred across the screen, then the structure; null when missing.
VOID* Section(SmBiosProtocol* SmBios, UINT64 Heading, UINTN Row, SmbiosType Type) {
  SetColour(ui_colour::Screen);
  PrintCentered(UiText(Heading), Row, 0, ScreenColumns() - 1);
  VOID* Record = nullptr;
  if (EFI_ERROR(SmBios->GetSmbiosStructure(static_cast<UINT8>(Type), &Record, 0))) return nullptr;
  return Record;
}

}  // namespace

VOID PrintWrappedValue(const CHAR16* Text, UINTN From, UINTN To) {
  if (Text == nullptr) Text = u"";
  const UINTN Width = To > From ? To - From : 0;
  if (StrLen(Text) < Width) {
    PrintWithin(Text, ProcessorVersionRow, From, To);
    return;
  }
  UINTN Space = Width;
  while (Space > 0 && Text[Space] != u' ') --Space;
  // Without a space the text is cut at the width.
  const UINTN FirstLength = Text[Space] == u' ' ? Space : Width;
  PrintWithin(Text, ProcessorVersionRow, From, From + FirstLength);
  UINTN Rest = FirstLength;
  while (Text[Rest] == u' ') ++Rest;
  // The box has room for two rows of the value.
  PrintWithin(Text + Rest, ProcessorVersionRow + 1, From, To);
}

UINT8 DrawMachineTab(SystemInfo& Info) {
  const Layout At = TabLayout();
  const UINTN Columns = ScreenColumns();
  Info.InfoLineCount = 0;
  ClearArea(At.Left - 2, Columns, 4, ScreenRows() - 2);
  SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
  if (SmBios == nullptr) return 1;
  SetColour(ui_colour::Screen);

  VOID* Machine = Section(SmBios, ui_text::MachineInformation, 5, SmbiosType::SystemInformation);
  if (Machine == nullptr) return 1;
  DrawDoubleBox(At.Left - 2, At.Right, 6, 11);
  PrintFields(SmBios, Machine, At, MachineFields);
  PrintRow(At, MachineSerialNumberRow, ui_text::MachineSerialNumber, SystemSerialNumber(*SmBios));

  VOID* Bios = Section(SmBios, ui_text::BiosInformation, 13, SmbiosType::BiosInformation);
  if (Bios == nullptr) return 1;
  DrawDoubleBox(At.Left - 2, At.Right, 14, 18);
  PrintFields(SmBios, Bios, At, BiosFields);

  VOID* Processor = Section(SmBios, ui_text::ProcessorInformation, 20, SmbiosType::ProcessorInformation);
  if (Processor == nullptr) return 1;
  const auto Cpu = ReadSmbiosStructure<SmbiosProcessorInformation>(Processor);
  const PoolPtr<CHAR16> Version = SmbiosString(*SmBios, Processor, Cpu.ProcessorVersion);
  const UINTN VersionLength = Version ? StrLen(Version.get()) : 0;
  DrawDoubleBox(At.Left - 2, At.Right, 21, At.Right - At.ValueColumn > VersionLength ? 24 : 25);
  PrintRow(At, ProcessorManufacturerRow, ui_text::ProcessorManufacturer,
           SmbiosString(*SmBios, Processor, Cpu.ProcessorManufacturer));
  PrintLabel(At, ProcessorVersionRow, ui_text::ProcessorVersion);
  PrintWrappedValue(Version.get(), At.ValueColumn, At.Right);
  return 0;
}

}  // namespace tarvik
