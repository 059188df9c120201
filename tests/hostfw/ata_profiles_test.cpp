// What the profile asks of a drive, seen through raw EFI_ATA_PASS_THRU
// packets: IDENTIFY words, logs, media faults, the command counts and how
// the controller reports errors and refuses malformed packets. SMART,
// self-tests, silence and garbage answers are followed through the storage
// algorithms' tests on drives they describe directly; here their keys.
#include "tests/hostfw/ata_bench.h"

namespace {

using namespace ata_bench;

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
      {"", 83, 0x0400, 0x0400},
      {"lba48 = no\n", 83, 0x0400, 0},
      {"lba48 = no\n", 100, 0xFFFF, 0},
      {"ata_minor_version = 48\n", 81, 0xFFFF, 0x0030},
      {"serial = AB\\x01\\x7FCD\n", 18, 0xFFFF, 0x017F},  // right-aligned: "AB", 0x01 0x7F, "CD" in words 17-19
      {"sectors = 3000000000\n", 61, 0xFFFF, 0x0FFF},  // 28-bit capacity capped at 0x0FFFFFFF
      {"sectors = 3000000000\n", 101, 0xFFFF, 0xB2D0},
  };
  for (const auto& c : cases) {
    Bench bench(machine_with("", {disk(c.keys)}));
    const Reply r = bench.identify(0);
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
  EXPECT_EQ(d.log_pages, 2);
  EXPECT_EQ(d.log_directory_pages, 255);
  EXPECT_EQ(d.identify_fill, 0xFF);
  EXPECT_EQ(d.stop_answering_after, 2u);
  EXPECT_EQ(d.multiplier_port, 1);
  for (const char* keys : {"identify_fill = 256\n", "log_directory_pages = 0\n", "log_directory_pages = 65536\n"})
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
  const Reply smart_dir = bench.smart(0, 0xD5, 0x00, 1), gp_dir = bench.read_log_ext(0, 0x00, 0, 1);
  EXPECT_EQ((std::vector{smart_dir.le(0, 2), smart_dir.le(2, 2), smart_dir.le(4, 2), smart_dir.le(12, 2)}),
            (std::vector<uint64_t>{1, 1, 2, 1}));
  EXPECT_EQ((std::vector{gp_dir.le(4, 2), gp_dir.le(6, 2), gp_dir.le(14, 2)}), (std::vector<uint64_t>{0, 2, 2}));

  const Reply summary = bench.smart(0, 0xD5, 0x01, 1);
  EXPECT_EQ(summary.byte(1), 1) << "the newest entry is the first of the page";
  EXPECT_EQ(lba28(summary, 65), 11000u);
  const Reply comprehensive = bench.smart(0, 0xD5, 0x02, 2);
  EXPECT_EQ(lba28(comprehensive, 512 + 90 * 4 + 65), 10000u) << "second page, last entry";
  EXPECT_EQ(lba28(comprehensive, 90 * 1 + 65), 2000u) << "the oldest kept";
  EXPECT_EQ(byte_sum(std::vector<uint8_t>(comprehensive.data.begin() + 512, comprehensive.data.end())), 0);
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
  EXPECT_EQ(outcome(bench.write(0, 8000)), "ok");
  EXPECT_EQ(bench.attribute_raw(0, 5), 1) << "remapped";
  EXPECT_EQ(outcome(bench.verify(0, 200000000 - 1, 2)), "IDNF") << "beyond the end";

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
  const uint64_t before = bench.now_seconds();
  EXPECT_EQ(outcome(bench.send(0, Bench::block(0x42, 0, 6990, 20, true), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA, 0,
                               0, kDirect, 0)),
            "timeout");
  EXPECT_EQ(bench.now_seconds() - before, 30u);
}

// Counts a repair's writes lean on are followed by the repair tool's tests.
TEST(AtaProfile, CountsSayWhatWasSentAndWhatWasWritten) {
  Bench bench(machine_with("", {kDisk}));
  bench.smart(0, 0xD0);
  bench.write(0, 42);
  bench.write(0, 42, false);
  bench.write_uncorrectable(0, 43);
  bench.send(0, Bench::block(0xEC), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 256);  // too small: never sent
  const hostfw::AtaCommandCounts& counts = bench.counts(0);
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
  EXPECT_EQ(bench.ata->Mode->IoAlign, 8u);
  const Reply r = bench.verify(0, 200, 200, false);
  EXPECT_EQ(r.status, EFI_SUCCESS) << "the error is only in the status block";
  EXPECT_EQ(r.asb.AtaStatus & 0x01, 0x01);
  EXPECT_EQ(r.asb.AtaError, 0x40);
  EXPECT_EQ(r.lba48(), 300u);

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

}  // namespace
