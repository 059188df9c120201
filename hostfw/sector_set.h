// A set of sectors kept as disjoint inclusive ranges, so that a profile's
// "204800-204807" or a 65536-sector write costs one entry, not thousands.
#pragma once

#include <cstdint>
#include <map>

namespace hostfw {

class SectorSet {
 public:
  bool empty() const { return ranges_.empty(); }
  uint64_t first() const { return ranges_.begin()->first; }  // the set must not be empty
  bool contains(uint64_t lba) const {
    uint64_t found = 0;
    return first_in(lba, 1, &found);
  }
  // The lowest member of [from, from + count), if any.
  bool first_in(uint64_t from, uint64_t count, uint64_t* found) const;
  // Adds [first, last]; returns how many sectors were not in the set before.
  uint64_t add(uint64_t first, uint64_t last);
  // Removes [first, last]; returns how many sectors were in the set.
  uint64_t remove(uint64_t first, uint64_t last);

 private:
  std::map<uint64_t, uint64_t> ranges_;  // first -> last
};

}  // namespace hostfw
