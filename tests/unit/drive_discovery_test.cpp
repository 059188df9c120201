// Finding drives through the recording pass-through: what the simulator
// cannot show (an unprintable serial, a packet device, more than 100 drives
// behind port multipliers, firmware that publishes no pass-through until
// controllers are connected). Nothing may stay allocated after the release.
// The simulated machine's drives are found, identified and released by every
// storage test's bench, one probe each (StorageModule's failed installation
// counts them), and the bad-sector tool's tests check its list of rotating
// drives.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hostfw/ata_controller.h"
#include "storage/drive_discovery.h"
#include "tests/support/fake_ata_pass_thru.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::AtaReply;
using testing_support::FakeAtaPassThru;
using testing_support::IdentifyPage;
using testing_support::RecordedPacket;
using testing_support::TestMachine;
using namespace tarvik;

constexpr uint8_t kIdentify = 0xEC;

// Answers like a healthy drive whose serial names its port and
// port-multiplier port.
AtaReply healthy_drive(const RecordedPacket& p) {
  AtaReply reply;
  if (p.acb.AtaCommand == kIdentify) {
    reply.data = IdentifyPage::typical("ACME D" + std::to_string(p.port),
                                       "P" + std::to_string(p.port) + "M" + std::to_string(p.multiplier_port))
                     .data();
  }
  return reply;
}

class DriveDiscovery : public ::testing::Test {
 protected:
  // A machine whose own controller has no drives, and the fake beside it.
  void with_fake_only() {
    machine = std::make_unique<TestMachine>("", [](hostfw::Profile& p) { p.drives.clear(); });
    fake.responder = healthy_drive;
    fake.install();
  }
  void expect_nothing_left() {
    ReleaseStorageDevices(&drives);
    EXPECT_EQ(drives.Devices, nullptr);
    EXPECT_EQ(drives.DeviceCount, 0u);
    EXPECT_EQ((*machine)->memory().outstanding_pages(), 0u);
    EXPECT_EQ((*machine)->memory().outstanding_pools(), 0u);
  }
  std::vector<const RecordedPacket*> identify_packets() const {
    std::vector<const RecordedPacket*> found;
    for (const auto& p : fake.packets)
      if (p.acb.AtaCommand == kIdentify) found.push_back(&p);
    return found;
  }

  std::unique_ptr<TestMachine> machine;
  FakeAtaPassThru fake;
  StorageDrives drives{};
};

TEST_F(DriveDiscovery, ProbesSkipUnprintableSerialsAndResetPacketDevices) {
  with_fake_only();
  fake.devices = {{0, 0xFFFF}, {1, 0xFFFF}, {2, 0xFFFF}, {3, 0xFFFF}, {4, 0xFFFF}};
  fake.responder = [](const RecordedPacket& p) {
    AtaReply reply = healthy_drive(p);
    if (p.acb.AtaCommand != kIdentify) return reply;
    if (p.port == 0) reply.data[25] = 0x07;  // a control byte inside the serial number
    if (p.port == 1 || p.port == 3) {
      // A packet device; port 3's firmware reports the error only in the status block.
      reply = AtaReply::error(p.port == 1 ? EFI_DEVICE_ERROR : EFI_SUCCESS, 0x04);
      reply.status_block.AtaCylinderLow = 0x14;
      reply.status_block.AtaCylinderHigh = 0xEB;
    }
    if (p.port == 4) reply = AtaReply::error(EFI_DEVICE_ERROR, 0x04);  // no signature: no reset
    return reply;
  };
  ASSERT_EQ(DiscoverStorageDevices(&drives), EFI_SUCCESS);
  ASSERT_EQ(drives.DeviceCount, 1u);
  EXPECT_EQ(drives.Devices[0].Port, 2);
  EXPECT_EQ(drives.Devices[1].PassThru, nullptr) << "failed probes leave the record free";
  EXPECT_EQ(fake.resets, (std::vector<std::pair<UINT16, UINT16>>{{1, 0xFFFF}, {3, 0xFFFF}}));
  for (const RecordedPacket* p : identify_packets()) EXPECT_EQ(p->timeout, 20000000u) << "2 s";
  EXPECT_EQ((*machine)->memory().outstanding_pages(), 2u) << "status block and data page of the one drive";
  expect_nothing_left();
}

TEST_F(DriveDiscovery, DiscoveryStopsAtTheHundredthDrive) {
  with_fake_only();
  for (UINT16 port = 0; port < 30; ++port)
    for (UINT16 multiplier = 0; multiplier < 4; ++multiplier) fake.devices.emplace_back(port, multiplier);
  ASSERT_EQ(DiscoverStorageDevices(&drives), EFI_SUCCESS);
  EXPECT_EQ(drives.DeviceCount, MaxStorageDevices);
  EXPECT_EQ(identify_packets().size(), MaxStorageDevices) << "the 101st drive is not even probed";
  EXPECT_EQ(drives.Devices[99].Port, 24);
  EXPECT_EQ(drives.Devices[99].PortMultiplierPort, 3);
  ASSERT_EQ(IdentifyAllDevices(&drives), EFI_SUCCESS);
  ASSERT_EQ(BuildToolDeviceList(&drives), EFI_SUCCESS);
  EXPECT_EQ(drives.ToolDeviceCount, 100u);
  expect_nothing_left();
}

// The firmware's ConnectController while a test runs: counts the calls and
// publishes the fake on the first, when asked to.
struct Connecting {
  static inline int calls = 0;
  static inline bool all_recursive = true;
  static inline FakeAtaPassThru* publish = nullptr;
  static EFIAPI EFI_STATUS ConnectController(EFI_HANDLE, EFI_HANDLE*, EFI_DEVICE_PATH_PROTOCOL*, BOOLEAN recursive) {
    ++calls;
    all_recursive = all_recursive && recursive;
    if (publish != nullptr) std::exchange(publish, nullptr)->install();
    return EFI_SUCCESS;
  }
};

// Every controller is connected once, recursively, and the search repeated:
// with nothing published the module says so, else it finds the drive.
TEST_F(DriveDiscovery, WithoutAPassThruControllersAreConnectedOnceAndTheSearchRepeated) {
  machine = std::make_unique<TestMachine>();
  auto& m = **machine;
  const EFI_HANDLE controller = m.ata()->handle();
  m.handles().uninstall(controller, EFI_ATA_PASS_THRU_PROTOCOL_GUID, m.ata()->protocol());
  m.boot_services()->ConnectController = Connecting::ConnectController;
  fake.responder = healthy_drive;
  fake.devices = {{4, 0xFFFF}};
  const int handles_before = static_cast<int>(m.handles().handle_count());
  EXPECT_EQ(DiscoverStorageDevices(&drives), EFI_ABORTED);
  EXPECT_EQ(Connecting::calls, handles_before);
  EXPECT_TRUE(Connecting::all_recursive);
  EXPECT_NE(machine->transcript().find("Protocol AtaPassThrough not found!"), std::string::npos);
  expect_nothing_left();
  Connecting::publish = &fake;
  ASSERT_EQ(DiscoverStorageDevices(&drives), EFI_SUCCESS);
  ASSERT_EQ(drives.DeviceCount, 1u);
  EXPECT_EQ(drives.Devices[0].Port, 4);
  expect_nothing_left();
}

TEST_F(DriveDiscovery, InstancesWithoutDrivesOrOnlyLogicalOnesFindNoDrive) {
  with_fake_only();
  fake.devices = {{0, 0xFFFF}};
  fake.mode.Attributes = EFI_ATA_PASS_THRU_ATTRIBUTES_LOGICAL;
  EXPECT_EQ(DiscoverStorageDevices(&drives), EFI_ABORTED);
  EXPECT_TRUE(fake.packets.empty()) << "a logical instance is not enumerated";
  EXPECT_NE(machine->transcript().find("Ata Device not found!"), std::string::npos);
  expect_nothing_left();
}

}  // namespace
