// The storage module's log keys and the "Storage" text each is shown as; the
// keys of the six algorithms the menus list are among them, in algorithm
// order.
#pragma once

#include "storage/storage_module.h"

namespace tarvik {

// Algorithms 0-5 are listed; RunTest also runs 6, the extended self-test.
inline constexpr UINT64 ListedStorageAlgorithms = 6;

// The log key of listed algorithm Index (below ListedStorageAlgorithms).
const CHAR16* StorageAlgorithmKey(UINT64 Index);
// The number of the "Storage" text naming listed algorithm Index.
UINT64 StorageAlgorithmNameText(UINT64 Index);

// The text Key is shown as, or null for a key the module does not know.
const CHAR16* StorageKeyText(const StorageModule& Module, const CHAR16* Key);

}  // namespace tarvik
