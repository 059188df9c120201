#include "core/protocol_registry.h"

#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "core/locate.h"
#include "core/service_record.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

struct TestRecord {
  tarvik::ServiceRecordHeader Header;
  VOID* Operation;
};

std::vector<int>* g_unloaded = nullptr;

EFI_GUID guid_number(UINT32 n) { return EFI_GUID{0x7E570000u + n, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8}}; }

// Clean-up operations that record the order in which they ran.
template <int N>
EFIAPI EFI_STATUS unload_record(EFI_HANDLE) {
  if (g_unloaded != nullptr) g_unloaded->push_back(N);
  return EFI_SUCCESS;
}

class ProtocolRegistry : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    common = tarvik::gDiagCommon;
    g_unloaded = &unloaded;
  }
  void TearDown() override {
    g_unloaded = nullptr;
    common->UninstallAllProtocols(common);
    tarvik::UninstallDiagCommon();
  }

  // Installs record number n, made for `owner`, on `handle` (the owner's by
  // default).
  EFI_STATUS install(UINT32 n, EFI_HANDLE owner, EFI_IMAGE_UNLOAD unload, EFI_HANDLE handle = nullptr) {
    TestRecord& r = records.emplace_back();
    r.Header = {.Revision = 1, .ImageHandle = owner, .Unload = nullptr, .Guid = guid_number(n)};
    EFI_HANDLE h = handle != nullptr ? handle : owner;
    EFI_GUID g = r.Header.Guid;
    VOID* record = &r;
    return common->InstallProtocol(common, &h, &g, &record, unload);
  }

  bool locatable(UINT32 n) { return tarvik::LocateService<VOID>(guid_number(n)) != nullptr; }

  // The clean-up the loaded image of `image` holds.
  EFI_IMAGE_UNLOAD image_unload(EFI_HANDLE image) {
    EFI_GUID guid = EFI_LOADED_IMAGE_PROTOCOL_GUID;
    EFI_LOADED_IMAGE_PROTOCOL* loaded = nullptr;
    EXPECT_EQ(tarvik::gBS->HandleProtocol(image, &guid, reinterpret_cast<VOID**>(&loaded)), EFI_SUCCESS);
    return loaded != nullptr ? loaded->Unload : nullptr;
  }

  TestMachine machine;
  tarvik::DiagCommonProtocol* common = nullptr;
  std::deque<TestRecord> records;  // stable addresses
  std::vector<int> unloaded;
};

// Teardown in reverse order, with the table freed, is checked with the
// start-up (Startup.ACompleteRunInstallsInOrderTearsDownInReverseAndResetsCold).
TEST_F(ProtocolRegistry, RecordsOfAnotherHandleAreRefusedAndTheHundredAndFirstIsNotRemembered) {
  EXPECT_EQ(install(1, machine->system_table()->ConsoleOutHandle, unload_record<1>, machine->image_handle()),
            EFI_INVALID_PARAMETER);
  EXPECT_FALSE(locatable(1));
  EXPECT_EQ(records[0].Header.Unload, nullptr);
  EXPECT_EQ(tarvik::InstalledRecordCount(), 0u);

  for (UINT32 n = 2; n <= 102; ++n) ASSERT_EQ(install(n, machine->image_handle(), unload_record<0>), EFI_SUCCESS);
  EXPECT_EQ(tarvik::InstalledRecordCount(), 100u);
  common->UninstallAllProtocols(common);
  EXPECT_EQ(unloaded.size(), 100u);
  EXPECT_FALSE(locatable(101));
  EXPECT_TRUE(locatable(102)) << "a record beyond the table stays installed";
  EFI_GUID g = guid_number(102);
  EXPECT_EQ(tarvik::gBS->UninstallMultipleProtocolInterfaces(machine->image_handle(), &g, &records.back(), nullptr),
            EFI_SUCCESS);
}

TEST_F(ProtocolRegistry, RecordsOfAForeignImageAreCleanedUpByUnloadingThatImage) {
  EFI_HANDLE foreign = machine->images().create(machine->image_handle(), nullptr, nullptr);
  ASSERT_EQ(install(1, machine->image_handle(), unload_record<1>), EFI_SUCCESS);
  ASSERT_EQ(install(2, foreign, unload_record<2>), EFI_SUCCESS);
  EXPECT_EQ(records[1].Header.Unload, nullptr) << "the clean-up belongs to the image";
  EXPECT_EQ(image_unload(foreign), &unload_record<2>);

  const size_t images_before = machine->images().loaded_count();
  common->UninstallAllProtocols(common);
  EXPECT_EQ(unloaded, (std::vector<int>{2, 1})) << "the image's unload runs through UnloadImage, in order";
  EXPECT_EQ(machine->images().loaded_count(), images_before - 1) << "the foreign image is gone";
}

TEST_F(ProtocolRegistry, AFailedInstallationUndoesTheCleanUpAssignment) {
  machine->faults().fail_install_of_guid = true;
  machine->faults().install_guid_to_fail = guid_number(1);
  EXPECT_EQ(install(1, machine->image_handle(), unload_record<1>), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(records[0].Header.Unload, nullptr);
  EXPECT_EQ(tarvik::InstalledRecordCount(), 0u);

  EFI_HANDLE foreign = machine->images().create(machine->image_handle(), nullptr, nullptr);
  EXPECT_EQ(install(1, foreign, unload_record<1>), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(image_unload(foreign), nullptr);

  // A foreign handle without a loaded image is refused with the lookup's status.
  EXPECT_EQ(install(3, machine->system_table()->ConsoleOutHandle, unload_record<3>), EFI_UNSUPPORTED);
}

// A withdrawn record taken off its handle and out of the table is checked
// where the installer withdraws a module whose companion failed
// (TestModuleInstaller.EachFailingStepPrintsTheModulesMessageAndLeavesNothingBehind).

}  // namespace
