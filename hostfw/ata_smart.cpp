// SMART of a simulated drive: attributes, thresholds and the data page.
#include "hostfw/ata_drive.h"

#include <algorithm>
#include <cstring>

#include "hostfw/ata_command_set.h"

namespace hostfw {
using namespace ata;
namespace {

constexpr uint64_t kSecond = 1000000000ull;
constexpr uint64_t kHour = 3600 * kSecond;

uint8_t polling_minutes(uint64_t ns) { return static_cast<uint8_t>(std::min<uint64_t>((ns + 60 * kSecond - 1) / (60 * kSecond), 255)); }

}  // namespace

uint64_t AtaDrive::power_on_hours(uint64_t now_ns) const { return info.power_on_hours + now_ns / kHour; }

uint8_t AtaDrive::reallocated_value() const {
  const uint64_t used = std::min<uint64_t>(reallocated * 100 / info.spare_sectors, 99);
  return static_cast<uint8_t>(100 - used);
}

std::vector<AtaDrive::Attribute> AtaDrive::attributes(uint64_t now_ns) {
  const uint64_t hours = power_on_hours(now_ns);
  const uint8_t hours_value = static_cast<uint8_t>(100 - std::min<uint64_t>(hours / 1000, 99));
  const uint8_t realloc_value = reallocated_value();
  worst_reallocated_value = std::min(worst_reallocated_value, realloc_value);
  const uint64_t t = info.temperature_c;
  const uint64_t t_min = t > 15 ? t - 15 : 0, t_max = t + 10;
  std::vector<Attribute> all = {
      {1, 0x000F, 100, 100, 6, 0},
      {5, 0x0033, realloc_value, worst_reallocated_value, info.reallocated_threshold, reallocated},
      {9, 0x0032, hours_value, hours_value, 0, hours},
      {12, 0x0032, 100, 100, 20, 1 + hours / 9},
      {194, 0x0022, static_cast<uint8_t>(t), static_cast<uint8_t>(t_max), 0, t | t_min << 16 | t_max << 32},
      {197, 0x0012, 100, 100, 0, pending},
      {198, 0x0010, 100, 100, 0, offline_uncorrectable},
  };
  std::erase_if(all, [this](const Attribute& a) {
    return std::find(info.absent_attributes.begin(), info.absent_attributes.end(), a.id) != info.absent_attributes.end();
  });
  return all;
}

bool AtaDrive::threshold_exceeded(uint64_t now_ns) {
  if (info.smart_failing) return true;
  for (const Attribute& a : attributes(now_ns))
    if ((a.flags & 1) != 0 && a.threshold != 0 && a.value <= a.threshold) return true;
  return false;
}

namespace {

// The SMART data and thresholds pages: revision 0x0010, then one 12-byte
// entry per attribute, each starting with the attribute's number.
template <typename Fill>
void attribute_page(uint8_t* out, const std::vector<AtaDrive::Attribute>& attributes, Fill fill) {
  std::memset(out, 0, kPage);
  put_le(out, 0x0010, 2);
  uint8_t* entry = out + 2;
  for (const AtaDrive::Attribute& a : attributes) {
    entry[0] = a.id;
    fill(entry, a);
    entry += 12;
  }
}

}  // namespace

void AtaDrive::smart_data(uint8_t* out, uint64_t now_ns) {
  attribute_page(out, attributes(now_ns), [](uint8_t* entry, const Attribute& a) {
    put_le(entry + 1, a.flags, 2);
    entry[3] = a.value;
    entry[4] = a.worst;
    put_le(entry + 5, a.raw, 6);
  });
  out[362] = offline_status;
  out[363] = execution_status(now_ns);
  put_le(out + 364, 600, 2);  // off-line data collection: ten minutes
  // Off-line immediate, abort, read scanning; self-tests and conveyance when supported.
  out[367] = info.self_test_supported ? 0x3B : 0x0B;
  put_le(out + 368, 0x0003, 2);
  out[370] = 0x01;  // error logging
  out[372] = polling_minutes(duration_ns(kShortSelfTest));
  const uint8_t extended = polling_minutes(duration_ns(kExtendedSelfTest));
  out[373] = extended;
  out[374] = polling_minutes(duration_ns(kConveyanceSelfTest));
  put_le(out + 375, extended, 2);
  set_checksum(out);
}

void AtaDrive::smart_thresholds(uint8_t* out, uint64_t now_ns) {
  attribute_page(out, attributes(now_ns), [](uint8_t* entry, const Attribute& a) { entry[1] = a.threshold; });
  set_checksum(out);
}

}  // namespace hostfw
