#include "core/start_image.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

std::string g_started_with;  // the file-path node's name seen by the started image
EFI_STATUS g_image_result = EFI_SUCCESS;

EFIAPI EFI_STATUS ToolEntry(EFI_HANDLE image, EFI_SYSTEM_TABLE* st) {
  EFI_GUID guid = EFI_LOADED_IMAGE_PROTOCOL_GUID;
  EFI_LOADED_IMAGE_PROTOCOL* loaded = nullptr;
  if (st->BootServices->HandleProtocol(image, &guid, reinterpret_cast<VOID**>(&loaded)) != EFI_SUCCESS)
    return EFI_DEVICE_ERROR;
  // Walk to the media file-path node and read the name it holds.
  for (const EFI_DEVICE_PATH_PROTOCOL* node = loaded->FilePath; !IsDevicePathEnd(node);
       node = NextDevicePathNode(node)) {
    if (node->Type == MEDIA_DEVICE_PATH && node->SubType == MEDIA_FILEPATH_DP) {
      auto* name = reinterpret_cast<const CHAR16*>(node + 1);
      g_started_with = testing_support::utf8(name);
      EXPECT_EQ(DevicePathNodeLength(node), 4 + (g_started_with.size() + 1) * 2);
    }
  }
  return g_image_result;
}

class StartImage : public ::testing::Test {
 protected:
  void SetUp() override {
    g_started_with.clear();
    g_image_result = EFI_SUCCESS;
    const std::string boot = machine->profile().volumes.at(0).directory;
    std::ofstream(boot + "/tool.efi") << "MZ";
    std::ofstream(boot + "/other.efi") << "MZ";
    machine->images().register_file("TOOL.EFI", ToolEntry);
  }
  TestMachine machine;
};

TEST_F(StartImage, StartsAnImageFromTheApplicationsOwnVolumeAndReportsEveryFailureAsAborted) {
  EXPECT_EQ(tarvik::StartImageFromFile(machine->image_handle(), u"\\tool.efi"), EFI_SUCCESS);
  EXPECT_EQ(g_started_with, "\\tool.efi");

  EXPECT_EQ(tarvik::StartImageFromFile(machine->image_handle(), u"\\missing.efi"), EFI_ABORTED);
  EXPECT_EQ(tarvik::StartImageFromFile(machine->image_handle(), u"\\other.efi"), EFI_ABORTED)
      << "a file the machine cannot run";
  g_image_result = EFI_DEVICE_ERROR;  // the image runs, and its failure is reported as aborted
  g_started_with.clear();
  EXPECT_EQ(tarvik::StartImageFromFile(machine->image_handle(), u"\\tool.efi"), EFI_ABORTED);
  EXPECT_EQ(g_started_with, "\\tool.efi");
  EXPECT_EQ(tarvik::StartImageFromFile(machine->image_handle(), nullptr), EFI_ABORTED);
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u) << "each device path is freed";
}

}  // namespace
