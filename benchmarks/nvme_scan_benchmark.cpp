// How much of the NVMe full read scan the progress reports take. The whole
// application runs "Quick NVMe Device Test" with only "Full Read Scan"
// chosen, on a simulated machine whose one NVMe drive verifies at a fixed
// media rate, so the scan takes the media's time on the machine's virtual
// clock and the screen's timers fire as they would on a real drive. The
// module's progress callback (the run screen's, drawing included) is timed
// on the host's clock and set beside that media time. Commands are as long
// as the controller's maximum transfer size allows (MDTS).
//
//   nvme_scan_benchmark [GiB of the drive]   (default 64)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "benchmarks/progress_timing.h"
#include "app/application_plan.h"
#include "core/locate.h"
#include "core/startup.h"
#include "hostfw/nvme_controller.h"
#include "nvme/nvme_test_protocol.h"
#include "registry/module_protocol.h"
#include "tests/support/test_machine.h"

namespace {

using Clock = std::chrono::steady_clock;
using bench::seconds_since;
using bench::timing;

constexpr uint32_t kMediaMbPerSecond = 3000;

tarvik::TEST_RUN_TEST module_run = nullptr;

EFIAPI UINT64 TimedRunTest(tarvik::TestModuleProtocol* self, UINT64 algorithm, UINT8 device,
                           tarvik::TEST_PROGRESS_CALLBACK progress, tarvik::TEST_MESSAGE_CALLBACK message) {
  return module_run(self, algorithm, device, bench::TimeProgress(progress), message);
}

// Installed after the NVMe module: puts the timing in front of its RunTest.
EFI_STATUS WrapNvmeModule(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
  auto* record = tarvik::LocateService<tarvik::TestModuleProtocol>(tarvik::NvmeTestProtocolGuid);
  if (record == nullptr) return EFI_NOT_FOUND;
  module_run = record->RunTest;
  record->RunTest = TimedRunTest;
  return EFI_SUCCESS;
}

EFIAPI EFI_STATUS Entry(EFI_HANDLE image, EFI_SYSTEM_TABLE* system_table) {
  static const tarvik::ServiceInstaller modules[] = {tarvik::InstallNvmeTest, WrapNvmeModule};
  const tarvik::StartupPlan plan = {
      .CoreServices = tarvik::ApplicationPlan.CoreServices,
      .CoreServiceCount = tarvik::ApplicationPlan.CoreServiceCount,
      .TestModules = modules,
      .TestModuleCount = 2,
      .RunUserInterface = tarvik::ApplicationPlan.RunUserInterface,
  };
  return tarvik::RunApplication(image, system_table, plan);
}

void Measure(uint64_t gib, uint8_t mdts) {
  hostfw::NvmeInfo drive;
  drive.model = "BENCH NVME";
  drive.serial = "BN1";
  drive.firmware = "1";
  drive.blocks = gib << 21;
  drive.mdts = mdts;
  drive.media_mb_per_s = kMediaMbPerSecond;
  // Full Read Scan alone: the last of the six algorithms.
  testing_support::TestMachine machine(
      "wait \"Main Screen\"; key Enter; wait \"Select Algorithms\"; key Down 6; key Space; key Up; key Space;"
      "key Enter; wait 86400 \"F3 = view log\"; key Esc; wait \"Main Screen\"; key Down; key Enter",
      [&](hostfw::Profile& profile) {
        profile.drives.clear();
        profile.nvme_drives = {drive};
      });
  timing = bench::ProgressTiming{};
  timing.machine = &*machine;
  const Clock::time_point start = Clock::now();
  const hostfw::RunResult result = machine->run(Entry);
  const double whole = seconds_since(start);
  const double media = static_cast<double>(drive.blocks) * drive.lba_bytes / (kMediaMbPerSecond * 1e6);
  const double machine_seconds = timing.machine_seconds();
  const uint64_t command_bytes = std::min<uint64_t>(uint64_t{4096} << mdts, 2u << 20);
  std::printf("%llu GiB namespace, %llu KiB commands (MDTS %u)%s\n", static_cast<unsigned long long>(gib),
              static_cast<unsigned long long>(command_bytes >> 10), mdts,
              result.end == hostfw::RunResult::End::Reset ? "" : "  (run did not end in a reset)");
  std::printf("  Verify commands      %llu\n", static_cast<unsigned long long>(machine->nvme(0).counts().io_command(0x0C)));
  std::printf("  progress reports     %llu\n", static_cast<unsigned long long>(timing.reports));
  std::printf("  time in reports      %.3f s on the host, drawing included (%llu reports drew, %.3f s)\n",
              timing.report_seconds, static_cast<unsigned long long>(timing.drawing_reports), timing.drawing_seconds);
  std::printf("  media time           %.1f s at %u MB/s (machine clock from first to last report: %.1f s)\n", media,
              kMediaMbPerSecond, machine_seconds);
  std::printf("  share                %.4f%% of the media time\n", 100 * timing.report_seconds / media);
  std::printf("  whole run            %.1f s on the host\n", whole);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const uint64_t gib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 64;
  const Clock::time_point start = Clock::now();
  Measure(gib, 5);
  Measure(gib, 9);
  std::printf("benchmark run time     %.1f s\n", seconds_since(start));
  return 0;
}
