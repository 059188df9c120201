// The NVMe test as a technician runs it on the default machine's two NVMe
// drives (made small to scan): every algorithm, the advice box, the
// outcome and the saved log with each drive's section and result code.
// Nothing but reading commands reaches the drives.
#include <gtest/gtest.h>

#include <string>
#include "hostfw/console_out.h"
#include "hostfw/nvme_controller.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::ApplicationSetup;
using testing_support::file_text;
using testing_support::run_to_reset;
using testing_support::TestMachine;

TEST(NvmeRun, BothDrivesEveryAlgorithmAndTheLog) {
  const auto small_drives = [](hostfw::Profile& p) {
    ASSERT_EQ(p.nvme_drives.size(), 2u);
    for (hostfw::NvmeInfo& d : p.nvme_drives) {
      d.blocks = 1u << 20;
      d.self_test_seconds = 30;
    }
    p.nvme_drives[1].bad_lbas = {{1, 4242, 4242}};
    p.nvme_drives[1].error_log_lbas = {{1, 4242, 4242}};
  };
  TestMachine machine(
      "wait \"Main Screen\"; key Down 2; key Enter; wait \"Select Devices\"; key Enter;"
      "wait \"Select Algorithms\"; key Enter;"
      "wait 7200 \"Problems were found\"; key Enter; wait \"F3 = view log\"; snap \"outcome\";"
      "key F3; wait \"F2 = save log\"; key F2; wait \"Save Log\"; key Enter;"
      "wait \"Log saved successfully!\"; key Enter; key Esc; key Esc; wait \"Main Screen\"; key Down; key Enter",
      small_drives);
  run_to_reset(machine, ApplicationSetup{.modules = {}, .real_modules = true});
  EXPECT_EQ(machine->memory().outstanding_pages(), 0u);

  EXPECT_TRUE(machine->console().snapshot("outcome").grid.contains("Veltro QX500 512GB"));

  const std::string saved = file_text(machine.directory() / "volumes" / "TARVIK" / "Log" / "Log.log");
  for (const char* line :
       {"\nDISPLAYNAME: Arkon NV7 1TB NVMe Device\n", "\nSERIAL: VQX5-0021-8841\n", "\nLBA_SIZE: 512 bytes\n",
        " STOP NVMEHEALTH SUCCESS ", " PERCENTAGE_USED 112 ", " ERROR NVME_HEALTH_FAILING\n",
        " STOP NVMEHEALTH FAILURE ", " ERROR READ_SECTOR_ERROR 4242\n", " STOP NVMEFULLREADSCAN FAILURE ",
        " STOP NVMEERRORLOGREAD UNSUPPORTED\n", "\nSTOP TESTS UNV", "\n--- NVME\n"})
    EXPECT_NE(saved.find(line), std::string::npos) << line << "\n" << saved;

  for (size_t i = 0; i < machine->nvme_count(); ++i) {
    EXPECT_EQ(machine->nvme(i).counts().changing_commands(), 0u) << i;
    EXPECT_EQ(machine->nvme(i).counts().others_than({0x02, 0x06, 0x08, 0x14}, {0x02, 0x0C}), 0u) << i;
  }
}

}  // namespace
