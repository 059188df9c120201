#include "badsector/health_warning.h"

#include "storage/algorithm_steps.h"
#include "storage/ata_commands.h"
#include "storage/smart_attributes.h"

namespace tarvik {
namespace {

// The reallocated-sector attribute's current value and its threshold, 0 for
// what the drive does not list. False when either page could not be read.
bool ReadReallocatedSectors(StorageDevice& Device, UINT8& Value, UINT8& Threshold) {
  Value = 0;
  Threshold = 0;
  if (!CommandSucceeded(SmartReadData(&Device))) return false;
  Value = ReallocatedSectorsValue(static_cast<const UINT8*>(Device.DataBuffer));
  // The thresholds page replaces the data page in the drive's data buffer.
  if (!CommandSucceeded(SmartReadThresholds(&Device))) return false;
  Threshold = ReallocatedSectorsThreshold(static_cast<const UINT8*>(Device.DataBuffer));
  return true;
}

}  // namespace

UINT8 ReallocatedSectorsValue(const UINT8* SmartDataPage) {
  SmartAttribute Attribute{};
  return FindSmartAttribute(SmartDataPage, SmartAttributeReallocatedSectors, &Attribute) ? Attribute.Value : 0;
}

UINT8 ReallocatedSectorsThreshold(const UINT8* ThresholdsPage) {
  UINT8 Threshold = 0;
  FindSmartThreshold(ThresholdsPage, SmartAttributeReallocatedSectors, &Threshold);
  return Threshold;
}

bool AcknowledgeHealthWarning(BadSectorsTool& Tool, StorageDevice& Device) {
  const StorageDeviceInfo& Info = *Device.Info;
  if (Info.SmartSupported == 0) return true;
  const bool EnabledHere = Info.SmartEnabled == 0;
  if (EnabledHere && !CommandSucceeded(SmartEnableOperations(&Device))) return true;
  UINT8 Value = 0;
  UINT8 Threshold = 0;
  const bool Read = ReadReallocatedSectors(Device, Value, Threshold);
  // SMART is left as the tool found it, also when a page could not be read.
  if (EnabledHere && !CommandSucceeded(SmartDisableOperations(&Device))) return true;
  if (!Read || !ReallocatedSectorsNearThreshold(Value, Threshold)) return true;
  return Tool.Run.Ask(Tool.Text(tool_text::ImminentFailure), ToolMessageKind::Warning);
}

}  // namespace tarvik
