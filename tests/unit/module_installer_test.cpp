// InstallTestModule on the host machine: every step that can fail prints the
// module's own message and undoes the steps before it, and a companion
// service stands or falls with its module. The stand-in module is described
// the way the storage module and its bad-sector tool are; the stand-in tool
// prints nothing, so each transcript is the installer's own.
#include "registry/module_installer.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "app/application_plan.h"
#include "badsector/bad_sectors_tool_protocol.h"
#include "core/locate.h"
#include "memtest/memory_test_protocol.h"
#include "memtest/memory_test_state.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using Events = std::vector<std::string>;

constexpr EFI_GUID kModuleGuid = {0x783E657F, 0x28DB, 0x4055, {0x98, 0xEB, 0xAE, 0x8B, 0x76, 0x1A, 0xC0, 0x77}};

struct Tool {
  tarvik::ServiceRecordHeader Header;
  VOID* Operation;
};

// A module with every optional step; each step notes that it ran and holds a
// pool buffer, so that a missed release shows as a leak.
struct Stand {
  static inline tarvik::TestModuleInstallation installation{};
  static inline Tool* tool = nullptr;
  static inline VOID* prepared = nullptr;
  static inline VOID* gathered = nullptr;
  static inline EFI_STATUS gather_status = EFI_SUCCESS;
  static inline BOOLEAN offer = TRUE;
  static inline Events events;

  static void reset() {
    installation = {};
    tool = nullptr;
    prepared = gathered = nullptr;
    gather_status = EFI_SUCCESS;
    offer = TRUE;
    events.clear();
  }

  static EFI_STATUS Prepare() {
    events.push_back("prepare");
    tarvik::gBS->AllocatePool(EfiBootServicesData, 16, &prepared);
    return EFI_SUCCESS;
  }
  static VOID ReleasePrepared() {
    events.push_back("release prepared");
    tarvik::gBS->FreePool(prepared);
    prepared = nullptr;
  }
  static VOID Complete() { events.push_back("complete"); }
  static VOID Fill(tarvik::TestModuleProtocol& record) { record.GetTestName = nullptr; }
  static EFIAPI EFI_STATUS Unload(EFI_HANDLE) {
    events.push_back("unload module");
    ReleasePrepared();
    return tarvik::ReleaseTestModule(installation);
  }

  // Stands for the bad-sector tool: gathers (a pool buffer), then allocates
  // and installs its record, releasing all of it on any failure.
  static EFI_STATUS PublishTool(EFI_HANDLE image, BOOLEAN* withdraw) {
    *withdraw = FALSE;
    if (EFI_ERROR(gather_status)) {
      events.push_back("gather fails");
      return gather_status;
    }
    events.push_back("gather");
    tarvik::gBS->AllocatePool(EfiBootServicesData, 16, &gathered);
    if (!offer) {
      UnloadTool(image);
      return EFI_SUCCESS;
    }
    VOID* raw = nullptr;
    EFI_STATUS status = tarvik::gBS->AllocatePool(EfiBootServicesData, sizeof(Tool), &raw);
    if (!EFI_ERROR(status)) {
      tool = static_cast<Tool*>(raw);
      tarvik::FillServiceRecord(*tool, image, tarvik::BadSectorsToolProtocolGuid, FillTool);
      EFI_HANDLE handle = image;
      EFI_GUID guid = tarvik::BadSectorsToolProtocolGuid;
      status = tarvik::gDiagCommon->InstallProtocol(tarvik::gDiagCommon, &handle, &guid,
                                                    reinterpret_cast<VOID**>(&tool), UnloadTool);
    }
    if (EFI_ERROR(status)) {
      UnloadTool(image);
      *withdraw = TRUE;
    }
    return status;
  }
  static VOID FillTool(Tool& record) { record.Operation = &tool; }
  static EFIAPI EFI_STATUS UnloadTool(EFI_HANDLE) {
    events.push_back("unload tool");
    if (gathered != nullptr) tarvik::gBS->FreePool(gathered);
    gathered = nullptr;
    return tarvik::ReleaseServiceRecord(tarvik::gBS, tool);
  }

  static constexpr tarvik::TestModuleDescriptor kModule = {
      .Guid = kModuleGuid,
      .Installation = &installation,
      .Unload = Unload,
      .FillOperations = Fill,
      .StringTableName = u"Storage",
      .AddTestFailureFormat = u"Fail in Test Collection during Storage Test Protocol installation : %r\n",
      .InstallFailureFormat = u"Fail during Storage Test Protocol installation in Image Handle: %r\n",
      .Prepare = Prepare,
      .ReleasePrepared = ReleasePrepared,
      .Complete = Complete,
      .PublishCompanion = PublishTool,
  };
};

bool located(EFI_GUID guid) { return tarvik::LocateService<VOID>(guid) != nullptr; }

// A machine with the application's core services (all of them, or all up to
// the registry), torn down at the end with no pool left.
class Session {
 public:
  explicit Session(bool with_registry = true) {
    Stand::reset();
    for (const auto& step : std::vector<tarvik::CoreServiceStep>(
             tarvik::ApplicationPlan.CoreServices,
             tarvik::ApplicationPlan.CoreServices + tarvik::ApplicationPlan.CoreServiceCount)) {
      if (!with_registry && step.Install == tarvik::InstallTestCollection) break;
      EXPECT_EQ(step.Install(machine_->image_handle(), machine_->system_table()), EFI_SUCCESS);
    }
  }
  ~Session() {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine_->memory().outstanding_pools(), 0u);
  }

  tarvik::TestCollectionProtocol* registry() { return testing_support::located_test_collection(); }

  // Fills the registry so that the next AddTest is refused (a bounded loop:
  // a registry that refuses too early must fail the test, not hang it).
  void fill_registry() {
    for (UINT64 i = 0; i < tarvik::TestCollectionCapacity; ++i) registry()->AddTest(&filler_);
  }

  // Pools, registered modules and installed records before an installation,
  // to compare with after it failed.
  std::tuple<size_t, UINT64, UINT32> snapshot() {
    return {machine_->memory().outstanding_pools(), registry() != nullptr ? registry()->GetTestCount() : 0,
            tarvik::InstalledRecordCount()};
  }

  TestMachine machine_;

 private:
  tarvik::TestModuleProtocol filler_{};
};

struct FailingStep {
  const char* name;
  std::function<void(Session&)> arrange;
  EFI_STATUS status;
  std::string transcript;
  Events events;
  bool with_registry = true;
};

// The module's own steps failing (a preparation, an allocation, the
// installation) are checked with the storage module, which is installed the
// same way (StorageModule.AFailedInstallationSaysWhyAndLeavesNothing,
// StorageModule.WhicheverAllocationFailsNothingIsLeftBehind); here, the
// registry and the companion.
TEST(TestModuleInstaller, EachFailingStepPrintsTheModulesMessageAndLeavesNothingBehind) {
  const std::vector<FailingStep> steps = {
      {"no registry", [](Session&) {}, EFI_ABORTED, "Test collection protocol not exists\r\n", {}, false},
      {"registry full", [](Session& s) { s.fill_registry(); }, EFI_VOLUME_FULL,
       "Fail in Test Collection during Storage Test Protocol installation : Volume Full\r\n",
       {"prepare", "release prepared"}},
      {"tool installation",
       [](Session& s) {
         s.machine_->faults().fail_install_of_guid = true;
         s.machine_->faults().install_guid_to_fail = tarvik::BadSectorsToolProtocolGuid;
       },
       EFI_OUT_OF_RESOURCES, "", {"prepare", "gather", "unload tool", "release prepared"}},
  };
  for (const FailingStep& step : steps) {
    SCOPED_TRACE(step.name);
    Session session(step.with_registry);
    step.arrange(session);
    const auto before = session.snapshot();
    EXPECT_EQ(tarvik::InstallTestModule(session.machine_->image_handle(), Stand::kModule), step.status);
    EXPECT_EQ(session.machine_.transcript(), step.transcript);
    EXPECT_EQ(Stand::events, step.events);
    EXPECT_EQ(session.snapshot(), before) << "no pool, registry entry or installed record is left";
    EXPECT_FALSE(located(kModuleGuid));
    EXPECT_FALSE(located(tarvik::BadSectorsToolProtocolGuid));
    EXPECT_EQ(Stand::installation.Record, nullptr);
    EXPECT_EQ(Stand::installation.Strings, nullptr);
    EXPECT_EQ(Stand::tool, nullptr);
  }
}

TEST(TestModuleInstaller, TheModuleStaysWhenItsCompanionHasNothingToOfferOrCannotGather) {
  for (const bool gathers : {true, false}) {
    Session session;
    Stand::offer = FALSE;
    Stand::gather_status = gathers ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
    EXPECT_EQ(tarvik::InstallTestModule(session.machine_->image_handle(), Stand::kModule), Stand::gather_status);
    EXPECT_EQ(session.machine_.transcript(), "");
    EXPECT_TRUE(located(kModuleGuid));
    EXPECT_EQ(session.registry()->GetTestCount(), 1u);
    EXPECT_FALSE(located(tarvik::BadSectorsToolProtocolGuid));
    EXPECT_EQ(Stand::events, (gathers ? Events{"prepare", "gather", "unload tool", "complete"}
                                      : Events{"prepare", "gather fails", "complete"}));
  }
}

TEST(TestModuleInstaller, AnInstalledModuleAndCompanionAreFilledRegisteredAndReleasedCompanionFirst) {
  {
    Session session;
    EXPECT_EQ(tarvik::InstallTestModule(session.machine_->image_handle(), Stand::kModule), EFI_SUCCESS);
    tarvik::TestModuleProtocol* registered = nullptr;
    ASSERT_EQ(session.registry()->GetTest(0, &registered), EFI_SUCCESS);
    EXPECT_EQ(registered, Stand::installation.Record);
    EXPECT_EQ(testing_support::utf8(Stand::installation.Strings[0]), "Quick Storage Device Test");
    ASSERT_NE(Stand::tool, nullptr);
    EXPECT_EQ(Stand::tool->Operation, &Stand::tool);
    EXPECT_TRUE(located(tarvik::BadSectorsToolProtocolGuid));
    EXPECT_EQ(Stand::events, (Events{"prepare", "gather", "complete"}));
    Stand::events.clear();
  }
  EXPECT_EQ(Stand::events, (Events{"unload tool", "unload module", "release prepared"}));
}

// The memory module has none of the optional steps: a refusal still prints
// its own message and leaves nothing behind.
TEST(TestModuleInstaller, TheMemoryModulePrintsItsOwnMessages) {
  Session session;
  session.fill_registry();
  const auto before = session.snapshot();
  EXPECT_EQ(tarvik::InstallMemoryTest(session.machine_->image_handle(), session.machine_->system_table()),
            EFI_VOLUME_FULL);
  EXPECT_EQ(session.machine_.transcript(),
            "Falha ao instalar Memory Test em Test Collection Protocol: Volume Full\r\n");
  EXPECT_EQ(session.snapshot(), before);
  EXPECT_FALSE(located(tarvik::MemoryTestProtocolGuid));
  EXPECT_EQ(tarvik::MemoryTest.Installation.Record, nullptr);
}

}  // namespace
