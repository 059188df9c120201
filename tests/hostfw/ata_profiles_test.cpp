// The simulated SATA drives against raw EFI_ATA_PASS_THRU packets built the
// way the application's storage code builds them: what the profile asks of
// a drive (IDENTIFY words, logs, media faults), the command counts, how the
// controller reports errors and refuses malformed packets, and the machine
// time media commands take. SMART, self-tests, silence and garbage answers
// are followed through the storage algorithms' tests on drives they
// describe directly; here their keys.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "hostfw/ata_controller.h"
#include "tests/support/test_machine.h"

namespace {

constexpr UINT16 kDirect = 0xFFFF;
constexpr uint64_t kMs = 1000 * 1000;

uint8_t byte_sum(const std::vector<uint8_t>& page) {
  return std::accumulate(page.begin(), page.end(), uint8_t{0}, [](uint8_t a, uint8_t b) { return uint8_t(a + b); });
}

// The LBA registers of a command or status block, lowest byte first; the
// 28-bit form uses the first three.
template <typename Block>
auto lba_registers(Block& b) {
  return std::array{&b.AtaSectorNumber,    &b.AtaCylinderLow,    &b.AtaCylinderHigh,
                    &b.AtaSectorNumberExp, &b.AtaCylinderLowExp, &b.AtaCylinderHighExp};
}

struct Reply {
  EFI_STATUS status = EFI_SUCCESS;
  EFI_ATA_STATUS_BLOCK asb{};
  std::vector<uint8_t> data;

  uint64_t lba48() const {
    uint64_t lba = 0;
    for (int i = 5; i >= 0; --i) lba = lba << 8 | *lba_registers(asb)[i];
    return lba;
  }
  uint8_t byte(size_t i) const { return data.at(i); }
  uint16_t word(int i) const { return static_cast<uint16_t>(data.at(2 * i) | data.at(2 * i + 1) << 8); }
  uint64_t le(size_t at, int bytes) const {
    uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | data.at(at + i);
    return v;
  }
};

// How a command ended: "ok", or the error the status block reports; an
// unreadable sector with the LBA registers in hexadecimal. A status other
// than the usual one for the outcome is named first.
std::string outcome(const Reply& r) {
  std::ostringstream out;
  if (r.status == EFI_SUCCESS && r.asb.AtaStatus == 0x50) return "ok";
  if (r.status == EFI_TIMEOUT) return "timeout";
  if (r.status != EFI_DEVICE_ERROR || r.asb.AtaStatus != 0x51) out << "status " << r.status << ", ";
  if (r.asb.AtaError == 0x40) out << "UNC at " << std::hex << r.lba48();
  else if (r.asb.AtaError == 0x10) out << "IDNF";
  else if (r.asb.AtaError == 0x04) out << "ABRT";
  else out << "error " << int(r.asb.AtaError);
  return out.str();
}

// A machine built from profile text, with commands built as the storage
// module builds them.
class Bench {
 public:
  explicit Bench(const std::string& profile_text)
      : profile_(hostfw::parse_profile(profile_text, "bench.ini", "/tmp")), machine_("", &profile_) {
    void* found = nullptr;
    EFI_GUID guid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
    EXPECT_EQ(machine_->boot_services()->LocateProtocol(&guid, nullptr, &found), EFI_SUCCESS);
    ata = static_cast<EFI_ATA_PASS_THRU_PROTOCOL*>(found);
  }

  Reply send(UINT16 port, EFI_ATA_COMMAND_BLOCK acb, UINT8 protocol, UINT32 in_bytes = 0, UINT32 out_bytes = 0,
             UINT16 device = kDirect, UINT64 timeout = 100000000) {
    Reply r;
    std::vector<uint8_t> out(out_bytes, 0x5A);
    r.data.assign(in_bytes, 0);
    EFI_ATA_PASS_THRU_COMMAND_PACKET p{&r.asb, &acb, timeout, in_bytes ? r.data.data() : nullptr,
                                       out_bytes ? out.data() : nullptr, in_bytes, out_bytes, protocol,
                                       static_cast<UINT8>(in_bytes || out_bytes ? EFI_ATA_PASS_THRU_LENGTH_BYTES
                                                                                : EFI_ATA_PASS_THRU_LENGTH_SECTOR_COUNT)};
    r.status = ata->PassThru(ata, port, device, &p, nullptr);
    return r;
  }

  // A command whose LBA registers hold `lba`; in the 28-bit form LBA bits
  // 24-27 go to the device register.
  static EFI_ATA_COMMAND_BLOCK block(UINT8 command, UINT8 features = 0, uint64_t lba = 0, uint32_t count = 0,
                                     bool ext = false) {
    EFI_ATA_COMMAND_BLOCK c{};
    c.AtaCommand = command;
    c.AtaFeatures = features;
    c.AtaDeviceHead = static_cast<UINT8>(0xF0 | (ext ? 0 : (lba >> 24) & 0x0F));
    c.AtaSectorCount = static_cast<UINT8>(count);
    c.AtaSectorCountExp = static_cast<UINT8>(ext ? count >> 8 : 0);
    for (int i = 0; i < (ext ? 6 : 3); ++i) *lba_registers(c)[i] = static_cast<UINT8>(lba >> 8 * i);
    return c;
  }
  Reply verify(UINT16 port, uint64_t lba, uint32_t count, bool ext = true) {
    return send(port, block(ext ? 0x42 : 0x40, 0, lba, count, ext), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA);
  }
  Reply write(UINT16 port, uint64_t lba, bool ext = true, UINT32 bytes = 512) {
    return send(port, block(ext ? 0x34 : 0x30, 0, lba, 1, ext), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_OUT, 0, bytes);
  }
  Reply write_uncorrectable(UINT16 port, uint64_t lba, UINT8 mode = 0x55) {
    return send(port, block(0x45, mode, lba, 1, true), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA);
  }
  Reply smart(UINT16 port, UINT8 feature, UINT8 sector_number = 0, UINT8 count = 0) {
    // The signature 0xC24F rides in the cylinder registers.
    const EFI_ATA_COMMAND_BLOCK c = block(0xB0, feature, sector_number | 0xC24F00u, count);
    const bool data_in = feature == 0xD0 || feature == 0xD1 || feature == 0xD5;
    return send(port, c, data_in ? EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN : EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA,
                data_in ? 512 * (feature == 0xD5 ? count : 1) : 0);
  }
  // READ LOG EXT of pages [page, page + count) of a log.
  Reply read_log_ext(UINT16 port, UINT8 address, uint16_t page, uint16_t count) {
    EFI_ATA_COMMAND_BLOCK c = block(0x2F, 0, address, count, true);
    c.AtaCylinderLow = static_cast<UINT8>(page);
    c.AtaCylinderLowExp = static_cast<UINT8>(page >> 8);
    return send(port, c, EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512u * count);
  }

  uint64_t now_ns() { return machine_->clock().now_ns(); }

  hostfw::Profile profile_;
  testing_support::TestMachine machine_;
  EFI_ATA_PASS_THRU_PROTOCOL* ata = nullptr;
};

// A [machine] section and one drive section per argument.
std::string machine_with(const std::string& machine_keys, const std::vector<std::string>& drives) {
  std::string text = "[machine]\nname = Bench\nmemory_mib = 64\n" + machine_keys +
                     "[system]\nmanufacturer = Korvan\nproduct = Bench\nserial = B1234567\n";
  for (const std::string& d : drives) text += "[drive]\n" + d;
  return text;
}

const std::string kDisk = "port = 0\nmodel = Korvan D1\nserial = D1\nsectors = 1000000\nrotation_rpm = 7200\n";

// A drive on port 0 with the keys given and the usual ones it does not give.
std::string disk(const std::string& keys) {
  std::string text = keys;
  for (const char* key : {"port = 0\n", "model = Korvan D1\n", "serial = D1\n", "sectors = 1000000\n", "rotation_rpm = 7200\n"})
    if (("\n" + keys).find("\n" + std::string(key).substr(0, std::string(key).find('=') + 1)) == std::string::npos)
      text += key;
  return text;
}

// The words the storage module shows (cache, rotation, sector sizes,
// versions) and those its SMART tests rely on are followed through its
// tests; here the others.
TEST(AtaProfile, IdentifyWordsFollowTheDrivesKeys) {
  const struct {
    const char* keys;
    int word;
    uint16_t mask, expected;
  } cases[] = {
      {"", 0, 0xFFFF, 0x0040},
      {"cache_kib = 8192\n", 21, 0xFFFF, 0x4000},
      {"lba48 = no\n", 83, 0x0400, 0},
      {"lba48 = no\n", 100, 0xFFFF, 0},
      {"ata_minor_version = 48\n", 81, 0xFFFF, 0x0030},
      {"serial = AB\\x01\\x7FCD\n", 18, 0xFFFF, 0x017F},  // right-aligned: "AB", 0x01 0x7F, "CD" in words 17-19
      {"sectors = 3000000000\n", 61, 0xFFFF, 0x0FFF},  // 28-bit capacity capped at 0x0FFFFFFF
      {"sectors = 3000000000\n", 101, 0xFFFF, 0xB2D0},
  };
  for (const auto& c : cases) {
    Bench bench(machine_with("", {disk(c.keys)}));
    const Reply r = bench.send(0, Bench::block(0xEC), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512);
    ASSERT_EQ(r.status, EFI_SUCCESS) << c.keys;
    EXPECT_EQ(r.word(c.word) & c.mask, c.expected) << c.keys << "word " << c.word;
    EXPECT_EQ(byte_sum(r.data), 0);
  }
}

// The keys of drives the storage tests describe directly.
TEST(AtaProfile, TheKeysOfFailingAndMisbehavingDrivesAreRead) {
  const hostfw::Profile p = hostfw::parse_profile(
      machine_with("", {kDisk + "atapi = yes\nsmart = failing\npower_on_hours = 12345\nrefuse_smart_enable = yes\n"
                                "refuse_vendor_self_test = yes\nself_test_running = yes\nself_test_end_status = 0x21\n"
                                "self_test_failing_lba = 4660\nspare_sectors = 100\nreallocated_sectors = 60\n"
                                "reallocated_threshold = 40\nlog_directories = no\nlog_pages = 2\n"
                                "log_directory_pages = 255\nidentify_fill = 0xFF\nstop_answering_after = 2\n"
                                "multiplier_port = 1\nsmart_supported = no\nsmart_enabled = no\n"
                                "self_test_supported = no\nlogical_sector_bytes = 4096\nphysical_sector_bytes = 8192\n"
                                "ata_major_version = 0x007E\n"}),
      "keys.ini", "/tmp");
  const hostfw::DriveInfo& d = p.drives.at(0);
  EXPECT_TRUE(d.atapi && d.smart_failing && d.refuse_smart_enable && d.refuse_vendor_self_test && d.self_test_running);
  EXPECT_FALSE(d.log_directories || d.smart_supported || d.smart_enabled || d.self_test_supported);
  EXPECT_EQ(d.logical_sector_bytes * 10000 + d.physical_sector_bytes, 4096u * 10000 + 8192);
  EXPECT_EQ(d.major_version, 0x007E);
  EXPECT_EQ(d.power_on_hours, 12345u);
  EXPECT_EQ(d.self_test_end_status, 0x21);
  EXPECT_EQ(d.self_test_failing_lba, 4660u);
  EXPECT_EQ(d.spare_sectors, 100u);
  EXPECT_EQ(d.reallocated_sectors, 60u);
  EXPECT_EQ(d.reallocated_threshold, 40);
  EXPECT_EQ(d.log_directory_pages, 255);
  EXPECT_EQ(d.identify_fill, 0xFF);
  EXPECT_EQ(d.stop_answering_after, 2u);
  for (const char* keys : {"identify_fill = 256\n", "log_directory_pages = 0\n", "log_directory_pages = 65536\n",
                           "media_mb_per_s = 1.5\n", "media_mb_per_s = fast\n", "media_mb_per_s = 100001\n"})
    EXPECT_THROW(hostfw::parse_profile(machine_with("", {kDisk + keys}), "bench.ini", "/tmp"), hostfw::ProfileError)
        << keys;
}

// The LBA of an entry of the summary or comprehensive error log.
uint64_t lba28(const Reply& r, size_t at) { return r.le(at, 3) | (r.byte(at + 3) & 0x0Full) << 24; }

TEST(AtaProfile, LogsNameTheProfilesLbasOnEveryPage) {
  // Eleven errors over two pages of five (the comprehensive log keeps the
  // newest ten) and four a page in the extended log; 20 past self-tests over
  // two pages of 19 in the extended self-test log.
  std::string errors = "error_log_lbas = ", tests = "self_test_log_lbas = ";
  for (int i = 1; i <= 11; ++i) errors += std::to_string(1000 * i) + (i < 11 ? ", " : "\n");
  for (int i = 1; i <= 20; ++i) tests += std::to_string(0x10000000ull + i) + (i < 20 ? ", " : "\n");
  Bench bench(machine_with("", {disk("sectors = 600000000\nlog_pages = 2\n" + errors + tests),
                                "port = 1\nmodel = M\nserial = S\nsectors = 4096\nlog_directories = no\n"}));
  // The directories' page counts are read by the targeted read's tests.
  const Reply summary = bench.smart(0, 0xD5, 0x01, 1);
  EXPECT_EQ(summary.byte(1), 1) << "the newest entry is the first of the page";
  EXPECT_EQ(lba28(summary, 65), 11000u);
  const Reply comprehensive = bench.smart(0, 0xD5, 0x02, 2);
  EXPECT_EQ(lba28(comprehensive, 512 + 90 * 4 + 65), 10000u) << "second page, last entry";
  EXPECT_EQ(lba28(comprehensive, 90 * 1 + 65), 2000u) << "the oldest kept";
  const Reply ext = bench.read_log_ext(0, 0x03, 1, 1);  // the second page alone: 11000 went round to the first
  EXPECT_EQ(ext.le(124 * 2 + 98, 1) | ext.le(124 * 2 + 100, 1) << 8 | ext.le(124 * 2 + 102, 1) << 16, 7000u);

  const Reply self_tests = bench.read_log_ext(0, 0x07, 0, 2);
  EXPECT_EQ(self_tests.le(2, 2), 20u) << "the newest self-test";
  EXPECT_EQ(self_tests.le(512 + 4 + 5, 6), 0x10000014u) << "the 20th, first on the second page";
  EXPECT_EQ(self_tests.byte(4 + 1) >> 4, 7) << "a read failure";
  EXPECT_EQ(outcome(bench.read_log_ext(0, 0x07, 1, 2)), "ABRT") << "beyond the log's pages";

  EXPECT_EQ(outcome(bench.smart(1, 0xD5, 0x00, 1)) + outcome(bench.read_log_ext(1, 0x00, 0, 1)), "ABRTABRT")
      << "no log directories";
}

TEST(AtaProfile, MediaFaultsAtTheirLbasAndTheReadsThatFailAreLogged) {
  constexpr uint64_t kFar = 0x0A123456;  // above 24 bits, within 28
  Bench bench(machine_with("", {disk("sectors = 200000000\nidnf_sectors = 5000\nabort_sectors = 6000\n"
                                     "hang_sectors = 7000\nbad_sectors = 8000, 168965206\nunwritable_sectors = 9000\n"
                                     "unrecoverable_sectors = 9500\n")}));
  // What a write does to each kind, and a hanging sector's timeout, are
  // followed by the repair tool's and the surface tests.
  for (const auto& [first, expected] : {std::pair{4990, "IDNF"}, {5990, "ABRT"}, {7990, "UNC at 1f40"},
                                        {8990, "UNC at 2328"}, {9490, "UNC at 251c"}, {6990, "timeout"}})
    EXPECT_EQ(outcome(bench.verify(0, first, 20)), expected) << first;

  // Count 0 is 65536 sectors, 256 in the 28-bit form, whose LBA bits 24-27
  // ride in the device register.
  EXPECT_EQ(outcome(bench.verify(0, kFar - 65536, 0)), "ok");
  EXPECT_EQ(outcome(bench.verify(0, kFar - 65535, 0)), "UNC at a123456");
  EXPECT_EQ(outcome(bench.verify(0, kFar - 256, 0, false)), "ok");
  const Reply r = bench.verify(0, kFar - 255, 0, false);
  EXPECT_EQ(outcome(r), "UNC at 123456");
  EXPECT_EQ(r.asb.AtaDeviceHead & 0x0F, 0x0A);
  const Reply summary = bench.smart(0, 0xD5, 0x01, 1);
  const size_t newest = 2 + 90 * (summary.byte(1) - 1);  // the entry the log's index names
  EXPECT_EQ(lba28(summary, newest + 63), kFar) << "the newest error logged";
  EXPECT_EQ(summary.byte(newest + 61), 0x40) << "UNC";

  // With Timeout 0 a sector that never answers costs the time the
  // controller waits before it gives up.
  const uint64_t before = bench.now_ns();
  EXPECT_EQ(outcome(bench.send(0, Bench::block(0x42, 0, 6990, 20, true), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA, 0,
                               0, kDirect, 0)),
            "timeout");
  EXPECT_EQ(bench.now_ns() - before, 30 * 1000 * kMs);
}

// Counts a repair's writes lean on are followed by the repair tool's tests.
TEST(AtaProfile, CountsSayWhatWasSentAndWhatWasWritten) {
  Bench bench(machine_with("", {kDisk}));
  bench.smart(0, 0xD0);
  bench.write(0, 42);
  bench.write(0, 42, false);
  bench.write_uncorrectable(0, 43);
  bench.send(0, Bench::block(0xEC), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 256);  // too small: never sent
  const hostfw::AtaCommandCounts& counts = bench.machine_->ata()->counts(0, kDirect);
  EXPECT_EQ((std::vector{counts.total, counts.command(0xEC), counts.smart(0xD0), counts.command(0x34),
                         counts.command(0x30), counts.command(0x45)}),
            (std::vector<uint64_t>{4, 0, 1, 1, 1, 1}));
  EXPECT_EQ(counts.sector_writes, (std::map<uint64_t, uint64_t>{{42, 2}}));
  EXPECT_EQ(counts.uncorrectable_marks, (std::map<uint64_t, uint64_t>{{43, 1}}));
}

TEST(AtaProfile, TheControllerReportsErrorsAsTheProfileSaysAndRefusesMalformedPackets) {
  Bench bench(machine_with("ata_error_status = success\nata_io_align = 8\n",
                           {kDisk + "bad_sectors = 300\n",
                            "port = 1\nmultiplier_port = 0\nmodel = M\nserial = P0\nsectors = 4096\n"}));
  const Reply r = bench.verify(0, 200, 200, false);
  EXPECT_EQ(outcome(r), "status 0, UNC at 12c") << "the error is only in the status block";

  alignas(16) uint8_t buffer[600] = {};
  alignas(16) EFI_ATA_STATUS_BLOCK blocks[2] = {};
  EFI_ATA_COMMAND_BLOCK acb = Bench::block(0xEC);
  EFI_ATA_PASS_THRU_COMMAND_PACKET p{};
  // Sends an IDENTIFY packet after `change` spoils one part of it.
  const auto send = [&](auto change, UINT16 port = 0, UINT16 device = kDirect) {
    p = {&blocks[0], &acb, 0, buffer + 8, nullptr, 512, 0, EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN,
         EFI_ATA_PASS_THRU_LENGTH_BYTES};
    change();
    return bench.ata->PassThru(bench.ata, port, device, &p, nullptr);
  };
  const auto as_is = [] {};
  EXPECT_EQ(send(as_is), EFI_SUCCESS);
  EXPECT_EQ(send([&] { p.InDataBuffer = buffer + 2; }), EFI_INVALID_PARAMETER) << "a word-aligned buffer";
  EXPECT_EQ(send([&] { p.Asb = reinterpret_cast<EFI_ATA_STATUS_BLOCK*>(reinterpret_cast<uint8_t*>(blocks) + 4); }),
            EFI_INVALID_PARAMETER)
      << "an unaligned status block";
  EXPECT_EQ(send([&] { p.InTransferLength = 256; }), EFI_BAD_BUFFER_SIZE);
  EXPECT_EQ(p.InTransferLength, 512u) << "the length the command needs";
  EXPECT_EQ(send([&] { p.Protocol = EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA; }), EFI_SUCCESS);
  EXPECT_EQ(blocks[0].AtaStatus & 0x01, 0x01) << "data with nowhere to go: an error in the status block";
  EXPECT_EQ(send(as_is, 0, 0), EFI_INVALID_PARAMETER) << "a drive without a multiplier takes 0xFFFF";
  EXPECT_EQ(send(as_is, 1), EFI_INVALID_PARAMETER) << "a multiplier's port needs its device";
  EXPECT_EQ(send(as_is, 4), EFI_NOT_FOUND) << "an empty port";
  UINT16 port = 1, device = 5;  // neither returned last
  EXPECT_EQ(bench.ata->GetNextPort(bench.ata, &port), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bench.ata->GetNextDevice(bench.ata, 1, &device), EFI_INVALID_PARAMETER);
  acb.AtaCommand = 0xA1;  // IDENTIFY PACKET DEVICE: not a packet device
  EXPECT_EQ(send(as_is), EFI_SUCCESS);
  EXPECT_EQ(blocks[0].AtaError, 0x04) << "aborted";
  EXPECT_EQ(p.InTransferLength, 0u);
}

// ---- Machine time --------------------------------------------------------------

// Drives with a media rate: READ VERIFY and WRITE SECTORS keep PassThru
// waiting on the machine clock, and the machine's timers fall due during
// the wait as they would while a real drive works.
class MediaTime : public ::testing::Test, public Bench {
 protected:
  MediaTime()
      : Bench(machine_with("", {disk("media_mb_per_s = 150\nbad_sectors = 500000\nhang_sectors = 700000\n"),
                                "port = 1\nmodel = Korvan D4\nserial = D4\nsectors = 100000\n"
                                "logical_sector_bytes = 4096\nmedia_mb_per_s = 200\n",
                                "port = 2\nmodel = Korvan D2\nserial = D2\nsectors = 100000\n"})) {}
};

TEST_F(MediaTime, MediaCommandsTakeTheirSectorsAtTheDrivesRate) {
  const struct {
    const char* what;
    std::function<Reply()> command;
    const char* outcome;
    uint64_t ns;
  } cases[] = {
      // 512-byte sectors at 150 MB/s: 512000 / 150 ns each.
      {"verify of 65536 sectors", [&] { return verify(0, 0, 65536); }, "ok", 65536ull * 512000 / 150},
      {"write of one", [&] { return write(0, 5); }, "ok", 512000 / 150},
      {"verify stopped by UNC", [&] { return verify(0, 499990, 20); }, "UNC at 7a120", 11ull * 512000 / 150},
      {"4096-byte sectors at 200 MB/s", [&] { return verify(1, 0, 16); }, "ok", 16ull * 4096000 / 200},
      {"a drive without a rate", [&] { return verify(2, 0, 65536); }, "ok", 0},
      {"SMART READ DATA: no media access", [&] { return smart(0, 0xD0); }, "ok", 0},
      {"beyond the end", [&] { return verify(0, 999990, 20); }, "IDNF", 0},
      {"a hanging sector: the timeout only", [&] { return verify(0, 699990, 20); }, "timeout", 10000 * kMs},
  };
  for (const auto& c : cases) {
    const uint64_t before = now_ns();
    EXPECT_EQ(outcome(c.command()), c.outcome) << c.what;
    EXPECT_EQ(now_ns() - before, c.ns) << c.what;
  }
}

// When the periodic timer's notification ran, each time at TPL_NOTIFY as the screens' timers do.
std::vector<uint64_t> g_ticks;
EFIAPI VOID RecordTick(EFI_EVENT, VOID* machine) {
  auto& m = *static_cast<hostfw::Machine*>(machine);
  EXPECT_EQ(m.events().tpl(), TPL_NOTIFY);
  g_ticks.push_back(m.clock().now_ns());
}

TEST_F(MediaTime, ALongCommandSignalsTimersAtTheirTimesAndNotifiesWhenItEnds) {
  g_ticks.clear();
  EFI_BOOT_SERVICES* bs = machine_->boot_services();
  EFI_EVENT tick = nullptr, once = nullptr;
  ASSERT_EQ(bs->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_NOTIFY, RecordTick, &*machine_, &tick), EFI_SUCCESS);
  ASSERT_EQ(bs->SetTimer(tick, TimerPeriodic, 100 * 10000), EFI_SUCCESS);
  ASSERT_EQ(bs->CreateEvent(EVT_TIMER, 0, nullptr, nullptr, &once), EFI_SUCCESS);
  ASSERT_EQ(bs->SetTimer(once, TimerRelative, 100 * 10000), EFI_SUCCESS);

  // 65536 sectors at 150 MB/s: 223.7 ms, two ticks' worth. PassThru holds
  // TPL_NOTIFY, so the tick signalled twice runs once, as the command ends.
  ASSERT_EQ(outcome(verify(0, 0, 65536)), "ok");
  const uint64_t end = 65536ull * 512000 / 150;
  ASSERT_EQ(g_ticks, std::vector<uint64_t>{end});
  EXPECT_EQ(bs->CheckEvent(once), EFI_SUCCESS) << "the relative timer fell due mid-command";

  // The periodic timer keeps its phase: next due at 300 ms.
  bs->Stall(100 * 1000);
  EXPECT_EQ(g_ticks, (std::vector<uint64_t>{end, 300 * kMs}));
  bs->CloseEvent(once);
  bs->CloseEvent(tick);
}

}  // namespace
