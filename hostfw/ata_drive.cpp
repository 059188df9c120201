#include "hostfw/ata_drive.h"

#include <algorithm>

#include "hostfw/ata_command_set.h"

namespace hostfw {

void set_checksum(uint8_t* page) {
  uint8_t sum = 0;
  for (uint32_t i = 0; i < ata::kPage - 1; ++i) sum = static_cast<uint8_t>(sum + page[i]);
  page[ata::kPage - 1] = static_cast<uint8_t>(-sum);
}

AtaDrive::AtaDrive(const DriveInfo& drive)
    : info(drive), reallocated(drive.reallocated_sectors), smart_enabled(drive.smart_enabled) {
  auto fill = [](SectorSet& set, const std::vector<BadSectorRange>& ranges) {
    uint64_t added = 0;
    for (const BadSectorRange& r : ranges) added += set.add(r.first, r.last);
    return added;
  };
  fill(unwritable, info.unwritable_sectors);
  fill(unrecoverable, info.unrecoverable_sectors);
  fill(idnf, info.idnf_sectors);
  fill(aborting, info.abort_sectors);
  fill(hanging, info.hang_sectors);
  // Sectors that cannot be written or recovered cannot be read either.
  pending = fill(bad, info.bad_sectors) + fill(bad, info.unwritable_sectors) + fill(bad, info.unrecoverable_sectors);
  offline_uncorrectable = pending;
  worst_reallocated_value = reallocated_value();
  for (uint64_t lba : info.error_log_lbas) log_error(lba, 0);
  for (uint64_t lba : info.self_test_log_lbas)
    record_test(ata::kExtendedSelfTest, static_cast<uint8_t>(ata::kTestReadFailure << 4 | 5),
                static_cast<uint16_t>(info.power_on_hours), lba);
  self_test_status = 0;  // the past tests are history; none has run since power-on
  build_identify();
  if (info.self_test_running) start_test(ata::kExtendedSelfTest, 0);
}

MediaFault AtaDrive::first_fault(uint64_t lba, uint64_t count, bool writing, uint64_t* at) const {
  MediaFault fault = MediaFault::kNone;
  auto consider = [&](const SectorSet& set, MediaFault kind) {
    uint64_t found = 0;
    if (set.first_in(lba, count, &found) && (fault == MediaFault::kNone || found < *at)) {
      fault = kind;
      *at = found;
    }
  };
  consider(hanging, MediaFault::kHang);
  consider(idnf, MediaFault::kIdNotFound);
  consider(aborting, MediaFault::kAbort);
  if (writing)
    consider(unwritable, MediaFault::kUnwritable);
  else
    consider(bad, MediaFault::kUncorrectable);
  return fault;
}

void AtaDrive::write(uint64_t lba, uint64_t count) {
  const uint64_t last = lba + count - 1;
  uint64_t remapped = bad.remove(lba, last);
  // A sector that cannot be recovered takes the data and still fails to read.
  uint64_t from = lba, found = 0;
  while (from <= last && unrecoverable.first_in(from, last - from + 1, &found)) {
    remapped -= bad.add(found, found);
    from = found + 1;
  }
  reallocated += remapped;
  pending -= std::min(pending, remapped);
  offline_uncorrectable -= std::min(offline_uncorrectable, remapped);
  for (uint64_t i = lba; i <= last; ++i) ++counts.sector_writes[i];
}

void AtaDrive::make_uncorrectable(uint64_t lba, uint64_t count) {
  pending += bad.add(lba, lba + count - 1);
  for (uint64_t i = lba; i < lba + count; ++i) ++counts.uncorrectable_marks[i];
}

void AtaDrive::log_error(uint64_t lba, uint64_t now_ns) {
  const size_t capacity = size_t{ata::kErrorEntries} * info.log_pages;
  errors.push_back({lba, static_cast<uint16_t>(power_on_hours(now_ns))});
  if (errors.size() > capacity) errors.erase(errors.begin());
  ++logged_errors;
}

uint64_t AtaDrive::media_ns(uint64_t sectors) const {
  if (info.media_mb_per_s == 0) return 0;
  // Bytes at MB/s (10^6 bytes a second) take bytes * 1000 / rate nanoseconds.
  return sectors * info.logical_sector_bytes * 1000 / info.media_mb_per_s;
}

}  // namespace hostfw
