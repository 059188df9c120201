#include "memtest/installed_memory.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/pool.h"
#include "memtest/memory_texts.h"

namespace tarvik {
namespace {

constexpr UINT64 SizeUnknown = 0xFFFF;
constexpr UINT64 SizeInExtendedField = 0x7FFF;
constexpr UINT64 SizeInKilobytes = 0x8000;
constexpr UINTN LineChars = 200;

BOOLEAN IsMemory(UINT32 Type) {
  return Type != EfiReservedMemoryType && Type != EfiUnusableMemory && Type != EfiMemoryMappedIO &&
         Type != EfiMemoryMappedIOPortSpace && Type < EfiMaxMemoryType;
}

// Megabytes of memory in the current memory map; 0 when it cannot be read.
UINT64 ReadMappedMemoryMb() {
  PoolPtr<UINT8> Map;
  UINTN MapSize = 40, MapKey = 0, DescriptorSize = 0;
  UINT32 Version = 0;
  const EFI_STATUS Status = QueryWithGrowingBuffer(Map, MapSize, [&](UINT8* Buffer, UINTN* Size) {
    return gBS->GetMemoryMap(Size, reinterpret_cast<EFI_MEMORY_DESCRIPTOR*>(Buffer), &MapKey, &DescriptorSize,
                             &Version);
  });
  if (EFI_ERROR(Status) || DescriptorSize < sizeof(EFI_MEMORY_DESCRIPTOR)) return 0;
  return MappedMemoryMb(Map.get(), MapSize / DescriptorSize, DescriptorSize);
}

VOID SendLogLine(TestModuleProtocol* This, TEST_MESSAGE_CALLBACK Message, const CHAR16* Line) {
  Message(This, Line, static_cast<UINT8>(TestMessageKind::LogLine), 0);
}

}  // namespace

UINT64 ModuleSizeMb(UINT64 SizeField) {
  if (SizeField == SizeUnknown || SizeField == SizeInExtendedField) return 0;
  if ((SizeField & SizeInKilobytes) != 0) return (SizeField & ~SizeInKilobytes) / 1024;
  return SizeField;
}

InstalledMemory CompareInstalledMemory(const MemoryModules& Modules, UINT64 MappedMb) {
  InstalledMemory Memory;
  Memory.MappedMb = MappedMb;
  Memory.Known = Modules.Count > 0;
  for (UINT64 M = 0; M < Modules.Count; ++M) {
    const UINT64 Size = ModuleSizeMb(Modules.SizeMb[M]);
    if (Size == 0) Memory.Known = FALSE;
    Memory.InstalledMb += Size;
    if (Memory.SmallestMb == 0 || Size < Memory.SmallestMb) Memory.SmallestMb = Size;
  }
  return Memory;
}

UINT64 MappedMemoryMb(const UINT8* Map, UINTN Entries, UINTN DescriptorSize) {
  UINT64 Pages = 0;
  for (UINTN I = 0; I < Entries; ++I) {
    const auto& Region = *reinterpret_cast<const EFI_MEMORY_DESCRIPTOR*>(Map + I * DescriptorSize);
    if (IsMemory(Region.Type)) Pages += Region.NumberOfPages;
  }
  return Pages / 256;
}

UINT64 CheckInstalledMemory(const MemoryModules& Modules, TestModuleProtocol* This, TEST_MESSAGE_CALLBACK Message,
                            UINT64 Result) {
  if (Result != TEST_RESULT_PASSED && Result != TEST_RESULT_FAILED) return Result;
  const InstalledMemory Memory = CompareInstalledMemory(Modules, ReadMappedMemoryMb());
  if (!Memory.ModuleNotInUse() || Message == nullptr) return Result;

  CHAR16 Line[LineChars];
  SPrint(Line, sizeof(Line), u"ERROR MEMORY_NOT_IN_USE INSTALLED %ld MAPPED %ld", Memory.InstalledMb,
         Memory.MappedMb);
  SendLogLine(This, Message, Line);
  for (UINT64 M = 0; M < Modules.Count; ++M) {
    const CHAR16* Slot = Modules.Locator != nullptr && Modules.Locator[M] != nullptr ? Modules.Locator[M] : u"";
    SPrint(Line, sizeof(Line), u"MESSAGE MODULE_SLOT %s SIZE %ld", Slot, ModuleSizeMb(Modules.SizeMb[M]));
    SendLogLine(This, Message, Line);
  }
  CHAR16 Notice[2 * LineChars];
  SPrint(Notice, sizeof(Notice), u"%s %s %,ld MB, %s %,ld MB.", MemoryText(memory_text::NotInUse),
         MemoryText(memory_text::InstalledSize), Memory.InstalledMb, MemoryText(memory_text::MappedSize),
         Memory.MappedMb);
  Message(This, Notice, static_cast<UINT8>(TestMessageKind::Notice), 0);
  return TEST_RESULT_FAILED;
}

}  // namespace tarvik
