// Building the module tabs of System Information: each module's rows, with
// long labels and values wrapped onto continuation lines.
#include "core/globals.h"
#include "core/pool.h"
#include "core/pool_text.h"
#include "core/wide_string.h"
#include "registry/module_registry_protocol.h"
#include "ui/screen_toolkit.h"
#include "ui/system_info_screen.h"
#include "ui/ui_state.h"

namespace tarvik {
namespace {

constexpr UINTN RestBytes = 2048;
constexpr UINTN RestChars = RestBytes / sizeof(CHAR16);

// The value column's width.
UINT64 ValueWidth() { return ScreenColumns() * 85 / 100 - ScreenColumns() / 2; }

VOID ShowWaitBox() {
  const CHAR16* Text = UiText(ui_text::GatheringInformation);
  UINTN Lines = 1;
  PrintWrapped(Text, &Lines, 0, 0, 0, 0);
  UINTN Left, Top, Right, Bottom;
  DrawMessageFrame(Lines, u"", &Left, &Top, &Right, &Bottom, 1);
  SetColour(ui_colour::Screen);
  PrintWrapped(Text, nullptr, 1, Top, Left, Right);
}

// Fills module tab Tab from Module: line 0 the test's name, then each row
// and its continuation lines.
VOID BuildModuleTab(SystemInfo& Info, UINT64 Tab, TestModuleProtocol* Module) {
  Module->GetModuleName(Module, &Info.InfoTabNames[Tab]);
  const UINT64 Width = ValueWidth();
  const UINT64 Rows = Module->GetSystemInfoRowCount(Module);
  UINT64 Extra = 0;
  for (UINT64 Row = 0; Row < Rows; ++Row) {
    CHAR16* Label = nullptr;
    CHAR16* Value = nullptr;
    Module->GetSystemInfoRow(Module, Row, &Label, &Value);
    Extra += WrapCount(Label, Value, Width);
    if (Label != nullptr) gBS->FreePool(Label);
    if (Value != nullptr) gBS->FreePool(Value);
  }
  const UINT64 Lines = Rows + 1 + Extra;
  CHAR16** Labels = Info.InfoLabels[Tab] = AllocateZeroedArray<CHAR16*>(Lines);
  CHAR16** Values = Info.InfoValues[Tab] = AllocateZeroedArray<CHAR16*>(Lines);
  if (Labels == nullptr || Values == nullptr) return;
  Info.InfoLineCounts[Tab] = Lines;

  Module->GetTestName(Module, &Labels[0]);
  CopyTextToPool(u"", &Values[0]);
  UINT64 Line = 1;
  for (UINT64 Row = 0; Row < Rows && Line < Lines; ++Row) {
    Module->GetSystemInfoRow(Module, Row, &Labels[Line], &Values[Line]);
    UINT64 Continuations = WrapCount(Labels[Line], Values[Line], Width);
    // A module answering differently the second time gets no more lines than counted.
    if (Line + Continuations >= Lines) Continuations = Lines - 1 - Line;
    for (UINT64 J = 0; J < Continuations; ++J) {
      SplitAtSpace(Labels[Line + J], &Labels[Line + J + 1], Width);
      SplitAtSpace(Values[Line + J], &Values[Line + J + 1], Width);
    }
    Line += Continuations + 1;
  }
}

}  // namespace

UINT64 WrapCount(const CHAR16* Label, const CHAR16* Value, UINT64 Width) {
  if (Width == 0) return 0;
  const UINT64 Labels = (Label != nullptr ? StrLen(Label) : 0) / Width;
  const UINT64 Values = (Value != nullptr ? StrLen(Value) : 0) / Width;
  return Labels > Values ? Labels : Values;
}

VOID SplitAtSpace(CHAR16* Text, CHAR16** Rest, UINT64 Width) {
  VOID* Buffer = nullptr;
  *Rest = nullptr;
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, RestBytes, &Buffer))) return;
  CHAR16* Tail = static_cast<CHAR16*>(Buffer);
  Tail[0] = 0;
  *Rest = Tail;
  if (Text == nullptr || Width == 0 || StrLen(Text) < Width) return;
  UINT64 Space = Width;
  while (Space > 0 && Text[Space] != u' ') --Space;
  // Without a space the text is cut at the width; with one it ends just after it.
  const UINT64 End = Text[Space] == u' ' ? Space + 1 : Width;
  UINTN Copied = 0;
  for (const CHAR16* From = Text + End; *From != 0 && Copied + 1 < RestChars; ++From) Tail[Copied++] = *From;
  Tail[Copied] = 0;
  Text[End] = 0;
}

VOID GatherSystemInfo(SystemInfo& Info) {
  ShowWaitBox();
  const UINT64 ModuleTabs = Info.InfoTabCount - 1;
  Info.InfoTabNames = AllocateZeroedArray<CHAR16*>(ModuleTabs);
  Info.InfoLabels = AllocateZeroedArray<CHAR16**>(ModuleTabs);
  Info.InfoValues = AllocateZeroedArray<CHAR16**>(ModuleTabs);
  Info.InfoLineCounts = AllocateZeroedArray<UINT64>(ModuleTabs);
  if (Info.InfoTabNames == nullptr || Info.InfoLabels == nullptr || Info.InfoValues == nullptr ||
      Info.InfoLineCounts == nullptr) {
    Info.Release();
    Info.InfoTabCount = 1;
    return;
  }
  UINT64 Tab = 0;
  const UINT64 Tests = UiTests->GetTestCount();
  for (UINT64 I = 0; I < Tests && Tab < ModuleTabs; ++I) {
    TestModuleProtocol* Module = nullptr;
    if (EFI_ERROR(UiTests->GetTest(I, &Module)) || Module == nullptr) continue;
    if (Module->GetSystemInfoRowCount(Module) == 0) continue;
    BuildModuleTab(Info, Tab++, Module);
  }
}

VOID SystemInfo::Release() {
  const UINT64 ModuleTabs = InfoTabCount > 0 ? InfoTabCount - 1 : 0;
  for (UINT64 Tab = 0; Tab < ModuleTabs; ++Tab) {
    const UINT64 Lines = InfoLineCounts != nullptr ? InfoLineCounts[Tab] : 0;
    if (InfoLabels != nullptr) FreeTextArray(InfoLabels[Tab], Lines);
    if (InfoValues != nullptr) FreeTextArray(InfoValues[Tab], Lines);
  }
  FreeTextArray(InfoTabNames, ModuleTabs);
  VOID* const Arrays[] = {InfoLabels, InfoValues, InfoLineCounts};
  for (VOID* Array : Arrays)
    if (Array != nullptr) gBS->FreePool(Array);
  InfoLabels = nullptr;
  InfoValues = nullptr;
  InfoLineCounts = nullptr;
}

}  // namespace tarvik
