// What the profile asks of a drive, seen through raw EFI_ATA_PASS_THRU
// packets: IDENTIFY words, SMART, self-tests, logs, media faults, port
// multipliers and how the controller reports errors.
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

TEST(AtaProfile, IdentifyWordsFollowTheDrivesKeys) {
  const struct {
    const char* keys;
    int word;
    uint16_t mask, expected;
  } cases[] = {
      {"", 0, 0xFFFF, 0x0040},
      {"", 21, 0xFFFF, 0x8000},  // a rotating drive's 16 MiB cache, in 512-byte units
      {"cache_kib = 8192\n", 21, 0xFFFF, 0x4000},
      {"", 83, 0x0400, 0x0400},
      {"lba48 = no\n", 83, 0x0400, 0},
      {"lba48 = no\n", 100, 0xFFFF, 0},
      {"", 106, 0xFFFF, 0x4000},
      {"physical_sector_bytes = 4096\n", 106, 0xFFFF, 0x6003},
      {"logical_sector_bytes = 4096\n", 106, 0xFFFF, 0x5000},
      {"logical_sector_bytes = 4096\n", 117, 0xFFFF, 2048},
      {"ata_major_version = 0x007E\n", 80, 0xFFFF, 0x007E},
      {"ata_minor_version = 48\n", 81, 0xFFFF, 0x0030},
      {"", 82, 0x0001, 1},
      {"smart_supported = no\n", 82, 0x0001, 0},
      {"smart_supported = no\n", 85, 0x0001, 0},
      {"smart_enabled = no\n", 85, 0x0001, 0},
      {"", 84, 0x0003, 3},
      {"self_test_supported = no\n", 84, 0x0003, 1},
      {"rotation_rpm = 1\n", 217, 0xFFFF, 1},
      {"rotation_rpm = 1\n", 21, 0xFFFF, 0},
      {"serial = AB\\x01\\x7FCD\n", 18, 0xFFFF, 0x017F},  // right-aligned: "AB", 0x01 0x7F, "CD" in words 17-19
  };
  for (const auto& c : cases) {
    Bench bench(machine_with("", {disk(c.keys)}));
    const Reply r = bench.identify(0);
    ASSERT_EQ(r.status, EFI_SUCCESS) << c.keys;
    EXPECT_EQ(r.word(c.word) & c.mask, c.expected) << c.keys << "word " << c.word;
    EXPECT_EQ(byte_sum(r.data), 0);
  }
}

TEST(AtaProfile, CommandsADriveDoesNotHaveAreAborted) {
  Bench bench(machine_with("", {kDisk + "lba48 = no\nsmart_supported = no\n",
                                "port = 1\nmodel = M\nserial = S\nsectors = 4096\nself_test_supported = no\n"
                                "refuse_smart_enable = yes\nsmart_enabled = no\n",
                                "port = 2\nmodel = M\nserial = S2\nsectors = 4096\nrefuse_vendor_self_test = yes\n"}));
  EXPECT_EQ(outcome(bench.verify(0, 5, 1, false)), "ok") << "28-bit commands still work";
  EXPECT_EQ(outcome(bench.verify(0, 5, 1, true)), "ABRT") << "no 48-bit commands";
  EXPECT_EQ(outcome(bench.write_uncorrectable(0, 5)), "ABRT");
  EXPECT_EQ(outcome(bench.smart(0, 0xDA)), "ABRT") << "no SMART";
  EXPECT_EQ(outcome(bench.smart(1, 0xD8)), "ABRT") << "refuses to enable SMART";
  EXPECT_EQ(outcome(bench.smart(1, 0xD0)), "ABRT") << "and stays off";
  EXPECT_EQ(outcome(bench.smart(2, 0xD4, 0x50, 4)), "ABRT") << "refuses the vendor drive self-test";
  EXPECT_EQ(outcome(bench.smart(2, 0xD4, 0x01)), "ok");
  EXPECT_EQ(bench.smart(2, 0xD0).byte(367) & 0x10, 0x10) << "self-tests offered";
}

TEST(AtaProfile, APacketDeviceAbortsIdentifyWithItsSignature) {
  Bench bench(machine_with("", {"port = 2\nmodel = Korvan DVD\nserial = CD1\natapi = yes\n"}));
  UINT16 port = 0xFFFF;
  ASSERT_EQ(bench.ata->GetNextPort(bench.ata, &port), EFI_SUCCESS);
  EXPECT_EQ(port, 2);
  const Reply r = bench.identify(2);
  EXPECT_EQ(outcome(r), "ABRT");
  EXPECT_EQ(r.asb.AtaCylinderLow, 0x14);
  EXPECT_EQ(r.asb.AtaCylinderHigh, 0xEB);
  const Reply packet =
      bench.send(2, Bench::block(0xA1), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512);  // IDENTIFY PACKET DEVICE
  EXPECT_EQ(packet.word(0) & 0x8000, 0x8000);
  EXPECT_EQ(bench.ata->ResetDevice(bench.ata, 2, kDirect), EFI_SUCCESS);
  EXPECT_EQ(bench.counts(2).resets, 1u);
}

TEST(AtaProfile, ReallocationsWearAttributeFiveDownToItsThreshold) {
  // The value before any write and absent attributes are in the repair tool's tests.
  Bench bench(machine_with("", {kDisk + "bad_sectors = 100-104\nspare_sectors = 100\nreallocated_sectors = 60\n"
                                        "reallocated_threshold = 36\n"}));
  EXPECT_EQ(bench.threshold(0, 5), 36);
  EXPECT_EQ(bench.smart(0, 0xDA).asb.AtaCylinderLow, 0x4F);
  for (uint64_t lba = 100; lba <= 104; ++lba) ASSERT_EQ(outcome(bench.write(0, lba)), "ok");
  const Bench::Attribute a = bench.attribute(0, 5);
  EXPECT_EQ(a.raw, 65);
  EXPECT_EQ(a.value, 35);
  EXPECT_EQ(a.worst, 35);
  const Reply status = bench.smart(0, 0xDA);
  EXPECT_EQ(outcome(status), "ok");
  EXPECT_EQ(status.asb.AtaCylinderLow | status.asb.AtaCylinderHigh << 8, 0x2CF4) << "threshold exceeded";
}

TEST(AtaProfile, SelfTestsEndAsTheProfileSaysAndARunningOneCanBeAborted) {
  Bench bench(machine_with("", {kDisk + "self_test_end_status = 0x21\nself_test_failing_lba = 4660\nlog_pages = 2\n",
                                "port = 1\nmodel = M\nserial = S\nsectors = 4096\nself_test_running = yes\n"}));
  ASSERT_EQ(outcome(bench.smart(0, 0xD4, 0x01)), "ok");
  const uint64_t seconds = bench.self_test_seconds(0, 0x01);
  std::vector<int> seen;
  for (int i = 0; i < 12 && bench.self_test_status(0) >> 4 == 0xF; ++i) {
    seen.push_back(bench.self_test_status(0));
    bench.stall_seconds(seconds / 10);
  }
  EXPECT_EQ(seen.front(), 0xF9);
  EXPECT_EQ(seen.back(), 0xF2) << "it stops with a tenth of the work left";
  EXPECT_EQ(bench.self_test_status(0), 0x21);
  const Reply log = bench.smart(0, 0xD5, 0x06, 1);
  EXPECT_EQ(log.byte(2 + 1), 0x21);
  EXPECT_EQ(log.le(2 + 5, 4), 4660u) << "the failing LBA";
  EXPECT_EQ(bench.read_log_ext(0, 0x07, 0, 1).le(4 + 5, 6), 4660u);

  EXPECT_EQ(bench.self_test_status(1) >> 4, 0xF) << "already running at power-on";
  ASSERT_EQ(outcome(bench.smart(1, 0xD4, 0x7F)), "ok");
  EXPECT_EQ(bench.self_test_status(1) >> 4, 0x1) << "aborted by the host";
  EXPECT_EQ(bench.smart(1, 0xD5, 0x06, 1).byte(2), 0x02) << "the aborted test was the extended one";
}

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
  EXPECT_EQ(smart_dir.le(0, 2), 1u);
  EXPECT_EQ((std::vector{smart_dir.le(2, 2), smart_dir.le(4, 2), smart_dir.le(6, 2), smart_dir.le(12, 2)}),
            (std::vector<uint64_t>{1, 2, 0, 1}));
  EXPECT_EQ((std::vector{gp_dir.le(4, 2), gp_dir.le(6, 2), gp_dir.le(14, 2)}), (std::vector<uint64_t>{0, 2, 2}));

  auto lba28 = [](const Reply& r, size_t at) { return r.le(at, 3) | (r.byte(at + 3) & 0x0Full) << 24; };
  const Reply summary = bench.smart(0, 0xD5, 0x01, 1);
  EXPECT_EQ(summary.byte(1), 1) << "the newest entry is the first of the page";
  EXPECT_EQ(lba28(summary, 90 * 0 + 65), 11000u);
  EXPECT_EQ(lba28(summary, 90 * 4 + 65), 10000u);
  const Reply comprehensive = bench.smart(0, 0xD5, 0x02, 2);
  EXPECT_EQ(lba28(comprehensive, 512 + 90 * 4 + 65), 10000u) << "second page, last entry";
  EXPECT_EQ(lba28(comprehensive, 90 * 1 + 65), 2000u) << "the oldest kept";
  EXPECT_EQ(byte_sum(std::vector<uint8_t>(comprehensive.data.begin() + 512, comprehensive.data.end())), 0);
  const Reply ext = bench.read_log_ext(0, 0x03, 1, 1);  // the second page alone
  auto ext_lba = [&](size_t i) {
    const size_t at = 124 * i + 98;
    return ext.le(at, 1) | ext.le(at + 2, 1) << 8 | ext.le(at + 4, 1) << 16 | ext.le(at + 1, 1) << 24;
  };
  EXPECT_EQ(ext_lba(2), 7000u) << "eight kept: 11000 went round to the first page";

  const Reply self_tests = bench.read_log_ext(0, 0x07, 0, 2);
  EXPECT_EQ(self_tests.le(2, 2), 20u) << "the newest self-test";
  EXPECT_EQ(self_tests.le(512 + 4 + 5, 6), 0x10000014u) << "the 20th, first on the second page";
  EXPECT_EQ(self_tests.byte(4 + 1) >> 4, 7) << "a read failure";
  EXPECT_EQ(outcome(bench.read_log_ext(0, 0x07, 1, 2)), "ABRT") << "beyond the log's pages";

  EXPECT_EQ(outcome(bench.smart(1, 0xD5, 0x00, 1)), "ABRT") << "no SMART log directory";
  EXPECT_EQ(outcome(bench.read_log_ext(1, 0x00, 0, 1)), "ABRT") << "no general-purpose log directory";
  EXPECT_EQ(outcome(bench.smart(1, 0xD5, 0x01, 1)), "ok") << "the summary error log is still there";
}

TEST(AtaProfile, AReadThatFailsIsLoggedAsAnError) {
  Bench bench(machine_with("", {kDisk + "bad_sectors = 777\n"}));
  EXPECT_EQ(bench.smart(0, 0xD5, 0x01, 1).byte(1), 0) << "nothing logged yet";
  ASSERT_EQ(outcome(bench.verify(0, 700, 100)), "UNC at 309");
  const Reply summary = bench.smart(0, 0xD5, 0x01, 1);
  EXPECT_EQ(summary.byte(1), 1);
  EXPECT_EQ(summary.le(65, 3), 777u);
  EXPECT_EQ(summary.byte(2 + 61), 0x40) << "UNC";
}

TEST(AtaProfile, MediaFaultsAtTheirLbas) {
  Bench bench(machine_with("", {kDisk + "idnf_sectors = 5000\nabort_sectors = 6000\nhang_sectors = 7000\n"
                                        "bad_sectors = 8000\nunwritable_sectors = 9000\nunrecoverable_sectors = 9500\n"}));
  // A 20-sector read verify from `first`, a write of the faulty sector, the read again.
  const struct {
    uint64_t first, faulty;
    const char* verify;
    const char* write;
    const char* verify_after_write;
  } cases[] = {
      {4990, 5000, "IDNF", "IDNF", "IDNF"},  // whatever the access
      {5990, 6000, "ABRT", "ABRT", "ABRT"},
      {7990, 8000, "UNC at 1f40", "ok", "ok"},  // remapped by the write
      {8990, 9000, "UNC at 2328", "ABRT", "UNC at 2328"},
      {9490, 9500, "UNC at 251c", "ok", "UNC at 251c"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(outcome(bench.verify(0, c.first, 20)), c.verify) << c.faulty;
    EXPECT_EQ(outcome(bench.write(0, c.faulty)), c.write) << c.faulty;
    EXPECT_EQ(outcome(bench.verify(0, c.first, 20)), c.verify_after_write) << c.faulty;
  }
  EXPECT_EQ(bench.counts(0).writes_at(8000), 1u);
  EXPECT_EQ(bench.counts(0).writes_at(9000), 0u) << "a write that failed wrote nothing";
  EXPECT_EQ(bench.counts(0).writes_at(9500), 1u);
  EXPECT_EQ(bench.attribute(0, 5).raw, 1) << "only 8000 was remapped";

  const uint64_t before = bench.now_seconds();
  EXPECT_EQ(outcome(bench.verify(0, 6990, 20)), "timeout");
  EXPECT_EQ(bench.now_seconds() - before, 10u) << "the packet's ten-second timeout passed";
}

// Falling silent from the profile (a moment the test picks is covered by the
// storage algorithms' tests): the commands still answered, then timeouts in
// machine time (Timeout 0 waits until the controller gives up).
TEST(AtaProfile, ADriveThatStopsAnsweringTimesOutEveryLaterCommand) {
  Bench bench(machine_with("", {kDisk + "stop_answering_after = 2\n"}));
  EXPECT_EQ(outcome(bench.identify(0)), "ok");
  EXPECT_EQ(outcome(bench.verify(0, 0, 1)), "ok");
  const uint64_t start = bench.now_seconds();
  EXPECT_EQ(outcome(bench.send(0, Bench::block(0xEC), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512, 0, kDirect, 0)),
            "timeout");
  EXPECT_EQ(bench.now_seconds() - start, 30u);
  EXPECT_EQ(outcome(bench.verify(0, 2, 1)), "timeout");
  EXPECT_EQ(bench.counts(0).total, 4u);
  EXPECT_THROW(bench.machine_->ata()->stop_answering_after(5, 1), std::out_of_range);
}

// Drives that misbehave on purpose: IDENTIFY data of one byte throughout,
// log directories claiming more pages than the logs hold.
TEST(AtaProfile, IdentifyFillAndOverclaimingDirectories) {
  Bench bench(machine_with("", {kDisk + "identify_fill = 0xFF\nlog_pages = 2\nlog_directory_pages = 255\n"}));
  const Reply r = bench.identify(0);
  ASSERT_EQ(r.status, EFI_SUCCESS);
  EXPECT_EQ(r.data, std::vector<uint8_t>(512, 0xFF));
  EXPECT_EQ(outcome(bench.verify(0, 1000, 8)), "ok");
  EXPECT_EQ(bench.smart(0, 0xD0).status, EFI_SUCCESS);
  const Reply smart_directory = bench.smart(0, 0xD5, 0x00, 1);
  const Reply gp_directory = bench.read_log_ext(0, 0x00, 0, 1);
  for (int address : {0x01, 0x02, 0x03, 0x06, 0x07, 0x80, 0xFF}) {
    EXPECT_EQ(smart_directory.word(address), 255) << address;
    EXPECT_EQ(gp_directory.word(address), 255) << address;
  }
  EXPECT_EQ(outcome(bench.read_log_ext(0, 0x07, 0, 2)), "ok") << "the pages the log has";
  EXPECT_EQ(outcome(bench.read_log_ext(0, 0x07, 0, 255)), "ABRT");
  EXPECT_EQ(outcome(bench.smart(0, 0xD5, 0x06, 255)), "ABRT");
  for (const char* keys : {"identify_fill = 256\n", "log_directory_pages = 0\n", "log_directory_pages = 65536\n"})
    EXPECT_THROW(hostfw::parse_profile(machine_with("", {kDisk + keys}), "bench.ini", "/tmp"), hostfw::ProfileError)
        << keys;
}

TEST(AtaProfile, CountsSayWhatWasSentAndWhatWasWritten) {
  Bench bench(machine_with("", {kDisk}));
  bench.identify(0);
  bench.smart(0, 0xD0);
  bench.smart(0, 0xD0);
  bench.smart(0, 0xDA);
  bench.verify(0, 0, 100);
  bench.write(0, 42);
  bench.write(0, 42, false);
  bench.write_uncorrectable(0, 43);
  bench.send(0, Bench::block(0xEC), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 256);  // too small: never sent
  const hostfw::AtaCommandCounts& counts = bench.counts(0);
  EXPECT_EQ(counts.total, 8u);
  EXPECT_EQ((std::vector{counts.command(0xEC), counts.command(0xB0), counts.command(0x42), counts.command(0x34),
                         counts.command(0x30), counts.command(0x45)}),
            (std::vector<uint64_t>{1, 3, 1, 1, 1, 1}));
  EXPECT_EQ(counts.smart(0xD0), 2u);
  EXPECT_EQ(counts.smart(0xDA), 1u);
  EXPECT_EQ(counts.sector_writes, (std::map<uint64_t, uint64_t>{{42, 2}}));
  EXPECT_EQ(counts.uncorrectable_marks, (std::map<uint64_t, uint64_t>{{43, 1}}));
  EXPECT_THROW(bench.counts(5), std::out_of_range);
}

TEST(AtaProfile, TheControllerReportsErrorsAndAlignsBuffersAsTheProfileSays) {
  Bench bench(machine_with("ata_error_status = success\nata_io_align = 8\n", {kDisk + "bad_sectors = 300\n"}));
  EXPECT_EQ(bench.ata->Mode->IoAlign, 8u);
  const Reply r = bench.verify(0, 200, 200, false);
  EXPECT_EQ(r.status, EFI_SUCCESS) << "the error is only in the status block";
  EXPECT_EQ(r.asb.AtaStatus & 0x01, 0x01);
  EXPECT_EQ(r.asb.AtaError, 0x40);
  EXPECT_EQ(r.lba48(), 300u);

  alignas(16) uint8_t buffer[600] = {};
  alignas(16) EFI_ATA_STATUS_BLOCK blocks[2] = {};
  EFI_ATA_COMMAND_BLOCK acb = Bench::block(0xEC);
  auto identify = [&](uint8_t* data, EFI_ATA_STATUS_BLOCK* asb) {
    EFI_ATA_PASS_THRU_COMMAND_PACKET p{asb, &acb, 0, data, nullptr, 512, 0, EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN,
                                       EFI_ATA_PASS_THRU_LENGTH_BYTES};
    return bench.ata->PassThru(bench.ata, 0, kDirect, &p, nullptr);
  };
  EXPECT_EQ(identify(buffer + 8, &blocks[0]), EFI_SUCCESS);
  EXPECT_EQ(identify(buffer + 2, &blocks[0]), EFI_INVALID_PARAMETER) << "a word-aligned buffer";
  EXPECT_EQ(identify(buffer, reinterpret_cast<EFI_ATA_STATUS_BLOCK*>(reinterpret_cast<uint8_t*>(blocks) + 4)),
            EFI_INVALID_PARAMETER)
      << "an unaligned status block";
}

TEST(AtaProfile, TwoDrivesBehindAPortMultiplier) {
  Bench bench(machine_with("", {"port = 1\nmultiplier_port = 1\nmodel = Second\nserial = P1\nsectors = 4096\n",
                                "port = 1\nmultiplier_port = 0\nmodel = First\nserial = P0\nsectors = 4096\n",
                                "port = 3\nmodel = Alone\nserial = A3\nsectors = 4096\n"}));
  std::vector<std::pair<UINT16, UINT16>> found;
  for (UINT16 port = 0xFFFF; bench.ata->GetNextPort(bench.ata, &port) == EFI_SUCCESS;)
    for (UINT16 device = 0xFFFF; bench.ata->GetNextDevice(bench.ata, port, &device) == EFI_SUCCESS;)
      found.emplace_back(port, device);
  EXPECT_EQ(found, (std::vector<std::pair<UINT16, UINT16>>{{1, 0}, {1, 1}, {3, 0xFFFF}}));
  EXPECT_EQ(bench.identify(1, 0).text(27, 3), "First ");
  EXPECT_EQ(bench.identify(1, 1).text(27, 3), "Second");
  EXPECT_EQ(bench.identify(1, kDirect).status, EFI_INVALID_PARAMETER) << "a multiplier's port needs its device";
  EXPECT_EQ(bench.identify(3, 0).status, EFI_INVALID_PARAMETER) << "a drive without a multiplier takes 0xFFFF";
  UINT16 device = 5;
  EXPECT_EQ(bench.ata->GetNextDevice(bench.ata, 1, &device), EFI_INVALID_PARAMETER) << "not the device returned last";
}

}  // namespace
