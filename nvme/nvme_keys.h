// The NVMe module's algorithms in menu order, their log keys, the keys of
// its log lines, and the "NVMe" text each key is shown as.
#pragma once

#include "nvme/nvme_module.h"

namespace tarvik {

enum class NvmeAlgorithm : UINT64 {
  HealthStatus,
  ShortSelfTest,
  ExtendedSelfTest,
  RandomRead,
  ErrorLogRead,
  FullReadScan,
};
inline constexpr UINT64 NvmeAlgorithmCount = 6;

// The log key of algorithm Index (below NvmeAlgorithmCount).
const CHAR16* NvmeAlgorithmKey(UINT64 Index);

// The text Key is shown as, or null for a key the module does not know.
const CHAR16* NvmeKeyText(const NvmeModule& Module, const CHAR16* Key);

// Keys of the algorithms' log lines. A line's figures follow its key as
// upper-case names, each followed by its number.
namespace nvme_key {
inline constexpr const CHAR16* CommunicationFailure = u"COMMUNICATION_FAILURE";
inline constexpr const CHAR16* CantPerformTest = u"CANT_PERFORM_TEST";
inline constexpr const CHAR16* Health = u"SMART_HEALTH";
inline constexpr const CHAR16* Spare = u"SMART_SPARE";
inline constexpr const CHAR16* Usage = u"SMART_USAGE";
inline constexpr const CHAR16* HealthFailing = u"NVME_HEALTH_FAILING";
inline constexpr const CHAR16* SelfTestNotSupported = u"SELF_TEST_NOT_SUPPORTED";
inline constexpr const CHAR16* SelfTestAlreadyInProgress = u"SELF_TEST_ALREADY_IN_PROGRESS";
inline constexpr const CHAR16* SelfTestFailed = u"SELF_TEST_FAILED";
inline constexpr const CHAR16* SelfTestFailingLba = u"SELF_TEST_FAILING_LBA";
inline constexpr const CHAR16* NoLoggedLbas = u"NO_LOGGED_LBAS";
inline constexpr const CHAR16* ReadSectorError = u"READ_SECTOR_ERROR";
}  // namespace nvme_key

}  // namespace tarvik
