// Little-endian fields of the pages the simulated drives send.
#pragma once

#include <cstdint>

namespace hostfw {

inline void put_le(uint8_t* at, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace hostfw
