// The march split between processors that really run at once (host
// threads): a stop reaches every processor mid-phase, and two processors
// that each find a bad word report one.
#include <gtest/gtest.h>

#include <vector>

#include "memtest/march_passes.h"
#include "tests/support/thread_processors.h"

namespace {

using testing_support::ThreadProcessors;

// Plain words, two of which hold bit 0 at one.
struct TwoStuckWords {
  const volatile UINT64* stuck[2];
  UINT64 Read(volatile UINT64* word) const { return *word | (word == stuck[0] || word == stuck[1] ? 1 : 0); }
  static void Write(volatile UINT64* word, UINT64 value) { *word = value; }
};

struct StopAt {
  static inline UINT64 report = 0, reports = 0;
  static inline volatile UINT8* flag = nullptr;
  static EFIAPI EFI_STATUS Record(VOID*, UINT64, UINT64) {
    if (++reports == report) *flag = 0;
    return EFI_SUCCESS;
  }
};

constexpr UINT64 kProcessors = 4;
constexpr UINT64 kPairs = 1 << 20;  // 128 stretches per share

UINT64 run(std::vector<UINT64>& words, TwoStuckWords& access, volatile UINT8& keep_running, tarvik::Mismatch& found) {
  const tarvik::PairRun pairs{0, kPairs, words.data(), words.data() + kPairs};
  StopAt::reports = 0;
  StopAt::flag = &keep_running;
  tarvik::MarchProgress progress{nullptr, StopAt::Record, 0, 0, 0};
  ThreadProcessors cpus{kProcessors, {}, {}};
  tarvik::MarchPasses<TwoStuckWords, ThreadProcessors> passes(access, &pairs, 1, kPairs, &keep_running, progress,
                                                              cpus);
  const UINT64 result = passes.Run(&found);
  EXPECT_EQ(passes.ProcessorsThatTested(), kProcessors);
  return result;
}

TEST(MarchOnProcessors, AStopMidPhaseStopsEveryProcessorWithinAStretch) {
  std::vector<UINT64> words(2 * kPairs);
  TwoStuckWords sound{{nullptr, nullptr}};
  volatile UINT8 keep_running = 1;
  StopAt::report = 12;  // phase 1's ten tenths and its end, then phase 2's first tenth
  tarvik::Mismatch found{0, 0, 0};
  EXPECT_EQ(run(words, sound, keep_running, found), tarvik::TEST_RESULT_PASSED);  // the run makes it canceled
  // Phase 2 writes Y = 0x55..; each share's low words were not reached past a few stretches.
  const UINT64 share = kPairs / kProcessors;
  for (UINT64 s = 0; s < kProcessors; ++s) {
    UINT64 moved = 0;
    for (UINT64 k = s * share; k < (s + 1) * share; ++k) moved += words[k] == 0x5555555555555555ull;
    EXPECT_LT(moved, share / 2) << "share " << s;
  }
}

TEST(MarchOnProcessors, TwoProcessorsFindingABadWordReportOne) {
  std::vector<UINT64> words(2 * kPairs);
  const UINT64 share = kPairs / kProcessors;
  TwoStuckWords faulty{{&words[share], &words[2 * share]}};  // the first pair of shares 1 and 2
  volatile UINT8 keep_running = 1;
  StopAt::report = 0;
  tarvik::Mismatch found{0, 0, 0};
  EXPECT_EQ(run(words, faulty, keep_running, found), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(found.ExpectedValue, 0u);
  EXPECT_EQ(found.BadValue, 1u);
  EXPECT_TRUE(found.Address == reinterpret_cast<UINT64>(faulty.stuck[0]) ||
              found.Address == reinterpret_cast<UINT64>(faulty.stuck[1]));
}

}  // namespace
