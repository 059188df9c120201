// Writes the seeds of the drive-data fuzz targets from the host firmware's
// simulated drives: the IDENTIFY data, SMART pages and log pages they answer
// with. Run it with the corpus folder (tests/fuzz/corpus) to refresh the
// committed seeds after the simulated drives change.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "hostfw/ata_drive.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr size_t kPage = 512;

void write(const std::filesystem::path& folder, const std::string& name, const Bytes& bytes) {
  std::filesystem::create_directories(folder);
  std::ofstream(folder / name, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// The drive targets' inputs start with the pool allocation to fail: none.
const Bytes kNoFailure{0};

Bytes join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

hostfw::DriveInfo drive(const std::string& model, const std::string& serial, uint64_t sectors) {
  hostfw::DriveInfo d;
  d.model = model;
  d.serial = serial;
  d.firmware = "SIM1";
  d.sectors = sectors;
  d.rotation_rpm = 7200;
  d.cache_kib = 16384;
  return d;
}

struct Pages {
  Bytes identify, smart_data, thresholds;
};

Pages pages_of(const hostfw::DriveInfo& info) {
  hostfw::AtaDrive d(info);
  Pages p{Bytes(kPage), Bytes(kPage), Bytes(kPage)};
  if (info.atapi)
    d.identify_packet_data(p.identify.data());
  else
    d.identify_data(p.identify.data());
  d.smart_data(p.smart_data.data(), 0);
  d.smart_thresholds(p.thresholds.data(), 0);
  return p;
}

Bytes log(const hostfw::AtaDrive& d, uint8_t address, bool general_purpose) {
  const uint64_t pages = address == 0 ? 1 : d.log_pages(address, general_purpose);
  Bytes out(pages * kPage);
  if (pages != 0) d.read_log(address, 0, pages, general_purpose, out.data());
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
    return 2;
  }
  const std::filesystem::path corpus = argv[1];

  hostfw::DriveInfo hdd = drive("SIM HD-2000 Desk", "SIMHD0001", 3907029168);
  hostfw::DriveInfo ssd = drive("SIM SSD-500", "SIMSSD0002", 976773168);
  ssd.rotation_rpm = 1;
  hostfw::DriveInfo lba28 = drive("ST380011A", "SIMOLD0003", 156301488 / 2);
  lba28.lba48 = false;
  lba28.major_version = 0x007E;
  lba28.minor_version = 0x001B;
  hostfw::DriveInfo advanced = drive("WDC WD40EFRX", "SIM4K0004", 7814037168);
  advanced.physical_sector_bytes = 4096;
  hostfw::DriveInfo native4k = drive("SIM 4KN-8000", "SIM4KN0005", 1953506646);
  native4k.logical_sector_bytes = native4k.physical_sector_bytes = 4096;
  hostfw::DriveInfo optical = drive("SIM DVD-RW", "SIMODD0006", 0);
  optical.atapi = true;
  hostfw::DriveInfo failing = drive("SIM HD-1000 Worn", "SIMBAD0007", 1953525168);
  failing.smart_failing = true;
  failing.reallocated_sectors = 1720;
  failing.temperature_c = 58;
  hostfw::DriveInfo bare = drive("SIM HD-250", "SIMNOS0008", 488397168);
  bare.smart_enabled = false;
  bare.absent_attributes = {5, 194};

  const std::pair<const char*, hostfw::DriveInfo> drives[] = {
      {"hdd", hdd},           {"ssd", ssd},           {"lba28", lba28},     {"advanced_format", advanced},
      {"native_4k", native4k}, {"atapi", optical},    {"smart_failing", failing}, {"attributes_absent", bare}};
  for (const auto& [name, info] : drives) {
    const Pages p = pages_of(info);
    write(corpus / "identify", name, join({kNoFailure, p.identify, p.smart_data}));
    if (!info.atapi) write(corpus / "smart_pages", name, join({p.smart_data, p.thresholds}));
  }

  // A packet device refusing IDENTIFY DEVICE with its signature (0x14, 0xEB).
  Bytes refusal(2 * kPage + 3, 0);
  refusal[2 * kPage] = 1;
  refusal[2 * kPage + 1] = 0x14;
  refusal[2 * kPage + 2] = 0xEB;
  write(corpus / "identify", "packet_device_refusal", join({kNoFailure, refusal}));

  // A drive with errors and failed self-tests in its logs, several pages a log.
  hostfw::DriveInfo logged = drive("SIM HD-3000 Logs", "SIMLOG0009", 3907029168);
  logged.log_pages = 3;
  logged.error_log_lbas = {5000, 123456789, 0x0FFFFFFF, 3907029167};
  logged.self_test_log_lbas = {77777, 2000000000};
  const hostfw::AtaDrive d(logged);
  const Bytes directories = join({log(d, 0, false), log(d, 0, true)});
  const std::pair<const char*, std::pair<uint8_t, bool>> logs[] = {
      {"summary_error", {0x01, false}},  {"comprehensive_error", {0x02, false}}, {"ext_comprehensive_error", {0x03, true}},
      {"self_test", {0x06, false}},      {"ext_self_test", {0x07, true}}};
  for (const auto& [name, where] : logs)
    write(corpus / "drive_logs", name, join({kNoFailure, directories, log(d, where.first, where.second)}));
  return 0;
}
