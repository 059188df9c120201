#include "storage/smart_attributes.h"

namespace tarvik {

BOOLEAN FindSmartAttribute(const UINT8* SmartDataPage, UINT8 Id, SmartAttribute* Found) {
  if (SmartDataPage == nullptr || Id == 0) return FALSE;
  SmartData Page;
  __builtin_memcpy(&Page, SmartDataPage, sizeof(Page));
  BOOLEAN Matched = FALSE;
  for (const SmartAttribute& Attribute : Page.Attributes) {
    if (Attribute.Id != Id) continue;
    if (Found != nullptr) *Found = Attribute;
    Matched = TRUE;
  }
  return Matched;
}

BOOLEAN FindSmartThreshold(const UINT8* ThresholdsPage, UINT8 Id, UINT8* Threshold) {
  if (ThresholdsPage == nullptr || Id == 0) return FALSE;
  SmartThresholds Page;
  __builtin_memcpy(&Page, ThresholdsPage, sizeof(Page));
  BOOLEAN Matched = FALSE;
  for (const SmartThreshold& Entry : Page.Entries) {
    if (Entry.Id != Id) continue;
    if (Threshold != nullptr) *Threshold = Entry.Threshold;
    Matched = TRUE;
  }
  return Matched;
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
