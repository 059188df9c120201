#include "storage/storage_keys.h"

#include "core/wide_string.h"

namespace tarvik {
namespace {

struct KeyText {
  const CHAR16* Key;
  UINT64 Text;  // number of the "Storage" text
};

// Searched in this order; the first equal key wins.
constexpr KeyText KeyTexts[] = {
    {u"STORAGE", storage_text::ModuleName},
    {u"TYPE", 128},
    {u"MODEL", storage_text::ModelNumber},
    {u"MANUFACTURER", storage_text::Manufacturer},
    {u"SERIAL", storage_text::SerialNumber},
    {u"FIRMWARE", storage_text::FirmwareRevision},
    {u"SIZE", storage_text::Size},
    {u"ROTATION_RATE", storage_text::RotationRate},
    {u"CACHE", storage_text::CacheSize},
    {u"TEMPERATURE", storage_text::Temperature},
    {u"PHYSICAL_SECTOR_SIZE", storage_text::PhysicalSectorSize},
    {u"LOGICAL_SECTOR_SIZE", storage_text::LogicalSectorSize},
    {u"LOGICAL_SECTORS", storage_text::LogicalSectors},
    {u"SUPPORTED_STANDARDS", storage_text::SupportedStandards},
    {u"SPEC_VERSION", storage_text::StandardVersion},
    {u"UNKNOWN_ALGORITHM", storage_text::UnknownAlgorithm},
    {u"SMARTSTATUS", storage_text::SmartStatus},
    {u"SMARTSHORTSELFTEST", storage_text::SmartShortSelfTest},
    {u"SMARTDRIVESELFTEST", storage_text::DriveSelfTest},
    {u"RANDOMSEEK", storage_text::RandomSeek},
    {u"FUNNELSEEK", storage_text::FunnelSeek},
    {u"TARGETEDREAD", storage_text::TargetedRead},
    {u"CANT_PERFORM_TEST", 129},
    {u"COMMUNICATION_FAILURE", 130},
    {u"SMART_DISABLED", 131},
    {u"ENABLING_SMART", 132},
    {u"CANT_ENABLE_SMART", 133},
    {u"CANT_DISABLE_SMART", 134},
    {u"SMART_NOT_SUPPORTED", 135},
    {u"SMART_THRESHOLD_EXCEEDED", 136},
    {u"SELF_TEST_ALREADY_IN_PROGRESS", 137},
    {u"SHORT_SELFTEST_ERROR_DETECTED", 138},
    {u"DRIVE_SELFTEST_ERROR_DETECTED", 139},
    {u"CANT_PERFORM_DRIVE_SELFTEST", 140},
    {u"READING_SECTOR", 141},
    {u"READ_SECTOR_ERROR", 142},
};
static_assert(sizeof(KeyTexts) / sizeof(KeyTexts[0]) == 36);

// Where the listed algorithms' keys start, in algorithm order.
constexpr UINT64 FirstAlgorithmKey = 16;
static_assert(KeyTexts[FirstAlgorithmKey].Text == storage_text::SmartStatus);
static_assert(KeyTexts[FirstAlgorithmKey + ListedStorageAlgorithms - 1].Text == storage_text::TargetedRead);

}  // namespace

const CHAR16* StorageAlgorithmKey(UINT64 Index) { return KeyTexts[FirstAlgorithmKey + Index].Key; }

UINT64 StorageAlgorithmNameText(UINT64 Index) { return KeyTexts[FirstAlgorithmKey + Index].Text; }

const CHAR16* StorageKeyText(const StorageModule& Module, const CHAR16* Key) {
  if (Key == nullptr) return nullptr;
  for (const KeyText& Entry : KeyTexts)
    if (StrCmp(Entry.Key, Key) == 0) return StorageText(Module, Entry.Text);
  return nullptr;
}

}  // namespace tarvik
