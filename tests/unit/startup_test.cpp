// Start-up as a whole: the order of installation, the installer's messages,
// the hand-over to the interface, teardown and the reset, on the host machine.
#include "core/startup.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/diag_common.h"
#include "core/locate.h"
#include "core/service_record.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

struct FakeRecord {
  tarvik::ServiceRecordHeader Header;
};

std::vector<std::string> g_events;

// Four stand-in core services built with the real installer, so that their
// messages and clean-up follow the same path as the application's.
template <int N>
struct FakeService {
  static inline FakeRecord* Record = nullptr;

  static EFIAPI EFI_STATUS Unload(EFI_HANDLE) {
    g_events.push_back("unload " + std::to_string(N));
    return tarvik::ReleaseServiceRecord(tarvik::gBS, Record);
  }
  static EFI_GUID Guid() { return EFI_GUID{0xC0DE0000u + N, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}}; }
  static EFI_STATUS Install(EFI_HANDLE image, EFI_SYSTEM_TABLE* system_table) {
    g_events.push_back("install " + std::to_string(N));
    const tarvik::ServiceDescriptor<FakeRecord> descriptor{
        Guid(), N == 3 ? u"Language Protocol" : u"Fake Protocol", &Record, Unload, [](FakeRecord&) {}};
    return tarvik::InstallService(image, system_table, descriptor);
  }
  static bool installed() { return tarvik::LocateService<FakeRecord>(Guid()) != nullptr; }
};

EFI_STATUS RecordingUi(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
  g_events.push_back("ui");
  return EFI_SUCCESS;
}
EFI_STATUS FailingModule(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
  g_events.push_back("module fails");
  return EFI_DEVICE_ERROR;
}
EFI_STATUS WorkingModule(EFI_HANDLE image, EFI_SYSTEM_TABLE* st) {
  g_events.push_back("module works");
  return FakeService<4>::Install(image, st);
}

const tarvik::CoreServiceStep kCoreSteps[] = {
    {tarvik::InstallDiagCommon, u"Failed to install common protocols...\n"},
    {FakeService<1>::Install, u"Failed to install errorcode protocol...\n"},
    {FakeService<2>::Install, u"Failed to install SmBios protocols...\n"},
    {FakeService<3>::Install, u"Failed to install language protocols...\n"},
};
const tarvik::ServiceInstaller kModules[] = {FailingModule, WorkingModule};
const tarvik::StartupPlan kPlan = {kCoreSteps, 4, kModules, 2, RecordingUi};

EFIAPI EFI_STATUS EntryWithPlan(EFI_HANDLE image, EFI_SYSTEM_TABLE* st) {
  return tarvik::RunApplication(image, st, kPlan);
}

class Startup : public ::testing::Test {
 protected:
  void SetUp() override { g_events.clear(); }
  TestMachine machine;
};

TEST_F(Startup, ACompleteRunInstallsInOrderTearsDownInReverseAndResetsCold) {
  const hostfw::RunResult result = machine->run(EntryWithPlan);
  EXPECT_EQ(result.end, hostfw::RunResult::End::Reset);
  EXPECT_EQ(result.reset_type, EfiResetCold);
  EXPECT_EQ(result.status, EFI_SUCCESS);
  EXPECT_EQ(machine->watchdog_seconds(), 0u) << "the watchdog is disabled first";
  EXPECT_EQ(g_events, (std::vector<std::string>{"install 1", "install 2", "install 3", "module fails", "module works",
                                                "install 4", "ui", "unload 4", "unload 3", "unload 2", "unload 1"}));
  EXPECT_FALSE(FakeService<1>::installed() || FakeService<4>::installed());
  EXPECT_EQ(tarvik::LocateService<tarvik::DiagCommonProtocol>(tarvik::DiagCommonProtocolGuid), nullptr);
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  EXPECT_EQ(machine.transcript(), "") << "a clean start prints nothing";
}

TEST_F(Startup, AFailingCoreServiceStopsWithItsMessagesAndNoReset) {
  machine->faults().fail_install_of_guid = true;
  machine->faults().install_guid_to_fail = FakeService<3>::Guid();
  const hostfw::RunResult result = machine->run(EntryWithPlan);
  EXPECT_EQ(result.end, hostfw::RunResult::End::Returned);
  EXPECT_EQ(result.status, EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(machine->last_reset(), nullptr);
  EXPECT_EQ(machine.transcript(),
            "Falha ao instalar Language Protocol: Out of Resources\r\n"
            "Failed to install language protocols...\r\n");
  EXPECT_FALSE(FakeService<3>::installed());
  EXPECT_EQ(FakeService<3>::Record, nullptr);
  EXPECT_EQ(g_events, (std::vector<std::string>{"install 1", "install 2", "install 3"}));
  tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
  tarvik::UninstallDiagCommon();
}

TEST_F(Startup, WithoutTheSharedServicesNothingElseIsTried) {
  machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + 1;
  const hostfw::RunResult result = machine->run(EntryWithPlan);
  EXPECT_EQ(result.end, hostfw::RunResult::End::Returned);
  EXPECT_EQ(result.status, EFI_ABORTED);
  EXPECT_EQ(machine.transcript(), "ERROR: Out of Resources\r\nFailed to install common protocols...\r\n");
  EXPECT_TRUE(g_events.empty());
}

}  // namespace
