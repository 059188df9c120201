// The whole application (its core services, its interface, its teardown and
// reset) with test-double modules registered in place of the real ones.
#pragma once

#include <vector>

#include "badsector/bad_sectors_tool_protocol.h"
#include "hostfw/machine.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace testing_support {

struct ApplicationSetup {
  std::vector<FakeTestModule*> modules;  // registered in this order
  bool real_modules = false;             // the application's own modules first
  bool bad_sectors_tool = false;         // publish a stand-in tool record (or tool_record)
  tarvik::BadSectorsToolProtocol* tool_record = nullptr;  // e.g. a FakeBadSectorsTool's
  bool real_bad_sectors_tool = false;    // publish the real tool over the machine's rotating drives
  void (*tool_published)(tarvik::BadSectorsToolProtocol* tool) = nullptr;  // then called with its record
  int console_mode_at_start = 0;         // the mode the firmware left the console in
};

// Runs the application on machine until it resets (or cannot go on).
hostfw::RunResult run_application(TestMachine& machine, const ApplicationSetup& setup);

// Runs it and checks that it ended in a cold reset with no pool left allocated.
void run_to_reset(TestMachine& machine, const ApplicationSetup& setup);

}  // namespace testing_support
