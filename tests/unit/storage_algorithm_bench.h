// What the storage algorithm tests share: a simulated machine whose drives
// are discovered and identified as the storage module does it, a run record
// that keeps every progress value and log line. The commands a drive
// receives are watched by AtaInterposer (tests/support); a drive that falls
// silent is the simulator's (`stop_answering_after`).
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/diag_common.h"
#include "core/random.h"
#include "storage/drive_discovery.h"
#include "storage/storage_run.h"
#include "tests/support/ata_interposer.h"
#include "tests/support/test_machine.h"

namespace storage_bench {

// A drive of the profile on the given port.
inline hostfw::DriveInfo drive(uint16_t port, uint64_t sectors, std::vector<hostfw::BadSectorRange> bad = {},
                               bool failing = false) {
  hostfw::DriveInfo d;
  d.port = port;
  d.model = "Bench BX-" + std::to_string(port);
  d.serial = "BENCH000" + std::to_string(port);
  d.firmware = "B1";
  d.sectors = sectors;
  d.rotation_rpm = 7200;
  d.smart_failing = failing;
  d.bad_sectors = std::move(bad);
  return d;
}

// A machine with the given drives, found and identified, the shared services
// installed, and a run record whose callbacks land here.
class Bench {
 public:
  // before_discovery runs on the built machine (e.g. to install a scripted
  // pass-through).
  explicit Bench(std::vector<hostfw::DriveInfo> drives, const std::function<void(hostfw::Profile&)>& edit = {},
                 const std::function<void()>& before_discovery = {})
      : machine_("", [&](hostfw::Profile& p) {
          p.drives = drives;
          if (edit) edit(p);
        }) {
    EXPECT_EQ(tarvik::InstallDiagCommon(machine_->image_handle(), machine_->system_table()), EFI_SUCCESS);
    if (before_discovery) before_discovery();
    pools_before_ = machine_->memory().outstanding_pools();
    pages_before_ = machine_->memory().outstanding_pages();
    EXPECT_EQ(tarvik::DiscoverStorageDevices(&drives_), EFI_SUCCESS);
    EXPECT_EQ(tarvik::IdentifyAllDevices(&drives_), EFI_SUCCESS);
    run.This = reinterpret_cast<tarvik::TestModuleProtocol*>(this);  // the callbacks' context
    run.ProgressCallback = OnProgress;
    run.MessageCallback = OnMessage;
    run.Running = 1;
  }
  ~Bench() { release(); }

  hostfw::Machine& machine() { return *machine_; }
  tarvik::StorageDevice& device(size_t index) { return drives_.Devices[index]; }
  const tarvik::DiagCommonProtocol& common() { return *tarvik::gDiagCommon; }
  uint64_t now_ms() { return machine_->clock().now_ns() / 1000000; }

  // Every drive's pages and the tables returned; then nothing the run
  // allocated may be left.
  void release() {
    if (released_) return;
    released_ = true;
    tarvik::ReleaseStorageDevices(&drives_);
    EXPECT_EQ(machine_->memory().outstanding_pools(), pools_before_) << "pool left behind";
    EXPECT_EQ(machine_->memory().outstanding_pages(), pages_before_) << "pages left behind";
  }

  tarvik::StorageRun run{};
  std::vector<uint64_t> progress;
  std::vector<std::string> lines;
  // Called with each percentage after it was recorded (e.g. to stop the run).
  std::function<void(uint64_t)> on_progress;

 private:
  static Bench& of(VOID* context) { return *static_cast<Bench*>(context); }
  static EFIAPI EFI_STATUS OnProgress(VOID* context, UINT64 percent, UINT64) {
    Bench& self = of(context);
    self.progress.push_back(percent);
    if (self.on_progress) self.on_progress(percent);
    return EFI_SUCCESS;
  }
  static EFIAPI EFI_STATUS OnMessage(VOID* context, const CHAR16* text, UINT8 kind, UINT64) {
    EXPECT_EQ(kind, static_cast<UINT8>(tarvik::TestMessageKind::LogLine));
    of(context).lines.push_back(testing_support::utf8(text));
    return EFI_SUCCESS;
  }

  testing_support::TestMachine machine_;
  tarvik::StorageDrives drives_{};
  size_t pools_before_ = 0;
  uint64_t pages_before_ = 0;
  bool released_ = false;
};

}  // namespace storage_bench
