// The memory module through its record: what it reports of the installed
// modules, and its run on the simulated memory (the 20 MB rule, a region
// that cannot be claimed, a stop request, modules not in use).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/application_plan.h"
#include "memtest/memory_test_protocol.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using testing_support::utf8;

// A module at 1600 MT/s (locator, bank, maker, serial, part number, size, speed, type).
hostfw::MemoryModuleInfo module(uint32_t mib, uint8_t type, const char* serial) {
  return {"", "", "Kestrel", serial, "KV-1", mib, 1600, type};
}

class MemoryModule : public ::testing::Test {
 protected:
  void start(std::vector<hostfw::MemoryModuleInfo> modules) {
    machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) {
      p.memory_modules = modules;
      p.memory_mib = 64;
      p.logical_processors = 1;  // these runs' lines without the processor count
    });
    for (UINTN i = 0; i < tarvik::ApplicationPlan.CoreServiceCount; ++i)
      ASSERT_EQ(tarvik::ApplicationPlan.CoreServices[i].Install((*machine)->image_handle(), (*machine)->system_table()),
                EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallMemoryTest((*machine)->image_handle(), (*machine)->system_table()), EFI_SUCCESS);
    ASSERT_EQ(testing_support::located_test_collection()->GetTest(0, &record), EFI_SUCCESS);
  }

  // Label and value of a row from one of the record's row getters.
  template <typename Getter>
  std::pair<std::string, std::string> row(Getter get, UINT64 index) {
    CHAR16* label = nullptr;
    CHAR16* value = nullptr;
    EXPECT_EQ(get(record, index, &label, &value), EFI_SUCCESS) << index;
    std::pair<std::string, std::string> texts{utf8(label), utf8(value)};
    tarvik::gBS->FreePool(label);
    tarvik::gBS->FreePool(value);
    return texts;
  }

  std::unique_ptr<TestMachine> machine;
  tarvik::TestModuleProtocol* record = nullptr;
};

// Whole gigabytes summed over the modules in use, an empty serial number as
// "-", type codes without a name as "Unkown". That every row is terminated
// and a row past the last refused is the fuzz target's.
TEST_F(MemoryModule, TheRowsDescribeTheModulesInUseBeforeAnyRun) {
  start({module(4096, 24, "S1"), module(4096, 26, ""), module(1024, 14, "S3"), module(512, 2, "S4"),
         module(0, 24, "EMPTY")});
  EXPECT_EQ(record->GetSystemInfoRowCount(record), 29u);
  EXPECT_EQ(record->GetLogRowCount(record), 35u);
  using Row = std::pair<std::string, std::string>;
  const std::pair<UINT64, Row> system[] = {
      {0, {"Total Physical Memory:", "9 GB"}},          {2, {"Memory Device 1 - DDR3 (1600 MHz)", ""}},
      {9, {"Memory Device 2 - Unkown (1600 MHz)", ""}}, {14, {"Memory Serial Number:", "-"}},
      {16, {"Memory Device 3 - 3DRAm (1600 MHz)", ""}}, {25, {"Memory Size:", "0 GB"}},
  };
  const std::pair<UINT64, Row> log[] = {
      {0, {"UID:", "S1---S3-S4"}}, {2, {"PHYSICAL_MEMORY:", "9 GB"}}, {3, {">>> RESOURCE BANK", " "}},
      {12, {"INDEX:", "1"}},       {17, {"SERIAL_NUMBER:", "-"}},     {31, {"SIZE:", "0 GB"}},
      {34, {"<<< RESOURCE", " "}},
  };
  for (const auto& [index, expected] : system) EXPECT_EQ(row(record->GetSystemInfoRow, index), expected) << index;
  for (const auto& [index, expected] : log) EXPECT_EQ(row(record->GetLogRow, index), expected) << index;
}

// What a run told its callbacks.
struct Heard {
  static inline std::vector<UINT64> progress;
  static inline std::vector<std::string> lines;
  static inline tarvik::TestModuleProtocol* stop_on_first_report = nullptr;
  static EFIAPI EFI_STATUS Progress(VOID*, UINT64 percent, UINT64) {
    progress.push_back(percent);
    if (stop_on_first_report != nullptr) stop_on_first_report->StopTest(stop_on_first_report);
    return EFI_SUCCESS;
  }
  static EFIAPI EFI_STATUS Message(VOID*, const CHAR16* text, UINT8 kind, UINT64) {
    if (kind == static_cast<UINT8>(tarvik::TestMessageKind::LogLine)) lines.push_back(utf8(text));
    return EFI_SUCCESS;
  }
};

// A run of the module, stopped at its first report if told; everything it
// claimed is released.
UINT64 run(tarvik::TestModuleProtocol* record, hostfw::Memory& memory, bool stop = false) {
  Heard::progress.clear();
  Heard::lines.clear();
  Heard::stop_on_first_report = stop ? record : nullptr;
  const uint64_t pages_before = memory.outstanding_pages();
  const UINT64 result = record->RunTest(record, 0, 0, Heard::Progress, Heard::Message);
  EXPECT_EQ(memory.outstanding_pages(), pages_before);
  return result;
}

TEST_F(MemoryModule, RunsOnExactly20MBOfFreeMemoryAndRefusesOnePageLess) {
  start({module(64, 24, "S1")});
  hostfw::Memory& memory = (*machine)->memory();
  for (const UINT64 free_pages : {5120ull, 5119ull}) {
    EFI_PHYSICAL_ADDRESS taken = 0;
    const UINT64 to_take = memory.conventional_pages() - free_pages;
    ASSERT_EQ(tarvik::gBS->AllocatePages(AllocateAnyPages, EfiBootServicesData, to_take, &taken), EFI_SUCCESS);
    EXPECT_EQ(run(record, memory), free_pages == 5120 ? tarvik::TEST_RESULT_PASSED : 10u);
    EXPECT_EQ(Heard::progress.empty(), free_pages == 5119) << free_pages;
    tarvik::gBS->FreePages(taken, to_take);
  }
}

TEST_F(MemoryModule, ARegionThatCannotBeClaimedEndsTheRunWithACriticalLine) {
  start({module(4096, 24, "S1")});
  hostfw::Memory& memory = (*machine)->memory();
  (*machine)->faults().fail_allocate_at_address_call = 1;
  EXPECT_EQ(run(record, memory), 11u);
  const std::string free_mb = std::to_string(memory.conventional_pages() / 256);
  EXPECT_EQ(Heard::lines, std::vector<std::string>{"CRITICAL CANT_ALLOCATE_MEMORY SIZE: " + free_mb + " MB"});
  EXPECT_EQ(Heard::progress, std::vector<UINT64>{100});
}

TEST_F(MemoryModule, AStopRequestCancelsTheRunWhichStillEndsAt100) {
  start({module(4096, 24, "S1")});
  EXPECT_EQ(run(record, (*machine)->memory(), true), tarvik::TEST_RESULT_CANCELED);
  EXPECT_EQ(Heard::progress.back(), 100u);
  EXPECT_LT(Heard::progress.size(), 25u) << "every later phase ends at its first check";
}

// 64 MiB simulated, 61 MiB of it in the map as memory: a run
// fails once the modules exceed it by the smallest module; empty slots and
// smaller gaps change nothing.
TEST_F(MemoryModule, ModulesThatAddUpToMoreThanTheMapByAModuleFailTheRun) {
  struct Case {
    std::vector<uint32_t> modules;
    bool fails;
  };
  for (const Case& c : std::vector<Case>{{{64, 0}, false}, {{32, 31}, false}, {{32, 60}, false}, {{32, 61}, true},
                                         {{64, 64, 0}, true}}) {
    std::vector<hostfw::MemoryModuleInfo> modules;
    for (uint32_t mib : c.modules) modules.push_back(module(mib, 24, "S"));
    machine.reset();  // one simulated machine at a time
    start(modules);
    const UINT64 result = run(record, (*machine)->memory());
    EXPECT_EQ(result, c.fails ? tarvik::TEST_RESULT_FAILED : tarvik::TEST_RESULT_PASSED) << c.modules[1];
    if (!c.fails) continue;
    ASSERT_FALSE(Heard::lines.empty());
    EXPECT_EQ(Heard::lines[0], "ERROR MEMORY_NOT_IN_USE INSTALLED " + std::to_string(c.modules[0] + c.modules[1]) +
                                   " MAPPED 61");
  }
}

}  // namespace
