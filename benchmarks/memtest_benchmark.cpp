// How fast the march passes test memory, against the fastest the same
// sweeps can go: one run, one buffer, the three passes of the product's
// inner loop, then a baseline of plain volatile sweeps with the memory
// traffic of each phase and no checks. Each is timed three times, in turns,
// and the best time of each counts (the machine's other work only ever adds
// time). Prints both times, their ratio and the rate at which memory is
// tested.
//
//   memtest_benchmark [MiB]   (default 256)
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "memtest/advanced_integrity.h"
#include "memtest/march_passes.h"

namespace {

using Clock = std::chrono::steady_clock;

EFIAPI EFI_STATUS NoProgress(VOID*, UINT64, UINT64) { return EFI_SUCCESS; }

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// The baseline: per pass, a write sweep (phase 1), a read-then-write sweep
// for each of phases 2 to 5 (4 and 5 descending), and for phase 6 a
// read-then-write sweep with the first set, a read sweep with the others.
void baseline(volatile UINT64* words, size_t count) {
  for (int pass = 0; pass < 3; ++pass) {
    const UINT64 value = 0x5555555555555555ull + pass;
    for (size_t i = 0; i < count; ++i) words[i] = value;
    for (int phase = 2; phase <= 5; ++phase) {
      if (phase <= 3) {
        for (size_t i = 0; i < count; ++i) words[i] = words[i] + 1;
      } else {
        for (size_t i = count; i-- > 0;) words[i] = words[i] + 1;
      }
    }
    if (pass == 0) {
      for (size_t i = 0; i < count; ++i) words[i] = words[i] + 1;
    } else {
      UINT64 sum = 0;
      for (size_t i = 0; i < count; ++i) sum += words[i];
      if (sum == 42) std::puts("");  // keeps the reads
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const size_t mib = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 256;
  const size_t bytes = mib << 20;
  void* buffer = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (buffer == MAP_FAILED) {
    std::perror("mmap");
    return 1;
  }
  // Large pages from the start, as firmware maps memory, so that the kernel
  // does not change the mapping between one timing and the next.
  madvise(buffer, bytes, MADV_HUGEPAGE);
  std::memset(buffer, 0, bytes);
  auto* words = static_cast<volatile UINT64*>(buffer);
  const size_t count = bytes / sizeof(UINT64);

  static tarvik::BlockTable table{};
  table.BlockCount = 1;
  table.BlockBase[0] = reinterpret_cast<UINT64>(buffer);
  table.BlockPages[0] = bytes / 4096;
  table.BlockWords[0] = count;
  table.TotalWords = count;
  table.HalfWords = count / 2;
  std::vector<tarvik::PairRun> runs(tarvik::MaxPairRuns);
  const UINT64 run_count = tarvik::BuildPairRuns(table, runs.data());

  volatile UINT8 keep_running = 1;
  tarvik::PlainWordAccess access;
  double test_s = 1e9, base_s = 1e9;
  UINT64 result = 0;
  for (int round = 0; round < 3; ++round) {
    tarvik::MarchProgress progress{nullptr, NoProgress, 0, 0, 0};
    tarvik::Mismatch found{0, 0};
    const auto test_start = Clock::now();
    result = tarvik::MarchPasses<tarvik::PlainWordAccess>(access, runs.data(), run_count, table.HalfWords,
                                                          &keep_running, progress)
                 .Run(&found);
    test_s = std::min(test_s, seconds_since(test_start));
    const auto base_start = Clock::now();
    baseline(words, count);
    base_s = std::min(base_s, seconds_since(base_start));
  }

  std::printf("buffer:            %zu MiB\n", mib);
  std::printf("march passes:      %.3f s, best of 3 (result %llu)\n", test_s, static_cast<unsigned long long>(result));
  std::printf("baseline sweeps:   %.3f s, best of 3\n", base_s);
  std::printf("ratio:             %.3f (target at most 1.25)\n", test_s / base_s);
  std::printf("memory tested:     %.0f MB/s (3 passes over %zu MiB)\n", mib * 1.048576 / test_s, mib);
  munmap(buffer, bytes);
  return result == tarvik::TEST_RESULT_PASSED ? 0 : 2;
}
