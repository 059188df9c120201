#include "memtest/advanced_integrity.h"

#include "core/diag_common.h"
#include "core/globals.h"
#include "core/pool.h"
#include "memtest/firmware_processors.h"

namespace tarvik {

namespace {

constexpr UINTN MessageBytes = 200;
constexpr UINT64 WordsPerPage = 4096 / sizeof(UINT64);

EFIAPI EFI_STATUS IgnoreProgress(VOID*, UINT64, UINT64) { return EFI_SUCCESS; }

// Reads the memory map into Map; the status of the last GetMemoryMap.
EFI_STATUS ReadMemoryMap(PoolPtr<UINT8>& Map, UINTN& MapSize, UINTN& DescriptorSize, UINT32& Version) {
  MapSize = 40;
  UINTN MapKey = 0;
  return QueryWithGrowingBuffer(
      Map, MapSize,
      [&](UINT8* Buffer, UINTN* Size) {
        return gBS->GetMemoryMap(Size, reinterpret_cast<EFI_MEMORY_DESCRIPTOR*>(Buffer), &MapKey, &DescriptorSize,
                                 &Version);
      },
      0, EfiLoaderData);
}

const EFI_MEMORY_DESCRIPTOR& Entry(const UINT8* Map, UINTN Index, UINTN DescriptorSize) {
  return *reinterpret_cast<const EFI_MEMORY_DESCRIPTOR*>(Map + Index * DescriptorSize);
}

VOID SendLine(TestModuleProtocol* This, TEST_MESSAGE_CALLBACK Message, const CHAR16* Line) {
  if (Message != nullptr) Message(This, Line, static_cast<UINT8>(TestMessageKind::LogLine), 0);
}

// Claims every free region in map order; false (with the CRITICAL line
// sent) when one cannot be claimed. Blocks claimed so far stay in Table.
bool ClaimFreeMemory(const UINT8* Map, UINTN Entries, UINTN DescriptorSize, EFI_PHYSICAL_ADDRESS* Address,
                     UINT64 AvailablePages, BlockTable& Table, TestModuleProtocol* This,
                     TEST_MESSAGE_CALLBACK Message) {
  for (UINTN I = 0; I < Entries && Table.BlockCount < MaxMemoryBlocks; ++I) {
    const EFI_MEMORY_DESCRIPTOR& Region = Entry(Map, I, DescriptorSize);
    if (Region.Type != EfiConventionalMemory || Region.NumberOfPages == 0) continue;
    *Address = Region.PhysicalStart;
    if (EFI_ERROR(gBS->AllocatePages(AllocateAddress, EfiBootServicesData, Region.NumberOfPages, Address))) {
      CHAR16 Line[MessageBytes / sizeof(CHAR16)];
      SPrint(Line, sizeof(Line), u"%s %s: %,ld MB", u"CRITICAL", u"CANT_ALLOCATE_MEMORY SIZE", AvailablePages / 256);
      SendLine(This, Message, Line);
      return false;
    }
    const UINT64 Block = Table.BlockCount++;
    Table.BlockBase[Block] = Region.PhysicalStart;
    Table.BlockPages[Block] = Region.NumberOfPages;
    Table.BlockWords[Block] = Region.NumberOfPages * WordsPerPage;
    Table.TotalWords += Table.BlockWords[Block];
  }
  return true;
}

VOID ReleaseClaimedMemory(const BlockTable& Table) {
  for (UINT64 Block = 0; Block < Table.BlockCount; ++Block)
    gBS->FreePages(Table.BlockBase[Block], Table.BlockPages[Block]);
}

}  // namespace

UINT64 BuildPairRuns(const BlockTable& Table, PairRun* Runs) {
  const UINT64 N = Table.HalfWords;
  UINT64 Count = 0;
  // Cursors on word k (low) and word k + N (high): block and offset in it.
  UINT64 LowBlock = 0, LowOffset = 0;
  UINT64 HighBlock = 0, HighOffset = N;
  while (HighBlock < Table.BlockCount && HighOffset >= Table.BlockWords[HighBlock])
    HighOffset -= Table.BlockWords[HighBlock++];
  for (UINT64 K = 0; K < N && Count < MaxPairRuns;) {
    while (LowOffset >= Table.BlockWords[LowBlock]) LowOffset -= Table.BlockWords[LowBlock++];
    while (HighOffset >= Table.BlockWords[HighBlock]) HighOffset -= Table.BlockWords[HighBlock++];
    UINT64 Length = N - K;
    if (Table.BlockWords[LowBlock] - LowOffset < Length) Length = Table.BlockWords[LowBlock] - LowOffset;
    if (Table.BlockWords[HighBlock] - HighOffset < Length) Length = Table.BlockWords[HighBlock] - HighOffset;
    Runs[Count++] = PairRun{K, Length, reinterpret_cast<volatile UINT64*>(Table.BlockBase[LowBlock]) + LowOffset,
                            reinterpret_cast<volatile UINT64*>(Table.BlockBase[HighBlock]) + HighOffset};
    K += Length;
    LowOffset += Length;
    HighOffset += Length;
  }
  return Count;
}

UINT64 RunAdvancedIntegrityTest(MemoryTestState& State, TestModuleProtocol* This, TEST_PROGRESS_CALLBACK Progress,
                                TEST_MESSAGE_CALLBACK Message) {
  State.KeepRunning = 1;
  if (Progress == nullptr) Progress = IgnoreProgress;

  // Everything the run needs is allocated before the memory map is read:
  // once the free memory is claimed, no pool may be left to allocate from.
  PoolPtr<EFI_PHYSICAL_ADDRESS> Address;
  PoolPtr<BlockTable> Table;
  PoolPtr<PairRun> Runs;
  FirmwareProcessors Processors;
  Processors.Prepare();
  if (EFI_ERROR(Address.Allocate(sizeof(EFI_PHYSICAL_ADDRESS), EfiLoaderData)) ||
      EFI_ERROR(Table.Allocate(sizeof(BlockTable))) || EFI_ERROR(Runs.Allocate(MaxPairRuns * sizeof(PairRun))))
    return TEST_RESULT_PLATFORM_ERROR;

  PoolPtr<UINT8> Map;
  UINTN MapSize = 0, DescriptorSize = 0;
  UINT32 Version = 0;
  if (EFI_ERROR(ReadMemoryMap(Map, MapSize, DescriptorSize, Version)) || DescriptorSize == 0 ||
      Version != EFI_MEMORY_DESCRIPTOR_VERSION)
    return TEST_RESULT_PLATFORM_ERROR;

  const UINTN Entries = MapSize / DescriptorSize;
  State.TotalPages = 0;
  State.AvailablePages = 0;
  for (UINTN I = 0; I < Entries; ++I) {
    const EFI_MEMORY_DESCRIPTOR& Region = Entry(Map.get(), I, DescriptorSize);
    State.TotalPages += Region.NumberOfPages;
    if (Region.Type == EfiConventionalMemory) State.AvailablePages += Region.NumberOfPages;
  }
  if (State.AvailablePages / 256 * 256 < MinimumFreePages) return MEMORY_RESULT_LESS_THAN_20MB;

  BlockTable& Blocks = *Table.get();
  Blocks.BlockCount = 0;
  Blocks.HalfWords = 0;
  Blocks.TotalWords = 0;
  UINT64 Result = MEMORY_RESULT_CANNOT_CLAIM;
  if (ClaimFreeMemory(Map.get(), Entries, DescriptorSize, Address.get(), State.AvailablePages, Blocks, This,
                      Message)) {
    Blocks.HalfWords = Blocks.TotalWords / 2;
    Progress(This, 0, 0);
    const UINT64 RunCount = BuildPairRuns(Blocks, Runs.get());
    MarchProgress Reporter{This, Progress, 0, 0, 0};
    PlainWordAccess Words;
    Mismatch Found{0, 0, 0};
    MarchPasses<PlainWordAccess, FirmwareProcessors> Passes(Words, Runs.get(), RunCount, Blocks.HalfWords,
                                                            &State.KeepRunning, Reporter, Processors);
    Result = Passes.Run(&Found);
    CHAR16 Line[MessageBytes / sizeof(CHAR16)];
    if (Passes.ProcessorsThatTested() > 1) {
      SPrint(Line, sizeof(Line), u"%s %s: %d", u"MESSAGE", u"PROCESSORS",
             static_cast<UINT32>(Passes.ProcessorsThatTested()));
      SendLine(This, Message, Line);
    }
    if (Result == TEST_RESULT_FAILED) {
      SPrint(Line, sizeof(Line), u"%s %s %s 0x%X %s 0x%X", u"ERROR", u"WRITE_READ_ERROR", u"WROTE",
             static_cast<UINT32>(Found.ExpectedValue), u"READ", static_cast<UINT32>(Found.BadValue));
      SendLine(This, Message, Line);
    } else if (Result == MarchProcessorHung) {
      SPrint(Line, sizeof(Line), u"%s %s", u"ERROR", u"PROCESSOR_NOT_RESPONDING");
      SendLine(This, Message, Line);
      Result = TEST_RESULT_FAILED;
    }
  }
  ReleaseClaimedMemory(Blocks);
  Progress(This, 100, 0);
  return State.KeepRunning == 0 ? TEST_RESULT_CANCELED : Result;
}

}  // namespace tarvik
