#include "core/protocol_registry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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
    for (TestRecord* r : records) delete r;
  }

  TestRecord* make_record(UINT32 n, EFI_HANDLE handle) {
    auto* r = new TestRecord{};
    r->Header.Revision = 1;
    r->Header.ImageHandle = handle;
    r->Header.Guid = guid_number(n);
    records.push_back(r);
    return r;
  }

  EFI_STATUS install(TestRecord* r, EFI_HANDLE handle, EFI_IMAGE_UNLOAD unload) {
    EFI_HANDLE h = handle;
    EFI_GUID g = r->Header.Guid;
    VOID* record = r;
    return common->InstallProtocol(common, &h, &g, &record, unload);
  }

  bool locatable(UINT32 n) {
    EFI_GUID g = guid_number(n);
    VOID* found = nullptr;
    return tarvik::gBS->LocateProtocol(&g, nullptr, &found) == EFI_SUCCESS;
  }

  TestMachine machine;
  tarvik::DiagCommonProtocol* common = nullptr;
  std::vector<TestRecord*> records;
  std::vector<int> unloaded;
};

TEST_F(ProtocolRegistry, RefusesMissingArgumentsAndRecordsOfAnotherHandle) {
  TestRecord* r = make_record(1, machine->image_handle());
  EFI_HANDLE h = machine->image_handle();
  EFI_GUID g = r->Header.Guid;
  VOID* record = r;
  EXPECT_EQ(common->InstallProtocol(nullptr, &h, &g, &record, unload_record<1>), EFI_ABORTED);
  EXPECT_EQ(common->InstallProtocol(common, nullptr, &g, &record, unload_record<1>), EFI_ABORTED);
  EXPECT_EQ(common->InstallProtocol(common, &h, nullptr, &record, unload_record<1>), EFI_ABORTED);
  EXPECT_EQ(common->InstallProtocol(common, &h, &g, nullptr, unload_record<1>), EFI_ABORTED);
  EXPECT_EQ(common->InstallProtocol(common, &h, &g, &record, nullptr), EFI_ABORTED);
  EXPECT_EQ(common->UninstallAllProtocols(nullptr), EFI_ABORTED);

  TestRecord* other = make_record(2, machine->system_table()->ConsoleOutHandle);
  EXPECT_EQ(install(other, machine->image_handle(), unload_record<2>), EFI_INVALID_PARAMETER);
  EXPECT_FALSE(locatable(2));
  EXPECT_EQ(other->Header.Unload, nullptr);
  EXPECT_EQ(tarvik::InstalledRecordCount(), 0u);
}

// Teardown in reverse order, with the table freed, is checked with the
// start-up (Startup.ACompleteRunInstallsInOrderTearsDownInReverseAndResetsCold).
TEST_F(ProtocolRegistry, TheHundredAndFirstRecordIsInstalledButNotRemembered) {
  for (UINT32 n = 1; n <= 101; ++n)
    ASSERT_EQ(install(make_record(n, machine->image_handle()), machine->image_handle(), unload_record<0>),
              EFI_SUCCESS);
  EXPECT_EQ(tarvik::InstalledRecordCount(), 100u);
  EXPECT_TRUE(locatable(101));
  common->UninstallAllProtocols(common);
  EXPECT_EQ(unloaded.size(), 100u);
  EXPECT_FALSE(locatable(100));
  EXPECT_TRUE(locatable(101)) << "a record beyond the table stays installed";
  EFI_GUID g = guid_number(101);
  EXPECT_EQ(tarvik::gBS->UninstallMultipleProtocolInterfaces(machine->image_handle(), &g, records[100], nullptr),
            EFI_SUCCESS);
}

TEST_F(ProtocolRegistry, RecordsOfAForeignImageAreCleanedUpByUnloadingThatImage) {
  EFI_HANDLE foreign = machine->images().create(machine->image_handle(), nullptr, nullptr);
  ASSERT_EQ(install(make_record(1, machine->image_handle()), machine->image_handle(), unload_record<1>), EFI_SUCCESS);
  TestRecord* guest = make_record(2, foreign);
  ASSERT_EQ(install(guest, foreign, unload_record<2>), EFI_SUCCESS);
  EXPECT_EQ(guest->Header.Unload, nullptr) << "the clean-up belongs to the image";

  EFI_GUID loaded_guid = EFI_LOADED_IMAGE_PROTOCOL_GUID;
  EFI_LOADED_IMAGE_PROTOCOL* loaded = nullptr;
  ASSERT_EQ(tarvik::gBS->HandleProtocol(foreign, &loaded_guid, reinterpret_cast<VOID**>(&loaded)), EFI_SUCCESS);
  EXPECT_EQ(loaded->Unload, &unload_record<2>);

  const size_t images_before = machine->images().loaded_count();
  common->UninstallAllProtocols(common);
  EXPECT_EQ(unloaded, (std::vector<int>{2, 1})) << "the image's unload runs through UnloadImage, in order";
  EXPECT_EQ(machine->images().loaded_count(), images_before - 1) << "the foreign image is gone";
}

TEST_F(ProtocolRegistry, AFailedInstallationUndoesTheCleanUpAssignment) {
  machine->faults().fail_install_of_guid = true;
  machine->faults().install_guid_to_fail = guid_number(1);
  TestRecord* r = make_record(1, machine->image_handle());
  EXPECT_EQ(install(r, machine->image_handle(), unload_record<1>), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(r->Header.Unload, nullptr);
  EXPECT_EQ(tarvik::InstalledRecordCount(), 0u);

  EFI_HANDLE foreign = machine->images().create(machine->image_handle(), nullptr, nullptr);
  TestRecord* guest = make_record(1, foreign);
  EXPECT_EQ(install(guest, foreign, unload_record<1>), EFI_OUT_OF_RESOURCES);
  EFI_GUID loaded_guid = EFI_LOADED_IMAGE_PROTOCOL_GUID;
  EFI_LOADED_IMAGE_PROTOCOL* loaded = nullptr;
  ASSERT_EQ(tarvik::gBS->HandleProtocol(foreign, &loaded_guid, reinterpret_cast<VOID**>(&loaded)), EFI_SUCCESS);
  EXPECT_EQ(loaded->Unload, nullptr);

  // A foreign handle without a loaded image is refused with the lookup's status.
  EFI_HANDLE console = machine->system_table()->ConsoleOutHandle;
  EXPECT_EQ(install(make_record(3, console), console, unload_record<3>), EFI_UNSUPPORTED);
}

TEST_F(ProtocolRegistry, AWithdrawnRecordIsUninstalledAndLeftOutOfTeardown) {
  for (UINT32 n = 1; n <= 3; ++n)
    ASSERT_EQ(install(make_record(n, machine->image_handle()), machine->image_handle(), &unload_record<0>),
              EFI_SUCCESS);
  records[0]->Header.Unload = unload_record<1>;
  records[2]->Header.Unload = unload_record<3>;
  EXPECT_EQ(tarvik::WithdrawProtocol(&records[1]->Header), EFI_SUCCESS);
  EXPECT_FALSE(locatable(2));
  EXPECT_EQ(tarvik::InstalledRecordCount(), 2u);
  EXPECT_TRUE(unloaded.empty()) << "the one who withdraws releases the record";
  common->UninstallAllProtocols(common);
  EXPECT_EQ(unloaded, (std::vector<int>{3, 1}));
}

}  // namespace
