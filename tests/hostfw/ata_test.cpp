// The SATA controller's drives through EFI_ATA_PASS_THRU_PROTOCOL, driven
// the way the application's storage module drives them.
#include "tests/hostfw/ata_bench.h"

namespace {

using namespace ata_bench;

// Port 3: a large rotating drive (48-bit addresses only); port 5: a smaller
// one whose SMART status fails (28-bit addresses reach all of it); port 7:
// a solid-state drive whose SMART is switched off.
const char* kBench =
    "[machine]\nname = Bench\nmemory_mib = 64\n"
    "[system]\nmanufacturer = Korvan\nproduct = Bench\nserial = B1\n"
    "[drive]\nport = 3\nmodel = Korvan HD4000 Disk\nserial = KV4000-77\nfirmware = KF02\n"
    "sectors = 3000000000\nrotation_rpm = 5400\ntemperature_c = 41\npower_on_hours = 12345\n"
    "bad_sectors = 1000, 5000-5003, 300000000\n"
    "[drive]\nport = 5\nmodel = Old Drive\nserial = OLD1\nsectors = 200000000\nrotation_rpm = 7200\n"
    "smart = failing\nbad_sectors = 168965206\n"  // 0x0A123456
    "[drive]\nport = 7\nmodel = Quiet SSD\nserial = Q7\nsectors = 4096\nrotation_rpm = 1\nsmart_enabled = no\n";

class Ata : public ::testing::Test, public Bench {
 protected:
  Ata() : Bench(kBench) {}
  int64_t attribute(UINT16 port, uint8_t id) {
    const Attribute a = Bench::attribute(port, id);
    return a.present ? a.raw : -1;
  }
};

TEST_F(Ata, DrivesAreFoundPortByPortAndIdentified) {
  std::vector<UINT16> ports;
  for (UINT16 port = 0xFFFF; ata->GetNextPort(ata, &port) == EFI_SUCCESS;) {
    ports.push_back(port);
    UINT16 device = 0xFFFF;
    ASSERT_EQ(ata->GetNextDevice(ata, port, &device), EFI_SUCCESS);
    EXPECT_EQ(device, kDirect) << "a drive attached directly has no port-multiplier port";
    EXPECT_EQ(ata->GetNextDevice(ata, port, &device), EFI_NOT_FOUND);
    EXPECT_EQ(byte_sum(identify(port).data), 0) << "the IDENTIFY checksum of port " << port;
  }
  EXPECT_EQ(ports, (std::vector<UINT16>{3, 5, 7}));
  UINT16 port = 5;  // not the port returned last
  EXPECT_EQ(ata->GetNextPort(ata, &port), EFI_INVALID_PARAMETER);
  EXPECT_EQ(identify(4).status, EFI_NOT_FOUND) << "an empty port";

  const Reply big = identify(3);
  EXPECT_EQ(big.text(27, 20), "Korvan HD4000 Disk                      ");
  EXPECT_EQ(big.text(10, 10), "           KV4000-77") << "the serial number is right-aligned";
  EXPECT_EQ(big.dword(60), 0x0FFFFFFFu) << "28-bit capacity is capped";
  EXPECT_EQ(big.dword(100) | uint64_t{big.dword(102)} << 32, 3000000000u);
  EXPECT_EQ(big.word(217), 5400);
  EXPECT_EQ(identify(5).dword(60), 200000000u);
  EXPECT_EQ(identify(7).word(85) & 1, 0) << "SMART switched off";
}

TEST_F(Ata, ReadVerifyReportsTheFirstUnreadableSector) {
  EXPECT_EQ(outcome(verify(3, 990, 100)), "UNC at 3e8");  // 1000
  // Count 0 is 65536 sectors: the last one is the bad sector, or just before it.
  EXPECT_EQ(outcome(verify(3, 300000000 - 65536, 0)), "ok");
  EXPECT_EQ(outcome(verify(3, 300000000 - 65535, 0)), "UNC at 11e1a300");
  EXPECT_EQ(outcome(verify(3, 3000000000u - 1, 2)), "IDNF") << "beyond the end";
  // 28-bit form: count 0 is 256 sectors; LBA bits 24-27 in the device register, Exp registers clear.
  EXPECT_EQ(outcome(verify(5, 0x0A123456 - 256, 0, false)), "ok");
  const Reply r = verify(5, 0x0A123456 - 255, 0, false);
  EXPECT_EQ(outcome(r), "UNC at 123456");
  EXPECT_EQ(r.asb.AtaDeviceHead & 0x0F, 0x0A);
}

TEST_F(Ata, WritingRemapsAndWriteUncorrectableBreaksASector) {
  const int64_t pending = attribute(3, 197);
  EXPECT_EQ(pending, 6);
  EXPECT_EQ(outcome(write(3, 1000)), "ok");
  EXPECT_EQ(outcome(verify(3, 990, 20)), "ok");
  EXPECT_EQ(attribute(3, 5), 1) << "reallocated";
  EXPECT_EQ(attribute(3, 197), pending - 1);
  EXPECT_EQ(outcome(write(3, 2000)), "ok");
  EXPECT_EQ(attribute(3, 5), 1) << "a good sector is not remapped";

  EXPECT_EQ(outcome(write(3, 5001)), "ok");  // the middle of a range
  EXPECT_EQ(outcome(verify(3, 5000, 3)), "UNC at 1388");
  EXPECT_EQ(outcome(verify(3, 5001, 2)), "UNC at 138a");
  EXPECT_EQ(outcome(write(5, 0x0A123456, false)), "ok");
  EXPECT_EQ(outcome(verify(5, 0x0A123456, 1, false)), "ok");

  EXPECT_EQ(outcome(write_uncorrectable(3, 777, 0x55)), "ok");
  EXPECT_EQ(outcome(verify(3, 700, 100)), "UNC at 309");  // 777
  EXPECT_EQ(attribute(3, 197), pending - 1) << "one repaired, one broken";
  EXPECT_EQ(outcome(write_uncorrectable(3, 778, 0x12)), "ABRT") << "an unknown mode";
}

TEST_F(Ata, SmartStatusDataAndThresholds) {
  const auto signature = [](const Reply& r) { return r.asb.AtaCylinderLow | r.asb.AtaCylinderHigh << 8; };
  EXPECT_EQ(signature(smart(3, 0xDA)), 0xC24F);
  const Reply failing = smart(5, 0xDA);
  EXPECT_EQ(outcome(failing), "ok") << "an exceeded threshold is an answer, not an error";
  EXPECT_EQ(signature(failing), 0x2CF4);
  EXPECT_EQ(outcome(send(3, block(0xB0, 0xDA), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA)), "ABRT")
      << "SMART without its signature";

  const Reply data = smart(3, 0xD0);
  EXPECT_EQ(byte_sum(data.data), 0);
  EXPECT_EQ(data.data.at(363), 0x00) << "no self-test has run";
  EXPECT_EQ(attribute(3, 9), 12345) << "power-on hours";
  EXPECT_EQ(byte_sum(smart(5, 0xD1).data), 0) << "thresholds";
}

// Progress on the machine clock, a bad sector ending a test and the LBA in
// the logs are followed end to end by the SMART self-test and targeted-read
// tests; here what those do not show.
TEST_F(Ata, SelfTestsNeedSmartAndAreLogged) {
  // SMART switched off refuses everything but being switched on.
  for (UINT8 feature : {0xD0, 0xDA, 0xD4}) EXPECT_EQ(outcome(smart(7, feature, 0x01)), "ABRT");
  ASSERT_EQ(outcome(smart(7, 0xD8)), "ok");
  EXPECT_EQ(identify(7).word(85) & 1, 1);

  ASSERT_EQ(outcome(smart(7, 0xD4, 0x01)), "ok");
  stall_seconds(self_test_seconds(7, 0x01) + 1);
  EXPECT_EQ(self_test_status(7), 0x00);
  const Reply log = smart(7, 0xD5, 0x06, 1);
  EXPECT_EQ(log.data.at(2), 0x01);  // the subcommand
  EXPECT_EQ(log.data[3], 0x00);     // completed without error
  EXPECT_EQ(log.data[508], 1);      // the newest entry
  EXPECT_EQ(byte_sum(log.data), 0);
  EXPECT_EQ(outcome(smart(7, 0xD9)), "ok");
  EXPECT_EQ(outcome(smart(7, 0xDA)), "ABRT") << "SMART switched off again";
  ASSERT_EQ(outcome(smart(3, 0xD4, 0x50, 4)), "ok") << "the vendor drive self-test";
  EXPECT_EQ(self_test_status(3) >> 4, 0xF);
}

TEST_F(Ata, PassThruRefusesMalformedPacketsAndUnknownCommands) {
  EFI_ATA_STATUS_BLOCK asb{};
  EFI_ATA_COMMAND_BLOCK acb = block(0xEC);
  alignas(8) uint8_t buffer[520] = {};
  EFI_ATA_PASS_THRU_COMMAND_PACKET p{};
  // Sends an IDENTIFY packet after `change` spoils one part of it.
  auto send = [&](auto change, UINT16 device = kDirect) {
    p = {&asb, &acb, 0, buffer, nullptr, 512, 0, EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN,
         EFI_ATA_PASS_THRU_LENGTH_BYTES};
    change();
    return ata->PassThru(ata, 3, device, &p, nullptr);
  };
  EXPECT_EQ(send([&] { p.InDataBuffer = buffer + 1; }), EFI_INVALID_PARAMETER) << "not aligned to IoAlign";
  EXPECT_EQ(send([&] { p.InTransferLength = 256; }), EFI_BAD_BUFFER_SIZE);
  EXPECT_EQ(p.InTransferLength, 512u) << "the length the command needs";
  EXPECT_EQ(send([&] { p.Protocol = EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA; }), EFI_DEVICE_ERROR)
      << "data with nowhere to go";
  EXPECT_EQ(send([] {}, 0), EFI_INVALID_PARAMETER) << "no port multiplier here";
  acb.AtaCommand = 0xA1;  // IDENTIFY PACKET DEVICE: not a packet device
  EXPECT_EQ(outcome({send([] {}), asb, {}}), "ABRT");
  EXPECT_EQ(p.InTransferLength, 0u);
}

}  // namespace
