#include "storage/smart_attributes.h"

namespace tarvik {

namespace {

static_assert(__builtin_offsetof(SmartData, Attributes) == __builtin_offsetof(SmartThresholds, Entries));
static_assert(sizeof(SmartAttribute) == sizeof(SmartThreshold));

// The last of a page's slots whose identifier (first byte) is Id, or null.
// Data and threshold pages share the slot layout.
const UINT8* LastSlotWithId(const UINT8* Page, UINT8 Id) {
  if (Page == nullptr || Id == 0) return nullptr;
  const UINT8* Found = nullptr;
  for (UINTN Slot = 0; Slot < SmartAttributeSlots; ++Slot) {
    const UINT8* Entry = Page + __builtin_offsetof(SmartData, Attributes) + Slot * sizeof(SmartAttribute);
    if (Entry[0] == Id) Found = Entry;
  }
  return Found;
}

}  // namespace

BOOLEAN FindSmartAttribute(const UINT8* SmartDataPage, UINT8 Id, SmartAttribute* Found) {
  const UINT8* Entry = LastSlotWithId(SmartDataPage, Id);
  if (Entry == nullptr) return FALSE;
  if (Found != nullptr) __builtin_memcpy(Found, Entry, sizeof(*Found));
  return TRUE;
}

BOOLEAN FindSmartThreshold(const UINT8* ThresholdsPage, UINT8 Id, UINT8* Threshold) {
  const UINT8* Entry = LastSlotWithId(ThresholdsPage, Id);
  if (Entry == nullptr) return FALSE;
  if (Threshold != nullptr) *Threshold = Entry[__builtin_offsetof(SmartThreshold, Threshold)];
  return TRUE;
}

INT8 SmartTemperature(const UINT8* SmartDataPage) {
  SmartAttribute Attribute;
  if (!FindSmartAttribute(SmartDataPage, SmartAttributeTemperature, &Attribute)) return 0;
  return static_cast<INT8>(Attribute.Raw[0]);
}

UINT8 SelfTestExecutionStatus(const UINT8* SmartDataPage) {
  return SmartDataPage[__builtin_offsetof(SmartData, SelfTestExecutionStatus)];
}

}  // namespace tarvik
