#include <gtest/gtest.h>

#include "core/diag_common.h"
#include "registry/module_registry_protocol.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;
using tarvik::TestModuleProtocol;

class TestCollection : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallTestCollection(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    registry = testing_support::located_test_collection();
    ASSERT_NE(registry, nullptr);
  }
  void TearDown() override {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  }
  TestMachine machine;
  tarvik::TestCollectionProtocol* registry = nullptr;
  TestModuleProtocol modules[101] = {};
};

// Modules listed in their order of registration are read on the main screen
// (MainScreen.FortyTestsScrollInTheTestsPanelAndUpAndDownWrapAround).
TEST_F(TestCollection, OnlyTheLastCanBeRemoved) {
  TestModuleProtocol* out = nullptr;
  EXPECT_EQ(registry->RemoveLastTest(&out), EFI_NOT_FOUND);
  ASSERT_EQ(registry->AddTest(&modules[0]), EFI_SUCCESS);
  ASSERT_EQ(registry->AddTest(&modules[1]), EFI_SUCCESS);
  ASSERT_EQ(registry->RemoveLastTest(&out), EFI_SUCCESS);
  EXPECT_EQ(out, &modules[1]);
  ASSERT_EQ(registry->GetTest(0, &out), EFI_SUCCESS);
  EXPECT_EQ(out, &modules[0]);
  // A module taking itself out again passes no out-pointer.
  EXPECT_EQ(registry->RemoveLastTest(nullptr), EFI_SUCCESS);
  EXPECT_EQ(registry->GetTestCount(), 0u);
}

TEST_F(TestCollection, HoldsAHundredModulesAndRefusesMore) {
  for (int i = 0; i < 100; ++i) ASSERT_EQ(registry->AddTest(&modules[i]), EFI_SUCCESS) << i;
  EXPECT_EQ(registry->AddTest(&modules[100]), EFI_VOLUME_FULL);
  EXPECT_EQ(registry->GetTestCount(), 100u);
  TestModuleProtocol* out = nullptr;
  ASSERT_EQ(registry->GetTest(99, &out), EFI_SUCCESS);
  EXPECT_EQ(out, &modules[99]);
}

TEST(TestCollectionInstall, ATableThatCannotBeCreatedStopsTheInstallationWithItsMessage) {
  TestMachine machine;
  ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
  // The record is the installer's first allocation, the module table its second.
  machine->faults().fail_allocate_pool_call = machine->memory().pool_allocations() + 2;
  EXPECT_EQ(tarvik::InstallTestCollection(machine->image_handle(), machine->system_table()), EFI_OUT_OF_RESOURCES);
  EXPECT_NE(machine.transcript().find("Test Collection Protocol: Out of Resources"), std::string::npos);
  EXPECT_EQ(testing_support::located_test_collection(), nullptr);
  tarvik::UninstallDiagCommon();
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
}

}  // namespace
