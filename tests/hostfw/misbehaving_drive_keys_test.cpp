// The profile keys of drives that misbehave: IDENTIFY data of one byte
// throughout, log directories claiming more pages than the logs hold, and a
// drive made to fall silent from a given moment.
#include "tests/hostfw/ata_bench.h"

namespace {

using namespace ata_bench;

const std::string kDisk = "port = 0\nmodel = Korvan D1\nserial = D1\nsectors = 1000000\n";

TEST(MisbehavingDriveKeys, IdentifyFillAnswersEveryByteWithItAndLeavesTheOtherCommandsAlone) {
  Bench bench(machine_with("", {kDisk + "identify_fill = 0xFF\n"}));
  const Reply r = bench.identify(0);
  ASSERT_EQ(r.status, EFI_SUCCESS);
  EXPECT_EQ(r.data, std::vector<uint8_t>(512, 0xFF));
  EXPECT_EQ(outcome(bench.verify(0, 1000, 8)), "ok");
  EXPECT_EQ(bench.smart(0, 0xD0).status, EFI_SUCCESS);
}

TEST(MisbehavingDriveKeys, DirectoriesClaimTheGivenPagesButReadingThemAllAborts) {
  Bench bench(machine_with("", {kDisk + "log_pages = 2\nlog_directory_pages = 255\n"}));
  const Reply smart_directory = bench.smart(0, 0xD5, 0x00, 1);
  const Reply gp_directory = bench.read_log_ext(0, 0x00, 0, 1);
  ASSERT_EQ(smart_directory.status, EFI_SUCCESS);
  ASSERT_EQ(gp_directory.status, EFI_SUCCESS);
  for (int address : {0x01, 0x02, 0x03, 0x06, 0x07, 0x80, 0xFF}) {
    EXPECT_EQ(smart_directory.word(address), 255) << address;
    EXPECT_EQ(gp_directory.word(address), 255) << address;
  }
  EXPECT_EQ(outcome(bench.read_log_ext(0, 0x07, 0, 2)), "ok") << "the pages the log has";
  EXPECT_EQ(outcome(bench.read_log_ext(0, 0x07, 0, 255)), "ABRT");
  EXPECT_EQ(outcome(bench.smart(0, 0xD5, 0x06, 255)), "ABRT");
}

TEST(MisbehavingDriveKeys, ValuesOutsideTheirRangeAreRefused) {
  for (const char* keys : {"identify_fill = 256\n", "log_directory_pages = 0\n", "log_directory_pages = 65536\n"}) {
    EXPECT_THROW(hostfw::parse_profile(machine_with("", {kDisk + keys}), "bench.ini", "/tmp"), hostfw::ProfileError)
        << keys;
  }
}

TEST(MisbehavingDriveKeys, ADriveToldToFallSilentAnswersThatManyMoreCommandsThenTimesOut) {
  Bench bench(machine_with("", {kDisk}));
  EXPECT_EQ(outcome(bench.verify(0, 0, 1)), "ok");
  bench.machine_->ata()->stop_answering_after(0, 2);
  EXPECT_EQ(outcome(bench.verify(0, 1, 1)), "ok");
  EXPECT_EQ(outcome(bench.identify(0)), "ok");
  const uint64_t before = bench.now_seconds();
  EXPECT_EQ(outcome(bench.verify(0, 2, 1)), "timeout");
  EXPECT_EQ(bench.now_seconds() - before, 10u) << "the packet's timeout, in machine time";
  EXPECT_EQ(outcome(bench.identify(0)), "timeout");
  EXPECT_THROW(bench.machine_->ata()->stop_answering_after(5, 1), std::out_of_range);
}

}  // namespace
