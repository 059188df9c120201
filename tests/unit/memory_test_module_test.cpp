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

hostfw::MemoryModuleInfo module(uint32_t mib, uint8_t type, const char* serial, uint16_t speed = 1600) {
  hostfw::MemoryModuleInfo m;
  m.manufacturer = "Kestrel";
  m.part_number = "KV-1";
  m.serial = serial;
  m.size_mib = mib;
  m.memory_type = type;
  m.speed_mts = speed;
  return m;
}

class MemoryModule : public ::testing::Test {
 protected:
  void start(std::vector<hostfw::MemoryModuleInfo> modules, uint64_t memory_mib = 64) {
    machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) {
      p.memory_modules = modules;
      p.memory_mib = memory_mib;
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
  std::string translated(const CHAR16* key) {
    CHAR16* out = nullptr;
    EXPECT_EQ(record->TranslateKey(record, key, &out), EFI_SUCCESS);
    std::string s = utf8(out);
    tarvik::gBS->FreePool(out);
    return s;
  }

  std::unique_ptr<TestMachine> machine;
  tarvik::TestModuleProtocol* record = nullptr;
};

TEST_F(MemoryModule, FourModulesOf4GBGive16GBAnd29SystemRowsAnd35LogRows) {
  start({module(4096, 24, "S1"), module(4096, 24, ""), module(4096, 24, "S3"), module(4096, 24, "S4"),
         module(0, 24, "EMPTY")});
  EXPECT_EQ(record->GetSystemInfoRowCount(record), 29u);
  EXPECT_EQ(record->GetLogRowCount(record), 35u);
  const auto system = [&](UINT64 r) { return row(record->GetSystemInfoRow, r); };
  EXPECT_EQ(system(0), (std::pair<std::string, std::string>{"Total Physical Memory:", "16 GB"}));
  EXPECT_EQ(system(1), (std::pair<std::string, std::string>{"", ""}));
  EXPECT_EQ(system(2).first, "Memory Device 1 - DDR3 (1600 MHz)");
  EXPECT_EQ(system(3), (std::pair<std::string, std::string>{"Origin:", "SMBIOS"}));
  EXPECT_EQ(system(4), (std::pair<std::string, std::string>{"Memory Size:", "4 GB"}));
  EXPECT_EQ(system(14).second, "-");  // the second module's empty serial number
  const auto log = [&](UINT64 r) { return row(record->GetLogRow, r); };
  // The unique identifier: the four serial numbers, an empty one as "-".
  EXPECT_EQ(log(0), (std::pair<std::string, std::string>{"UID:", "S1---S3-S4"}));
  EXPECT_EQ(log(2), (std::pair<std::string, std::string>{"PHYSICAL_MEMORY:", "16 GB"}));
  EXPECT_EQ(log(3), (std::pair<std::string, std::string>{">>> RESOURCE BANK", " "}));
  EXPECT_EQ(log(12), (std::pair<std::string, std::string>{"INDEX:", "1"}));
  EXPECT_EQ(log(34), (std::pair<std::string, std::string>{"<<< RESOURCE", " "}));
  CHAR16* label = nullptr;
  CHAR16* value = nullptr;
  EXPECT_EQ(record->GetLogRow(record, 35, &label, &value), EFI_INVALID_PARAMETER);
  EXPECT_EQ(record->GetSystemInfoRow(record, 0, nullptr, &value), EFI_ABORTED);
}

TEST_F(MemoryModule, TypeNamesWholeGigabytesKeysAndTextsBeforeAnyRun) {
  start({module(512, 26, "A"), module(2048, 2, "B"), module(1024, 14, "C")});
  EXPECT_EQ(row(record->GetSystemInfoRow, 2).first, "Memory Device 1 - Unkown (1600 MHz)");
  EXPECT_EQ(row(record->GetSystemInfoRow, 4).second, "0 GB");
  EXPECT_EQ(row(record->GetSystemInfoRow, 9).first, "Memory Device 2 - Unkown (1600 MHz)");
  EXPECT_EQ(row(record->GetSystemInfoRow, 16).first, "Memory Device 3 - 3DRAm (1600 MHz)");
  EXPECT_EQ(translated(u"SIZE"), "Memory Size");
  EXPECT_EQ(translated(u"CANT_ALLOCATE_MEMORY SIZE"), "Can't allocate memory size");
  EXPECT_EQ(translated(u"BIT_FADE"), "BIT_FADE");
  EXPECT_EQ(translated(u"INDEX"), "INDEX");
  const auto run_info = [&](UINT64 r) {
    return row([](tarvik::TestModuleProtocol* m, UINT64 i, CHAR16** l, CHAR16** v) {
      return m->GetRunInfoRow(m, i, 0, l, v);
    }, r);
  };
  EXPECT_EQ(run_info(0), (std::pair<std::string, std::string>{"Total Memory:", "0 MB"}));
  EXPECT_EQ(run_info(1), (std::pair<std::string, std::string>{"Available Memory:", "0 MB"}));
  CHAR16* name = nullptr;
  EXPECT_EQ(record->GetAlgorithmName(record, 1, &name), EFI_ABORTED);
  EXPECT_EQ(name, nullptr);
  CHAR16* label = nullptr;
  CHAR16* value = nullptr;
  EXPECT_EQ(record->GetRunInfoRow(record, 0, 1, &label, &value), EFI_INVALID_PARAMETER);
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
  static void clear() {
    progress.clear();
    lines.clear();
    stop_on_first_report = nullptr;
  }
};

TEST_F(MemoryModule, RunsOnExactly20MBOfFreeMemoryAndRefusesOnePageLess) {
  start({module(64, 24, "S1")});
  for (const UINT64 free_pages : {5120ull, 5119ull}) {
    Heard::clear();
    hostfw::Memory& memory = (*machine)->memory();
    EFI_PHYSICAL_ADDRESS taken = 0;
    const UINT64 to_take = memory.conventional_pages() - free_pages;
    ASSERT_EQ(tarvik::gBS->AllocatePages(AllocateAnyPages, EfiBootServicesData, to_take, &taken), EFI_SUCCESS);
    const uint64_t pages_before = memory.outstanding_pages();
    const UINT64 result = record->RunTest(record, 0, 0, Heard::Progress, Heard::Message);
    EXPECT_EQ(memory.outstanding_pages(), pages_before) << "everything claimed is released";
    if (free_pages == 5120) {
      EXPECT_EQ(result, tarvik::TEST_RESULT_PASSED);
      EXPECT_EQ(Heard::progress.back(), 100u);
    } else {
      EXPECT_EQ(result, 10u);
      EXPECT_TRUE(Heard::progress.empty());
    }
    tarvik::gBS->FreePages(taken, to_take);
  }
}

TEST_F(MemoryModule, ARegionThatCannotBeClaimedEndsTheRunWithACriticalLine) {
  start({module(4096, 24, "S1")});
  Heard::clear();
  (*machine)->faults().fail_allocate_at_address_call = 1;
  const uint64_t pages_before = (*machine)->memory().outstanding_pages();
  EXPECT_EQ(record->RunTest(record, 0, 0, Heard::Progress, Heard::Message), 11u);
  const UINT64 free_mb = (*machine)->memory().conventional_pages() / 256;
  EXPECT_EQ(Heard::lines, std::vector<std::string>{"CRITICAL CANT_ALLOCATE_MEMORY SIZE: " + std::to_string(free_mb) + " MB"});
  EXPECT_EQ(Heard::progress, std::vector<UINT64>{100});
  EXPECT_EQ((*machine)->memory().outstanding_pages(), pages_before);
  CHAR16* why = nullptr;
  ASSERT_EQ(record->GetResultText(record, 11, &why), EFI_SUCCESS);
  EXPECT_EQ(utf8(why), "This test cannot be executed since system cannot allocate memory.");
  tarvik::gBS->FreePool(why);
}

TEST_F(MemoryModule, AStopRequestCancelsTheRunWhichStillEndsAt100) {
  start({module(4096, 24, "S1")});
  Heard::clear();
  Heard::stop_on_first_report = record;
  EXPECT_EQ(record->RunTest(record, 0, 0, Heard::Progress, Heard::Message), tarvik::TEST_RESULT_CANCELED);
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
    Heard::clear();
    const UINT64 result = record->RunTest(record, 0, 0, Heard::Progress, Heard::Message);
    EXPECT_EQ(result, c.fails ? tarvik::TEST_RESULT_FAILED : tarvik::TEST_RESULT_PASSED) << c.modules[1];
    if (!c.fails) continue;
    ASSERT_EQ(Heard::lines.size(), 3u);
    EXPECT_EQ(Heard::lines[0], "ERROR MEMORY_NOT_IN_USE INSTALLED " + std::to_string(c.modules[0] + c.modules[1]) +
                                   " MAPPED 61");
    EXPECT_EQ(Heard::lines[2].substr(0, 20), "MESSAGE MODULE_SLOT ");
  }
}

}  // namespace
