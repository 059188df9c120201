// Fuzz inputs cut into the fixed-size pages a reader takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz_support {

// Bytes of the input from Offset on, cut or zero-filled to Length.
inline std::vector<uint8_t> Slice(const uint8_t* Data, size_t Size, size_t Offset, size_t Length) {
  std::vector<uint8_t> Out(Length, 0);
  for (size_t I = 0; I < Length && Offset + I < Size; ++I) Out[I] = Data[Offset + I];
  return Out;
}

}  // namespace fuzz_support
