// The application as shipped: which services start-up installs, in which
// order, and the user interface it hands over to.
#pragma once

#include "core/startup.h"

namespace tarvik {

extern const StartupPlan ApplicationPlan;

}  // namespace tarvik
