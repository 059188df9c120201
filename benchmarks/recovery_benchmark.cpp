// How much of a surface scan the recovery screen's progress reports take.
// The whole application runs "Check bad sectors" from the Tools panel on a
// simulated machine with one rotating drive whose media reads at 150 MB/s,
// so the scan takes the media's time on the machine's virtual clock and the
// screen's timers (the 0.1 s drawing timer, the clock, the key poll, the
// spinner) fire as they would on a real drive. The tool's progress callback
// (the screen's, drawing included) is timed on the host's clock and set
// beside that media time. Two drives: one below 2^28 sectors (16-sector
// READ VERIFY commands) and one of 2 TB (65536-sector commands).
//
//   recovery_benchmark [GiB of the small drive]   (default 100)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "badsector/bad_sectors_tool_protocol.h"
#include "benchmarks/progress_timing.h"
#include "tests/support/application_with_modules.h"

namespace {

using Clock = std::chrono::steady_clock;
using bench::seconds_since;
using bench::timing;

constexpr uint32_t kMediaMbPerSecond = 150;

tarvik::TOOL_RUN_TOOL published_run = nullptr;

EFIAPI UINT64 TimedRun(tarvik::BadSectorsToolProtocol* self, UINT64 operation, UINT64 device,
                       tarvik::TEST_PROGRESS_CALLBACK progress, tarvik::TEST_MESSAGE_CALLBACK message) {
  return published_run(self, operation, device, bench::TimeProgress(progress), message);
}

void WrapRunTool(tarvik::BadSectorsToolProtocol* tool) {
  published_run = tool->RunTool;
  tool->RunTool = TimedRun;
}

size_t occurrences(const std::string& text, size_t from, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what, from); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
  return n;
}

void Measure(const char* name, uint64_t sectors) {
  hostfw::DriveInfo drive;
  drive.port = 0;
  drive.model = "BENCH DRIVE";
  drive.serial = "B1";
  drive.firmware = "1";
  drive.sectors = sectors;
  drive.rotation_rpm = 7200;
  drive.media_mb_per_s = kMediaMbPerSecond;
  testing_support::TestMachine machine(
      "wait \"Main Screen\"; key Right; key Down; key Enter; wait \"Select Algorithms\"; key Enter;"
      "wait \"about one hour\"; type \"y\"; wait 86400 \"F3 = view log\"; key Esc; wait \"Main Screen\"; key Left;"
      "key Up; key Enter",
      [&](hostfw::Profile& profile) { profile.drives = {drive}; });
  timing = bench::ProgressTiming{};
  timing.machine = &*machine;
  testing_support::ApplicationSetup setup;
  setup.real_bad_sectors_tool = true;
  setup.tool_published = WrapRunTool;
  const Clock::time_point start = Clock::now();
  const hostfw::RunResult result = testing_support::run_application(machine, setup);
  const double whole = seconds_since(start);

  const double media = static_cast<double>(sectors) * drive.logical_sector_bytes / (kMediaMbPerSecond * 1e6);
  // The scan's machine time: from the first report (the confirmation
  // answered) to the last.
  const double machine_seconds = timing.machine_seconds();
  // Each drawing of the left panel writes the sector range's row, each
  // drawing of the bar one '%'.
  const std::string& drawn = machine.transcript();
  const size_t run_start = std::min(drawn.size(), drawn.find("Information about Recover"));
  const size_t panels = occurrences(drawn, run_start, "Testing sectors:");
  const size_t bars = occurrences(drawn, run_start, "%");

  std::printf("%s: %llu sectors%s\n", name, static_cast<unsigned long long>(sectors),
              result.end == hostfw::RunResult::End::Reset ? "" : "  (run did not end in a reset)");
  std::printf("  progress reports     %llu\n", static_cast<unsigned long long>(timing.reports));
  std::printf("  time in reports      %.3f s on the host, drawing included\n", timing.report_seconds);
  std::printf("  media time           %.1f s at %u MB/s (machine clock from first to last report: %.1f s, console calls included)\n", media,
              kMediaMbPerSecond, machine_seconds);
  std::printf("  share                %.3f%% of the media time\n", 100 * timing.report_seconds / media);
  std::printf("  reports that drew    %llu, %.3f s (%.1f us and %.0f console bytes each)\n",
              static_cast<unsigned long long>(timing.drawing_reports), timing.drawing_seconds,
              timing.drawing_reports ? 1e6 * timing.drawing_seconds / static_cast<double>(timing.drawing_reports) : 0.0,
              timing.drawing_reports ? static_cast<double>(timing.drawn_bytes) / static_cast<double>(timing.drawing_reports)
                                   : 0.0);
  std::printf("  left panel drawn     %zu times (%.2f per media second), bar %zu times\n", panels,
              static_cast<double>(panels) / media, bars);
  std::printf("  whole run            %.1f s on the host\n", whole);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const uint64_t gib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100;
  const Clock::time_point start = Clock::now();
  Measure((std::to_string(gib) + " GiB drive, 16-sector commands").c_str(), gib * 1024 * 1024 * 2);
  Measure("2 TB drive, 65536-sector commands", 2000000000000ull / 512);
  std::printf("benchmark run time     %.1f s\n", seconds_since(start));
  return 0;
}
