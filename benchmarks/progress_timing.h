// What the drive benchmarks measure around a run: the screen's progress
// callback (drawing included) timed on the host's clock, how many reports
// drew and how much, and the machine clock at the first and the last report,
// so that the time in reports can be set beside the media's time.
#pragma once

#include <chrono>
#include <cstdint>

#include "hostfw/console_out.h"
#include "hostfw/machine.h"
#include "registry/module_protocol.h"

namespace bench {

struct ProgressTiming {
  hostfw::Machine* machine = nullptr;
  tarvik::TEST_PROGRESS_CALLBACK screen_progress = nullptr;
  uint64_t reports = 0;
  double report_seconds = 0;     // host time inside the screen's progress callback
  uint64_t drawing_reports = 0;  // reports that wrote to the console
  double drawing_seconds = 0;
  uint64_t drawn_bytes = 0;      // console output of those reports
  uint64_t first_report_ns = 0;  // machine clock at the first and the last report
  uint64_t last_report_ns = 0;

  double machine_seconds() const { return static_cast<double>(last_report_ns - first_report_ns) / 1e9; }
};

// The run being measured: one at a time.
inline ProgressTiming timing;

inline double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

EFIAPI inline EFI_STATUS TimedProgress(VOID* context, UINT64 percent, UINT64 reserved) {
  timing.last_report_ns = timing.machine->clock().now_ns();
  if (timing.reports == 0) timing.first_report_ns = timing.last_report_ns;
  const size_t written_before = timing.machine->console().transcript().size();
  const auto start = std::chrono::steady_clock::now();
  const EFI_STATUS status = timing.screen_progress(context, percent, reserved);
  const double spent = seconds_since(start);
  const size_t written = timing.machine->console().transcript().size() - written_before;
  timing.report_seconds += spent;
  ++timing.reports;
  if (written != 0) {
    timing.drawing_seconds += spent;
    ++timing.drawing_reports;
    timing.drawn_bytes += written;
  }
  return status;
}

// The callback to hand the run in place of the screen's, which it calls.
inline tarvik::TEST_PROGRESS_CALLBACK TimeProgress(tarvik::TEST_PROGRESS_CALLBACK screen_progress) {
  timing.screen_progress = screen_progress;
  return TimedProgress;
}

}  // namespace bench
