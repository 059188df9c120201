// The memory test on the host firmware's processors (real threads): it runs
// on every processor and says how many; without MP services, or when they
// refuse, it runs as on one processor; a hung processor fails the run; and
// no run leaves a page or a pool behind.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/application_plan.h"
#include "hostfw/memory.h"
#include "hostfw/mp_services.h"
#include "memtest/memory_test_protocol.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

struct Heard {
  static inline std::vector<std::string> lines;
  static inline UINT64 last_percent = 0;
  static EFIAPI EFI_STATUS Progress(VOID*, UINT64 percent, UINT64) {
    last_percent = percent;
    return EFI_SUCCESS;
  }
  static EFIAPI EFI_STATUS Message(VOID*, const CHAR16* text, UINT8, UINT64) {
    lines.push_back(testing_support::utf8(text));
    return EFI_SUCCESS;
  }
};

enum class Processors { kAll, kNoMpServices, kRefused, kOneHung };

struct Case {
  Processors setup;
  UINT64 result;
  std::vector<std::string> lines;
  std::vector<uint64_t> procedures;  // started on each processor
};

TEST(MemoryRunOnProcessors, UsesEveryProcessorOrFallsBackAndReleasesEverything) {
  const Case cases[] = {
      {Processors::kAll, tarvik::TEST_RESULT_PASSED, {"MESSAGE PROCESSORS: 4"}, {0, 18, 18, 18}},
      {Processors::kNoMpServices, tarvik::TEST_RESULT_PASSED, {}, {0, 0, 0, 0}},
      {Processors::kRefused, tarvik::TEST_RESULT_PASSED, {}, {0, 0, 0, 0}},
      // Processor 2 takes the first phase and never returns: the others do.
      {Processors::kOneHung, tarvik::TEST_RESULT_FAILED,
       {"MESSAGE PROCESSORS: 4", "ERROR PROCESSOR_NOT_RESPONDING"}, {0, 1, 0, 1}},
  };
  for (const Case& c : cases) {
    TestMachine machine("", [](hostfw::Profile& p) {
      p.memory_mib = 48;
      p.memory_modules.resize(1);  // one module the map covers: no memory reads as unused
      p.memory_modules[0].size_mib = 32;
    });
    for (UINTN i = 0; i < tarvik::ApplicationPlan.CoreServiceCount; ++i)
      ASSERT_EQ(tarvik::ApplicationPlan.CoreServices[i].Install(machine->image_handle(), machine->system_table()),
                EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallMemoryTest(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    tarvik::TestModuleProtocol* record = nullptr;
    ASSERT_EQ(testing_support::located_test_collection()->GetTest(0, &record), EFI_SUCCESS);
    hostfw::MpServices& mp = machine->mp();
    EFI_GUID mp_guid = EFI_MP_SERVICES_PROTOCOL_GUID;
    if (c.setup == Processors::kNoMpServices) {
      ASSERT_EQ(tarvik::gBS->UninstallProtocolInterface(mp.handle(), &mp_guid, mp.protocol()), EFI_SUCCESS);
    }
    machine->faults().mp_refuse_startup = c.setup == Processors::kRefused;
    machine->faults().mp_hung_processor = c.setup == Processors::kOneHung ? 2 : 0;

    Heard::lines.clear();
    const uint64_t pages = machine->memory().outstanding_pages(), pools = machine->memory().outstanding_pools();
    EXPECT_EQ(record->RunTest(record, 0, 0, Heard::Progress, Heard::Message), c.result);
    EXPECT_EQ(Heard::lines, c.lines);
    EXPECT_EQ(Heard::last_percent, 100u);
    EXPECT_EQ(mp.procedures_run(), c.procedures);
    EXPECT_EQ(machine->memory().outstanding_pages(), pages);
    EXPECT_EQ(machine->memory().outstanding_pools(), pools);
  }
}

}  // namespace
