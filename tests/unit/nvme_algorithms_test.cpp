// The NVMe discovery and algorithms against simulated drives and their
// faults: several namespaces, 4096-byte blocks, garbage and silence,
// the health figures, self-tests that pass, fail, are missing or are
// stopped, and unreadable blocks at both ends. Every bench checks that
// nothing allocated is left; that only reading commands reach a drive is the
// screen test's, after every algorithm.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "nvme/nvme_commands.h"
#include "nvme/nvme_structures.h"
#include "nvme/nvme_tests.h"
#include "core/diag_common.h"
#include "drives/drive_run.h"
#include "hostfw/nvme_controller.h"
#include "nvme/nvme_discovery.h"
#include "tests/support/test_machine.h"

namespace {

// A machine with the given NVMe drives only, their namespaces discovered as
// the module does it, and a run record that keeps every progress value and
// log line; nothing allocated may be left once the namespaces are released.
// A 256 MiB drive of 512-byte blocks unless told otherwise.
hostfw::NvmeInfo drive(const std::string& serial = "NVB-0001") {
  hostfw::NvmeInfo d{.model = serial, .serial = serial, .firmware = "NB1", .bad_lbas = {}, .error_log_lbas = {}};
  d.blocks = 1u << 19;
  return d;
}

class Bench {
 public:
  explicit Bench(std::vector<hostfw::NvmeInfo> nvme)
      : machine("", [&](hostfw::Profile& p) {
          p.drives.clear();
          p.nvme_drives = nvme;
        }) {
    EXPECT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    pools_before_ = machine->memory().outstanding_pools();
    pages_before_ = machine->memory().outstanding_pages();
    found = tarvik::DiscoverNvmeDevices(&drives);
    run.This = reinterpret_cast<tarvik::TestModuleProtocol*>(this);
    run.ProgressCallback = OnProgress;
    run.MessageCallback = OnMessage;
    run.Running = 1;
  }
  ~Bench() {
    tarvik::ReleaseNvmeDevices(&drives);
    EXPECT_EQ(machine->memory().outstanding_pools(), pools_before_) << "pool left behind";
    EXPECT_EQ(machine->memory().outstanding_pages(), pages_before_) << "pages left behind";
  }
  tarvik::NvmeDevice& device(size_t index) { return drives.Devices[index]; }

  testing_support::TestMachine machine;
  tarvik::NvmeDrives drives{};
  EFI_STATUS found = EFI_SUCCESS;
  tarvik::DriveRun run{};
  std::vector<uint64_t> progress;
  std::vector<std::string> lines;
  std::function<void(uint64_t)> on_progress;

 private:
  static EFIAPI EFI_STATUS OnProgress(VOID* context, UINT64 percent, UINT64) {
    auto& self = *static_cast<Bench*>(context);
    self.progress.push_back(percent);
    if (self.on_progress) self.on_progress(percent);
    return EFI_SUCCESS;
  }
  static EFIAPI EFI_STATUS OnMessage(VOID* context, const CHAR16* text, UINT8, UINT64) {
    static_cast<Bench*>(context)->lines.push_back(testing_support::utf8(text));
    return EFI_SUCCESS;
  }

  size_t pools_before_ = 0;
  uint64_t pages_before_ = 0;
};

using hostfw::NvmeInfo;
using Lines = std::vector<std::string>;

TEST(NvmeDiscovery, OneDevicePerNamespaceGarbageAndSilenceSkippedWithALine) {
  NvmeInfo split = drive("NVB-SPLIT"), big = drive("NVB-4K");
  split.namespaces = split.max_namespaces = 3;
  big.lba_bytes = 4096;
  big.max_namespaces = 256;  // inactive IDs 2..256 pass without a line
  NvmeInfo garbage = drive("\x01\x02"), silent = drive("NVB-SILENT");
  silent.stop_answering_after = 0;
  {
    Bench none({garbage});
    EXPECT_EQ(none.found, EFI_NOT_FOUND);
  }
  Bench bench({garbage, split, silent, big});
  ASSERT_EQ(bench.drives.DeviceCount, 4u);
  for (UINT32 n = 0; n < 3; ++n) EXPECT_EQ(bench.device(n).NamespaceId, n + 1);
  EXPECT_EQ(bench.device(2).NamespaceCount, 3u);
  EXPECT_EQ(testing_support::utf8(bench.device(3).Controller.Serial), "NVB-4K");
  EXPECT_EQ(bench.device(3).Namespace.BlockBytes, 4096u);
  for (const char* line : {"NVMe controller 0: Identify Controller refused or unreadable, skipped.",
                           "NVMe controller 2: Identify Controller refused"})
    EXPECT_NE(bench.machine.transcript().find(line), std::string::npos) << line;
  EXPECT_EQ(bench.machine.transcript().find("namespace"), std::string::npos);
}

// The verdict's thresholds are the parser tests'; the screen test runs a
// failing drive through the module, the QEMU test checks the first line.
TEST(NvmeHealthStatus, FiguresFromTheHealthLog) {
  NvmeInfo d = drive();
  d.unsafe_shutdowns = 4;
  d.critical_warning = 0x04;
  Bench bench({d});
  EXPECT_EQ(tarvik::NvmeHealthStatusTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_FAILED);
  ASSERT_EQ(bench.lines.size(), 4u);
  EXPECT_EQ(bench.lines[1].rfind("MESSAGE SMART_SPARE AVAILABLE_SPARE ", 0), 0u) << bench.lines[1];
  EXPECT_NE(bench.lines[2].find(" UNSAFE_SHUTDOWNS 4 "), std::string::npos) << bench.lines[2];
  EXPECT_EQ(bench.lines[3], "ERROR NVME_HEALTH_FAILING");
}

// Each case's test is followed to the end (a stop request at 20% aborts it
// on the drive), and the drive's own log names how it ended.
TEST(NvmeSelfTest, OutcomeOfTheNewestEntryFollowedToTheEndOrAbortedOnAStopRequest) {
  using enum hostfw::NvmeSelfTest;
  using Outcome = tarvik::NvmeSelfTestOutcome;
  const UINT8 kShort = tarvik::nvme_self_test::Short;
  const struct {
    hostfw::NvmeSelfTest kind;
    UINT8 code;
    bool stop;
    UINT64 result;
    Lines lines;
    Outcome outcome;  // the newest entry of the drive's log, if it has one
  } cases[] = {
      {kPass, kShort, false, tarvik::TEST_RESULT_PASSED, {}, Outcome::Passed},
      {kPass, tarvik::nvme_self_test::Extended, false, tarvik::TEST_RESULT_PASSED, {}, Outcome::Passed},
      {kFail, kShort, false, tarvik::TEST_RESULT_FAILED, {"ERROR SELF_TEST_FAILED"}, Outcome::Failed},
      {kUnsupported, kShort, false, tarvik::TEST_RESULT_NOT_SUPPORTED, {"WARNING SELF_TEST_NOT_SUPPORTED"}, {}},
      {kPass, kShort, true, tarvik::TEST_RESULT_CANCELED, {}, Outcome::AbortedByCommand},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<int>(&c - cases));
    NvmeInfo d = drive();
    d.self_test = c.kind;
    d.self_test_seconds = 20;
    Bench bench({d});
    bench.on_progress = [&](uint64_t percent) {
      if (c.stop && percent >= 20) bench.run.Running = 0;
    };
    EXPECT_EQ(tarvik::NvmeSelfTest(bench.run, bench.device(0), c.code), c.result);
    ASSERT_GE(bench.lines.size(), c.lines.size());
    EXPECT_EQ(Lines(bench.lines.begin(), bench.lines.begin() + c.lines.size()), c.lines);
    EXPECT_TRUE(std::is_sorted(bench.progress.begin(), bench.progress.end()));
    EXPECT_EQ(bench.progress.back(), 100u);
    EXPECT_TRUE(c.result != tarvik::TEST_RESULT_PASSED || bench.progress.size() > 10) << "progress while it runs";
    if (c.kind == kUnsupported) continue;
    tarvik::NvmePages page(sizeof(tarvik::NvmeSelfTestLog));
    tarvik::NvmeSelfTestFacts facts{};
    ASSERT_EQ(tarvik::NvmeGetLogPage(bench.device(0).PassThru, 1, tarvik::nvme_log::SelfTest, page.get(), 564),
              tarvik::NvmeAnswer::Done);
    ASSERT_TRUE(tarvik::ParseSelfTestLog(page.get(), 564, &facts));
    EXPECT_EQ(facts.RunningTest, 0);
    EXPECT_EQ(facts.NewestOutcome, c.outcome);
  }
}

TEST(NvmeReadTests, UnreadableBlocksAtBothEndsAreEachLogged) {
  for (const UINT32 lba_bytes : {512u, 4096u}) {
    for (const bool verify : {true, false}) {
      NvmeInfo d = drive();
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
      const auto& counts = bench.machine->nvme(0).counts();
      EXPECT_GT(counts.io_command(verify ? tarvik::nvme_opcode::Verify : tarvik::nvme_opcode::Read), 0u);
      EXPECT_EQ(counts.io_command(verify ? tarvik::nvme_opcode::Read : tarvik::nvme_opcode::Verify), 0u);
    }
  }
}

// A drive that falls silent fails a read scan and the health test alike.
TEST(NvmeReadTests, RandomReadsAndSilence) {
  NvmeInfo bad = drive();
  bad.blocks = 64;
  bad.bad_lbas = {{1, 0, 63}};
  Bench bench({drive(), bad});
  EXPECT_EQ(tarvik::NvmeRandomReadTest(bench.run, bench.device(0), *tarvik::gDiagCommon), tarvik::TEST_RESULT_PASSED);
  EXPECT_EQ(bench.machine->nvme(0).counts().io_command(tarvik::nvme_opcode::Verify), 5000u);
  // The first unreadable block ends the random reads.
  EXPECT_EQ(tarvik::NvmeRandomReadTest(bench.run, bench.device(1), *tarvik::gDiagCommon), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(bench.machine->nvme(1).counts().io_command(tarvik::nvme_opcode::Verify), 1u);
  ASSERT_EQ(bench.lines.size(), 1u);
  EXPECT_EQ(bench.lines[0].rfind("ERROR READ_SECTOR_ERROR ", 0), 0u);
  bench.lines.clear();
  bench.machine->nvme(0).stop_answering_after(10);
  EXPECT_EQ(tarvik::NvmeFullReadScan(bench.run, bench.device(0)), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(tarvik::NvmeHealthStatusTest(bench.run, bench.device(0)), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(bench.lines, (Lines{"ERROR COMMUNICATION_FAILURE", "ERROR COMMUNICATION_FAILURE"}));
}

}  // namespace
