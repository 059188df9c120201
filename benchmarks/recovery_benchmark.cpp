// How much of a surface scan the recovery screen's progress reports take.
// The whole application runs "Check bad sectors" from the Tools panel on a
// simulated machine with one rotating drive; the tool's progress callback
// (the screen's, drawing included) is timed on the host's clock, and set
// beside the time the drive's media would take at 150 MB/s. Two drives: one
// below 2^28 sectors (16-sector READ VERIFY commands) and one of 2 TB
// (65536-sector commands).
//
//   recovery_benchmark [GiB of the small drive]   (default 100)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "badsector/bad_sectors_tool_protocol.h"
#include "tests/support/application_with_modules.h"

namespace {

using Clock = std::chrono::steady_clock;

tarvik::TOOL_RUN_TOOL published_run = nullptr;
tarvik::TEST_PROGRESS_CALLBACK screen_progress = nullptr;
double progress_seconds = 0;
uint64_t progress_calls = 0;

EFIAPI EFI_STATUS TimedProgress(VOID* context, UINT64 percent, UINT64 reserved) {
  const Clock::time_point start = Clock::now();
  const EFI_STATUS status = screen_progress(context, percent, reserved);
  progress_seconds += std::chrono::duration<double>(Clock::now() - start).count();
  ++progress_calls;
  return status;
}

EFIAPI UINT64 TimedRun(tarvik::BadSectorsToolProtocol* self, UINT64 operation, UINT64 device,
                       tarvik::TEST_PROGRESS_CALLBACK progress, tarvik::TEST_MESSAGE_CALLBACK message) {
  screen_progress = progress;
  return published_run(self, operation, device, TimedProgress, message);
}

void WrapRunTool(tarvik::BadSectorsToolProtocol* tool) {
  published_run = tool->RunTool;
  tool->RunTool = TimedRun;
}

void Measure(const char* name, uint64_t sectors) {
  progress_seconds = 0;
  progress_calls = 0;
  hostfw::DriveInfo drive;
  drive.port = 0;
  drive.model = "BENCH DRIVE";
  drive.serial = "B1";
  drive.firmware = "1";
  drive.sectors = sectors;
  drive.rotation_rpm = 7200;
  testing_support::TestMachine machine(
      "wait \"Main Screen\"; key Right; key Down; key Enter; wait \"Select Algorithms\"; key Enter;"
      "wait \"about one hour\"; type \"y\"; wait 86400 \"F3 = view log\"; key Esc; wait \"Main Screen\"; key Left;"
      "key Up; key Enter",
      [&](hostfw::Profile& profile) { profile.drives = {drive}; });
  testing_support::ApplicationSetup setup;
  setup.real_bad_sectors_tool = true;
  setup.tool_published = WrapRunTool;
  const Clock::time_point start = Clock::now();
  const hostfw::RunResult result = testing_support::run_application(machine, setup);
  const double whole = std::chrono::duration<double>(Clock::now() - start).count();
  const double media = static_cast<double>(sectors) * 512 / 150e6;
  // Every drawing of the progress bar writes one '%'.
  const std::string drawn = machine.transcript();
  const size_t run_start = std::min(drawn.size(), drawn.find("Information about Recover"));
  const long bars = std::count(drawn.begin() + static_cast<long>(run_start), drawn.end(), '%');
  std::printf("%-28s %12llu sectors %10llu reports  reports %8.3f s  whole run %8.3f s  media at 150 MB/s %9.1f s"
              "  reports/media %.4f%%  bars drawn %ld%s\n",
              name, static_cast<unsigned long long>(sectors), static_cast<unsigned long long>(progress_calls),
              progress_seconds, whole, media, 100 * progress_seconds / media, bars,
              result.end == hostfw::RunResult::End::Reset ? "" : "  (run did not end in a reset)");
}

}  // namespace

int main(int argc, char** argv) {
  const uint64_t gib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100;
  Measure("28-bit drive (16 sectors)", gib * 1024 * 1024 * 2);
  Measure("2 TB drive (65536 sectors)", 2000000000000ull / 512);
  return 0;
}
