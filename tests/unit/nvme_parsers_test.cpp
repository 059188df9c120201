// The NVMe page readers: what they take from well-formed pages, and what
// they refuse (short pages, empty namespaces, unlisted LBA formats). Reads
// past a page and what an accepted page must hold are the fuzz target's;
// Identify Controller's texts are the discovery, screen and QEMU tests'.
#include "nvme/nvme_parsers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "nvme/nvme_structures.h"
#include "tests/support/test_machine.h"

namespace {

TEST(NvmeParsers, IdentifyNamespaceTakesTheFormattedLbaSize) {
  const struct {
    UINT64 size;
    UINT8 format_count, formatted, shift;
    UINT32 block_bytes;  // 0: refused
  } cases[] = {
      {1000, 0, 0, 9, 512}, {1000, 1, 1, 12, 4096}, {1000, 20, 0x21, 12, 4096},  // format 17: bits 6:5 high
      {1000, 0, 1, 12, 0},  {0, 0, 0, 9, 0},        {1000, 0, 0, 8, 0},          {1000, 0, 0, 17, 0},
  };
  for (const auto& c : cases) {
    std::vector<UINT8> page(tarvik::NvmeIdentifyBytes, 0);
    auto& n = *reinterpret_cast<tarvik::NvmeIdentifyNamespace*>(page.data());
    n.Size = c.size;
    n.LbaFormatCount = c.format_count;
    n.FormattedLbaSize = c.formatted;
    for (auto& f : n.LbaFormats) f.DataSizeShift = 9;
    n.LbaFormats[(c.formatted & 0x0F) | ((c.formatted & 0x60) >> 1)].DataSizeShift = c.shift;
    tarvik::NvmeNamespaceFacts facts{};
    EXPECT_EQ(tarvik::ParseIdentifyNamespace(page.data(), page.size(), &facts), c.block_bytes != 0);
    EXPECT_EQ(c.block_bytes != 0 ? facts.BlockBytes : 0, c.block_bytes) << int(c.formatted);
    EXPECT_FALSE(tarvik::ParseIdentifyNamespace(page.data(), 4095, &facts));
  }
}

TEST(NvmeParsers, HealthLogFiguresAndVerdict) {
  std::vector<UINT8> page(sizeof(tarvik::NvmeHealthLog), 0);
  auto& h = *reinterpret_cast<tarvik::NvmeHealthLog*>(page.data());
  h.CompositeTemperature = 273 + 41;
  h.PowerOnHours[1] = 0x12;
  h.MediaErrors[8] = 1;  // beyond 64 bits
  tarvik::NvmeHealthFacts facts{};
  ASSERT_TRUE(tarvik::ParseHealthLog(page.data(), page.size(), &facts));
  EXPECT_EQ(facts.TemperatureC, 41);
  EXPECT_EQ(facts.PowerOnHours, 0x1200u);
  EXPECT_EQ(facts.MediaErrors, ~0ull);
  EXPECT_FALSE(tarvik::ParseHealthLog(page.data(), page.size() - 1, &facts));
  const struct { UINT8 warning, spare, threshold, used; bool failing; } verdicts[] = {
      {1, 100, 10, 0, true}, {0, 9, 10, 0, true}, {0, 10, 10, 99, false}, {0, 100, 10, 100, true}};
  for (const auto& v : verdicts)
    EXPECT_EQ(tarvik::HealthFailing({v.warning, 0, v.spare, v.threshold, v.used, 0, 0, 0}), v.failing);
}

TEST(NvmeParsers, LogsNameTheNamespacesLbasAndTheNewestSelfTest) {
  std::vector<UINT8> errors(3 * 64 + 10, 0);  // a torn entry at the end
  const struct { UINT64 count; UINT32 nsid; UINT64 lba; } rows[] = {{3, 1, 500}, {0, 1, 600}, {2, 2, 700}};
  for (int i = 0; i < 3; ++i) {
    auto& e = reinterpret_cast<tarvik::NvmeErrorEntry*>(errors.data())[i];
    e = {rows[i].count, 0, 0, 0, 0, rows[i].lba, rows[i].nsid, 0, 0, {}, 0, 0, {}};
  }
  UINT64 lbas[4] = {};
  EXPECT_EQ(tarvik::ErrorLogLbas(errors.data(), errors.size(), 1, lbas, 4), 1u);
  EXPECT_EQ(lbas[0], 500u);

  std::vector<UINT8> log(sizeof(tarvik::NvmeSelfTestLog), 0);
  auto& st = *reinterpret_cast<tarvik::NvmeSelfTestLog*>(log.data());
  st.CurrentOperation = 0x2;
  st.CurrentCompletion = 0x80 | 120;  // reserved bit set, beyond 100
  // Passed, failed and aborted entries are the algorithm tests', from the drives' own logs.
  const struct { UINT8 status; tarvik::NvmeSelfTestOutcome outcome; } results[] = {
      {0x1F, tarvik::NvmeSelfTestOutcome::Unused}, {0x12, tarvik::NvmeSelfTestOutcome::Other}};
  tarvik::NvmeSelfTestFacts facts{};
  for (const auto& r : results) {
    st.Results[0].Status = r.status;
    ASSERT_TRUE(tarvik::ParseSelfTestLog(log.data(), log.size(), &facts));
    EXPECT_EQ(facts.NewestOutcome, r.outcome);
    EXPECT_EQ(facts.RunningPercent, 100);
  }
  ASSERT_TRUE(tarvik::ParseSelfTestLog(log.data(), 4, &facts));  // the header alone
  EXPECT_EQ(facts.NewestOutcome, tarvik::NvmeSelfTestOutcome::Unused);
  EXPECT_FALSE(tarvik::ParseSelfTestLog(log.data(), 3, &facts));
}

}  // namespace
