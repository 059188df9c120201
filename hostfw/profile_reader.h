// The pieces the profile reader is built from, shared by the readers of the
// sections (profile.cpp, profile_drive.cpp): sections as read, typed
// values, and refusals that name the file, the line and the reason.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "hostfw/profile.h"

namespace hostfw {

std::string trim(const std::string& s);
// A comma-separated list; spaces around the items are ignored and empty items dropped.
std::vector<std::string> split_list(const std::string& value);

// One section of the file while it is read: its keys with their lines.
struct Section {
  std::string name;
  int line = 0;
  std::map<std::string, std::pair<std::string, int>> values;

  bool has(const std::string& key) const { return values.count(key) != 0; }
  int line_of(const std::string& key) const { return values.at(key).second; }
};

class Reader {
 public:
  Reader(const std::string& source, const std::string& base) : source_(source), base_(base) {}

  [[noreturn]] void fail(int line, const std::string& reason) const { throw ProfileError(source_, line, reason); }

  // A whole number in decimal digits.
  uint64_t number(const Section& s, const std::string& key, uint64_t min, uint64_t max) const;
  // A register value: decimal, or hexadecimal after 0x.
  uint64_t register_value(const Section& s, const std::string& key, uint64_t max) const;
  bool flag(const Section& s, const std::string& key) const;
  // LBAs and ranges FIRST-LAST, each below `sectors`.
  std::vector<BadSectorRange> sectors(const Section& s, const std::string& key, uint64_t sectors) const;
  // Applies each known key's handler; unknown keys are refused, required ones demanded.
  void read(const Section& s, const std::map<std::string, std::function<void(const std::string&)>>& handlers,
            const std::set<std::string>& required) const;

  const std::string& source() const { return source_; }
  const std::string& base() const { return base_; }

 private:
  std::string source_;
  std::string base_;
};

// A drive's identity string: the bytes as written, with \xHH for a byte the
// profile's line cannot hold (an unprintable serial number, say); refused
// when longer than limit.
std::string device_string(const Reader& r, const Section& s, const std::string& key, size_t limit);

// A [drive] section (profile_drive.cpp).
DriveInfo read_drive(const Reader& r, const Section& s);
// An [nvme] section (profile_nvme.cpp).
NvmeInfo read_nvme(const Reader& r, const Section& s);

}  // namespace hostfw
