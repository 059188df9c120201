// IDENTIFY DEVICE data of a simulated drive.
#include "hostfw/ata_drive.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "hostfw/ata_command_set.h"

namespace hostfw {
using namespace ata;
namespace {

// ATA string: two characters per word, the first in the high byte.
void put_string(std::array<uint16_t, 256>& words, int first, int count, const std::string& text, bool right_aligned) {
  std::string padded(static_cast<size_t>(count) * 2, ' ');
  const std::string cut = text.substr(0, padded.size());
  padded.replace(right_aligned ? padded.size() - cut.size() : 0, cut.size(), cut);
  for (int i = 0; i < count; ++i)
    words[first + i] = static_cast<uint16_t>(static_cast<uint8_t>(padded[2 * i]) << 8 | static_cast<uint8_t>(padded[2 * i + 1]));
}

}  // namespace

void AtaDrive::build_identify() {
  auto& w = identify;
  w.fill(0);
  w[0] = 0x0040;  // fixed, non-removable ATA device
  w[1] = 16383;
  w[2] = 0xC837;
  w[3] = 16;
  w[6] = 63;
  put_string(w, 10, 10, info.serial, true);
  w[21] = static_cast<uint16_t>(info.cache_kib * 2);  // cache, in 512-byte units
  put_string(w, 23, 4, info.firmware, false);
  put_string(w, 27, 20, info.model, false);
  w[47] = 0x8010;
  w[49] = 0x2F00;  // LBA, DMA, IORDY, standby timer
  w[50] = 0x4000;
  w[53] = 0x0007;
  w[54] = 16383;
  w[55] = 16;
  w[56] = 63;
  w[57] = 0xFC10;
  w[58] = 0x00FB;  // 16,514,064 current CHS sectors
  w[59] = 0x0110;
  const uint64_t lba28 = std::min<uint64_t>(info.sectors, 0x0FFFFFFF);
  w[60] = static_cast<uint16_t>(lba28);
  w[61] = static_cast<uint16_t>(lba28 >> 16);
  w[63] = 0x0007;
  w[64] = 0x0003;
  w[65] = w[66] = w[67] = w[68] = 120;
  w[75] = 31;
  w[76] = 0x010E;  // SATA 1.5/3/6 Gb/s, NCQ
  w[80] = info.major_version;
  w[81] = info.minor_version;
  // Power management, write cache, look-ahead, buffers, NOP; SMART when supported.
  const uint16_t smart = info.smart_supported ? 0x0001 : 0;
  w[82] = static_cast<uint16_t>(0x7068 | smart);
  // 48-bit addresses and FLUSH CACHE EXT, when the drive has them.
  w[83] = info.lba48 ? 0x7400 : 0x5000;
  w[86] = info.lba48 ? 0x3400 : 0x1000;
  // General purpose logging; SMART error logging and self-test with SMART.
  const uint16_t self_test = info.smart_supported && info.self_test_supported ? 0x0002 : 0;
  w[84] = w[87] = static_cast<uint16_t>(0x4020 | smart | self_test);
  w[88] = 0x407F;  // UDMA 0-6, mode 6 selected
  if (info.lba48)
    for (int i = 0; i < 4; ++i) w[100 + i] = static_cast<uint16_t>(info.sectors >> (16 * i));
  // Sector sizes: valid (bits 15-14 01), 2^n logical per physical sector
  // (bit 13), and a logical size in words 117-118 when it is not 512 (bit 12).
  w[106] = 0x4000;
  const uint32_t per_physical = info.physical_sector_bytes / info.logical_sector_bytes;
  if (per_physical > 1) w[106] |= static_cast<uint16_t>(0x2000 | std::countr_zero(per_physical));
  if (info.logical_sector_bytes != 512) {
    w[106] |= 0x1000;
    const uint32_t words = info.logical_sector_bytes / 2;
    w[117] = static_cast<uint16_t>(words);
    w[118] = static_cast<uint16_t>(words >> 16);
  }
  w[217] = info.rotation_rpm;
  w[222] = 0x107F;  // serial ATA
}

// IDENTIFY DEVICE data as the drive reports it now; a drive answering
// garbage sends the same byte throughout, checksum included.
void AtaDrive::identify_data(uint8_t* out) {
  if (info.identify_fill >= 0) {
    std::memset(out, info.identify_fill, 512);
    return;
  }
  identify[85] = static_cast<uint16_t>(0x7068 | (info.smart_supported && smart_enabled ? 1 : 0));
  identify[255] = 0x00A5;
  for (int i = 0; i < 256; ++i) put_le(out + 2 * i, identify[i], 2);
  set_checksum(out);
}


// IDENTIFY PACKET DEVICE data of a packet device (an optical drive).
void AtaDrive::identify_packet_data(uint8_t* out) const {
  std::array<uint16_t, 256> w{};
  w[0] = 0x85C0;  // ATAPI, CD/DVD, removable, 12-byte packets
  put_string(w, 10, 10, info.serial, true);
  put_string(w, 23, 4, info.firmware, false);
  put_string(w, 27, 20, info.model, false);
  w[49] = 0x0F00;
  w[80] = info.major_version;
  w[81] = info.minor_version;
  w[222] = 0x107F;
  for (int i = 0; i < 256; ++i) put_le(out + 2 * i, w[i], 2);
}

}  // namespace hostfw
