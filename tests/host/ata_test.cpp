// The SATA controller's drives through EFI_ATA_PASS_THRU_PROTOCOL, driven
// the way the application's storage module drives them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "hostfw/ata.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::TestMachine;

const EFI_GUID kAtaGuid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
constexpr UINT16 kDirect = 0xFFFF;

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

struct Reply {
  EFI_STATUS status = EFI_SUCCESS;
  EFI_ATA_STATUS_BLOCK asb{};
  std::vector<uint8_t> data;
  UINT32 in_length = 0;

  uint64_t lba48() const {
    return asb.AtaSectorNumber | asb.AtaCylinderLow << 8 | asb.AtaCylinderHigh << 16 |
           uint64_t{asb.AtaSectorNumberExp} << 24 | uint64_t{asb.AtaCylinderLowExp} << 32 |
           uint64_t{asb.AtaCylinderHighExp} << 40;
  }
  uint16_t word(int i) const { return static_cast<uint16_t>(data.at(2 * i) | data.at(2 * i + 1) << 8); }
  // An ATA string of IDENTIFY data: the first character of a word in its high byte.
  std::string text(int first_word, int words) const {
    std::string out;
    for (int i = 0; i < words; ++i) out += {char(word(first_word + i) >> 8), char(word(first_word + i) & 0xFF)};
    return out;
  }
};

class Bench {
 public:
  explicit Bench(hostfw::Profile* profile = nullptr) : machine_("", profile) {
    void* found = nullptr;
    EXPECT_EQ(machine_->boot_services()->LocateProtocol(const_cast<EFI_GUID*>(&kAtaGuid), nullptr, &found),
              EFI_SUCCESS);
    ata = static_cast<EFI_ATA_PASS_THRU_PROTOCOL*>(found);
  }

  // One command as the storage module builds it; the data buffer is a whole page.
  Reply send(UINT16 port, EFI_ATA_COMMAND_BLOCK acb, UINT8 protocol, UINT32 in_bytes = 0, UINT32 out_bytes = 0) {
    Reply r;
    std::vector<uint8_t> out(out_bytes, 0x5A);
    r.data.assign(in_bytes, 0);
    EFI_ATA_PASS_THRU_COMMAND_PACKET p{&r.asb, &acb, 100000000, in_bytes ? r.data.data() : nullptr,
                                       out_bytes ? out.data() : nullptr, in_bytes, out_bytes, protocol,
                                       static_cast<UINT8>(in_bytes || out_bytes ? EFI_ATA_PASS_THRU_LENGTH_BYTES
                                                                                : EFI_ATA_PASS_THRU_LENGTH_SECTOR_COUNT)};
    r.status = ata->PassThru(ata, port, kDirect, &p, nullptr);
    r.in_length = p.InTransferLength;
    return r;
  }

  Reply identify(UINT16 port) { return send(port, block(0xEC), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512); }

  // A command whose LBA registers hold `lba`; the device register is 0xE0 | (port-multiplier port
  // 0xFFFF & 1) << 4, with LBA bits 24-27 in the 28-bit form.
  static EFI_ATA_COMMAND_BLOCK block(UINT8 command, UINT8 features = 0, uint64_t lba = 0, uint32_t count = 0,
                                     bool ext = false) {
    EFI_ATA_COMMAND_BLOCK c{};
    c.AtaCommand = command;
    c.AtaFeatures = features;
    c.AtaDeviceHead = static_cast<UINT8>(0xF0 | (ext ? 0 : (lba >> 24) & 0x0F));
    c.AtaSectorNumber = static_cast<UINT8>(lba);
    c.AtaCylinderLow = static_cast<UINT8>(lba >> 8);
    c.AtaCylinderHigh = static_cast<UINT8>(lba >> 16);
    c.AtaSectorCount = static_cast<UINT8>(count);
    if (ext) {
      c.AtaSectorNumberExp = static_cast<UINT8>(lba >> 24);
      c.AtaCylinderLowExp = static_cast<UINT8>(lba >> 32);
      c.AtaCylinderHighExp = static_cast<UINT8>(lba >> 40);
      c.AtaSectorCountExp = static_cast<UINT8>(count >> 8);
    }
    return c;
  }
  Reply verify(UINT16 port, uint64_t lba, uint32_t count, bool ext = true) {
    return send(port, block(ext ? 0x42 : 0x40, 0, lba, count, ext), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA);
  }
  Reply write(UINT16 port, uint64_t lba, bool ext = true) {
    return send(port, block(ext ? 0x34 : 0x30, 0, lba, 1, ext), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_OUT, 0, 512);
  }
  Reply write_uncorrectable(UINT16 port, uint64_t lba, UINT8 mode = 0x55) {
    return send(port, block(0x45, mode, lba, 1, true), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA);
  }

  Reply smart(UINT16 port, UINT8 feature, UINT8 sector_number = 0, UINT8 count = 0) {
    // The signature 0xC24F rides in the cylinder registers.
    const EFI_ATA_COMMAND_BLOCK c = block(0xB0, feature, sector_number | 0xC24F00u, count);
    const bool data_in = feature == 0xD0 || feature == 0xD1 || feature == 0xD5;
    return send(port, c, data_in ? EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN : EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA,
                data_in ? 512 * (feature == 0xD5 ? count : 1) : 0);
  }
  Reply read_log_ext(UINT16 port, UINT8 address) {
    return send(port, block(0x2F, 0, address, 1), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512);
  }

  // The raw value of a SMART attribute, or -1 without it; value and worst too.
  int64_t attribute(UINT16 port, uint8_t id, uint8_t* value = nullptr) {
    const Reply r = smart(port, 0xD0);
    EXPECT_EQ(r.status, EFI_SUCCESS);
    for (int e = 0; e < 30; ++e) {
      const uint8_t* a = r.data.data() + 2 + 12 * e;
      if (a[0] != id) continue;
      if (value) *value = a[3];
      int64_t raw = 0;
      for (int i = 5; i >= 0; --i) raw = raw << 8 | a[5 + i];
      return raw;
    }
    return -1;
  }
  uint8_t self_test_status(UINT16 port) { return smart(port, 0xD0).data.at(363); }
  void stall_seconds(uint64_t s) { machine_->boot_services()->Stall(s * 1000000); }

  hostfw::Machine& machine() { return *machine_; }
  EFI_ATA_PASS_THRU_PROTOCOL* ata = nullptr;

 private:
  TestMachine machine_;
};

hostfw::Profile bench_profile() { return hostfw::parse_profile(kBench, "bench.ini", "/tmp"); }

uint8_t byte_sum(const std::vector<uint8_t>& page) {
  uint8_t sum = 0;
  for (uint8_t b : page) sum = static_cast<uint8_t>(sum + b);
  return sum;
}

TEST(AtaEnumeration, DefaultMachineDrivesAreFoundPortByPortWithoutMultipliers) {
  Bench bench;
  EFI_ATA_PASS_THRU_PROTOCOL* ata = bench.ata;
  EXPECT_EQ(ata->Mode->Attributes & EFI_ATA_PASS_THRU_ATTRIBUTES_PHYSICAL, 1u);
  std::vector<UINT16> ports;
  UINT16 port = 0xFFFF;
  while (ata->GetNextPort(ata, &port) == EFI_SUCCESS) {
    ports.push_back(port);
    UINT16 device = 0xFFFF;
    ASSERT_EQ(ata->GetNextDevice(ata, port, &device), EFI_SUCCESS);
    EXPECT_EQ(device, kDirect) << "a drive attached directly has no port-multiplier port";
    EXPECT_EQ(ata->GetNextDevice(ata, port, &device), EFI_NOT_FOUND);
    ASSERT_EQ(bench.identify(port).status, EFI_SUCCESS);
  }
  EXPECT_EQ(ports, (std::vector<UINT16>{0, 1, 2}));
  port = 1;  // not the port returned last
  EXPECT_EQ(ata->GetNextPort(ata, &port), EFI_INVALID_PARAMETER);

  EFI_DEVICE_PATH_PROTOCOL* node = nullptr;
  ASSERT_EQ(ata->BuildDevicePath(ata, 2, kDirect, &node), EFI_SUCCESS);
  UINT16 found_port = 0, found_device = 0;
  EXPECT_EQ(ata->GetDevice(ata, node, &found_port, &found_device), EFI_SUCCESS);
  EXPECT_EQ(found_port, 2) << "a device path leads back to its port";
  bench.machine().boot_services()->FreePool(node);
  EXPECT_EQ(ata->BuildDevicePath(ata, 9, kDirect, &node), EFI_NOT_FOUND);
  EXPECT_EQ(bench.identify(9).status, EFI_NOT_FOUND) << "an empty port";
  EXPECT_EQ(ata->ResetDevice(ata, 9, kDirect), EFI_NOT_FOUND);
}

TEST(AtaIdentify, StringsCapacityFeaturesAndChecksum) {
  hostfw::Profile profile = bench_profile();
  Bench bench(&profile);
  const Reply big = bench.identify(3);
  ASSERT_EQ(big.status, EFI_SUCCESS);
  EXPECT_EQ(big.in_length, 512u);
  EXPECT_EQ(big.text(27, 20), "Korvan HD4000 Disk                      ");
  EXPECT_EQ(big.text(10, 10), "           KV4000-77") << "the serial number is right-aligned";
  EXPECT_EQ(big.word(60) | big.word(61) << 16, 0x0FFFFFFF) << "28-bit capacity is capped";
  uint64_t sectors = 0;
  for (int i = 3; i >= 0; --i) sectors = sectors << 16 | big.word(100 + i);
  EXPECT_EQ(sectors, 3000000000u);
  EXPECT_EQ(big.word(217), 5400);
  EXPECT_EQ(big.word(85) & 1, 1) << "SMART enabled";
  EXPECT_EQ(byte_sum(big.data), 0);

  EXPECT_EQ(bench.identify(5).word(60) | bench.identify(5).word(61) << 16, 200000000);
  const Reply ssd = bench.identify(7);
  EXPECT_EQ(ssd.word(85) & 1, 0) << "SMART switched off";
  EXPECT_EQ(byte_sum(ssd.data), 0);
}

TEST(AtaReadVerify, UnreadableSectorReportsUncAndTheFirstBadLba) {
  hostfw::Profile profile = bench_profile();
  Bench bench(&profile);
  EXPECT_EQ(bench.verify(3, 0, 1000).status, EFI_SUCCESS);
  Reply r = bench.verify(3, 990, 100);
  EXPECT_EQ(r.status, EFI_DEVICE_ERROR);
  EXPECT_EQ(r.asb.AtaStatus, 0x51);
  EXPECT_EQ(r.asb.AtaError & 0x40, 0x40);
  EXPECT_EQ(r.lba48(), 1000u);
  EXPECT_EQ(bench.verify(3, 5002, 1).lba48(), 5002u) << "inside a bad range";

  // Count 0 is 65536 sectors: the last one is the bad sector, or just before it.
  EXPECT_EQ(bench.verify(3, 300000000 - 65536, 0).status, EFI_SUCCESS);
  EXPECT_EQ(bench.verify(3, 300000000 - 65535, 0).lba48(), 300000000u);

  // 28-bit form: LBA bits 24-27 in the device register, Exp registers clear.
  const uint64_t bad = 0x0A123456;
  EXPECT_EQ(bench.verify(5, bad - 256, 0, false).status, EFI_SUCCESS) << "count 0 is 256 sectors";
  r = bench.verify(5, bad - 255, 0, false);
  ASSERT_EQ(r.status, EFI_DEVICE_ERROR);
  EXPECT_EQ(r.asb.AtaError & 0x40, 0x40);
  EXPECT_EQ(r.asb.AtaDeviceHead & 0x0F, 0x0A);
  EXPECT_EQ(r.lba48(), 0x123456u) << "Exp registers clear";

  r = bench.verify(3, 3000000000u - 1, 2);
  EXPECT_EQ(r.status, EFI_DEVICE_ERROR);
  EXPECT_EQ(r.asb.AtaError, 0x10) << "beyond the end: ID not found, not UNC";
}

TEST(AtaRepair, WritingRemapsAndWriteUncorrectableBreaksASector) {
  hostfw::Profile profile = bench_profile();
  Bench bench(&profile);
  const int64_t pending = bench.attribute(3, 197);
  EXPECT_EQ(pending, 6);
  EXPECT_EQ(bench.attribute(3, 5), 0);

  ASSERT_EQ(bench.write(3, 1000).status, EFI_SUCCESS);
  EXPECT_EQ(bench.verify(3, 990, 20).status, EFI_SUCCESS);
  EXPECT_EQ(bench.attribute(3, 5), 1);
  EXPECT_EQ(bench.attribute(3, 197), pending - 1);
  ASSERT_EQ(bench.write(3, 2000).status, EFI_SUCCESS);
  EXPECT_EQ(bench.attribute(3, 5), 1) << "a good sector is not remapped";

  ASSERT_EQ(bench.write(3, 5001).status, EFI_SUCCESS);  // the middle of a range
  EXPECT_EQ(bench.verify(3, 5000, 1).status, EFI_DEVICE_ERROR);
  EXPECT_EQ(bench.verify(3, 5002, 2).lba48(), 5002u);
  ASSERT_EQ(bench.write(5, 0x0A123456, false).status, EFI_SUCCESS);
  EXPECT_EQ(bench.verify(5, 0x0A123456, 1, false).status, EFI_SUCCESS);

  ASSERT_EQ(bench.write_uncorrectable(3, 777).status, EFI_SUCCESS);
  const Reply r = bench.verify(3, 700, 100);
  EXPECT_EQ(r.asb.AtaError & 0x40, 0x40);
  EXPECT_EQ(r.lba48(), 777u);
  EXPECT_EQ(bench.attribute(3, 197), pending - 1);  // one repaired, one broken
  EXPECT_EQ(bench.write_uncorrectable(3, 778, 0x12).asb.AtaError, 0x04) << "an unknown mode";
}

TEST(AtaSmart, StatusDataAndThresholds) {
  hostfw::Profile profile = bench_profile();
  Bench bench(&profile);
  Reply r = bench.smart(3, 0xDA);
  EXPECT_EQ(r.status, EFI_SUCCESS);
  EXPECT_EQ(r.asb.AtaCylinderLow | r.asb.AtaCylinderHigh << 8, 0xC24F);
  r = bench.smart(5, 0xDA);
  EXPECT_EQ(r.status, EFI_SUCCESS) << "an exceeded threshold is an answer, not an error";
  EXPECT_EQ(r.asb.AtaCylinderLow | r.asb.AtaCylinderHigh << 8, 0x2CF4);

  const Reply data = bench.smart(3, 0xD0);
  ASSERT_EQ(data.status, EFI_SUCCESS);
  EXPECT_EQ(byte_sum(data.data), 0);
  EXPECT_EQ(bench.attribute(3, 194), 41 | int64_t{26} << 16 | int64_t{51} << 32);
  EXPECT_EQ(bench.attribute(3, 9), 12345);
  EXPECT_EQ(data.data[363], 0x00) << "no self-test has run";

  const Reply thresholds = bench.smart(5, 0xD1);
  EXPECT_EQ(byte_sum(thresholds.data), 0);
  uint8_t threshold = 0, value = 0;
  for (int e = 0; e < 30; ++e)
    if (thresholds.data[2 + 12 * e] == 5) threshold = thresholds.data[3 + 12 * e];
  bench.attribute(5, 5, &value);
  EXPECT_GT(threshold, 0);
  EXPECT_LE(value * 100, threshold * 125) << "the failing drive is short of spare sectors";
  bench.attribute(3, 5, &value);
  EXPECT_GT(value * 100, threshold * 125);

  EXPECT_EQ(bench.send(3, Bench::block(0xB0, 0xDA), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA).asb.AtaError, 0x04)
      << "SMART without its signature";
}

TEST(AtaSelfTest, ShortTestNeedsSmartProgressesWithMachineTimeAndIsLogged) {
  hostfw::Profile profile = bench_profile();
  Bench bench(&profile);
  const uint64_t seconds = bench.machine().ata()->self_test_duration_ns(7, 0x01) / 1000000000;
  ASSERT_GT(seconds, 10u);
  // SMART switched off refuses everything but being switched on.
  for (UINT8 feature : {0xD0, 0xDA, 0xD4}) {
    const Reply r = bench.smart(7, feature, 0x01);
    EXPECT_EQ(r.status, EFI_DEVICE_ERROR) << std::hex << int(feature);
    EXPECT_EQ(r.asb.AtaError, 0x04);
  }
  ASSERT_EQ(bench.smart(7, 0xD8).status, EFI_SUCCESS);
  EXPECT_EQ(bench.identify(7).word(85) & 1, 1);
  ASSERT_EQ(bench.smart(7, 0xD4, 0x01).status, EFI_SUCCESS);
  EXPECT_EQ(bench.self_test_status(7), 0xF9);
  bench.stall_seconds(seconds / 2);
  const uint8_t halfway = bench.self_test_status(7);
  EXPECT_EQ(halfway >> 4, 0xF);
  EXPECT_LT(halfway & 0xF, 9);
  bench.stall_seconds(seconds / 2 - 1);
  EXPECT_EQ(bench.self_test_status(7), 0xF1);
  bench.stall_seconds(2);
  EXPECT_EQ(bench.self_test_status(7), 0x00);

  EXPECT_EQ(bench.smart(7, 0xD5, 0x00, 1).word(0x06), 1) << "one page of the self-test log";
  const Reply log = bench.smart(7, 0xD5, 0x06, 1);
  ASSERT_EQ(log.status, EFI_SUCCESS);
  EXPECT_EQ(log.data[2], 0x01);  // the subcommand
  EXPECT_EQ(log.data[3], 0x00);  // completed without error
  EXPECT_EQ(log.data[508], 1);   // the newest entry
  EXPECT_EQ(byte_sum(log.data), 0);
  const Reply ext = bench.read_log_ext(7, 0x07);
  ASSERT_EQ(ext.status, EFI_SUCCESS);
  EXPECT_EQ(ext.data[4], 0x01);
  EXPECT_EQ(bench.read_log_ext(7, 0x00).word(0x07), 1);
  ASSERT_EQ(bench.smart(7, 0xD9).status, EFI_SUCCESS);
  EXPECT_EQ(bench.smart(7, 0xDA).status, EFI_DEVICE_ERROR);
}

TEST(AtaSelfTest, ReadFailureEndsEarlyWithTheFailingLbaAndAbortIsLogged) {
  hostfw::Profile profile = bench_profile();
  Bench bench(&profile);
  const uint64_t seconds = bench.machine().ata()->self_test_duration_ns(3, 0x02) / 1000000000;
  ASSERT_EQ(bench.smart(3, 0xD4, 0x02).status, EFI_SUCCESS);
  bench.stall_seconds(seconds / 10);  // the first bad sector lies near the start
  EXPECT_EQ(bench.self_test_status(3), 0x79) << "read failure, with nearly all the work left";

  ASSERT_EQ(bench.smart(3, 0xD4, 0x01).status, EFI_SUCCESS);
  bench.stall_seconds(10);
  ASSERT_EQ(bench.smart(3, 0xD4, 0x7F).status, EFI_SUCCESS);
  EXPECT_EQ(bench.self_test_status(3) >> 4, 0x1) << "aborted by the host";

  const Reply log = bench.smart(3, 0xD5, 0x06, 1);
  EXPECT_EQ(log.data[508], 2);
  EXPECT_EQ(log.data[2 + 1] >> 4, 0x7);
  EXPECT_EQ(log.data[2 + 5] | log.data[2 + 6] << 8, 1000) << "28-bit LBA of the first failure";
  EXPECT_EQ(log.data[2 + 24] | log.data[2 + 24 + 1] << 8, 0x01 | 0x19 << 8);
  EXPECT_EQ(bench.read_log_ext(3, 0x07).data[9] | bench.read_log_ext(3, 0x07).data[10] << 8, 1000);
  EXPECT_EQ(bench.smart(3, 0xD4, 0x50, 4).asb.AtaError, 0x04) << "no vendor self-test";
}

TEST(AtaPassThru, RefusesMalformedPacketsAndUnknownCommands) {
  Bench bench;
  EFI_ATA_PASS_THRU_PROTOCOL* ata = bench.ata;
  EFI_ATA_STATUS_BLOCK asb{};
  EFI_ATA_COMMAND_BLOCK acb{};
  acb.AtaCommand = 0xEC;
  alignas(8) uint8_t buffer[520] = {};
  EFI_ATA_PASS_THRU_COMMAND_PACKET p{};
  // Sends an IDENTIFY packet after `change` spoils one part of it.
  auto send = [&](auto change, UINT16 device = kDirect) {
    p = {&asb, &acb, 0, buffer, nullptr, 512, 0, EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN,
         EFI_ATA_PASS_THRU_LENGTH_BYTES};
    change();
    return ata->PassThru(ata, 0, device, &p, nullptr);
  };
  EXPECT_EQ(ata->PassThru(ata, 0, kDirect, nullptr, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ(send([&] { p.Acb = nullptr; }), EFI_INVALID_PARAMETER);
  EXPECT_EQ(send([&] { p.Asb = nullptr; }), EFI_INVALID_PARAMETER);
  EXPECT_EQ(send([&] { p.InDataBuffer = nullptr; }), EFI_INVALID_PARAMETER);
  EXPECT_EQ(send([&] { p.InDataBuffer = buffer + 1; }), EFI_INVALID_PARAMETER) << "not aligned to IoAlign";
  EXPECT_EQ(send([&] { p.InTransferLength = 256; }), EFI_BAD_BUFFER_SIZE);
  EXPECT_EQ(p.InTransferLength, 512u);
  EXPECT_EQ(send([&] { p.Protocol = EFI_ATA_PASS_THRU_PROTOCOL_FPDMA; }), EFI_UNSUPPORTED);
  EXPECT_EQ(send([&] { p.Protocol = EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA; }), EFI_DEVICE_ERROR)
      << "data with nowhere to go";
  EXPECT_EQ(send([] {}, 0), EFI_NOT_FOUND) << "no port multiplier here";
  EXPECT_EQ(send([] {}), EFI_SUCCESS);

  acb.AtaCommand = 0xA1;  // IDENTIFY PACKET DEVICE: not a packet device
  EXPECT_EQ(send([] {}), EFI_DEVICE_ERROR);
  EXPECT_EQ(asb.AtaStatus, 0x51);
  EXPECT_EQ(asb.AtaError, 0x04);
  EXPECT_EQ(p.InTransferLength, 0u);
}

}  // namespace
