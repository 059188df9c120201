// The imminent-failure warning before any operation: a drive whose
// reallocated-sector attribute has come close to its threshold is about to
// fail, and rewriting its sectors would only use up the last spares.
#pragma once

#include "badsector/tool_state.h"

namespace tarvik {

// Reads attribute 5 and its threshold from a drive that supports SMART
// (switching SMART on for the reading when it is off) and, when the value
// is no more than 1.25 times the threshold, shows the warning. False when
// the user refused it; true otherwise, also when the drive could not tell.
bool AcknowledgeHealthWarning(BadSectorsTool& Tool, StorageDevice& Device);

// Attribute 5's normalised value in a SMART data page and its threshold in
// a thresholds page (512 bytes each); 0 for what a page does not list.
UINT8 ReallocatedSectorsValue(const UINT8* SmartDataPage);
UINT8 ReallocatedSectorsThreshold(const UINT8* ThresholdsPage);

// Whether a reallocated-sector value calls for the warning: Value x 100 <=
// Threshold x 125. An attribute the drive does not report counts as 0.
constexpr bool ReallocatedSectorsNearThreshold(UINT8 Value, UINT8 Threshold) {
  return static_cast<UINT32>(Value) * 100 <= static_cast<UINT32>(Threshold) * 125;
}

}  // namespace tarvik
