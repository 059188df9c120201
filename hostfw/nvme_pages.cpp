// The pages an NVMe drive answers with: Identify Controller, Identify
// Namespace, the active namespace list, and the Error Information,
// SMART / Health Information and Device Self-test logs.
#include <algorithm>
#include <cstring>
#include <string>

#include "hostfw/little_endian.h"
#include "hostfw/nvme_drive.h"

namespace hostfw {
using namespace nvme;
namespace {

constexpr uint16_t kVendorId = 0x1F5A;  // a vendor no real drive uses
constexpr uint32_t kIeeeOui = 0x7AC0DE;
constexpr uint16_t kKelvin = 273;
constexpr uint16_t kWarningTemperatureK = 343;   // 70 °C
constexpr uint16_t kCriticalTemperatureK = 358;  // 85 °C
constexpr uint8_t kSpareBelowThreshold = 1u << 0;  // critical warning bit 0

// An ASCII field of Identify data: left-aligned, padded with spaces.
void put_text(uint8_t* at, const std::string& text, size_t size) {
  std::memset(at, ' ', size);
  std::memcpy(at, text.data(), std::min(text.size(), size));
}

// A 16-byte counter of the SMART / Health log.
void put_counter(uint8_t* at, uint64_t value) { put_le(at, value, 8); }

// A namespace's EUI-64: the vendor's OUI, then bits of the serial number.
uint64_t eui64(const std::string& serial, uint32_t nsid) {
  uint64_t hash = 1469598103934665603ull;
  for (unsigned char c : serial) hash = (hash ^ c) * 1099511628211ull;
  return uint64_t{kIeeeOui} << 40 | ((hash << 8) & 0xFFFFFFFF00ull) | nsid;
}

// Data units of the SMART / Health log: thousands of 512 bytes, rounded up.
uint64_t data_units(uint64_t bytes) { return (bytes / 512 + 999) / 1000; }

}  // namespace

std::vector<uint8_t> NvmeDrive::identify_controller() const {
  std::vector<uint8_t> p(kIdentifyBytes, 0);
  put_le(&p[0], kVendorId, 2);
  put_le(&p[2], kVendorId, 2);
  put_text(&p[4], info.serial, 20);
  put_text(&p[24], info.model, 40);
  put_text(&p[64], info.firmware, 8);
  p[72] = 6;  // recommended arbitration burst
  put_le(&p[73], kIeeeOui, 3);
  p[77] = info.mdts;
  put_le(&p[80], kVersion, 4);
  put_le(&p[256], self_test_supported() ? kOacsDeviceSelfTest : 0, 2);
  p[258] = 3;  // abort command limit, 0's based
  p[259] = 3;  // asynchronous event request limit, 0's based
  p[260] = 0x02;  // one firmware slot
  p[261] = kLpaExtendedData;
  p[262] = kErrorEntries - 1;
  put_le(&p[266], kWarningTemperatureK, 2);
  put_le(&p[268], kCriticalTemperatureK, 2);
  if (self_test_supported()) {
    put_le(&p[316], (self_test_ns(kSelfTestExtended) / 1000000000 + 59) / 60, 2);  // minutes
    p[318] = 1;  // one self-test at a time in the subsystem
  }
  p[512] = 0x66;  // submission queue entries of 64 bytes
  p[513] = 0x44;  // completion queue entries of 16 bytes
  put_le(&p[516], info.namespaces, 4);
  put_le(&p[520], kOncsDatasetManagement | kOncsWriteZeroes | (info.verify ? kOncsVerify : 0), 2);
  p[525] = 1;  // a volatile write cache
  const std::string nqn = "nqn.2026-01.invalid.tarvik:nvme:" + info.serial;
  std::memcpy(&p[768], nqn.data(), std::min<size_t>(nqn.size(), 255));
  return p;
}

std::vector<uint8_t> NvmeDrive::identify_namespace(uint32_t nsid) const {
  std::vector<uint8_t> p(kIdentifyBytes, 0);
  put_le(&p[0], info.blocks, 8);   // size
  put_le(&p[8], info.blocks, 8);   // capacity
  put_le(&p[16], info.blocks, 8);  // utilization
  p[25] = 1;                        // two LBA formats, 0's based
  p[26] = info.lba_bytes == 4096 ? 1 : 0;  // the format in use
  put_le(&p[120], eui64(info.serial, nsid), 8);
  p[128 + 2] = 9;     // format 0: 512-byte LBAs,
  p[128 + 3] = 0x02;  //   good performance
  p[132 + 2] = 12;    // format 1: 4096-byte LBAs, best performance
  return p;
}

std::vector<uint8_t> NvmeDrive::active_namespaces(uint32_t after) const {
  std::vector<uint8_t> p(kIdentifyBytes, 0);
  size_t at = 0;
  for (uint32_t ns = after + 1; ns <= info.namespaces && at < kIdentifyBytes; ++ns, at += 4) put_le(&p[at], ns, 4);
  return p;
}

std::vector<uint8_t> NvmeDrive::error_log() const {
  std::vector<uint8_t> p(kErrorEntries * kErrorEntryBytes, 0);
  uint8_t* entry = p.data();
  // The newest error first.
  for (auto e = errors.rbegin(); e != errors.rend(); ++e, entry += kErrorEntryBytes) {
    put_le(entry + 0, e->count, 8);
    put_le(entry + 8, e->queue, 2);
    put_le(entry + 10, e->command_id, 2);
    put_le(entry + 12, status_field(e->status), 2);
    put_le(entry + 14, 0xFFFF, 2);  // no parameter in error
    put_le(entry + 16, e->lba, 8);
    put_le(entry + 24, e->nsid, 4);
  }
  return p;
}

std::vector<uint8_t> NvmeDrive::smart_health_log(uint64_t now_ns) const {
  std::vector<uint8_t> p(kSmartHealthBytes, 0);
  const uint16_t kelvin = static_cast<uint16_t>(info.temperature_c + kKelvin);
  p[0] = info.critical_warning | (info.available_spare < info.spare_threshold ? kSpareBelowThreshold : 0);
  put_le(&p[1], kelvin, 2);
  p[3] = info.available_spare;
  p[4] = info.spare_threshold;
  p[5] = info.percentage_used;
  put_counter(&p[32], data_units(bytes_read));
  put_counter(&p[48], data_units(bytes_written));
  put_counter(&p[64], read_commands);
  put_counter(&p[80], write_commands);
  put_counter(&p[112], info.power_cycles);
  put_counter(&p[128], power_on_hours(now_ns));
  put_counter(&p[144], info.unsafe_shutdowns);
  put_counter(&p[160], media_errors);
  put_counter(&p[176], error_count);
  put_le(&p[200], kelvin, 2);  // temperature sensor 1
  return p;
}

std::vector<uint8_t> NvmeDrive::self_test_log(uint64_t now_ns) const {
  std::vector<uint8_t> p(kSelfTestLogBytes, 0);
  if (running) {
    p[0] = running->code;
    p[1] = static_cast<uint8_t>((now_ns - running->start_ns) * 100 / running->full_ns);
  }
  for (uint32_t i = 0; i < kSelfTestResults; ++i) {
    uint8_t* r = &p[4 + i * kSelfTestResultBytes];
    if (i >= self_tests.size()) {
      r[0] = 0x0F;  // entry not used
      continue;
    }
    const SelfTestResult& t = self_tests[i];
    r[0] = static_cast<uint8_t>(t.code << 4 | t.result);
    put_le(r + 4, t.hours, 8);
    if (t.result == kResultFailedSegment) {
      r[1] = 2;  // the read test segment
      r[2] = t.failing_lba ? 0x0F : 0x00;  // NSID, LBA, status type and code valid
      put_le(r + 12, t.nsid, 4);
      put_le(r + 16, t.failing_lba.value_or(0), 8);
      r[24] = kUnrecoveredReadError.type;
      r[25] = kUnrecoveredReadError.code;
    }
  }
  return p;
}

}  // namespace hostfw
