// What the NVMe module's tests share: a machine with the given simulated
// NVMe drives only, their namespaces discovered as the module does it, a
// run record that keeps every progress value and log line, and the check
// that nothing allocated is left once the namespaces are released.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "core/diag_common.h"
#include "drives/drive_run.h"
#include "hostfw/nvme_controller.h"
#include "nvme/nvme_discovery.h"
#include "tests/support/test_machine.h"

namespace nvme_bench {

// A 256 MiB drive of 512-byte blocks unless told otherwise.
inline hostfw::NvmeInfo drive(const std::string& serial = "NVB-0001") {
  hostfw::NvmeInfo d;
  d.model = "Bench NV " + serial;
  d.serial = serial;
  d.firmware = "NB1";
  d.blocks = 1u << 19;
  return d;
}

class Bench {
 public:
  explicit Bench(std::vector<hostfw::NvmeInfo> drives)
      : machine_("", [&](hostfw::Profile& p) {
          p.drives.clear();
          p.nvme_drives = drives;
        }) {
    EXPECT_EQ(tarvik::InstallDiagCommon(machine_->image_handle(), machine_->system_table()), EFI_SUCCESS);
    pools_before_ = machine_->memory().outstanding_pools();
    pages_before_ = machine_->memory().outstanding_pages();
    found_ = tarvik::DiscoverNvmeDevices(&drives_);
    run.This = reinterpret_cast<tarvik::TestModuleProtocol*>(this);
    run.ProgressCallback = OnProgress;
    run.MessageCallback = OnMessage;
    run.Running = 1;
  }
  ~Bench() { release(); }

  EFI_STATUS found() const { return found_; }
  UINT64 count() const { return drives_.DeviceCount; }
  tarvik::NvmeDevice& device(size_t index) { return drives_.Devices[index]; }
  hostfw::NvmeController& controller(size_t index) { return machine_->nvme(index); }
  const tarvik::DiagCommonProtocol& common() { return *tarvik::gDiagCommon; }
  std::string transcript() const { return machine_.transcript(); }

  void release() {
    if (released_) return;
    released_ = true;
    tarvik::ReleaseNvmeDevices(&drives_);
    EXPECT_EQ(machine_->memory().outstanding_pools(), pools_before_) << "pool left behind";
    EXPECT_EQ(machine_->memory().outstanding_pages(), pages_before_) << "pages left behind";
  }

  tarvik::DriveRun run{};
  std::vector<uint64_t> progress;
  std::vector<std::string> lines;
  std::function<void(uint64_t)> on_progress;

 private:
  static Bench& of(VOID* context) { return *static_cast<Bench*>(context); }
  static EFIAPI EFI_STATUS OnProgress(VOID* context, UINT64 percent, UINT64) {
    Bench& self = of(context);
    self.progress.push_back(percent);
    if (self.on_progress) self.on_progress(percent);
    return EFI_SUCCESS;
  }
  static EFIAPI EFI_STATUS OnMessage(VOID* context, const CHAR16* text, UINT8, UINT64) {
    of(context).lines.push_back(testing_support::utf8(text));
    return EFI_SUCCESS;
  }

  testing_support::TestMachine machine_;
  tarvik::NvmeDrives drives_{};
  EFI_STATUS found_ = EFI_SUCCESS;
  size_t pools_before_ = 0;
  uint64_t pages_before_ = 0;
  bool released_ = false;
};

}  // namespace nvme_bench
