// English texts of status values for the shared services. The formatter's
// %r names most errors with these texts too.
#include "core/status_text.h"

namespace tarvik {
namespace {

// Indexed by the status with its error bit cleared.
constexpr const CHAR16* StatusTexts[] = {
    u"Success",
    u"Load Error",
    u"Invalid Parameter",
    u"Unsupported",
    u"Bad Buffer Size",
    u"Buffer Too Small",
    u"Not Ready",
    u"Device Error",
    u"Write Protected",
    u"Out of Resources",
    u"Volume Corrupt",
    u"Volume Full",
    u"No Media",
    u"Media changed",
    u"Not Found",
    u"Access Denied",
    u"No Response",
    u"No mapping",
    u"Time out",
    u"Not started",
    u"Already started",
    u"Aborted",
    u"ICMP Error",
    u"TFTP Error",
    u"Protocol Error",
    u"Incompatible Version",
    u"Security Violation",
    u"CRC Error",
    u"End of Media",
    u"Unknown error #39",
    u"Unknown error #40",
    u"End of File",
    u"Invalid Language",
};
static_assert(sizeof(StatusTexts) / sizeof(StatusTexts[0]) == 33);

}  // namespace

// A warning has no text of its own: it gets the text of the error with the
// same number.
EFIAPI const CHAR16* StatusToString(EFI_STATUS Status) {
  UINT64 Index = Status & ~EFI_ERROR_BIT;
  if (Index >= sizeof(StatusTexts) / sizeof(StatusTexts[0])) return u"Unknown error code";
  return StatusTexts[Index];
}

}  // namespace tarvik
