// The NVMe discovery and algorithms against simulated drives and their
// faults: several namespaces, 4096-byte blocks, garbage and silence at
// discovery, health verdicts, self-tests that pass, fail, are missing or are
// stopped, unreadable blocks at both ends, and nothing but reading commands
// on the wire. Every bench checks that nothing allocated is left.
#include <gtest/gtest.h>

#include <algorithm>

#include "nvme/nvme_commands.h"
#include "nvme/nvme_structures.h"
#include "nvme/nvme_tests.h"
#include "tests/unit/nvme_bench.h"

namespace {

using nvme_bench::Bench;
using Lines = std::vector<std::string>;

TEST(NvmeDiscovery, EveryNamespaceOfEveryControllerIsOneDevice) {
  hostfw::NvmeInfo split = nvme_bench::drive("NVB-SPLIT");
  split.namespaces = 3;
  hostfw::NvmeInfo big = nvme_bench::drive("NVB-4K");
  big.lba_bytes = 4096;
  Bench bench({split, big});
  ASSERT_EQ(bench.found(), EFI_SUCCESS);
  ASSERT_EQ(bench.count(), 4u);
  for (UINT32 n = 0; n < 3; ++n) {
    EXPECT_EQ(bench.device(n).NamespaceId, n + 1);
    EXPECT_EQ(bench.device(n).NamespaceCount, 3u);
  }
  const tarvik::NvmeDevice& last = bench.device(3);
  EXPECT_EQ(testing_support::utf8(last.Controller.Serial), "NVB-4K");
  EXPECT_EQ(last.Namespace.BlockBytes, 4096u);
  EXPECT_EQ(last.Namespace.Blocks, 1u << 19);
}

TEST(NvmeDiscovery, GarbageOrSilentControllersAreSkippedWithALine) {
  hostfw::NvmeInfo garbage = nvme_bench::drive("\x01\x02");
  hostfw::NvmeInfo silent = nvme_bench::drive("NVB-SILENT");
  silent.stop_answering_after = 0;
  {
    Bench bench({garbage, silent, nvme_bench::drive()});
    ASSERT_EQ(bench.found(), EFI_SUCCESS);
    EXPECT_EQ(bench.count(), 1u);
    EXPECT_NE(bench.transcript().find("NVMe controller 0: Identify Controller refused or unreadable, skipped."),
              std::string::npos);
    EXPECT_NE(bench.transcript().find("NVMe controller 1:"), std::string::npos);
  }
  Bench none({garbage});
  EXPECT_EQ(none.found(), EFI_NOT_FOUND);
  EXPECT_EQ(none.count(), 0u);
}

TEST(NvmeHealthStatus, VerdictAndFiguresFromTheHealthLog) {
  struct Case {
    void (*edit)(hostfw::NvmeInfo&);
    UINT64 result;
    std::string last_line;
  };
  const Case cases[] = {
      {[](hostfw::NvmeInfo&) {}, tarvik::TEST_RESULT_PASSED, ""},
      {[](hostfw::NvmeInfo& d) { d.critical_warning = 0x04; }, tarvik::TEST_RESULT_FAILED, "ERROR NVME_HEALTH_FAILING"},
      {[](hostfw::NvmeInfo& d) { d.available_spare = 9; }, tarvik::TEST_RESULT_FAILED, "ERROR NVME_HEALTH_FAILING"},
      {[](hostfw::NvmeInfo& d) { d.percentage_used = 100; }, tarvik::TEST_RESULT_FAILED, "ERROR NVME_HEALTH_FAILING"},
  };
  for (const Case& c : cases) {
    hostfw::NvmeInfo d = nvme_bench::drive();
    d.unsafe_shutdowns = 4;
    d.temperature_c = 41;
    c.edit(d);
    Bench bench({d});
    EXPECT_EQ(tarvik::NvmeHealthStatusTest(bench.run, bench.device(0)), c.result);
    ASSERT_FALSE(bench.lines.empty());
    EXPECT_EQ(bench.lines[0].rfind("MESSAGE SMART_HEALTH CRITICAL_WARNING ", 0), 0u) << bench.lines[0];
    EXPECT_NE(bench.lines[0].find(" TEMPERATURE 41 "), std::string::npos);
    EXPECT_NE(bench.lines[0].find(" UNSAFE_SHUTDOWNS 4"), std::string::npos);
    EXPECT_EQ(bench.lines.size() == 2 ? bench.lines[1] : "", c.last_line);
    EXPECT_EQ(bench.progress, (std::vector<uint64_t>{0, 100}));
  }
  Bench silent({nvme_bench::drive()});
  silent.controller(0).stop_answering_after(0);
  EXPECT_EQ(tarvik::NvmeHealthStatusTest(silent.run, silent.device(0)), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(silent.lines, Lines{"ERROR COMMUNICATION_FAILURE"});
}

TEST(NvmeSelfTest, OutcomeOfTheNewestEntryFollowedToTheEnd) {
  const struct {
    hostfw::NvmeSelfTest kind;
    UINT8 code;
    UINT64 result;
    Lines lines;
  } cases[] = {
      {hostfw::NvmeSelfTest::kPass, tarvik::nvme_self_test::Short, tarvik::TEST_RESULT_PASSED, {}},
      {hostfw::NvmeSelfTest::kPass, tarvik::nvme_self_test::Extended, tarvik::TEST_RESULT_PASSED, {}},
      {hostfw::NvmeSelfTest::kFail, tarvik::nvme_self_test::Short, tarvik::TEST_RESULT_FAILED, {"ERROR SELF_TEST_FAILED"}},
      {hostfw::NvmeSelfTest::kUnsupported, tarvik::nvme_self_test::Short, tarvik::TEST_RESULT_NOT_SUPPORTED,
       {"WARNING SELF_TEST_NOT_SUPPORTED"}},
  };
  for (const auto& c : cases) {
    hostfw::NvmeInfo d = nvme_bench::drive();
    d.self_test = c.kind;
    d.self_test_seconds = 20;
    Bench bench({d});
    EXPECT_EQ(tarvik::NvmeSelfTest(bench.run, bench.device(0), c.code), c.result);
    ASSERT_FALSE(bench.lines.size() < c.lines.size());
    EXPECT_EQ(Lines(bench.lines.begin(), bench.lines.begin() + c.lines.size()), c.lines);
    EXPECT_TRUE(std::is_sorted(bench.progress.begin(), bench.progress.end()));
    EXPECT_EQ(bench.progress.back(), 100u);
    if (c.kind == hostfw::NvmeSelfTest::kPass) {
      EXPECT_GT(bench.progress.size(), 10u) << "progress while it runs";
    }
  }
}

TEST(NvmeSelfTest, AStopRequestAbortsTheTestOnTheDrive) {
  Bench bench({nvme_bench::drive()});
  bench.on_progress = [&](uint64_t percent) {
    if (percent >= 20) bench.run.Running = 0;
  };
  EXPECT_EQ(tarvik::NvmeSelfTest(bench.run, bench.device(0), tarvik::nvme_self_test::Short),
            tarvik::TEST_RESULT_CANCELED);
  // The start and the abort.
  EXPECT_EQ(bench.controller(0).counts().admin_command(tarvik::nvme_opcode::DeviceSelfTest), 2u);
  tarvik::NvmePages page(sizeof(tarvik::NvmeSelfTestLog));
  ASSERT_EQ(tarvik::NvmeGetLogPage(bench.device(0).PassThru, 1, tarvik::nvme_log::SelfTest, page.get(), 564),
            tarvik::NvmeAnswer::Done);
  tarvik::NvmeSelfTestFacts facts{};
  ASSERT_TRUE(tarvik::ParseSelfTestLog(page.get(), 564, &facts));
  EXPECT_EQ(facts.RunningTest, 0);
  EXPECT_EQ(facts.NewestOutcome, tarvik::NvmeSelfTestOutcome::AbortedByCommand);
}

TEST(NvmeReadTests, UnreadableBlocksAtBothEndsAreEachLogged) {
  for (const UINT32 lba_bytes : {512u, 4096u}) {
    for (const bool verify : {true, false}) {
      hostfw::NvmeInfo d = nvme_bench::drive();
      d.lba_bytes = lba_bytes;
      d.verify = verify;
      d.bad_lbas = {{1, 0, 0}, {1, d.blocks - 1, d.blocks - 1}};
      d.error_log_lbas = {{1, d.blocks - 1, d.blocks - 1}};
      Bench bench({d});
      const std::string last = "ERROR READ_SECTOR_ERROR " + std::to_string(d.blocks - 1);
      // Before the scan adds its own failures to the error log.
      EXPECT_EQ(tarvik::NvmeErrorLogReadTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_FAILED);
      EXPECT_EQ(bench.lines, Lines{last});
      bench.lines.clear();
      bench.progress.clear();
      EXPECT_EQ(tarvik::NvmeFullReadScan(bench.run, bench.device(0)), tarvik::TEST_RESULT_FAILED);
      EXPECT_EQ(bench.lines, (Lines{"ERROR READ_SECTOR_ERROR 0", last}));
      EXPECT_TRUE(std::is_sorted(bench.progress.begin(), bench.progress.end()));
      EXPECT_EQ(bench.progress.back(), 100u);
      const auto& counts = bench.controller(0).counts();
      EXPECT_GT(counts.io_command(verify ? tarvik::nvme_opcode::Verify : tarvik::nvme_opcode::Read), 0u);
      EXPECT_EQ(counts.io_command(verify ? tarvik::nvme_opcode::Read : tarvik::nvme_opcode::Verify), 0u);
    }
  }
}

TEST(NvmeReadTests, NothingLoggedNothingToReadAndSilence) {
  Bench bench({nvme_bench::drive()});
  EXPECT_EQ(tarvik::NvmeRandomReadTest(bench.run, bench.device(0), bench.common()), tarvik::TEST_RESULT_PASSED);
  EXPECT_EQ(bench.controller(0).counts().io_command(tarvik::nvme_opcode::Verify), 5000u);
  EXPECT_EQ(tarvik::NvmeErrorLogReadTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_NOT_SUPPORTED);
  EXPECT_EQ(bench.lines, Lines{"WARNING NO_LOGGED_LBAS"});

  bench.lines.clear();
  bench.controller(0).stop_answering_after(10);
  EXPECT_EQ(tarvik::NvmeFullReadScan(bench.run, bench.device(0)), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(bench.lines, Lines{"ERROR COMMUNICATION_FAILURE"});
}

TEST(NvmeReadTests, RandomReadEndsAtTheFirstUnreadableBlock) {
  hostfw::NvmeInfo d = nvme_bench::drive();
  d.blocks = 64;
  d.bad_lbas = {{1, 0, 63}};
  Bench bench({d});
  EXPECT_EQ(tarvik::NvmeRandomReadTest(bench.run, bench.device(0), bench.common()), tarvik::TEST_RESULT_FAILED);
  ASSERT_EQ(bench.lines.size(), 1u);
  EXPECT_EQ(bench.lines[0].rfind("ERROR READ_SECTOR_ERROR ", 0), 0u);
  EXPECT_EQ(bench.controller(0).counts().io_command(tarvik::nvme_opcode::Verify), 1u);
}

TEST(NvmeAlgorithms, SendOnlyIdentifyLogPagesSelfTestsAndReads) {
  hostfw::NvmeInfo d = nvme_bench::drive();
  d.self_test_seconds = 5;
  d.bad_lbas = {{1, 700, 702}};
  d.error_log_lbas = {{1, 700, 700}};
  Bench bench({d});
  tarvik::NvmeDevice& device = bench.device(0);
  tarvik::NvmeHealthStatusTest(bench.run, device);
  tarvik::NvmeSelfTest(bench.run, device, tarvik::nvme_self_test::Short);
  tarvik::NvmeSelfTest(bench.run, device, tarvik::nvme_self_test::Extended);
  tarvik::NvmeRandomReadTest(bench.run, device, bench.common());
  tarvik::NvmeErrorLogReadTest(bench.run, device);
  tarvik::NvmeFullReadScan(bench.run, device);
  EXPECT_EQ(tarvik::IdentifyNvmeDevice(device), EFI_SUCCESS);
  const auto& counts = bench.controller(0).counts();
  EXPECT_EQ(counts.changing_commands(), 0u);
  EXPECT_EQ(counts.others_than({0x02, 0x06, 0x08, 0x14}, {0x02, 0x0C}), 0u);
  EXPECT_GT(counts.total, 5000u);
}

}  // namespace
