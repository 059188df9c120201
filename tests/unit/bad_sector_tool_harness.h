// What the bad-sector tool tests share: the screen the tool talks to and a
// bench that finds the machine's drives and publishes the tool over them.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "badsector/bad_sectors_tool_protocol.h"
#include "storage/storage_device.h"
#include "tests/support/ata_interposer.h"
#include "tests/support/test_machine.h"

namespace testing_support {

// The recovery screen as the tool sees it. Boxes (kinds 1, 2 and 4) are
// answered from answers, in order, then with yes.
struct ToolScreen {
  std::vector<UINT64> progress;
  std::vector<std::string> lines;                   // kind 3
  std::vector<std::pair<int, std::string>> boxes;   // kind and text
  std::deque<EFI_STATUS> answers;
  std::function<void(UINT64 percent)> on_progress;  // e.g. the user's ESC
};

// The core services, the drives discovered on the machine and the tool
// published over the rotating ones; on destruction everything is taken
// down again and the test fails if a pool or page is left.
class ToolBench {
 public:
  explicit ToolBench(TestMachine& machine) : machine_(machine) {}
  ~ToolBench();
  // Installs the core services and finds the drives, then publishes the
  // tool unless told not to; false (with a test failure) when a step failed.
  bool start(bool publish = true);
  // RunTool with a null record, as the recovery screen calls it; without
  // progress, with a null progress callback.
  UINT64 run(UINT64 operation, ToolScreen& screen, UINT64 device = 0, bool progress = true);

  tarvik::BadSectorsToolProtocol* tool = nullptr;
  tarvik::StorageDrives drives{};
  CHAR16** strings = nullptr;
  UINT64 string_count = 0;

 private:
  TestMachine& machine_;
  size_t pools_before_ = 0;
  uint64_t pages_before_ = 0;
  bool started_ = false;
};

// The tool's operations, as RunTool takes them, and the answer "no".
inline constexpr UINT64 kCheck = 0, kRecover = 1, kWriteUncorrectable = 2;
inline constexpr EFI_STATUS kNo = EFI_ABORTED;

}  // namespace testing_support
