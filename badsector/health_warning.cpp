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
  SmartAttribute Attribute{};
  if (FindSmartAttribute(static_cast<const UINT8*>(Device.DataBuffer), SmartAttributeReallocatedSectors, &Attribute))
    Value = Attribute.Value;
  // The thresholds page replaces the data page in the drive's data buffer.
  if (!CommandSucceeded(SmartReadThresholds(&Device))) return false;
  FindSmartThreshold(static_cast<const UINT8*>(Device.DataBuffer), SmartAttributeReallocatedSectors, &Threshold);
  return true;
}

}  // namespace

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
