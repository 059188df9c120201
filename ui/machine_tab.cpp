// The "Machine" tab: machine, BIOS and processor as the SMBIOS tables
// describe them (structure types 1, 0 and 4).
#include "core/diag_common.h"
#include "core/globals.h"
#include "core/locate.h"
#include "core/pool.h"
#include "core/wide_string.h"
#include "sysinfo/smbios_protocol.h"
#include "ui/screen_toolkit.h"
#include "ui/system_info_screen.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

// A labelled SMBIOS string: the structure's byte at Offset is the string's number.
struct SmbiosField {
  UINTN Row;
  UINT64 Label;
  UINT8 Offset;
};

constexpr SmbiosField MachineFields[] = {
    {7, ui_text::MachineManufacturer, 4},
    {8, ui_text::ProductName, 5},
    {9, ui_text::ProductVersion, 6},
    {10, ui_text::MachineSerialNumber, 7},
};
constexpr SmbiosField BiosFields[] = {
    {15, ui_text::BiosVersion, 5},
    {16, ui_text::BiosReleaseDate, 8},
    {17, ui_text::BiosManufacturer, 4},
};
constexpr UINT8 ProcessorManufacturerOffset = 7;
constexpr UINT8 ProcessorVersionOffset = 16;
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

// The string a structure's byte at Offset names; a field beyond the
// structure's formatted length reads as no string (empty).
CHAR16* FieldText(SmBiosProtocol* SmBios, const VOID* Record, UINT8 Offset) {
  const UINT8* Bytes = static_cast<const UINT8*>(Record);
  const UINT8 Number = Offset < Bytes[1] ? Bytes[Offset] : 0;
  CHAR16* Text = nullptr;
  if (EFI_ERROR(SmBios->GetSmbiosString(Record, Number, &Text))) return nullptr;
  return Text;
}

VOID PrintLabel(const Layout& At, UINTN Row, UINT64 Label) {
  MoveCursor(At.Left, Row);
  Print(u"%s:", UiText(Label));
}

VOID PrintValue(const Layout& At, UINTN Row, const CHAR16* Value) {
  MoveCursor(At.ValueColumn, Row);
  Print(u"%s", Value != nullptr ? Value : u"");
}

VOID PrintFields(SmBiosProtocol* SmBios, const VOID* Record, const Layout& At, const SmbiosField* Fields,
                 UINTN Count) {
  for (UINTN I = 0; I < Count; ++I) {
    PoolPtr<CHAR16> Value(FieldText(SmBios, Record, Fields[I].Offset));
    PrintLabel(At, Fields[I].Row, Fields[I].Label);
    PrintValue(At, Fields[I].Row, Value.get());
  }
}

// Heading centred across the screen, then the structure; null when missing.
VOID* Section(SmBiosProtocol* SmBios, UINT64 Heading, UINTN Row, UINT8 Type) {
  SetColour(ui_colour::Screen);
  PrintCentered(UiText(Heading), Row, 0, ScreenColumns() - 1);
  VOID* Record = nullptr;
  if (EFI_ERROR(SmBios->GetSmbiosStructure(Type, &Record, 0))) return nullptr;
  return Record;
}

}  // namespace

VOID PrintWrappedValue(const CHAR16* Text, UINTN From, UINTN To) {
  if (Text == nullptr) Text = u"";
  const UINTN Width = To > From ? To - From : 0;
  const UINTN Length = StrLen(Text);
  MoveCursor(From, ProcessorVersionRow);
  if (Length < Width) {
    PutText(Text);
    return;
  }
  UINTN Space = Width;
  while (Space > 0 && Text[Space] != u' ') --Space;
  // Without a space the text is cut at the width.
  const UINTN FirstLength = Text[Space] == u' ' ? Space : Width;
  Print(u"%.*s", static_cast<INT32>(FirstLength), Text);
  UINTN Rest = FirstLength;
  while (Text[Rest] == u' ') ++Rest;
  MoveCursor(From, ProcessorVersionRow + 1);
  // The box has room for two rows of the value.
  Print(u"%.*s", static_cast<INT32>(Width), Text + Rest);
}

UINT8 DrawMachineTab() {
  const Layout At = TabLayout();
  const UINTN Columns = ScreenColumns();
  InfoLineCount = 0;
  ClearArea(At.Left - 2, Columns, 4, ScreenRows() - 2);
  SmBiosProtocol* SmBios = LocateService<SmBiosProtocol>(SmBiosProtocolGuid);
  if (SmBios == nullptr) return 1;
  SetColour(ui_colour::Screen);

  VOID* Machine = Section(SmBios, ui_text::MachineInformation, 5, 1);
  if (Machine == nullptr) return 1;
  DrawDoubleBox(At.Left - 2, At.Right, 6, 11);
  PrintFields(SmBios, Machine, At, MachineFields, sizeof(MachineFields) / sizeof(MachineFields[0]));

  VOID* Bios = Section(SmBios, ui_text::BiosInformation, 13, 0);
  if (Bios == nullptr) return 1;
  DrawDoubleBox(At.Left - 2, At.Right, 14, 18);
  PrintFields(SmBios, Bios, At, BiosFields, sizeof(BiosFields) / sizeof(BiosFields[0]));

  VOID* Processor = Section(SmBios, ui_text::ProcessorInformation, 20, 4);
  if (Processor == nullptr) return 1;
  PoolPtr<CHAR16> Version(FieldText(SmBios, Processor, ProcessorVersionOffset));
  const UINTN VersionLength = Version ? StrLen(Version.get()) : 0;
  DrawDoubleBox(At.Left - 2, At.Right, 21, At.Right - At.ValueColumn > VersionLength ? 24 : 25);
  PoolPtr<CHAR16> Manufacturer(FieldText(SmBios, Processor, ProcessorManufacturerOffset));
  PrintLabel(At, ProcessorManufacturerRow, ui_text::ProcessorManufacturer);
  PrintValue(At, ProcessorManufacturerRow, Manufacturer.get());
  PrintLabel(At, ProcessorVersionRow, ui_text::ProcessorVersion);
  PrintWrappedValue(Version.get(), At.ValueColumn, At.Right);
  return 0;
}

}  // namespace tarvik
