// A SMART READ DATA page and a READ ATTRIBUTE THRESHOLDS page of any content
// (the input's first and second 512 bytes, zero-filled): every attribute and
// threshold looked up, the temperature, the self-test status, and the
// bad-sector tool's reading of attribute 5 against its threshold.
#include <cstdint>
#include <vector>

#include "badsector/health_warning.h"
#include "storage/smart_attributes.h"
#include "tests/fuzz/input_slice.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  constexpr size_t kPage = 512;
  const std::vector<uint8_t> SmartData = fuzz_support::Slice(Data, Size, 0, kPage);
  const std::vector<uint8_t> Thresholds = fuzz_support::Slice(Data, Size, kPage, kPage);

  for (unsigned Id = 0; Id <= 0xFF; ++Id) {
    tarvik::SmartAttribute Attribute{};
    UINT8 Threshold = 0;
    const bool Listed = tarvik::FindSmartAttribute(SmartData.data(), static_cast<UINT8>(Id), &Attribute);
    // Slot identifiers are the page's first byte of each slot: a listed
    // attribute is the one asked for, and 0 marks an empty slot.
    if (Listed && (Id == 0 || Attribute.Id != Id)) __builtin_trap();
    tarvik::FindSmartThreshold(Thresholds.data(), static_cast<UINT8>(Id), &Threshold);
  }
  tarvik::SmartTemperature(SmartData.data());
  tarvik::SelfTestExecutionStatus(SmartData.data());
  tarvik::ReallocatedSectorsNearThreshold(tarvik::ReallocatedSectorsValue(SmartData.data()),
                                          tarvik::ReallocatedSectorsThreshold(Thresholds.data()));
  return 0;
}
