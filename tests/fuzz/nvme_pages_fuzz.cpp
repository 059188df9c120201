// An NVMe page of any content and length: byte 0 picks the reader (Identify
// Controller, Identify Namespace, SMART / Health log, Error Information log,
// Device Self-test log), the rest is the page as the controller wrote it.
// No reader may read past the page, and what it returns must hold.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "nvme/nvme_parsers.h"

namespace {

void CheckTerminated(const CHAR16* Text, UINTN Chars) {
  for (UINTN I = 0; I < Chars; ++I)
    if (Text[I] == 0) return;
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  if (Size == 0) return 0;
  // An exact-size copy, so a read past the page is caught.
  const std::vector<UINT8> Page(Data + 1, Data + Size);
  const UINT8* Bytes = Page.empty() ? nullptr : Page.data();
  switch (Data[0] % 5) {
    case 0: {
      tarvik::NvmeControllerFacts Facts{};
      if (tarvik::ParseIdentifyController(Bytes, Page.size(), &Facts)) {
        CheckTerminated(Facts.Serial, tarvik::NvmeSerialChars);
        CheckTerminated(Facts.Model, tarvik::NvmeModelChars);
        CheckTerminated(Facts.Firmware, tarvik::NvmeFirmwareChars);
        if (Facts.Serial[0] == 0 || Facts.Model[0] == 0) std::abort();
      }
      break;
    }
    case 1: {
      tarvik::NvmeNamespaceFacts Facts{};
      if (tarvik::ParseIdentifyNamespace(Bytes, Page.size(), &Facts) &&
          (Facts.Blocks == 0 || Facts.BlockBytes < 512 || Facts.BlockBytes > 65536))
        std::abort();
      break;
    }
    case 2: {
      tarvik::NvmeHealthFacts Facts{};
      if (tarvik::ParseHealthLog(Bytes, Page.size(), &Facts)) tarvik::HealthFailing(Facts);
      break;
    }
    case 3: {
      UINT64 Lbas[8] = {};
      if (tarvik::ErrorLogLbas(Bytes, Page.size(), 1, Lbas, 8) > 8) std::abort();
      break;
    }
    default: {
      tarvik::NvmeSelfTestFacts Facts{};
      if (tarvik::ParseSelfTestLog(Bytes, Page.size(), &Facts) && Facts.RunningPercent > 100) std::abort();
      break;
    }
  }
  return 0;
}
