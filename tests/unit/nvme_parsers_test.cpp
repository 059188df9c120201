// The NVMe page readers: what they take from well-formed pages, and what
// they refuse (short pages, empty namespaces, unknown LBA formats,
// unprintable identification).
#include "nvme/nvme_parsers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "nvme/nvme_structures.h"

namespace {

using tarvik::NvmeControllerFacts;

std::vector<UINT8> controller_page(const char* serial, const char* model) {
  std::vector<UINT8> page(tarvik::NvmeIdentifyBytes, 0);
  auto& c = *reinterpret_cast<tarvik::NvmeIdentifyController*>(page.data());
  std::memset(c.SerialNumber, ' ', sizeof(c.SerialNumber));
  std::memset(c.ModelNumber, ' ', sizeof(c.ModelNumber));
  std::memcpy(c.SerialNumber, serial, std::strlen(serial));
  std::memcpy(c.ModelNumber, model, std::strlen(model));
  std::memcpy(c.FirmwareRevision, "1.0     ", 8);
  c.Version = 0x00010400;
  c.NamespaceCount = 2;
  c.MaximumDataTransferSize = 5;
  c.OptionalAdminCommands = 1u << 4;
  c.OptionalNvmCommands = 1u << 7;
  c.ErrorLogPageEntries = 63;
  return page;
}

std::u16string text(const CHAR16* t) { return std::u16string(reinterpret_cast<const char16_t*>(t)); }

TEST(NvmeParsers, IdentifyControllerTakesTrimmedTextsAndCapabilities) {
  std::vector<UINT8> page = controller_page("S123", "Fast SSD 1TB");
  page.resize(8192, 0xAB);  // a longer page is read up to its defined size
  NvmeControllerFacts facts{};
  ASSERT_TRUE(tarvik::ParseIdentifyController(page.data(), page.size(), &facts));
  EXPECT_EQ(text(facts.Serial), u"S123");
  EXPECT_EQ(text(facts.Model), u"Fast SSD 1TB");
  EXPECT_EQ(text(facts.Firmware), u"1.0");
  EXPECT_EQ(facts.Version, 0x00010400u);
  EXPECT_EQ(facts.MaxTransferShift, 5);
  EXPECT_TRUE(facts.SelfTestSupported && facts.VerifySupported);
  EXPECT_EQ(facts.ErrorLogEntries, 64);
}

TEST(NvmeParsers, IdentifyControllerRefusesShortOrUntrustworthyPages) {
  NvmeControllerFacts facts{};
  const std::vector<UINT8> good = controller_page("S1", "M");
  EXPECT_FALSE(tarvik::ParseIdentifyController(good.data(), good.size() - 1, &facts));
  EXPECT_FALSE(tarvik::ParseIdentifyController(controller_page("S1\x07", "M").data(), 4096, &facts));
  EXPECT_FALSE(tarvik::ParseIdentifyController(controller_page("S1", "Mod\xff").data(), 4096, &facts));
  EXPECT_FALSE(tarvik::ParseIdentifyController(controller_page("", "M").data(), 4096, &facts));
  EXPECT_FALSE(tarvik::ParseIdentifyController(controller_page("S1", "").data(), 4096, &facts));
}

struct NamespaceCase {
  UINT64 size;
  UINT8 format_count;  // zero-based
  UINT8 formatted;     // FLBAS
  UINT8 shift_of_chosen;
  bool accepted;
  UINT32 block_bytes;
};

TEST(NvmeParsers, IdentifyNamespaceTakesTheFormattedLbaSize) {
  const NamespaceCase cases[] = {
      {1000, 0, 0, 9, true, 512},     {1000, 1, 1, 12, true, 4096},
      {1000, 0, 1, 12, false, 0},     // the formatted format is not listed
      {0, 0, 0, 9, false, 0},         // an empty namespace
      {1000, 0, 0, 8, false, 0},      {1000, 0, 0, 17, false, 0},
      {1000, 20, 0x21, 12, true, 4096},  // format 17: bits 6:5 are its high bits
  };
  for (const NamespaceCase& c : cases) {
    std::vector<UINT8> page(tarvik::NvmeIdentifyBytes, 0);
    auto& n = *reinterpret_cast<tarvik::NvmeIdentifyNamespace*>(page.data());
    n.Size = c.size;
    n.LbaFormatCount = c.format_count;
    n.FormattedLbaSize = c.formatted;
    const UINT8 chosen = (c.formatted & 0x0F) | ((c.formatted & 0x60) >> 1);
    for (auto& f : n.LbaFormats) f.DataSizeShift = 9;
    n.LbaFormats[chosen].DataSizeShift = c.shift_of_chosen;
    tarvik::NvmeNamespaceFacts facts{};
    EXPECT_EQ(tarvik::ParseIdentifyNamespace(page.data(), page.size(), &facts), c.accepted) << int(c.formatted);
    if (c.accepted) {
      EXPECT_EQ(facts.BlockBytes, c.block_bytes);
    }
    EXPECT_FALSE(tarvik::ParseIdentifyNamespace(page.data(), 4095, &facts));
  }
}

TEST(NvmeParsers, HealthLogFiguresAndVerdict) {
  std::vector<UINT8> page(tarvik::NvmeHealthLogBytes, 0);
  auto& h = *reinterpret_cast<tarvik::NvmeHealthLog*>(page.data());
  h.CompositeTemperature = 273 + 41;
  h.AvailableSpare = 100;
  h.AvailableSpareThreshold = 10;
  h.PercentageUsed = 7;
  h.PowerOnHours[0] = 0x34;
  h.PowerOnHours[1] = 0x12;
  h.MediaErrors[8] = 1;  // beyond 64 bits
  tarvik::NvmeHealthFacts facts{};
  ASSERT_TRUE(tarvik::ParseHealthLog(page.data(), page.size(), &facts));
  EXPECT_EQ(facts.TemperatureC, 41);
  EXPECT_EQ(facts.PowerOnHours, 0x1234u);
  EXPECT_EQ(facts.MediaErrors, ~0ull);
  EXPECT_FALSE(tarvik::HealthFailing(facts));
  EXPECT_FALSE(tarvik::ParseHealthLog(page.data(), page.size() - 1, &facts));

  struct Verdict {
    UINT8 warning, spare, threshold, used;
    bool failing;
  };
  for (const Verdict v : {Verdict{1, 100, 10, 0, true}, Verdict{0, 9, 10, 0, true}, Verdict{0, 10, 10, 99, false},
                          Verdict{0, 100, 10, 100, true}, Verdict{0, 100, 10, 255, true}}) {
    facts = tarvik::NvmeHealthFacts{};
    facts.CriticalWarning = v.warning;
    facts.AvailableSpare = v.spare;
    facts.SpareThreshold = v.threshold;
    facts.PercentageUsed = v.used;
    EXPECT_EQ(tarvik::HealthFailing(facts), v.failing);
  }
}

TEST(NvmeParsers, ErrorLogNamesTheUsedEntriesOfTheNamespace) {
  std::vector<UINT8> page(4 * tarvik::NvmeErrorEntryBytes + 10, 0);  // a torn entry at the end
  auto* entries = reinterpret_cast<tarvik::NvmeErrorEntry*>(page.data());
  const struct { UINT64 count; UINT32 nsid; UINT64 lba; } rows[] = {{3, 1, 500}, {0, 1, 600}, {2, 2, 700}, {1, 1, 0}};
  for (int i = 0; i < 4; ++i) {
    entries[i].ErrorCount = rows[i].count;
    entries[i].NamespaceId = rows[i].nsid;
    entries[i].Lba = rows[i].lba;
  }
  UINT64 lbas[4] = {};
  ASSERT_EQ(tarvik::ErrorLogLbas(page.data(), page.size(), 1, lbas, 4), 2u);
  EXPECT_EQ(lbas[0], 500u);
  EXPECT_EQ(lbas[1], 0u);
  EXPECT_EQ(tarvik::ErrorLogLbas(page.data(), page.size(), 1, lbas, 1), 1u);
  EXPECT_EQ(tarvik::ErrorLogLbas(page.data(), 63, 1, lbas, 4), 0u);
}

TEST(NvmeParsers, SelfTestLogRunningTestAndNewestResult) {
  std::vector<UINT8> page(sizeof(tarvik::NvmeSelfTestLog), 0);
  auto& log = *reinterpret_cast<tarvik::NvmeSelfTestLog*>(page.data());
  log.CurrentOperation = 0x2;
  log.CurrentCompletion = 0x80 | 120;  // reserved bit set, percent beyond 100
  for (auto& r : log.Results) r.Status = 0xF;
  tarvik::NvmeSelfTestFacts facts{};
  ASSERT_TRUE(tarvik::ParseSelfTestLog(page.data(), page.size(), &facts));
  EXPECT_EQ(facts.RunningTest, 2);
  EXPECT_EQ(facts.RunningPercent, 100);
  EXPECT_EQ(facts.NewestOutcome, tarvik::NvmeSelfTestOutcome::Unused);

  const struct { UINT8 status; tarvik::NvmeSelfTestOutcome outcome; } results[] = {
      {0x10, tarvik::NvmeSelfTestOutcome::Passed},           {0x21, tarvik::NvmeSelfTestOutcome::AbortedByCommand},
      {0x17, tarvik::NvmeSelfTestOutcome::Failed},           {0x12, tarvik::NvmeSelfTestOutcome::Other}};
  for (const auto& r : results) {
    log.Results[0].Status = r.status;
    log.Results[0].ValidDiagnostics = 0x2;
    log.Results[0].FailingLba = 99;
    ASSERT_TRUE(tarvik::ParseSelfTestLog(page.data(), page.size(), &facts));
    EXPECT_EQ(facts.NewestTest, r.status >> 4);
    EXPECT_EQ(facts.NewestOutcome, r.outcome);
    EXPECT_EQ(facts.NewestFailingLba, 99u);
  }
  // Only the header: no result to read, and no byte read past it.
  ASSERT_TRUE(tarvik::ParseSelfTestLog(page.data(), 4, &facts));
  EXPECT_EQ(facts.NewestOutcome, tarvik::NvmeSelfTestOutcome::Unused);
  EXPECT_FALSE(tarvik::ParseSelfTestLog(page.data(), 3, &facts));
}

}  // namespace
