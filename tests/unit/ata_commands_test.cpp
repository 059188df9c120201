// The ATA command layer against a recording pass-through: the registers,
// protocol, length, timeout and buffers of every command, how results are
// mapped (Groups A and B, SMART READ LOG, errors only in the status block),
// LastPacket, and the I/O pages aligned to IoAlign.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "storage/ata_commands.h"
#include "storage/io_pages.h"
#include "tests/support/fake_ata_pass_thru.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::AtaReply;
using testing_support::FakeAtaPassThru;
using testing_support::RecordedPacket;
using testing_support::TestMachine;
using namespace tarvik;

class AtaCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    pages_before = machine->memory().outstanding_pages();
    device.PassThru = fake.protocol();
    device.Port = 3;
    device.PortMultiplierPort = 0;
    device.CommandPacket = &packet;
    device.Info = &info;
    device.StatusBlock = static_cast<EFI_ATA_STATUS_BLOCK*>(AllocateIoPages(&device, sizeof(EFI_ATA_STATUS_BLOCK)));
    device.DataBuffer = AllocateIoPages(&device, 512);
    device.LogBuffer = AllocateIoPages(&device, 4096);
  }
  void TearDown() override {
    FreeIoPages(device.StatusBlock, sizeof(EFI_ATA_STATUS_BLOCK));
    FreeIoPages(device.DataBuffer, 512);
    FreeIoPages(device.LogBuffer, 4096);
    EXPECT_EQ(machine->memory().outstanding_pages(), pages_before);
  }

  TestMachine machine;
  uint64_t pages_before = 0;
  FakeAtaPassThru fake;
  EFI_ATA_PASS_THRU_COMMAND_PACKET packet{};
  StorageDeviceInfo info{};
  StorageDevice device{};
};

// The registers one command is expected to carry; all others zero.
struct Registers {
  uint8_t command, features = 0, sector_number = 0, cylinder_low = 0, cylinder_high = 0, device = 0;
  uint8_t sector_number_exp = 0, cylinder_low_exp = 0, cylinder_high_exp = 0, count = 0, count_exp = 0;
  bool operator==(const Registers&) const = default;
};

struct EncodingCase {
  std::string name;
  bool lba48;
  uint16_t multiplier_port;
  std::function<UINT64(StorageDevice*)> send;
  Registers registers;
  uint8_t protocol, length;
  uint64_t timeout;
  uint32_t in_bytes, out_bytes;
};

TEST_F(AtaCommands, EveryCommandCarriesItsRegistersProtocolLengthTimeoutAndBuffers) {
  alignas(8) static uint8_t sector[512];
  const uint64_t s10 = 100000000;
  const std::vector<EncodingCase> cases = {
      {"identify uses the given port and leaves the device register alone", true, 0,
       [](StorageDevice* d) { return AtaIdentifyDevice(d, 7, 0xFFFF, 2); }, {0xEC}, 0x04, 0x80, 20000000, 512, 0},
      {"48-bit read verify of 65536 sectors sends count 0", true, 0,
       [](StorageDevice* d) { return AtaReadVerify(d, 0x123456789ABCull, 65536); },
       {0x42, 0, 0xBC, 0x9A, 0x78, 0xE0, 0x56, 0x34, 0x12, 0, 0}, 0x02, 0x20, s10, 0, 0},
      {"48-bit count bits 8-15 go to the Exp register", true, 0,
       [](StorageDevice* d) { return AtaReadVerify(d, 5, 0x1234); },
       {0x42, 0, 5, 0, 0, 0xE0, 0, 0, 0, 0x34, 0x12}, 0x02, 0x20, s10, 0, 0},
      {"28-bit read verify puts LBA bits 24-27 in the device register", false, 0,
       [](StorageDevice* d) { return AtaReadVerify(d, 0x0A123456, 8); },
       {0x40, 0, 0x56, 0x34, 0x12, 0xEA, 0, 0, 0, 8, 0}, 0x02, 0x20, s10, 0, 0},
      {"28-bit count 256 is sent as 0", false, 0, [](StorageDevice* d) { return AtaReadVerify(d, 0, 256); },
       {0x40, 0, 0, 0, 0, 0xE0}, 0x02, 0x20, s10, 0, 0},
      {"port-multiplier port 1 with a 28-bit LBA", false, 1, [](StorageDevice* d) { return AtaReadVerify(d, 0x03000000, 1); },
       {0x40, 0, 0, 0, 0, 0xF3, 0, 0, 0, 1}, 0x02, 0x20, s10, 0, 0},
      {"48-bit write of one sector", true, 0, [](StorageDevice* d) { return AtaWriteSector(d, 0x100000000ull, sector, 512); },
       {0x34, 0, 0, 0, 0, 0xE0, 0, 1, 0, 1}, 0x05, 0x80, s10, 0, 512},
      {"28-bit write of one sector", false, 0, [](StorageDevice* d) { return AtaWriteSector(d, 0x01020304, sector, 512); },
       {0x30, 0, 0x04, 0x03, 0x02, 0xE1, 0, 0, 0, 1}, 0x05, 0x80, s10, 0, 512},
      {"write uncorrectable is always 48-bit", false, 0, [](StorageDevice* d) { return AtaWriteUncorrectable(d, 0x0A000001); },
       {0x45, 0x55, 0x01, 0, 0, 0xE0, 0x0A, 0, 0, 1}, 0x02, 0x20, s10, 0, 0},
      {"read log ext", true, 0, [](StorageDevice* d) { return AtaReadLogExt(d, 0x07, 0x0102); },
       {0x2F, 0, 0x07, 0, 0, 0xE0, 0, 0, 0, 0x02, 0x01}, 0x04, 0x8F, s10, 0x0102 * 512, 0},
      {"smart read data", true, 0, [](StorageDevice* d) { return SmartReadData(d); },
       {0xB0, 0xD0, 0, 0x4F, 0xC2, 0xE0}, 0x04, 0x80, 400000000, 512, 0},
      {"smart read thresholds", true, 0, [](StorageDevice* d) { return SmartReadThresholds(d); },
       {0xB0, 0xD1, 0, 0x4F, 0xC2, 0xE0}, 0x04, 0x8F, s10, 512, 0},
      {"smart enable", true, 0, [](StorageDevice* d) { return SmartEnableOperations(d); },
       {0xB0, 0xD8, 0, 0x4F, 0xC2, 0xE0}, 0x02, 0x00, s10, 0, 0},
      {"smart disable", true, 0, [](StorageDevice* d) { return SmartDisableOperations(d); },
       {0xB0, 0xD9, 0, 0x4F, 0xC2, 0xE0}, 0x02, 0x00, s10, 0, 0},
      {"smart return status", true, 0xFFFF, [](StorageDevice* d) { return SmartReturnStatus(d); },
       {0xB0, 0xDA, 0, 0x4F, 0xC2, 0xF0}, 0x02, 0x00, s10, 0, 0},
      {"smart execute off-line", true, 0, [](StorageDevice* d) { return SmartExecuteOffline(d, 0x50, 4); },
       {0xB0, 0xD4, 0x50, 0x4F, 0xC2, 0xE0, 0, 0, 0, 4}, 0x02, 0x00, s10, 0, 0},
      {"smart read log", true, 0, [](StorageDevice* d) { return SmartReadLog(d, 0x06, 3); },
       {0xB0, 0xD5, 0x06, 0x4F, 0xC2, 0xE0, 0, 0, 0, 3}, 0x04, 0x8F, s10, 3 * 512, 0},
  };
  for (const EncodingCase& c : cases) {
    SCOPED_TRACE(c.name);
    fake.packets.clear();
    info.Lba48 = c.lba48;
    device.PortMultiplierPort = c.multiplier_port;
    EXPECT_EQ(c.send(&device), EFI_SUCCESS);
    ASSERT_EQ(fake.packets.size(), 1u);
    const RecordedPacket& p = fake.packets[0];
    const EFI_ATA_COMMAND_BLOCK& a = p.acb;
    const Registers sent{a.AtaCommand,         a.AtaFeatures,       a.AtaSectorNumber,   a.AtaCylinderLow,
                         a.AtaCylinderHigh,    a.AtaDeviceHead,     a.AtaSectorNumberExp, a.AtaCylinderLowExp,
                         a.AtaCylinderHighExp, a.AtaSectorCount,    a.AtaSectorCountExp};
    EXPECT_EQ(sent, c.registers);
    EXPECT_EQ(a.AtaFeaturesExp, 0);
    EXPECT_EQ(p.protocol, c.protocol);
    EXPECT_EQ(p.length, c.length);
    EXPECT_EQ(p.timeout, c.timeout);
    EXPECT_EQ(p.in_length, c.in_bytes);
    EXPECT_EQ(p.out_length, c.out_bytes);
    EXPECT_EQ(p.in_buffer, c.in_bytes == 0 ? nullptr : c.in_bytes == 512 ? device.DataBuffer : device.LogBuffer);
    EXPECT_EQ(p.out_buffer, c.out_bytes == 0 ? nullptr : sector);
    EXPECT_EQ(p.asb, device.StatusBlock);
    EXPECT_FALSE(p.event);
    EXPECT_EQ(p.port, a.AtaCommand == 0xEC ? 7 : 3);
    EXPECT_EQ(p.multiplier_port, a.AtaCommand == 0xEC ? 0xFFFF : c.multiplier_port);
  }
}

TEST_F(AtaCommands, RangesTheCommandFormCannotAddressAreRefusedWithoutACommand) {
  info.Lba48 = 0;
  EXPECT_EQ(AtaReadVerify(&device, 0x0FFFFFFF, 2), EFI_INVALID_PARAMETER) << "runs past the last 28-bit LBA";
  EXPECT_EQ(AtaReadVerify(&device, 0, 257), EFI_INVALID_PARAMETER);
  EXPECT_EQ(AtaWriteSector(&device, 0x10000000, device.DataBuffer, 512), EFI_INVALID_PARAMETER);
  info.Lba48 = 1;
  EXPECT_EQ(AtaReadVerify(&device, 0, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ(AtaReadVerify(&device, 0, 65537), EFI_INVALID_PARAMETER);
  EXPECT_EQ(AtaReadVerify(&device, 0xFFFFFFFFFFFFull, 2), EFI_INVALID_PARAMETER) << "past the last 48-bit LBA";
  EXPECT_EQ(AtaReadVerify(&device, ~0ull, 2), EFI_INVALID_PARAMETER);
  EXPECT_EQ(AtaWriteUncorrectable(&device, 1ull << 48), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(fake.packets.empty());
  EXPECT_EQ(AtaReadVerify(&device, 0x0FFFFFFF, 2), EFI_SUCCESS);
}

struct ResultCase {
  std::string name;
  std::function<UINT64(StorageDevice*)> send;
  AtaReply reply;
  UINT64 result;
  bool sets_last_packet;
};

// What PassThru returns, and the status and error registers it leaves.
AtaReply answer(EFI_STATUS status, uint8_t ata_status = 0, uint8_t error = 0) {
  AtaReply reply;
  reply.status = status;
  reply.status_block.AtaStatus = ata_status;
  reply.status_block.AtaError = error;
  return reply;
}

TEST_F(AtaCommands, ResultsFollowTheCommandsGroupAndAnErrorInTheStatusBlockAlwaysFails) {
  auto verify = [](StorageDevice* d) { return AtaReadVerify(d, 10, 1); };
  auto smart_status = [](StorageDevice* d) { return SmartReturnStatus(d); };
  auto smart_data = [](StorageDevice* d) { return SmartReadData(d); };
  auto smart_log = [](StorageDevice* d) { return SmartReadLog(d, 1, 1); };
  auto log_ext = [](StorageDevice* d) { return AtaReadLogExt(d, 0, 1); };
  auto uncorrectable = [](StorageDevice* d) { return AtaWriteUncorrectable(d, 1); };
  const std::vector<ResultCase> cases = {
      {"group A passes the firmware's error on", verify, AtaReply::error(EFI_DEVICE_ERROR, 0x40), EFI_DEVICE_ERROR, false},
      {"group A timeout", verify, answer(EFI_TIMEOUT), EFI_TIMEOUT, false},
      {"group A success with UNC in the status block", verify, answer(EFI_SUCCESS, 0x51, 0x40), EFI_DEVICE_ERROR,
       false},
      {"group A success with only the ERR bit", verify, answer(EFI_SUCCESS, 0x51, 0x00), EFI_DEVICE_ERROR, false},
      {"write uncorrectable refused", uncorrectable, answer(EFI_SUCCESS, 0x51, 0x04), EFI_DEVICE_ERROR, false},
      {"group B success", smart_status, AtaReply{}, EFI_SUCCESS, true},
      {"group B warning is passed on", smart_status, answer(EFI_WARN_BUFFER_TOO_SMALL),
       EFI_WARN_BUFFER_TOO_SMALL, true},
      {"group B success with ABRT in the status block", smart_status, answer(EFI_SUCCESS, 0x50, 0x04),
       ATA_COMMAND_FAILED, true},
      {"group B firmware error", smart_status, answer(EFI_DEVICE_ERROR), ATA_COMMAND_FAILED, false},
      {"smart read data sets LastPacket before the call", smart_data, answer(EFI_TIMEOUT), ATA_COMMAND_FAILED,
       true},
      {"read log ext firmware error", log_ext, answer(EFI_DEVICE_ERROR), ATA_COMMAND_FAILED, false},
      {"smart read log returns the firmware's error as it stands", smart_log, answer(EFI_DEVICE_ERROR),
       EFI_DEVICE_ERROR, false},
      {"smart read log with an error only in the status block", smart_log, answer(EFI_SUCCESS, 0x51, 0x04),
       ATA_COMMAND_FAILED, true},
  };
  for (const ResultCase& c : cases) {
    SCOPED_TRACE(c.name);
    device.LastPacket = nullptr;
    fake.replies = {c.reply};
    EXPECT_EQ(c.send(&device), c.result);
    EXPECT_EQ(device.LastPacket, c.sets_last_packet ? &packet : nullptr);
    if (c.sets_last_packet) {
      EXPECT_EQ(device.LastPacket->Asb, device.StatusBlock);
    }
  }
}

TEST_F(AtaCommands, TheFinishedCommandsRegistersAndDataReachTheCaller) {
  AtaReply reply = AtaReply::error(EFI_DEVICE_ERROR, 0x40);
  reply.status_block.AtaSectorNumber = 0x11;
  reply.status_block.AtaCylinderLow = 0x22;
  reply.status_block.AtaCylinderHigh = 0x33;
  reply.status_block.AtaDeviceHead = 0xED;  // LBA bits 24-27 of the 28-bit form: 0xD
  reply.status_block.AtaSectorNumberExp = 0x44;
  reply.status_block.AtaCylinderLowExp = 0x55;
  reply.status_block.AtaCylinderHighExp = 0x66;
  fake.default_reply = reply;
  info.Lba48 = 1;
  EXPECT_EQ(AtaReadVerify(&device, 0, 1), EFI_DEVICE_ERROR);
  EXPECT_EQ(device.StatusBlock->AtaError, 0x40);
  EXPECT_EQ(FailingLba(&device), 0x665544332211ull);
  info.Lba48 = 0;
  EXPECT_EQ(FailingLba(&device), 0x0D332211ull);

  fake.replies = {AtaReply{}};
  EXPECT_EQ(SmartReadData(&device), EFI_SUCCESS);
  EXPECT_EQ(device.LastPacket->Acb, nullptr) << "the command block does not outlive the call";
}

// Pages kept beyond the buffer's own (the alignment's spare ones) go back at
// once; the buffer's go back with FreeIoPages. The log buffer's pages are
// the targeted read's (every Bench checks that none is left).
TEST_F(AtaCommands, IoPagesAreAlignedToIoAlignAndTheSparePagesGoBack) {
  auto& memory = machine->memory();
  const uint64_t before = memory.outstanding_pages();
  const struct {
    uint32_t io_align;
    UINTN size, kept;
  } cases[] = {{8, 20, 1}, {4096, 5000, 2}, {8192, 20, 1}, {16384, 4096, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.io_align);
    fake.mode.IoAlign = c.io_align;
    VOID* buffer = AllocateIoPages(&device, c.size);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer) % std::max<uint32_t>(c.io_align, 4096), 0u);
    EXPECT_EQ(memory.outstanding_pages(), before + c.kept);
    FreeIoPages(buffer, c.size);
    EXPECT_EQ(memory.outstanding_pages(), before);
  }
  EXPECT_EQ(AllocateIoPages(&device, 0), nullptr);
  fake.mode.IoAlign = 6000;  // not a whole number of pages: cannot be met
  EXPECT_EQ(AllocateIoPages(&device, 20), nullptr);
  EXPECT_EQ(memory.outstanding_pages(), before);
  FreeIoPages(nullptr, 4096);
}

}  // namespace
