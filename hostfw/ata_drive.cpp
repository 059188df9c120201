#include "hostfw/ata_drive.h"

#include <algorithm>

#include "hostfw/ata_command_set.h"

namespace hostfw {
namespace {

constexpr uint64_t kFailingDriveReallocated = 1720;  // a drive whose SMART status fails

}  // namespace

void put_le(uint8_t* at, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

void set_checksum(uint8_t* page) {
  uint8_t sum = 0;
  for (uint32_t i = 0; i < ata::kPage - 1; ++i) sum = static_cast<uint8_t>(sum + page[i]);
  page[ata::kPage - 1] = static_cast<uint8_t>(-sum);
}

AtaDrive::AtaDrive(const DriveInfo& drive) : info(drive), smart_enabled(drive.smart_enabled) {
  for (const BadSectorRange& r : info.bad_sectors) pending += bad.add(r.first, r.last);
  offline_uncorrectable = pending;
  if (info.smart_failing) reallocated = kFailingDriveReallocated;
  worst_reallocated_value = reallocated_value();
  build_identify();
}

void AtaDrive::write(uint64_t lba, uint64_t count) {
  const uint64_t remapped = bad.remove(lba, lba + count - 1);
  reallocated += remapped;
  pending -= std::min(pending, remapped);
  offline_uncorrectable -= std::min(offline_uncorrectable, remapped);
}

void AtaDrive::make_uncorrectable(uint64_t lba, uint64_t count) { pending += bad.add(lba, lba + count - 1); }

}  // namespace hostfw
