// The march passes over memory that can hold faults: what they find, where,
// in which order they touch the words, how they report progress. A stop
// mid-phase is the multi-processor tests'.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "memtest/advanced_integrity.h"
#include "memtest/march_passes.h"

namespace {

// A memory stand-in: words with stuck bits and coupling faults (writing an
// aggressor word flips a bit of its victim), and a trace of every access.
struct FaultyWords {
  std::vector<UINT64> words;
  std::map<size_t, UINT64> stuck_at_one, stuck_at_zero;
  std::map<size_t, std::pair<size_t, UINT64>> couplings;  // by aggressor: the victim and its bit
  std::string trace;
  bool tracing = false;

  explicit FaultyWords(size_t count) : words(count, 0x1234) {}
  size_t index(volatile UINT64* word) const { return static_cast<size_t>(word - words.data()); }
  UINT64 Read(volatile UINT64* word) {
    const size_t i = index(word);
    if (tracing) trace += "R" + std::to_string(i) + " ";
    return (words[i] | stuck_at_one[i]) & ~stuck_at_zero[i];
  }
  void Write(volatile UINT64* word, UINT64 value) {
    const size_t i = index(word);
    if (tracing) trace += "W" + std::to_string(i) + " ";
    words[i] = value;
    if (const auto c = couplings.find(i); c != couplings.end()) words[c->second.first] ^= c->second.second;
  }
};

struct Outcome {
  UINT64 result;
  tarvik::Mismatch found;
  std::vector<UINT64> progress;
};

EFIAPI EFI_STATUS record_progress(VOID* outcome, UINT64 percent, UINT64) {
  static_cast<Outcome*>(outcome)->progress.push_back(percent);
  return EFI_SUCCESS;
}

// The split without threads: the APs' procedures run at once, one after
// another, before the BSP takes what is left.
struct InlineProcessors {
  UINT64 count;
  UINT64 Count() const { return count; }
  bool Start(EFI_AP_PROCEDURE procedure, VOID* argument) {
    for (UINT64 i = 1; i < count; ++i) procedure(argument);
    return true;
  }
  bool Finished() { return true; }
  void Idle() {}
};

Outcome run_passes(FaultyWords& memory, size_t word_count, UINT64 processors = 1) {
  const UINT64 n = word_count / 2;
  const tarvik::PairRun run{0, n, memory.words.data(), memory.words.data() + n};
  volatile UINT8 keep_running = 1;
  Outcome out{0, {0, 0, 0}, {}};
  tarvik::MarchProgress progress{reinterpret_cast<tarvik::TestModuleProtocol*>(&out), record_progress, 0, 0, 0};
  InlineProcessors cpus{processors};
  out.result = tarvik::MarchPasses<FaultyWords, InlineProcessors>(memory, &run, n ? 1 : 0, n, &keep_running,
                                                                  progress, cpus)
                   .Run(&out.found);
  return out;
}

TEST(MarchPasses, SoundMemoryPassesReportingEveryTenthOfAPhaseAndHoldsTheLastPattern) {
  FaultyWords memory(201);  // odd: the last word is never touched
  memory.stuck_at_one[200] = 1;
  const Outcome out = run_passes(memory, 201);
  EXPECT_EQ(out.result, tarvik::TEST_RESULT_PASSED);
  // N = 100, Q = 10: ten reports and the phase end, for each of the 18 phases,
  // except that descending phases skip k = 0 (nine and the end).
  EXPECT_EQ(out.progress.size(), 18u * 11 - 6);
  EXPECT_EQ(out.progress.front(), 0u);  // (1 + 0) * 100 / 180
  EXPECT_EQ(out.progress[10], 5u);      // end of phase 1: 1 * 100 / 18
  EXPECT_EQ(out.progress.back(), 100u);
  // Last pass uses set 2, whose Z is 0x55...; the untested word keeps its value.
  EXPECT_EQ(memory.words[0], 0x5555555555555555ull);
  EXPECT_EQ(memory.words[199], 0x5555555555555555ull);
  EXPECT_EQ(memory.words[200], 0x1234u);
}

TEST(MarchPasses, FaultsInEitherHalfAreReportedWithTheExpectedAndTheReadValue) {
  struct Case {
    const char* what;
    void (*plant)(FaultyWords&);
    UINT64 expected, read;
  };
  const Case cases[] = {
      // First pass, set 1: phase 1 writes X = 0, phase 2 verifies it.
      {"bit 0 stuck at one, lower half", [](FaultyWords& m) { m.stuck_at_one[3] = 1; }, 0, 1},
      {"bit 63 stuck at one, upper half (read through k + N)",
       [](FaultyWords& m) { m.stuck_at_one[13] = 1ull << 63; }, 0, 1ull << 63},
      // Y = 0x55.. is written in phase 2 and verified at once.
      {"bit 0 stuck at zero, upper half", [](FaultyWords& m) { m.stuck_at_zero[17] = 1; }, 0x5555555555555555ull,
       0x5555555555555554ull},
      // Writing word 2 flips bit 4 of word 15, the upper word of the later pair 5. Phases
      // 1 to 5 write word 2 twice per pair (the flips cancel); phase 6 of the first pass
      // writes it once, and pair 5 then reads Z with the bit flipped.
      {"coupling from the lower into the upper half", [](FaultyWords& m) { m.couplings[2] = {15, 0x10}; },
       0xAAAAAAAAAAAAAAAAull, 0xAAAAAAAAAAAAAABAull},
  };
  // Split between three processors the ten pairs are ten shares: every fault
  // above lies in a share other than the first.
  for (const UINT64 processors : {1, 3}) {
    for (const Case& c : cases) {
      FaultyWords memory(20);
      c.plant(memory);
      const Outcome out = run_passes(memory, 20, processors);
      EXPECT_EQ(out.result, tarvik::TEST_RESULT_FAILED) << c.what << ", processors " << processors;
      EXPECT_EQ(out.found.ExpectedValue, c.expected) << c.what << ", processors " << processors;
      EXPECT_EQ(out.found.BadValue, c.read) << c.what << ", processors " << processors;
    }
  }
}

TEST(MarchPasses, EachPhaseTouchesThePairsInTheDocumentedOrderAloneAndSplit) {
  for (const UINT64 processors : {1, 2}) {
    FaultyWords memory(4);  // pairs (0, 2) and (1, 3); split, one pair per processor
    memory.tracing = true;
    run_passes(memory, 4, processors);
    const auto verify = [](int k) { return "R" + std::to_string(k) + " R" + std::to_string(k + 2) + " "; };
    const auto written = [](int k) { return "W" + std::to_string(k) + " W" + std::to_string(k + 2) + " "; };
    const auto pair = [&](int k) { return verify(k) + written(k) + verify(k) + written(k); };
    // Each pass: a write, four read-write phases (two ascending, two
    // descending), then phase 6 verifies; pass 1 (set 1) also restores X.
    const std::string phases = written(0) + written(1) + pair(0) + pair(1) + pair(0) + pair(1) + pair(1) + pair(0) +
                               pair(1) + pair(0);
    const std::string pass1 = phases + verify(0) + written(0) + verify(0) + verify(1) + written(1) + verify(1);
    const std::string pass2 = phases + verify(0) + verify(1);
    EXPECT_EQ(memory.trace, pass1 + pass2 + pass2) << processors;
  }
}

TEST(PairRuns, PairsThatCrossBlockBoundariesMapToTheirWords) {
  // Blocks of 3, 5 and 4 words, one word apart: 12 words, N = 6.
  static UINT64 w[15];
  tarvik::BlockTable table{};
  table.BlockCount = 3;
  table.TotalWords = 12;
  table.HalfWords = 6;
  const UINT64 sizes[] = {3, 5, 4}, starts[] = {0, 4, 10};
  for (int i = 0; i < 3; ++i) {
    table.BlockWords[i] = sizes[i];
    table.BlockBase[i] = reinterpret_cast<UINT64>(w + starts[i]);
  }
  const auto address = [](UINT64 k) { return w + k + (k >= 3) + (k >= 8); };
  std::vector<tarvik::PairRun> runs(tarvik::MaxPairRuns);
  const UINT64 count = tarvik::BuildPairRuns(table, runs.data());
  UINT64 k = 0;
  for (UINT64 r = 0; r < count; ++r) {
    EXPECT_EQ(runs[r].Start, k);
    for (UINT64 i = 0; i < runs[r].Count; ++i, ++k) {
      EXPECT_EQ(runs[r].Low + i, address(k)) << k;
      EXPECT_EQ(runs[r].High + i, address(k + 6)) << k;
    }
  }
  EXPECT_EQ(k, 6u);
  EXPECT_EQ(count, 3u);  // [0,3) [3,5) [5,6): cut where either word changes block
}

}  // namespace
