#include "hostfw/ata.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>

#include "hostfw/events.h"
#include "hostfw/machine.h"
#include "hostfw/memory.h"

namespace hostfw {
namespace {

const EFI_GUID kAtaPassThruGuid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
const EFI_GUID kDevicePathGuid = EFI_DEVICE_PATH_PROTOCOL_GUID;

constexpr UINT16 kNoMultiplier = 0xFFFF;
constexpr uint32_t kIoAlign = 2;  // AHCI data buffers are word-aligned
constexpr uint32_t kSector = 512;
constexpr uint64_t kSecond = 1000000000ull;
constexpr uint64_t kHour = 3600 * kSecond;

constexpr uint8_t kStatusReady = 0x50;  // DRDY | DSC
constexpr uint8_t kStatusError = 0x51;  // DRDY | DSC | ERR
constexpr uint8_t kErrorAbort = 0x04;
constexpr uint8_t kErrorIdNotFound = 0x10;
constexpr uint8_t kErrorUncorrectable = 0x40;

enum Command : uint8_t {
  kReadLogExt = 0x2F,
  kWriteSectors = 0x30,
  kWriteSectorsExt = 0x34,
  kReadVerify = 0x40,
  kReadVerifyExt = 0x42,
  kWriteUncorrectableExt = 0x45,
  kSmart = 0xB0,
  kIdentifyDevice = 0xEC,
};

enum SmartFeature : uint8_t {
  kSmartReadData = 0xD0,
  kSmartReadThresholds = 0xD1,
  kSmartExecuteOffline = 0xD4,
  kSmartReadLog = 0xD5,
  kSmartEnable = 0xD8,
  kSmartDisable = 0xD9,
  kSmartReturnStatus = 0xDA,
};

// Log addresses and how many 512-byte pages each has.
constexpr uint8_t kLogDirectory = 0x00;
constexpr uint8_t kSelfTestLog = 0x06;
constexpr uint8_t kExtSelfTestLog = 0x07;
constexpr size_t kSelfTestLogEntries = 21;     // per SMART self-test log page
constexpr size_t kExtSelfTestLogEntries = 19;  // per extended self-test log page

// Self-test execution status values (high nibble of SMART data byte 363).
constexpr uint8_t kTestAbortedByHost = 0x1;
constexpr uint8_t kTestInterruptedByReset = 0x2;
constexpr uint8_t kTestServoFailure = 0x6;
constexpr uint8_t kTestReadFailure = 0x7;
constexpr uint8_t kTestInProgress = 0xF;

constexpr uint8_t kReallocatedThreshold = 36;
constexpr uint64_t kSpareSectors = 2048;           // the reallocated value reaches 1 near here
constexpr uint64_t kFailingDriveReallocated = 1720;  // a drive whose SMART status fails

AtaController& A() { return *Machine::current().ata(); }

struct Locked {
  Locked() : guard(Machine::current().events(), std::max<EFI_TPL>(Machine::current().events().tpl(), TPL_NOTIFY)) {}
  TplGuard guard;
};

void put_le(uint8_t* at, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

void set_checksum(uint8_t* page) {  // the last byte makes the page sum to zero
  uint8_t sum = 0;
  for (int i = 0; i < 511; ++i) sum = static_cast<uint8_t>(sum + page[i]);
  page[511] = static_cast<uint8_t>(-sum);
}

// ATA string: two characters per word, the first in the high byte.
void put_string(std::array<uint16_t, 256>& words, int first, int count, const std::string& text, bool right_aligned) {
  std::string padded(static_cast<size_t>(count) * 2, ' ');
  const std::string cut = text.substr(0, padded.size());
  padded.replace(right_aligned ? padded.size() - cut.size() : 0, cut.size(), cut);
  for (int i = 0; i < count; ++i)
    words[first + i] = static_cast<uint16_t>(static_cast<uint8_t>(padded[2 * i]) << 8 | static_cast<uint8_t>(padded[2 * i + 1]));
}

// ---- Sets of bad sectors as disjoint inclusive ranges -------------------------

using SectorSet = std::map<uint64_t, uint64_t>;  // first -> last

bool first_in(const SectorSet& set, uint64_t from, uint64_t count, uint64_t* found) {
  auto it = set.upper_bound(from);
  if (it != set.begin() && std::prev(it)->second >= from) {
    *found = from;
    return true;
  }
  if (it != set.end() && it->first - from < count) {
    *found = it->first;
    return true;
  }
  return false;
}

// Adds [first, last]; returns how many sectors were not in the set before.
uint64_t add_range(SectorSet& set, uint64_t first, uint64_t last) {
  uint64_t added = last - first + 1;
  auto it = set.upper_bound(first);
  if (it != set.begin() && std::prev(it)->second + 1 >= first) it = std::prev(it);
  uint64_t lo = first, hi = last;
  while (it != set.end() && it->first <= last + 1) {
    const uint64_t overlap_lo = std::max(it->first, first), overlap_hi = std::min(it->second, last);
    if (overlap_lo <= overlap_hi) added -= overlap_hi - overlap_lo + 1;
    lo = std::min(lo, it->first);
    hi = std::max(hi, it->second);
    it = set.erase(it);
  }
  set[lo] = hi;
  return added;
}

// Removes [first, last]; returns how many sectors were in the set.
uint64_t remove_range(SectorSet& set, uint64_t first, uint64_t last) {
  uint64_t removed = 0;
  auto it = set.upper_bound(first);
  if (it != set.begin() && std::prev(it)->second >= first) it = std::prev(it);
  while (it != set.end() && it->first <= last) {
    const uint64_t lo = it->first, hi = it->second;
    it = set.erase(it);
    removed += std::min(hi, last) - std::max(lo, first) + 1;
    if (lo < first) set[lo] = first - 1;
    if (hi > last) set[last + 1] = hi;
  }
  return removed;
}

// ---- EFIAPI thunks ----------------------------------------------------------------

EFIAPI EFI_STATUS PassThru(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16 PortMultiplierPort,
                           EFI_ATA_PASS_THRU_COMMAND_PACKET* Packet, EFI_EVENT) {
  Locked locked;
  if (This != A().protocol()) return EFI_INVALID_PARAMETER;
  return A().pass_thru(Port, PortMultiplierPort, Packet);
}
EFIAPI EFI_STATUS GetNextPort(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16* Port) {
  Locked locked;
  if (This != A().protocol()) return EFI_INVALID_PARAMETER;
  return A().get_next_port(Port);
}
EFIAPI EFI_STATUS GetNextDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16* PortMultiplierPort) {
  Locked locked;
  if (This != A().protocol()) return EFI_INVALID_PARAMETER;
  return A().get_next_device(Port, PortMultiplierPort);
}
EFIAPI EFI_STATUS BuildDevicePath(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16 PortMultiplierPort,
                                  EFI_DEVICE_PATH_PROTOCOL** DevicePath) {
  Locked locked;
  if (This != A().protocol()) return EFI_INVALID_PARAMETER;
  return A().build_device_path(Port, PortMultiplierPort, DevicePath);
}
EFIAPI EFI_STATUS GetDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, EFI_DEVICE_PATH_PROTOCOL* DevicePath, UINT16* Port,
                            UINT16* PortMultiplierPort) {
  Locked locked;
  if (This != A().protocol()) return EFI_INVALID_PARAMETER;
  return A().get_device(DevicePath, Port, PortMultiplierPort);
}
EFIAPI EFI_STATUS ResetPort(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port) {
  Locked locked;
  if (This != A().protocol()) return EFI_INVALID_PARAMETER;
  return A().reset_port(Port);
}
EFIAPI EFI_STATUS ResetDevice(EFI_ATA_PASS_THRU_PROTOCOL* This, UINT16 Port, UINT16 PortMultiplierPort) {
  Locked locked;
  if (This != A().protocol()) return EFI_INVALID_PARAMETER;
  return A().reset_device(Port, PortMultiplierPort);
}

}  // namespace

// ---- One drive --------------------------------------------------------------------

struct AtaController::Drive {
  struct SelfTestEntry {
    uint8_t subcommand = 0;
    uint8_t status = 0;
    uint16_t hours = 0;
    uint64_t failing_lba = 0;
  };
  struct RunningTest {
    uint8_t subcommand = 0;
    uint64_t start_ns = 0;
    uint64_t full_ns = 0;  // how long it takes when nothing goes wrong
    uint64_t end_ns = 0;   // when it ends (earlier when it fails)
    uint8_t end_status = 0;
    uint64_t failing_lba = 0;
  };

  DriveInfo info;
  SectorSet bad;
  uint64_t reallocated = 0;
  uint64_t pending = 0;
  uint64_t offline_uncorrectable = 0;
  uint8_t worst_reallocated_value = 100;
  bool smart_enabled = true;
  uint8_t offline_status = 0x82;  // collection completed, automatic off-line enabled
  uint8_t self_test_status = 0x00;
  std::optional<RunningTest> running;
  std::vector<SelfTestEntry> log;  // oldest first
  uint64_t logged_tests = 0;       // ever, for the circular log index
  std::array<uint16_t, 256> identify{};

  explicit Drive(const DriveInfo& drive) : info(drive), smart_enabled(drive.smart_enabled) {
    for (const BadSectorRange& r : info.bad_sectors) pending += add_range(bad, r.first, r.last);
    offline_uncorrectable = pending;
    if (info.smart_failing) reallocated = kFailingDriveReallocated;
    worst_reallocated_value = reallocated_value();
    build_identify();
  }

  bool rotating() const { return info.rotation_rpm != 1; }
  uint64_t power_on_hours(uint64_t now_ns) const { return info.power_on_hours + now_ns / kHour; }

  uint8_t reallocated_value() const {
    const uint64_t used = std::min<uint64_t>(reallocated * 100 / kSpareSectors, 99);
    return static_cast<uint8_t>(100 - used);
  }

  void build_identify() {
    auto& w = identify;
    w.fill(0);
    w[0] = 0x0040;  // fixed, non-removable ATA device
    w[1] = 16383;
    w[2] = 0xC837;
    w[3] = 16;
    w[6] = 63;
    put_string(w, 10, 10, info.serial, true);
    w[21] = rotating() && info.rotation_rpm != 0 ? 0x8000 : 0;  // cache, in 512-byte units (16 MiB)
    put_string(w, 23, 4, info.firmware, false);
    put_string(w, 27, 20, info.model, false);
    w[47] = 0x8010;
    w[49] = 0x2F00;  // LBA, DMA, IORDY, standby timer
    w[50] = 0x4000;
    w[53] = 0x0007;
    w[54] = 16383;
    w[55] = 16;
    w[56] = 63;
    w[57] = 0xFC10;
    w[58] = 0x00FB;  // 16,514,064 current CHS sectors
    w[59] = 0x0110;
    const uint64_t lba28 = std::min<uint64_t>(info.sectors, 0x0FFFFFFF);
    w[60] = static_cast<uint16_t>(lba28);
    w[61] = static_cast<uint16_t>(lba28 >> 16);
    w[63] = 0x0007;
    w[64] = 0x0003;
    w[65] = w[66] = w[67] = w[68] = 120;
    w[75] = 31;
    w[76] = 0x010E;  // SATA 1.5/3/6 Gb/s, NCQ
    w[80] = 0x03F0;  // ATA/ATAPI-4 to ACS-2
    w[81] = 0x0110;  // ACS-2 revision 3
    w[82] = 0x7069;  // SMART, power management, write cache, look-ahead, buffers, NOP
    w[83] = 0x7400;  // 48-bit addresses, FLUSH CACHE (EXT)
    w[84] = 0x4023;  // SMART error logging, SMART self-test, general purpose logging
    w[86] = 0x3400;
    w[87] = 0x4023;
    w[88] = 0x407F;  // UDMA 0-6, mode 6 selected
    for (int i = 0; i < 4; ++i) w[100 + i] = static_cast<uint16_t>(info.sectors >> (16 * i));
    w[106] = 0x4000;  // 512-byte logical = physical sectors
    w[217] = info.rotation_rpm;
    w[222] = 0x107F;  // serial ATA
  }

  // IDENTIFY DEVICE data as the drive reports it now.
  void identify_data(uint8_t* out) {
    identify[85] = static_cast<uint16_t>(0x7068 | (smart_enabled ? 1 : 0));
    identify[255] = 0x00A5;
    for (int i = 0; i < 256; ++i) put_le(out + 2 * i, identify[i], 2);
    set_checksum(out);
  }

  struct Attribute {
    uint8_t id;
    uint16_t flags;
    uint8_t value, worst, threshold;
    uint64_t raw;
  };

  std::vector<Attribute> attributes(uint64_t now_ns) {
    const uint64_t hours = power_on_hours(now_ns);
    const uint8_t hours_value = static_cast<uint8_t>(100 - std::min<uint64_t>(hours / 1000, 99));
    const uint8_t realloc_value = reallocated_value();
    worst_reallocated_value = std::min(worst_reallocated_value, realloc_value);
    const uint64_t t = info.temperature_c;
    const uint64_t t_min = t > 15 ? t - 15 : 0, t_max = t + 10;
    return {
        {1, 0x000F, 100, 100, 6, 0},
        {5, 0x0033, realloc_value, worst_reallocated_value, kReallocatedThreshold, reallocated},
        {9, 0x0032, hours_value, hours_value, 0, hours},
        {12, 0x0032, 100, 100, 20, 1 + hours / 9},
        {194, 0x0022, static_cast<uint8_t>(t), static_cast<uint8_t>(t_max), 0, t | t_min << 16 | t_max << 32},
        {197, 0x0012, 100, 100, 0, pending},
        {198, 0x0010, 100, 100, 0, offline_uncorrectable},
    };
  }

  bool threshold_exceeded(uint64_t now_ns) {
    if (info.smart_failing) return true;
    for (const Attribute& a : attributes(now_ns))
      if ((a.flags & 1) != 0 && a.threshold != 0 && a.value <= a.threshold) return true;
    return false;
  }

  // ---- Self-tests ----

  uint64_t duration_ns(uint8_t subcommand) const {
    switch (subcommand) {
      case kShortSelfTest: return 120 * kSecond;
      case kConveyanceSelfTest: return 180 * kSecond;
      case kExtendedSelfTest: {
        // Five minutes plus two per TiB: far quicker than a real surface scan.
        const uint64_t tib_tenths = info.sectors * 10 / (1ull << 31);
        return 300 * kSecond + tib_tenths * 12 * kSecond;
      }
      default: return 0;
    }
  }

  static uint8_t polling_minutes(uint64_t ns) { return static_cast<uint8_t>(std::min<uint64_t>((ns + 60 * kSecond - 1) / (60 * kSecond), 255)); }

  // Tenths of the work left at offset into a test of full length (1..9 while running).
  static uint8_t tenths_left(uint64_t offset, uint64_t full) {
    if (offset >= full) return 0;
    const uint64_t left = ((full - offset) * 10 + full - 1) / full;
    return static_cast<uint8_t>(std::min<uint64_t>(left, 9));
  }

  void start_test(uint8_t subcommand, uint64_t now_ns) {
    RunningTest t;
    t.subcommand = subcommand;
    t.start_ns = now_ns;
    t.full_ns = duration_ns(subcommand);
    t.end_ns = now_ns + t.full_ns;
    uint64_t fail_offset = 0;
    if (!bad.empty()) {
      // The extended test reads the whole surface in order and stops at the
      // first unreadable sector; the short tests' read scan finds it about
      // three fifths of the way through.
      t.failing_lba = bad.begin()->first;
      fail_offset = subcommand == kExtendedSelfTest
                        ? static_cast<uint64_t>(static_cast<double>(t.full_ns) * static_cast<double>(t.failing_lba) /
                                                static_cast<double>(info.sectors))
                        : t.full_ns * 3 / 5;
      fail_offset = std::max(fail_offset, kSecond);
      t.end_status = static_cast<uint8_t>(kTestReadFailure << 4 | tenths_left(fail_offset, t.full_ns));
      t.end_ns = now_ns + fail_offset;
    } else if (info.smart_failing) {
      // Nothing unreadable, but the mechanics fail a third of the way in.
      fail_offset = t.full_ns / 3;
      t.failing_lba = 0xFFFFFFFFFFFFull;
      t.end_status = static_cast<uint8_t>(kTestServoFailure << 4 | tenths_left(fail_offset, t.full_ns));
      t.end_ns = now_ns + fail_offset;
    }
    running = t;
  }

  void record(uint8_t subcommand, uint8_t status, uint64_t at_ns, uint64_t failing_lba) {
    SelfTestEntry e;
    e.subcommand = subcommand;
    e.status = status;
    e.hours = static_cast<uint16_t>(power_on_hours(at_ns));
    e.failing_lba = (status >> 4) == kTestReadFailure ? failing_lba : 0xFFFFFFFFFFFFull;
    log.push_back(e);
    if (log.size() > kSelfTestLogEntries) log.erase(log.begin());
    ++logged_tests;
    self_test_status = status;
  }

  // Brings a running self-test up to now: ends it when its time is over.
  void settle(uint64_t now_ns) {
    if (!running || now_ns < running->end_ns) return;
    const RunningTest t = *running;
    running.reset();
    record(t.subcommand, t.end_status, t.end_ns, t.failing_lba);
    if ((t.end_status >> 4) == kTestReadFailure) offline_uncorrectable = pending;
  }

  // Stops a running self-test with that status (aborted, interrupted by reset).
  void interrupt(uint8_t why, uint64_t now_ns) {
    settle(now_ns);
    if (!running) return;
    const RunningTest t = *running;
    running.reset();
    record(t.subcommand, static_cast<uint8_t>(why << 4 | tenths_left(now_ns - t.start_ns, t.full_ns)), now_ns, 0);
  }

  uint8_t execution_status(uint64_t now_ns) {
    settle(now_ns);
    if (!running) return self_test_status;
    const uint8_t left = std::max<uint8_t>(tenths_left(now_ns - running->start_ns, running->full_ns), 1);
    return static_cast<uint8_t>(kTestInProgress << 4 | left);
  }

  // ---- SMART pages ----

  void smart_data(uint8_t* out, uint64_t now_ns) {
    std::memset(out, 0, 512);
    put_le(out, 0x0010, 2);
    size_t at = 2;
    for (const Attribute& a : attributes(now_ns)) {
      out[at] = a.id;
      put_le(out + at + 1, a.flags, 2);
      out[at + 3] = a.value;
      out[at + 4] = a.worst;
      put_le(out + at + 5, a.raw, 6);
      at += 12;
    }
    out[362] = offline_status;
    out[363] = execution_status(now_ns);
    put_le(out + 364, 600, 2);  // off-line data collection: ten minutes
    out[367] = 0x3B;            // off-line immediate, abort, read scanning, self-tests, conveyance
    put_le(out + 368, 0x0003, 2);
    out[370] = 0x01;  // error logging
    out[372] = polling_minutes(duration_ns(kShortSelfTest));
    const uint8_t extended = polling_minutes(duration_ns(kExtendedSelfTest));
    out[373] = extended;
    out[374] = polling_minutes(duration_ns(kConveyanceSelfTest));
    put_le(out + 375, extended, 2);
    set_checksum(out);
  }

  void smart_thresholds(uint8_t* out, uint64_t now_ns) {
    std::memset(out, 0, 512);
    put_le(out, 0x0010, 2);
    size_t at = 2;
    for (const Attribute& a : attributes(now_ns)) {
      out[at] = a.id;
      out[at + 1] = a.threshold;
      at += 12;
    }
    set_checksum(out);
  }

  // Log directory: the page count of each log at bytes 2 x address.
  static void directory(uint8_t* out, bool general_purpose) {
    std::memset(out, 0, 512);
    put_le(out, 0x0001, 2);
    if (general_purpose)
      put_le(out + 2 * kExtSelfTestLog, 1, 2);
    else
      put_le(out + 2 * kSelfTestLog, 1, 2);
  }

  void self_test_log(uint8_t* out) const {
    std::memset(out, 0, 512);
    put_le(out, 0x0001, 2);
    const size_t n = log.size();
    for (size_t k = 0; k < n; ++k) {
      // Entries fill the page circularly; the index names the newest.
      const uint64_t number = logged_tests - n + k;  // 0-based, over all tests
      uint8_t* e = out + 2 + 24 * (number % kSelfTestLogEntries);
      e[0] = log[k].subcommand;
      e[1] = log[k].status;
      put_le(e + 2, log[k].hours, 2);
      put_le(e + 5, std::min<uint64_t>(log[k].failing_lba, 0xFFFFFFFF), 4);
    }
    if (logged_tests > 0) out[508] = static_cast<uint8_t>((logged_tests - 1) % kSelfTestLogEntries + 1);
    set_checksum(out);
  }

  void ext_self_test_log(uint8_t* out) const {
    std::memset(out, 0, 512);
    out[0] = 0x01;
    const size_t n = std::min(log.size(), kExtSelfTestLogEntries);
    for (size_t k = log.size() - n; k < log.size(); ++k) {
      const uint64_t number = logged_tests - log.size() + k;
      uint8_t* e = out + 4 + 26 * (number % kExtSelfTestLogEntries);
      e[0] = log[k].subcommand;
      e[1] = log[k].status;
      put_le(e + 2, log[k].hours, 2);
      put_le(e + 5, log[k].failing_lba, 6);
    }
    if (logged_tests > 0) put_le(out + 2, (logged_tests - 1) % kExtSelfTestLogEntries + 1, 2);
    set_checksum(out);
  }
};

// ---- The controller -----------------------------------------------------------------

AtaController::AtaController(Machine& machine, const std::vector<DriveInfo>& drives) : machine_(machine) {
  for (const DriveInfo& d : drives) drives_.push_back(std::make_unique<Drive>(d));
  std::sort(drives_.begin(), drives_.end(), [](const auto& a, const auto& b) { return a->info.port < b->info.port; });

  mode_.Attributes = EFI_ATA_PASS_THRU_ATTRIBUTES_PHYSICAL | EFI_ATA_PASS_THRU_ATTRIBUTES_LOGICAL;
  mode_.IoAlign = kIoAlign;
  protocol_.Mode = &mode_;
  protocol_.PassThru = PassThru;
  protocol_.GetNextPort = GetNextPort;
  protocol_.GetNextDevice = GetNextDevice;
  protocol_.BuildDevicePath = BuildDevicePath;
  protocol_.GetDevice = GetDevice;
  protocol_.ResetPort = ResetPort;
  protocol_.ResetDevice = ResetDevice;

  // PciRoot(0)/Pci(0x17,0x0): the controller on the root bridge.
  device_path_ = {ACPI_DEVICE_PATH, 0x01, 12, 0, 0xD0, 0x41, 0x03, 0x0A, 0, 0, 0, 0,
                  HARDWARE_DEVICE_PATH, 0x01, 6, 0, 0x00, 0x17,
                  END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, 4, 0};
  machine_.handles().install(&handle_, kAtaPassThruGuid, &protocol_);
  machine_.handles().install(&handle_, kDevicePathGuid, device_path_.data());
}

AtaController::~AtaController() {
  machine_.handles().uninstall(handle_, kDevicePathGuid, device_path_.data());
  machine_.handles().uninstall(handle_, kAtaPassThruGuid, &protocol_);
}

AtaController::Drive* AtaController::find(UINT16 port, UINT16 multiplier_port) const {
  if (multiplier_port != kNoMultiplier) return nullptr;  // no port multipliers on this controller
  for (const auto& d : drives_)
    if (d->info.port == port) return d.get();
  return nullptr;
}

uint64_t AtaController::self_test_duration_ns(uint16_t port, uint8_t subcommand) const {
  const Drive* d = find(port, kNoMultiplier);
  return d == nullptr ? 0 : d->duration_ns(subcommand);
}

bool AtaController::sector_is_bad(uint16_t port, uint64_t lba) const {
  const Drive* d = find(port, kNoMultiplier);
  uint64_t found = 0;
  return d != nullptr && first_in(d->bad, lba, 1, &found);
}

EFI_STATUS AtaController::get_next_port(UINT16* port) {
  if (port == nullptr) return EFI_INVALID_PARAMETER;
  device_returned_ = false;
  size_t next = 0;
  if (*port != 0xFFFF) {
    if (!port_returned_ || *port != last_port_) return EFI_INVALID_PARAMETER;
    while (next < drives_.size() && drives_[next]->info.port <= *port) ++next;
  }
  if (next >= drives_.size()) {
    port_returned_ = false;
    return EFI_NOT_FOUND;
  }
  *port = last_port_ = drives_[next]->info.port;
  port_returned_ = true;
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::get_next_device(UINT16 port, UINT16* multiplier_port) {
  if (multiplier_port == nullptr || find(port, kNoMultiplier) == nullptr) return EFI_INVALID_PARAMETER;
  // A drive attached directly is the port's only device, reported as 0xFFFF;
  // asking again after it has been returned ends the port's list.
  if (*multiplier_port != kNoMultiplier) return EFI_INVALID_PARAMETER;
  if (device_returned_ && device_port_ == port) {
    device_returned_ = false;
    return EFI_NOT_FOUND;
  }
  device_returned_ = true;
  device_port_ = port;
  *multiplier_port = kNoMultiplier;
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::build_device_path(UINT16 port, UINT16 multiplier_port, EFI_DEVICE_PATH_PROTOCOL** path) {
  if (path == nullptr) return EFI_INVALID_PARAMETER;
  if (find(port, multiplier_port) == nullptr) return EFI_NOT_FOUND;
  void* node = nullptr;
  if (machine_.memory().allocate_pool(EfiBootServicesData, 10, &node) != EFI_SUCCESS) return EFI_OUT_OF_RESOURCES;
  const uint8_t bytes[10] = {MESSAGING_DEVICE_PATH, MSG_SATA_DP, 10, 0,
                             static_cast<uint8_t>(port), static_cast<uint8_t>(port >> 8),
                             static_cast<uint8_t>(multiplier_port), static_cast<uint8_t>(multiplier_port >> 8), 0, 0};
  std::memcpy(node, bytes, sizeof bytes);
  *path = static_cast<EFI_DEVICE_PATH_PROTOCOL*>(node);
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::get_device(const EFI_DEVICE_PATH_PROTOCOL* path, UINT16* port, UINT16* multiplier_port) {
  if (path == nullptr || port == nullptr || multiplier_port == nullptr) return EFI_INVALID_PARAMETER;
  if (path->Type != MESSAGING_DEVICE_PATH || path->SubType != MSG_SATA_DP || DevicePathNodeLength(path) != 10)
    return EFI_UNSUPPORTED;
  const auto* bytes = reinterpret_cast<const uint8_t*>(path);
  const UINT16 p = static_cast<UINT16>(bytes[4] | bytes[5] << 8);
  const UINT16 m = static_cast<UINT16>(bytes[6] | bytes[7] << 8);
  if (find(p, m) == nullptr) return EFI_NOT_FOUND;
  *port = p;
  *multiplier_port = m;
  return EFI_SUCCESS;
}

EFI_STATUS AtaController::reset_port(UINT16 port) { return reset_device(port, kNoMultiplier); }

EFI_STATUS AtaController::reset_device(UINT16 port, UINT16 multiplier_port) {
  Drive* d = find(port, multiplier_port);
  if (d == nullptr) return EFI_NOT_FOUND;
  d->interrupt(kTestInterruptedByReset, machine_.clock().now_ns());
  return EFI_SUCCESS;
}

// ---- PassThru ----------------------------------------------------------------------

namespace {

// What a command moves, known before it runs.
struct Transfer {
  enum Direction { kNone, kIn, kOut } direction = kNone;
  uint64_t bytes = 0;
};

uint64_t lba28(const EFI_ATA_COMMAND_BLOCK& c) {
  return c.AtaSectorNumber | c.AtaCylinderLow << 8 | c.AtaCylinderHigh << 16 | (c.AtaDeviceHead & 0x0Full) << 24;
}
uint64_t lba48(const EFI_ATA_COMMAND_BLOCK& c) {
  return c.AtaSectorNumber | c.AtaCylinderLow << 8 | c.AtaCylinderHigh << 16 | uint64_t{c.AtaSectorNumberExp} << 24 |
         uint64_t{c.AtaCylinderLowExp} << 32 | uint64_t{c.AtaCylinderHighExp} << 40;
}
uint64_t count28(const EFI_ATA_COMMAND_BLOCK& c) { return c.AtaSectorCount == 0 ? 256 : c.AtaSectorCount; }
uint64_t count48(const EFI_ATA_COMMAND_BLOCK& c) {
  const uint64_t n = c.AtaSectorCount | c.AtaSectorCountExp << 8;
  return n == 0 ? 65536 : n;
}

Transfer transfer_of(const EFI_ATA_COMMAND_BLOCK& c) {
  switch (c.AtaCommand) {
    case kIdentifyDevice: return {Transfer::kIn, kSector};
    case kWriteSectors: return {Transfer::kOut, count28(c) * kSector};
    case kWriteSectorsExt: return {Transfer::kOut, count48(c) * kSector};
    case kReadLogExt: return {Transfer::kIn, uint64_t(c.AtaSectorCount | c.AtaSectorCountExp << 8) * kSector};
    case kSmart:
      if (c.AtaFeatures == kSmartReadData || c.AtaFeatures == kSmartReadThresholds) return {Transfer::kIn, kSector};
      if (c.AtaFeatures == kSmartReadLog) return {Transfer::kIn, uint64_t{c.AtaSectorCount} * kSector};
      return {};
    default: return {};
  }
}

bool protocol_reads(UINT8 p) { return p == EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN || p == EFI_ATA_PASS_THRU_PROTOCOL_UDMA_DATA_IN || p == EFI_ATA_PASS_THRU_PROTOCOL_DMA; }
bool protocol_writes(UINT8 p) { return p == EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_OUT || p == EFI_ATA_PASS_THRU_PROTOCOL_UDMA_DATA_OUT || p == EFI_ATA_PASS_THRU_PROTOCOL_DMA; }
bool protocol_carried(UINT8 p) { return p == EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA || protocol_reads(p) || protocol_writes(p); }

void put_lba(EFI_ATA_STATUS_BLOCK& s, uint64_t lba, bool ext, uint8_t device) {
  s.AtaSectorNumber = static_cast<uint8_t>(lba);
  s.AtaCylinderLow = static_cast<uint8_t>(lba >> 8);
  s.AtaCylinderHigh = static_cast<uint8_t>(lba >> 16);
  if (ext) {
    s.AtaSectorNumberExp = static_cast<uint8_t>(lba >> 24);
    s.AtaCylinderLowExp = static_cast<uint8_t>(lba >> 32);
    s.AtaCylinderHighExp = static_cast<uint8_t>(lba >> 40);
    s.AtaDeviceHead = static_cast<uint8_t>(device & 0xF0);
  } else {
    s.AtaSectorNumberExp = s.AtaCylinderLowExp = s.AtaCylinderHighExp = 0;
    s.AtaDeviceHead = static_cast<uint8_t>((device & 0xF0) | ((lba >> 24) & 0x0F));
  }
}

}  // namespace

EFI_STATUS AtaController::pass_thru(UINT16 port, UINT16 multiplier_port, EFI_ATA_PASS_THRU_COMMAND_PACKET* packet) {
  if (packet == nullptr || packet->Acb == nullptr || packet->Asb == nullptr) return EFI_INVALID_PARAMETER;
  auto misaligned = [](const void* p) { return reinterpret_cast<uintptr_t>(p) % kIoAlign != 0; };
  if (misaligned(packet->Asb) || misaligned(packet->InDataBuffer) || misaligned(packet->OutDataBuffer))
    return EFI_INVALID_PARAMETER;
  if ((packet->InTransferLength != 0 && packet->InDataBuffer == nullptr) ||
      (packet->OutTransferLength != 0 && packet->OutDataBuffer == nullptr))
    return EFI_INVALID_PARAMETER;
  if (!protocol_carried(packet->Protocol)) return EFI_UNSUPPORTED;
  Drive* drive = find(port, multiplier_port);
  if (drive == nullptr) return EFI_NOT_FOUND;

  const EFI_ATA_COMMAND_BLOCK c = *packet->Acb;
  const uint64_t now = machine_.clock().now_ns();
  // Transfer lengths count bytes, or 512-byte sectors without the bytes flag.
  const uint64_t unit = (packet->Length & EFI_ATA_PASS_THRU_LENGTH_BYTES) != 0 ? 1 : kSector;
  const Transfer transfer = transfer_of(c);

  EFI_ATA_STATUS_BLOCK& s = *packet->Asb;
  std::memset(&s, 0, sizeof s);
  s.AtaSectorNumber = c.AtaSectorNumber;
  s.AtaCylinderLow = c.AtaCylinderLow;
  s.AtaCylinderHigh = c.AtaCylinderHigh;
  s.AtaDeviceHead = c.AtaDeviceHead;
  s.AtaSectorNumberExp = c.AtaSectorNumberExp;
  s.AtaCylinderLowExp = c.AtaCylinderLowExp;
  s.AtaCylinderHighExp = c.AtaCylinderHighExp;
  s.AtaSectorCount = c.AtaSectorCount;
  s.AtaSectorCountExp = c.AtaSectorCountExp;
  s.AtaStatus = kStatusReady;

  const uint64_t in_bytes = uint64_t{packet->InTransferLength} * unit;
  const uint64_t out_bytes = uint64_t{packet->OutTransferLength} * unit;
  auto fail = [&](uint8_t error) {
    s.AtaStatus = kStatusError;
    s.AtaError = error;
    packet->InTransferLength = 0;
    packet->OutTransferLength = 0;
    return EFI_DEVICE_ERROR;
  };

  // The packet must carry the command's data the way the command moves it:
  // data the drive sends with nowhere to go fails the transfer, as it does on
  // the controller; a buffer too small is refused before anything runs.
  if (transfer.direction == Transfer::kIn && transfer.bytes > 0) {
    if (!protocol_reads(packet->Protocol)) return fail(kErrorAbort);
    if (in_bytes < transfer.bytes) {
      packet->InTransferLength = static_cast<UINT32>((transfer.bytes + unit - 1) / unit);
      return EFI_BAD_BUFFER_SIZE;
    }
  }
  if (transfer.direction == Transfer::kOut) {
    if (!protocol_writes(packet->Protocol)) return fail(kErrorAbort);
    if (out_bytes < transfer.bytes) {
      packet->OutTransferLength = static_cast<UINT32>((transfer.bytes + unit - 1) / unit);
      return EFI_BAD_BUFFER_SIZE;
    }
  }

  std::vector<uint8_t> data;  // what the drive sends back
  auto check_range = [&](uint64_t lba, uint64_t count) { return lba < drive->info.sectors && count <= drive->info.sectors - lba; };

  switch (c.AtaCommand) {
    case kIdentifyDevice:
      data.resize(kSector);
      drive->identify_data(data.data());
      break;

    case kReadVerify:
    case kReadVerifyExt: {
      const bool ext = c.AtaCommand == kReadVerifyExt;
      const uint64_t lba = ext ? lba48(c) : lba28(c);
      const uint64_t count = ext ? count48(c) : count28(c);
      if (!check_range(lba, count)) {
        put_lba(s, lba, ext, c.AtaDeviceHead);
        return fail(kErrorIdNotFound);
      }
      uint64_t bad_lba = 0;
      if (first_in(drive->bad, lba, count, &bad_lba)) {
        put_lba(s, bad_lba, ext, c.AtaDeviceHead);
        s.AtaSectorCount = s.AtaSectorCountExp = 0;
        return fail(kErrorUncorrectable);
      }
      break;
    }

    case kWriteSectors:
    case kWriteSectorsExt: {
      const bool ext = c.AtaCommand == kWriteSectorsExt;
      const uint64_t lba = ext ? lba48(c) : lba28(c);
      const uint64_t count = ext ? count48(c) : count28(c);
      if (!check_range(lba, count)) {
        put_lba(s, lba, ext, c.AtaDeviceHead);
        return fail(kErrorIdNotFound);
      }
      // A sector that could not be read is replaced by a spare as it is written.
      const uint64_t remapped = remove_range(drive->bad, lba, lba + count - 1);
      drive->reallocated += remapped;
      drive->pending -= std::min(drive->pending, remapped);
      drive->offline_uncorrectable -= std::min(drive->offline_uncorrectable, remapped);
      packet->OutTransferLength = static_cast<UINT32>(transfer.bytes / unit);
      break;
    }

    case kWriteUncorrectableExt: {
      // 0x55 pseudo-uncorrectable (logged) and 0xAA flagged: both read back as UNC.
      if (c.AtaFeatures != 0x55 && c.AtaFeatures != 0xAA) return fail(kErrorAbort);
      const uint64_t lba = lba48(c), count = count48(c);
      if (!check_range(lba, count)) {
        put_lba(s, lba, true, c.AtaDeviceHead);
        return fail(kErrorIdNotFound);
      }
      drive->pending += add_range(drive->bad, lba, lba + count - 1);
      break;
    }

    case kReadLogExt: {
      const uint8_t address = c.AtaSectorNumber;
      const uint64_t page = c.AtaCylinderLow | c.AtaCylinderHighExp << 8;
      const uint64_t pages = transfer.bytes / kSector;
      if (pages == 0 || page + pages > 1 || (address != kLogDirectory && address != kExtSelfTestLog))
        return fail(kErrorAbort);
      data.resize(kSector);
      if (address == kLogDirectory)
        Drive::directory(data.data(), true);
      else {
        drive->settle(now);
        drive->ext_self_test_log(data.data());
      }
      break;
    }

    case kSmart: {
      if (c.AtaCylinderLow != 0x4F || c.AtaCylinderHigh != 0xC2) return fail(kErrorAbort);
      if (!drive->smart_enabled && c.AtaFeatures != kSmartEnable) return fail(kErrorAbort);
      switch (c.AtaFeatures) {
        case kSmartReadData:
          data.resize(kSector);
          drive->smart_data(data.data(), now);
          break;
        case kSmartReadThresholds:
          data.resize(kSector);
          drive->smart_thresholds(data.data(), now);
          break;
        case kSmartEnable: drive->smart_enabled = true; break;
        case kSmartDisable: drive->smart_enabled = false; break;
        case kSmartReturnStatus:
          if (drive->threshold_exceeded(now)) {
            s.AtaCylinderLow = 0xF4;
            s.AtaCylinderHigh = 0x2C;
          }
          break;
        case kSmartExecuteOffline:
          switch (c.AtaSectorNumber) {
            case 0x00: drive->offline_status = 0x82; break;  // off-line data collection: done at once
            case kShortSelfTest:
            case kExtendedSelfTest:
            case kConveyanceSelfTest:
              // A new self-test replaces one still running, which is logged as aborted.
              drive->interrupt(kTestAbortedByHost, now);
              drive->start_test(c.AtaSectorNumber, now);
              break;
            case kAbortSelfTest: drive->interrupt(kTestAbortedByHost, now); break;
            default: return fail(kErrorAbort);  // captive, selective and vendor tests
          }
          break;
        case kSmartReadLog: {
          const uint8_t address = c.AtaSectorNumber;
          if (c.AtaSectorCount != 1 || (address != kLogDirectory && address != kSelfTestLog)) return fail(kErrorAbort);
          data.resize(kSector);
          if (address == kLogDirectory)
            Drive::directory(data.data(), false);
          else {
            drive->settle(now);
            drive->self_test_log(data.data());
          }
          break;
        }
        default: return fail(kErrorAbort);
      }
      break;
    }

    default: return fail(kErrorAbort);
  }

  if (transfer.direction == Transfer::kIn && !data.empty()) {
    std::memcpy(packet->InDataBuffer, data.data(), data.size());
    packet->InTransferLength = static_cast<UINT32>(data.size() / unit);
  } else {
    packet->InTransferLength = 0;
  }
  if (transfer.direction != Transfer::kOut) packet->OutTransferLength = 0;
  return EFI_SUCCESS;
}

}  // namespace hostfw
