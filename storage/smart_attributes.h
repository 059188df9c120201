// SMART READ DATA and READ ATTRIBUTE THRESHOLDS pages, and the lookup of an
// attribute in them. Pure functions over the 512 bytes a drive returned.
#pragma once

#include "efi/efi.h"

namespace tarvik {

inline constexpr UINTN SmartAttributeSlots = 30;
inline constexpr UINT8 SmartAttributeReallocatedSectors = 5;
inline constexpr UINT8 SmartAttributePowerOnHours = 9;
inline constexpr UINT8 SmartAttributeTemperature = 194;

struct [[gnu::packed]] SmartAttribute {
  UINT8 Id;  // 0: empty slot
  UINT16 Flags;
  UINT8 Value;  // normalised current value
  UINT8 Worst;
  UINT8 Raw[6];  // vendor-specific; the temperature in Raw[0]
  UINT8 Reserved;
};
static_assert(sizeof(SmartAttribute) == 12);
static_assert(__builtin_offsetof(SmartAttribute, Raw) == 5);

struct [[gnu::packed]] SmartData {
  UINT16 Revision;
  SmartAttribute Attributes[SmartAttributeSlots];  // bytes 2-361
  UINT8 OfflineCollectionStatus;                   // 362
  // 363: high nibble the self-test status (0 done without error, 15 in
  // progress, else a failure or interruption), low nibble the remaining
  // work in tenths.
  UINT8 SelfTestExecutionStatus;
  UINT16 OfflineCollectionSeconds;
  UINT8 Vendor366;
  UINT8 OfflineCapability;
  UINT16 SmartCapability;
  UINT8 ErrorLoggingCapability;
  UINT8 Vendor371;
  UINT8 ShortSelfTestMinutes;
  UINT8 ExtendedSelfTestMinutes;
  UINT8 ConveyanceSelfTestMinutes;
  UINT16 ExtendedSelfTestMinutesWord;
  UINT8 Reserved[9];
  UINT8 Vendor[125];
  UINT8 Checksum;
};
static_assert(sizeof(SmartData) == 512);
static_assert(__builtin_offsetof(SmartData, SelfTestExecutionStatus) == 363);
static_assert(__builtin_offsetof(SmartData, ShortSelfTestMinutes) == 372);
static_assert(__builtin_offsetof(SmartData, Checksum) == 511);

struct [[gnu::packed]] SmartThreshold {
  UINT8 Id;
  UINT8 Threshold;
  UINT8 Reserved[10];
};
static_assert(sizeof(SmartThreshold) == 12);

struct [[gnu::packed]] SmartThresholds {
  UINT16 Revision;
  SmartThreshold Entries[SmartAttributeSlots];  // same slots as SmartData
  UINT8 Reserved[149];
  UINT8 Checksum;
};
static_assert(sizeof(SmartThresholds) == 512);
static_assert(__builtin_offsetof(SmartThresholds, Checksum) == 511);

// Finds attribute Id in a SMART data page (512 bytes); when it appears more
// than once, the last slot wins. False when absent (Id 0 never matches).
BOOLEAN FindSmartAttribute(const UINT8* SmartDataPage, UINT8 Id, SmartAttribute* Found);

// The threshold of attribute Id in a thresholds page (512 bytes); the last
// matching slot wins. False when absent.
BOOLEAN FindSmartThreshold(const UINT8* ThresholdsPage, UINT8 Id, UINT8* Threshold);

// Degrees Celsius from attribute 194 (its first raw byte), 0 without one.
INT8 SmartTemperature(const UINT8* SmartDataPage);

// Byte 363 of a SMART data page.
UINT8 SelfTestExecutionStatus(const UINT8* SmartDataPage);

}  // namespace tarvik
