// IDENTIFY DEVICE data and SMART pages read into a drive's identification:
// the model and manufacturer rules, sizes, versions and flags, and the SMART
// attribute lookup. What any bytes at all do is the fuzz replays' to check.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "storage/drive_discovery.h"
#include "storage/identify_parser.h"
#include "storage/smart_attributes.h"
#include "tests/support/fake_ata_pass_thru.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::IdentifyPage;
using testing_support::utf8;
using namespace tarvik;

tarvik::StorageDeviceInfo parse(const IdentifyPage& page) {
  tarvik::StorageDeviceInfo info{};
  const std::vector<uint8_t> bytes = page.data();
  ParseIdentifyData(bytes.data(), &info);
  return info;
}

struct IdentifyCase {
  std::string name;
  std::function<void(IdentifyPage&)> edit;
  std::function<void(const StorageDeviceInfo&)> check;
};

// The maker and model the model field gives: two or more words name the
// maker first, one word names it by its first two letters.
TEST(IdentifyParser, ModelFieldGivesMakerAndModel) {
  const struct {
    const char* field;
    const char* manufacturer;
    const char* model;
  } cases[] = {
      {"ABC X123-45", "ABC", "X123-45"},         {"ST1234", "SEAGATE", "ST1234"},
      {"HTS54", "HITACHI", "HTS54"},             {"WD5000AAKX", "WESTERN DIGITAL", "WD5000AAKX"},
      {"XY9", "Generic Vendor", "XY9"},          {"AAA BBB CCC DDD", "AAA", "BBB"},
      {"      ST500DM002", "SEAGATE", "ST500DM002"}, {"", "Generic Vendor", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.field);
    const StorageDeviceInfo info = parse(IdentifyPage::typical("MODEL1", "SN0001").text(27, 20, c.field));
    EXPECT_EQ(utf8(info.Manufacturer), c.manufacturer);
    EXPECT_EQ(utf8(info.Model), c.model);
  }
}

TEST(IdentifyParser, ReadsTheIdentificationTheDriveReports) {
  const std::vector<IdentifyCase> cases = {
      {"serial without its leading spaces, firmware as it stands", [](IdentifyPage& p) {
         p.text(10, 10, "    S3Z9NB0K  ").text(23, 4, " 2B6Q ");
       },
       [](const StorageDeviceInfo& i) {
         EXPECT_EQ(utf8(i.SerialNumber), "S3Z9NB0K        ");
         EXPECT_EQ(utf8(i.FirmwareRevision), " 2B6Q   ");
       }},
      {"no 48-bit feature set", [](IdentifyPage& p) { p.word(83, 0x7000); },
       [](const StorageDeviceInfo& i) {
         EXPECT_EQ(i.TotalSectors, 0u);
         EXPECT_EQ(i.SizeBytes, 0u);
         EXPECT_EQ(i.Lba48, 0);
       }},
      {"the last 28-bit capacity", [](IdentifyPage& p) { p.word(100, 0xFFFF).word(101, 0x0FFF); },
       [](const StorageDeviceInfo& i) {
         EXPECT_EQ(i.TotalSectors, 0x0FFFFFFFu);
         EXPECT_EQ(i.Lba48, 0);
       }},
      {"one sector more needs the 48-bit form", [](IdentifyPage& p) { p.word(100, 0).word(101, 0x1000).word(103, 0); },
       [](const StorageDeviceInfo& i) {
         EXPECT_EQ(i.TotalSectors, 0x10000000u);
         EXPECT_EQ(i.SizeBytes, 0x10000000ull * 512);
         EXPECT_EQ(i.Lba48, 1);
       }},
      {"ATA/ATAPI-1 to -6 claimed", [](IdentifyPage& p) { p.word(80, 0x007E); },
       [](const StorageDeviceInfo& i) { EXPECT_EQ(i.MajorVersion, 0x017E); }},
      {"4096-byte logical sectors", [](IdentifyPage& p) { p.word(106, 0x5000).word(117, 2048).word(118, 0).word(21, 16); },
       [](const StorageDeviceInfo& i) {
         EXPECT_EQ(i.LogicalSectorSize, 4096u);
         EXPECT_EQ(i.PhysicalSectorSize, 4096u);
         EXPECT_EQ(i.CacheBytes, 16u * 4096);
         EXPECT_EQ(i.SizeBytes, 1000000000ull * 4096);
       }},
      {"word 106 without its validity bits does not count", [](IdentifyPage& p) { p.word(106, 0x3003).word(117, 2048); },
       [](const StorageDeviceInfo& i) {
         EXPECT_EQ(i.LogicalSectorSize, 512u);
         EXPECT_EQ(i.PhysicalSectorSize, 512u);
       }},
  };
  for (const IdentifyCase& c : cases) {
    SCOPED_TRACE(c.name);
    IdentifyPage page = IdentifyPage::typical("MODEL1", "SN0001");
    c.edit(page);
    c.check(parse(page));
  }
}

TEST(IdentifyParser, MinorVersionTexts) {
  EXPECT_EQ(utf8(GetStandardVersionText(0x0000)), "Minor version is not reported");
  EXPECT_EQ(utf8(GetStandardVersionText(0x000C)), "Obsolete");
  EXPECT_EQ(utf8(GetStandardVersionText(0x000D)), "ATA/ATAPI-4 X3T13 1153D version 6");
  EXPECT_EQ(utf8(GetStandardVersionText(0x001F)), "Reserved");
  EXPECT_EQ(utf8(GetStandardVersionText(0x0111)), "Reserved");
}

// Which serials are printable is DriveDiscovery's test (a probe passes the
// others over) and the IDENTIFY fuzz replays'.
TEST(IdentifyParser, RotationClass) {
  StorageDeviceInfo info{};
  StorageDevice device{};
  device.Info = &info;
  for (auto [rate, rotation_class] : std::vector<std::pair<UINT16, INT32>>{
           {0, 0}, {1, 1}, {2, 0}, {1024, 0}, {1025, 1025}, {7200, 7200}, {65534, 65534}, {65535, 0}}) {
    info.RotationRate = rate;
    EXPECT_EQ(GetRotationClass(&device), rotation_class) << rate;
  }
}

void put_attribute(std::vector<uint8_t>& page, int slot, uint8_t id, uint8_t value, uint8_t raw0) {
  uint8_t* entry = page.data() + 2 + 12 * slot;
  entry[0] = id;
  entry[3] = value;
  entry[4] = value;
  entry[5] = raw0;
}

// Thresholds are the repair warning's tests (Repair.TheWarningComes...), the
// self-test status byte the scripted self-tests'.
TEST(SmartPages, AttributesAreFoundByIdTheLastSlotWinning) {
  std::vector<uint8_t> data(512, 0);
  put_attribute(data, 0, 5, 100, 3);
  put_attribute(data, 3, 194, 100, 40);
  put_attribute(data, 29, 194, 100, 0xF6);  // the last slot, and below zero

  SmartAttribute found{};
  ASSERT_TRUE(FindSmartAttribute(data.data(), 5, &found));
  EXPECT_EQ(found.Value, 100);
  EXPECT_EQ(found.Raw[0], 3);
  EXPECT_FALSE(FindSmartAttribute(data.data(), 0, &found)) << "empty slots are not attribute 0";
  EXPECT_EQ(SmartTemperature(data.data()), -10);

  put_attribute(data, 29, 0, 0, 0);
  EXPECT_EQ(SmartTemperature(data.data()), 40);
  put_attribute(data, 3, 0, 0, 0);
  EXPECT_EQ(SmartTemperature(data.data()), 0) << "no attribute 194";
}

}  // namespace
