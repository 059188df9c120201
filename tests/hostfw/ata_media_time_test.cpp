// Drives with a media rate: READ VERIFY and WRITE SECTORS keep PassThru
// waiting on the machine clock, and the machine's timers fall due during
// the wait as they would while a real drive works.
#include <vector>

#include "tests/hostfw/ata_bench.h"

namespace {

using namespace ata_bench;

constexpr uint64_t kMs = 1000 * 1000;

std::string drive_at(const std::string& keys) {
  return "port = 0\nmodel = Korvan D1\nserial = D1\nsectors = 1000000\nrotation_rpm = 7200\n" + keys;
}

// What a timer's notification saw each time it ran.
struct Ticks {
  hostfw::Machine* machine = nullptr;
  std::vector<uint64_t> at_ns;
  std::vector<EFI_TPL> tpl;
};

EFIAPI VOID RecordTick(EFI_EVENT, VOID* context) {
  auto* ticks = static_cast<Ticks*>(context);
  ticks->at_ns.push_back(ticks->machine->clock().now_ns());
  ticks->tpl.push_back(ticks->machine->events().tpl());
}

class MediaTime : public ::testing::Test, public Bench {
 protected:
  MediaTime() : Bench(machine_with("", {drive_at("media_mb_per_s = 150\nbad_sectors = 500000\nhang_sectors = 700000\n"),
                                        "port = 1\nmodel = Korvan D4\nserial = D4\nsectors = 100000\n"
                                        "logical_sector_bytes = 4096\nmedia_mb_per_s = 200\n",
                                        "port = 2\nmodel = Korvan D2\nserial = D2\nsectors = 100000\n"})) {}

  uint64_t now_ns() { return machine_->clock().now_ns(); }
  // A periodic timer whose notification runs at TPL_NOTIFY, as the screens' timers do.
  EFI_EVENT periodic(Ticks& ticks, uint64_t period_ms) {
    ticks.machine = &*machine_;
    EFI_EVENT e = nullptr;
    EXPECT_EQ(machine_->boot_services()->CreateEvent(EVT_TIMER | EVT_NOTIFY_SIGNAL, TPL_NOTIFY, RecordTick, &ticks, &e),
              EFI_SUCCESS);
    EXPECT_EQ(machine_->boot_services()->SetTimer(e, TimerPeriodic, period_ms * 10000), EFI_SUCCESS);
    return e;
  }
};

TEST_F(MediaTime, MediaCommandsTakeTheirSectorsAtTheDrivesRate) {
  const struct {
    const char* what;
    std::function<Reply()> command;
    const char* outcome;
    uint64_t ns;
  } cases[] = {
      // 512-byte sectors at 150 MB/s: 512000 / 150 ns each.
      {"verify of 65536 sectors", [&] { return verify(0, 0, 65536); }, "ok", 65536ull * 512000 / 150},
      {"28-bit verify of 16", [&] { return verify(0, 16, 16, false); }, "ok", 16ull * 512000 / 150},
      {"write of one", [&] { return write(0, 5); }, "ok", 512000 / 150},
      {"verify stopped by UNC", [&] { return verify(0, 499990, 20); }, "UNC at 7a120", 11ull * 512000 / 150},
      {"4096-byte sectors at 200 MB/s", [&] { return verify(1, 0, 16); }, "ok", 16ull * 4096000 / 200},
      {"a drive without a rate", [&] { return verify(2, 0, 65536); }, "ok", 0},
      {"SMART READ DATA: no media access", [&] { return smart(0, 0xD0); }, "ok", 0},
      {"beyond the end", [&] { return verify(0, 999990, 20); }, "IDNF", 0},
      {"a hanging sector: the timeout only", [&] { return verify(0, 699990, 20); }, "timeout", 10000 * kMs},
  };
  for (const auto& c : cases) {
    const uint64_t before = now_ns();
    EXPECT_EQ(outcome(c.command()), c.outcome) << c.what;
    EXPECT_EQ(now_ns() - before, c.ns) << c.what;
  }
}

TEST_F(MediaTime, ALongCommandSignalsTimersAtTheirTimesAndNotifiesWhenItEnds) {
  Ticks ticks;
  EFI_EVENT tick = periodic(ticks, 100);
  EFI_EVENT once = nullptr;
  ASSERT_EQ(machine_->boot_services()->CreateEvent(EVT_TIMER, 0, nullptr, nullptr, &once), EFI_SUCCESS);
  ASSERT_EQ(machine_->boot_services()->SetTimer(once, TimerRelative, 100 * 10000), EFI_SUCCESS);

  // 65536 sectors at 150 MB/s: 223.7 ms, two ticks' worth. PassThru holds
  // TPL_NOTIFY, so the tick signalled twice runs once, as the command ends.
  ASSERT_EQ(outcome(verify(0, 0, 65536)), "ok");
  const uint64_t end = 65536ull * 512000 / 150;
  ASSERT_EQ(ticks.at_ns, std::vector<uint64_t>{end});
  EXPECT_EQ(ticks.tpl[0], TPL_NOTIFY);
  EXPECT_EQ(machine_->boot_services()->CheckEvent(once), EFI_SUCCESS) << "the relative timer fell due mid-command";

  // The periodic timer keeps its phase: next due at 300 ms.
  machine_->boot_services()->Stall(100 * 1000);
  EXPECT_EQ(ticks.at_ns, (std::vector<uint64_t>{end, 300 * kMs}));
  machine_->boot_services()->CloseEvent(once);
  machine_->boot_services()->CloseEvent(tick);
}

TEST(MediaTimeProfile, TheRateIsAWholeNumberOfMegabytesASecond) {
  for (const char* rate : {"1.5", "fast", "100001"})
    EXPECT_THROW(hostfw::parse_profile(machine_with("", {drive_at("media_mb_per_s = " + std::string(rate) + "\n")}),
                                       "rate.ini", "/tmp"),
                 hostfw::ProfileError)
        << rate;
  const hostfw::Profile zero = hostfw::parse_profile(machine_with("", {drive_at("media_mb_per_s = 0\n")}), "rate.ini", "/tmp");
  EXPECT_EQ(zero.drives.at(0).media_mb_per_s, 0u);
}

}  // namespace
