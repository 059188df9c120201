#include "hostfw/sector_set.h"

#include <algorithm>
#include <iterator>

namespace hostfw {

bool SectorSet::first_in(uint64_t from, uint64_t count, uint64_t* found) const {
  auto it = ranges_.upper_bound(from);
  if (it != ranges_.begin() && std::prev(it)->second >= from) {
    *found = from;
    return true;
  }
  if (it != ranges_.end() && it->first - from < count) {
    *found = it->first;
    return true;
  }
  return false;
}

uint64_t SectorSet::add(uint64_t first, uint64_t last) {
  uint64_t added = last - first + 1;
  auto it = ranges_.upper_bound(first);
  if (it != ranges_.begin() && std::prev(it)->second + 1 >= first) it = std::prev(it);
  uint64_t lo = first, hi = last;
  while (it != ranges_.end() && it->first <= last + 1) {
    const uint64_t overlap_lo = std::max(it->first, first), overlap_hi = std::min(it->second, last);
    if (overlap_lo <= overlap_hi) added -= overlap_hi - overlap_lo + 1;
    lo = std::min(lo, it->first);
    hi = std::max(hi, it->second);
    it = ranges_.erase(it);
  }
  ranges_[lo] = hi;
  return added;
}

uint64_t SectorSet::remove(uint64_t first, uint64_t last) {
  uint64_t removed = 0;
  auto it = ranges_.upper_bound(first);
  if (it != ranges_.begin() && std::prev(it)->second >= first) it = std::prev(it);
  while (it != ranges_.end() && it->first <= last) {
    const uint64_t lo = it->first, hi = it->second;
    it = ranges_.erase(it);
    removed += std::min(hi, last) - std::max(lo, first) + 1;
    if (lo < first) ranges_[lo] = first - 1;
    if (hi > last) ranges_[last + 1] = hi;
  }
  return removed;
}

}  // namespace hostfw
