// The [drive] section of a machine profile: an ATA drive, its IDENTIFY
// words, SMART, self-tests, logs and faults (docs/machine-profile.md).
#include <cstdint>
#include <string>

#include "hostfw/profile_reader.h"

namespace hostfw {
namespace {

constexpr uint64_t kLba28Limit = 0x0FFFFFFF;

bool is_power_of_two(uint64_t v) { return v != 0 && (v & (v - 1)) == 0; }

}  // namespace

DriveInfo read_drive(const Reader& r, const Section& s) {
  DriveInfo d;
  std::string smart = "ok";
  auto number = [&](const char* key, uint64_t min, uint64_t max) { return r.number(s, key, min, max); };
  auto flag = [&](bool& field, const char* key) { return [&field, &r, &s, key](const std::string&) { field = r.flag(s, key); }; };
  auto ignore = [](const std::string&) {};  // read below, once the drive's size is known
  r.read(s,
         {{"port", [&](const std::string&) { d.port = static_cast<uint16_t>(number("port", 0, 31)); }},
          {"multiplier_port",
           [&](const std::string&) { d.multiplier_port = static_cast<uint16_t>(number("multiplier_port", 0, 14)); }},
          {"model", [&](const std::string&) { d.model = device_string(r, s, "model", 40); }},
          {"serial", [&](const std::string&) { d.serial = device_string(r, s, "serial", 20); }},
          {"firmware", [&](const std::string&) { d.firmware = device_string(r, s, "firmware", 8); }},
          {"sectors", [&](const std::string&) { d.sectors = number("sectors", 2048, 1ull << 48); }},
          {"size_gib", ignore},
          {"atapi", flag(d.atapi, "atapi")},
          {"lba48", flag(d.lba48, "lba48")},
          {"unc_lba_unreported", flag(d.unc_lba_unreported, "unc_lba_unreported")},
          {"logical_sector_bytes",
           [&](const std::string&) {
             d.logical_sector_bytes = static_cast<uint32_t>(number("logical_sector_bytes", 512, 32768));
             if (!is_power_of_two(d.logical_sector_bytes))
               r.fail(s.line_of("logical_sector_bytes"), "logical_sector_bytes must be a power of two");
           }},
          {"physical_sector_bytes", ignore},
          {"ata_major_version",
           [&](const std::string&) { d.major_version = static_cast<uint16_t>(r.register_value(s, "ata_major_version", 0xFFFF)); }},
          {"ata_minor_version",
           [&](const std::string&) { d.minor_version = static_cast<uint16_t>(r.register_value(s, "ata_minor_version", 0xFFFF)); }},
          {"cache_kib", [&](const std::string&) { d.cache_kib = static_cast<uint32_t>(number("cache_kib", 0, 32767)); }},
          {"rotation_rpm", [&](const std::string&) { d.rotation_rpm = static_cast<uint16_t>(number("rotation_rpm", 0, 65535)); }},
          {"media_mb_per_s",
           [&](const std::string&) { d.media_mb_per_s = static_cast<uint32_t>(number("media_mb_per_s", 0, 100000)); }},
          {"smart", [&](const std::string& v) { smart = v; }},
          {"smart_supported", flag(d.smart_supported, "smart_supported")},
          {"smart_enabled", flag(d.smart_enabled, "smart_enabled")},
          {"refuse_smart_enable", flag(d.refuse_smart_enable, "refuse_smart_enable")},
          {"temperature_c", [&](const std::string&) { d.temperature_c = static_cast<uint8_t>(number("temperature_c", 0, 90)); }},
          {"power_on_hours",
           [&](const std::string&) { d.power_on_hours = static_cast<uint32_t>(number("power_on_hours", 0, 60000)); }},
          {"reallocated_sectors", [&](const std::string&) { d.reallocated_sectors = number("reallocated_sectors", 0, 1000000); }},
          {"reallocated_threshold",
           [&](const std::string&) { d.reallocated_threshold = static_cast<uint8_t>(number("reallocated_threshold", 0, 253)); }},
          {"spare_sectors", [&](const std::string&) { d.spare_sectors = number("spare_sectors", 1, 1000000); }},
          {"absent_attributes",
           [&](const std::string& v) {
             for (const std::string& id : split_list(v)) {
               if (id.empty() || id.size() > 3 || id.find_first_not_of("0123456789") != std::string::npos || std::stoi(id) < 1 ||
                   std::stoi(id) > 255)
                 r.fail(s.line_of("absent_attributes"), "absent_attributes lists attribute numbers 1-255, not \"" + id + "\"");
               d.absent_attributes.push_back(static_cast<uint8_t>(std::stoi(id)));
             }
           }},
          {"self_test_supported", flag(d.self_test_supported, "self_test_supported")},
          {"refuse_vendor_self_test", flag(d.refuse_vendor_self_test, "refuse_vendor_self_test")},
          {"self_test_running", flag(d.self_test_running, "self_test_running")},
          {"identify_fill",
           [&](const std::string&) { d.identify_fill = static_cast<int>(r.register_value(s, "identify_fill", 0xFF)); }},
          {"self_test_end_status",
           [&](const std::string&) { d.self_test_end_status = static_cast<int>(r.register_value(s, "self_test_end_status", 0xFF)); }},
          {"self_test_failing_lba", ignore},
          {"log_directories", flag(d.log_directories, "log_directories")},
          {"log_pages", [&](const std::string&) { d.log_pages = static_cast<uint16_t>(number("log_pages", 1, 51)); }},
          {"log_directory_pages",
           [&](const std::string&) { d.log_directory_pages = static_cast<uint16_t>(number("log_directory_pages", 1, 65535)); }},
          {"error_log_lbas", ignore},
          {"self_test_log_lbas", ignore},
          {"bad_sectors", ignore},
          {"unwritable_sectors", ignore},
          {"unrecoverable_sectors", ignore},
          {"idnf_sectors", ignore},
          {"abort_sectors", ignore},
          {"hang_sectors", ignore},
          {"stop_answering_after",
           [&](const std::string&) { d.stop_answering_after = number("stop_answering_after", 0, 1ull << 40); }}},
         {"port", "model", "serial"});

  if (s.has("sectors") && s.has("size_gib")) r.fail(s.line, "give sectors or size_gib, not both");
  if (s.has("size_gib")) d.sectors = number("size_gib", 1, 1u << 20) * (1ull << 30) / d.logical_sector_bytes;
  if (d.sectors == 0 && !d.atapi) r.fail(s.line, "[drive] needs \"sectors\" or \"size_gib\"");
  if (!d.lba48 && d.sectors > kLba28Limit)
    r.fail(s.line, "a drive without 48-bit addresses has at most " + std::to_string(kLba28Limit) + " sectors");
  d.physical_sector_bytes = d.logical_sector_bytes;
  if (s.has("physical_sector_bytes")) {
    d.physical_sector_bytes = static_cast<uint32_t>(number("physical_sector_bytes", 512, 1u << 24));
    const uint32_t ratio = d.physical_sector_bytes / d.logical_sector_bytes;
    if (d.physical_sector_bytes % d.logical_sector_bytes != 0 || !is_power_of_two(ratio) || ratio > 32768)
      r.fail(s.line_of("physical_sector_bytes"), "physical_sector_bytes must be the logical size times a power of two");
  }
  if (!s.has("cache_kib") && d.rotation_rpm > 1) d.cache_kib = 16384;
  if (smart != "ok" && smart != "failing") r.fail(s.line_of("smart"), "smart must be ok or failing");
  d.smart_failing = smart == "failing";
  if (d.smart_failing && !s.has("reallocated_sectors")) d.reallocated_sectors = 1720;

  auto sectors = [&](std::vector<BadSectorRange>& field, const char* key) {
    if (s.has(key)) field = r.sectors(s, key, d.sectors);
  };
  sectors(d.bad_sectors, "bad_sectors");
  sectors(d.unwritable_sectors, "unwritable_sectors");
  sectors(d.unrecoverable_sectors, "unrecoverable_sectors");
  sectors(d.idnf_sectors, "idnf_sectors");
  sectors(d.abort_sectors, "abort_sectors");
  sectors(d.hang_sectors, "hang_sectors");
  auto lbas = [&](std::vector<uint64_t>& field, const char* key) {
    if (!s.has(key)) return;
    for (const BadSectorRange& range : r.sectors(s, key, d.sectors)) {
      if (range.first != range.last) r.fail(s.line_of(key), std::string(key) + " lists single LBAs, not ranges");
      field.push_back(range.first);
    }
  };
  lbas(d.error_log_lbas, "error_log_lbas");
  lbas(d.self_test_log_lbas, "self_test_log_lbas");
  if (s.has("self_test_failing_lba")) {
    std::vector<uint64_t> one;
    lbas(one, "self_test_failing_lba");
    if (one.size() != 1) r.fail(s.line_of("self_test_failing_lba"), "self_test_failing_lba is one LBA");
    d.self_test_failing_lba = one[0];
  }
  return d;
}

}  // namespace hostfw
