// A machine with ATA drives and commands built as raw EFI_ATA_PASS_THRU
// packets, the way the application's storage code builds them, for the
// tests of the simulated drives.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "hostfw/ata_controller.h"
#include "tests/support/test_machine.h"

namespace ata_bench {

constexpr UINT16 kDirect = 0xFFFF;

inline uint8_t byte_sum(const std::vector<uint8_t>& page) {
  return std::accumulate(page.begin(), page.end(), uint8_t{0}, [](uint8_t a, uint8_t b) { return uint8_t(a + b); });
}

// The LBA registers of a command or status block, lowest byte first; the
// 28-bit form uses the first three.
template <typename Block>
auto lba_registers(Block& b) {
  return std::array{&b.AtaSectorNumber,    &b.AtaCylinderLow,    &b.AtaCylinderHigh,
                    &b.AtaSectorNumberExp, &b.AtaCylinderLowExp, &b.AtaCylinderHighExp};
}

struct Reply {
  EFI_STATUS status = EFI_SUCCESS;
  EFI_ATA_STATUS_BLOCK asb{};
  std::vector<uint8_t> data;

  uint64_t lba48() const {
    uint64_t lba = 0;
    for (int i = 5; i >= 0; --i) lba = lba << 8 | *lba_registers(asb)[i];
    return lba;
  }
  uint8_t byte(size_t i) const { return data.at(i); }
  uint16_t word(int i) const { return static_cast<uint16_t>(data.at(2 * i) | data.at(2 * i + 1) << 8); }
  uint64_t le(size_t at, int bytes) const {
    uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | data.at(at + i);
    return v;
  }
};

// How a command ended: "ok", or the error the status block reports; an
// unreadable sector with the LBA registers in hexadecimal. A status other
// than the usual one for the outcome is named first.
inline std::string outcome(const Reply& r) {
  std::ostringstream out;
  if (r.status == EFI_SUCCESS && r.asb.AtaStatus == 0x50) return "ok";
  if (r.status == EFI_TIMEOUT) return "timeout";
  if (r.status != EFI_DEVICE_ERROR || r.asb.AtaStatus != 0x51) out << "status " << r.status << ", ";
  if (r.asb.AtaError == 0x40) out << "UNC at " << std::hex << r.lba48();
  else if (r.asb.AtaError == 0x10) out << "IDNF";
  else if (r.asb.AtaError == 0x04) out << "ABRT";
  else out << "error " << int(r.asb.AtaError);
  return out.str();
}

// A machine built from profile text, with commands built as the storage
// module builds them.
class Bench {
 public:
  explicit Bench(const std::string& profile_text)
      : profile_(hostfw::parse_profile(profile_text, "bench.ini", "/tmp")), machine_("", &profile_) {
    void* found = nullptr;
    EFI_GUID guid = EFI_ATA_PASS_THRU_PROTOCOL_GUID;
    EXPECT_EQ(machine_->boot_services()->LocateProtocol(&guid, nullptr, &found), EFI_SUCCESS);
    ata = static_cast<EFI_ATA_PASS_THRU_PROTOCOL*>(found);
  }

  Reply send(UINT16 port, EFI_ATA_COMMAND_BLOCK acb, UINT8 protocol, UINT32 in_bytes = 0, UINT32 out_bytes = 0,
             UINT16 device = kDirect, UINT64 timeout = 100000000) {
    Reply r;
    std::vector<uint8_t> out(out_bytes, 0x5A);
    r.data.assign(in_bytes, 0);
    EFI_ATA_PASS_THRU_COMMAND_PACKET p{&r.asb, &acb, timeout, in_bytes ? r.data.data() : nullptr,
                                       out_bytes ? out.data() : nullptr, in_bytes, out_bytes, protocol,
                                       static_cast<UINT8>(in_bytes || out_bytes ? EFI_ATA_PASS_THRU_LENGTH_BYTES
                                                                                : EFI_ATA_PASS_THRU_LENGTH_SECTOR_COUNT)};
    r.status = ata->PassThru(ata, port, device, &p, nullptr);
    return r;
  }

  // A command whose LBA registers hold `lba`; in the 28-bit form LBA bits
  // 24-27 go to the device register.
  static EFI_ATA_COMMAND_BLOCK block(UINT8 command, UINT8 features = 0, uint64_t lba = 0, uint32_t count = 0,
                                     bool ext = false) {
    EFI_ATA_COMMAND_BLOCK c{};
    c.AtaCommand = command;
    c.AtaFeatures = features;
    c.AtaDeviceHead = static_cast<UINT8>(0xF0 | (ext ? 0 : (lba >> 24) & 0x0F));
    c.AtaSectorCount = static_cast<UINT8>(count);
    c.AtaSectorCountExp = static_cast<UINT8>(ext ? count >> 8 : 0);
    for (int i = 0; i < (ext ? 6 : 3); ++i) *lba_registers(c)[i] = static_cast<UINT8>(lba >> 8 * i);
    return c;
  }
  Reply identify(UINT16 port, UINT16 device = kDirect) {
    return send(port, block(0xEC), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512, 0, device);
  }
  Reply verify(UINT16 port, uint64_t lba, uint32_t count, bool ext = true) {
    return send(port, block(ext ? 0x42 : 0x40, 0, lba, count, ext), EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA);
  }
  Reply write(UINT16 port, uint64_t lba, bool ext = true, UINT32 bytes = 512) {
    return send(port, block(ext ? 0x34 : 0x30, 0, lba, 1, ext), EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_OUT, 0, bytes);
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
  // READ LOG EXT of pages [page, page + count) of a log.
  Reply read_log_ext(UINT16 port, UINT8 address, uint16_t page, uint16_t count) {
    EFI_ATA_COMMAND_BLOCK c = block(0x2F, 0, address, count, true);
    c.AtaCylinderLow = static_cast<UINT8>(page);
    c.AtaCylinderLowExp = static_cast<UINT8>(page >> 8);
    return send(port, c, EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN, 512u * count);
  }

  // The raw value of the SMART attribute of that id, or -1.
  int64_t attribute_raw(UINT16 port, uint8_t id) {
    const Reply r = smart(port, 0xD0);
    for (size_t at = 2; at < 362; at += 12)
      if (r.byte(at) == id) return int64_t(r.le(at + 5, 6));
    return -1;
  }
  uint64_t now_seconds() { return machine_->clock().now_ns() / 1000000000; }
  const hostfw::AtaCommandCounts& counts(UINT16 port, UINT16 device = kDirect) {
    return machine_->ata()->counts(port, device);
  }

  hostfw::Profile profile_;
  testing_support::TestMachine machine_;
  EFI_ATA_PASS_THRU_PROTOCOL* ata = nullptr;
};

// A [machine] section and one drive section per argument.
inline std::string machine_with(const std::string& machine_keys, const std::vector<std::string>& drives) {
  std::string text = "[machine]\nname = Bench\nmemory_mib = 64\n" + machine_keys +
                     "[system]\nmanufacturer = Korvan\nproduct = Bench\nserial = B1234567\n";
  for (const std::string& d : drives) text += "[drive]\n" + d;
  return text;
}

}  // namespace ata_bench
