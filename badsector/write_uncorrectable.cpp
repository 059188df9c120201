#include "badsector/write_uncorrectable.h"

#include "registry/module_protocol.h"
#include "storage/ata_commands.h"
#include "drives/random_lba.h"

namespace tarvik {
namespace {

constexpr UINT64 SectorsToMark = 5;

}  // namespace

UINT64 RandomSectorToMark(const DiagCommonProtocol& Common, UINT64 TotalSectors) {
  // One draw of RandomRange(1, TotalSectors - 1) below 2^31 sectors.
  return 1 + RandomUpTo(Common, TotalSectors - 2);
}

UINT64 WriteUncorrectableSectors(BadSectorsTool& Tool, StorageDevice& Device) {
  ToolRun& Run = Tool.Run;
  Run.ReportProgress(0);
  SeedRandomFromTime(*Tool.Common);
  const UINT64 Total = Device.Info->TotalSectors;
  // Sector 0 is never marked: a drive without a second sector has none to offer.
  if (Total < 2) {
    ToolLine(Run, MarkLineChars, u"Error in WriteUncorrectable");
    return TEST_RESULT_PLATFORM_ERROR;
  }
  for (UINT64 Mark = 0; Mark < SectorsToMark; ++Mark) {
    const UINT64 Lba = RandomSectorToMark(*Tool.Common, Total);
    ToolLine(Run, MarkLineChars, u"Writting to LBA %ld", Lba);
    if (AtaWriteUncorrectable(&Device, Lba) != EFI_SUCCESS) {
      ToolLine(Run, MarkLineChars, u"Error in WriteUncorrectable");
      return TEST_RESULT_PLATFORM_ERROR;
    }
    Run.ReportProgress(Mark * 20);
  }
  Run.ReportProgress(100);
  return TEST_RESULT_PASSED;
}

}  // namespace tarvik
