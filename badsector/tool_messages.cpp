// How the tool talks to its screen: progress, output lines and questions.
#include "badsector/tool_state.h"
#include "core/format.h"

namespace tarvik {

const CHAR16* BadSectorsTool::Text(UINT64 Id) const {
  if (Strings == nullptr || Id >= StringCount || Strings[Id] == nullptr) return u"";
  return Strings[Id];
}

VOID ToolRun::ReportProgress(UINT64 Percent) {
  ToolProgress = Percent;
  ProgressCallback(Context, Percent, 0);
}

bool ToolRun::Ask(const CHAR16* Text, ToolMessageKind Kind) {
  CHAR16 Message[ToolLineChars];
  SPrint(Message, sizeof(Message), u"%s", Text);
  // Warnings and confirmations come with a byte the screen may use as it
  // likes; the tool does not read it back.
  UINT8 Scratch = 0;
  const UINT64 Extra =
      Kind == ToolMessageKind::Question ? 0 : static_cast<UINT64>(reinterpret_cast<UINTN>(&Scratch));
  return MessageCallback(Context, Message, static_cast<UINT8>(Kind), Extra) == EFI_SUCCESS;
}

EFIAPI VOID ToolLine(ToolRun& Run, UINTN Chars, const CHAR16* Format, ...) {
  CHAR16 Line[ToolLineChars];
  VA_LIST Args;
  VA_START(Args, Format);
  FormatV(Line, Chars < ToolLineChars ? Chars : ToolLineChars, Format, Args);
  VA_END(Args);
  Run.MessageCallback(Run.Context, Line, static_cast<UINT8>(ToolMessageKind::Line), 0);
}

}  // namespace tarvik
