// The list of sector addresses lives with the drive operations.
#pragma once

#include "drives/lba_list.h"
