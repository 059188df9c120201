// The program's version, as the screens' last row and the results file show it.
#pragma once

#include "efi/base.h"

namespace tarvik {

inline constexpr CHAR16 ProgramVersion[] = u"00.1207";

}  // namespace tarvik
