// How fast the march passes test memory, on one buffer:
//
// 1. The limit line: the product's march on one processor against the same
//    access sequence with nothing else (the reads and writes of every pair
//    in the march's order, no compares, no stop flag, no progress). Each is
//    timed three times, in turns; the best time of each counts (the
//    machine's other work only ever adds time).
// 2. The threads line per thread count, 1 to the machine's cores: memory
//    tested per second by the march split between that many processors,
//    its speed-up over one, and beside it the bandwidth of a plain
//    read-write sweep on as many threads (each over its own slice).
//
//   memtest_benchmark [MiB]   (default 256)
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "memtest/advanced_integrity.h"
#include "memtest/march_passes.h"
#include "tests/support/thread_processors.h"

namespace {

using Clock = std::chrono::steady_clock;

// The BSP waits for the APs without sleeping, so that a phase ends when its last share does.
struct SpinningProcessors : testing_support::ThreadProcessors {
  void Idle() { std::this_thread::yield(); }
};

EFIAPI EFI_STATUS NoProgress(VOID*, UINT64, UINT64) { return EFI_SUCCESS; }

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// The march's accesses, pair by pair, without a compare or a check: per
// pass a write phase, two ascending and two descending read-write phases
// (read both, write both, read both, write both) and the last phase (read
// both, write both, read both on the first pass; read both on the others).
void access_sequence(volatile UINT64* low, volatile UINT64* high, size_t pairs) {
  const auto touch = [&](size_t k, UINT64 v) {
    (void)low[k];
    (void)high[k];
    low[k] = v;
    high[k] = v;
    (void)low[k];
    (void)high[k];
  };
  for (UINT64 pass = 0; pass < 3; ++pass) {
    const UINT64 v = 0x5555555555555555ull + pass;
    for (size_t k = 0; k < pairs; ++k) low[k] = high[k] = v;
    for (int phase = 0; phase < 2; ++phase)
      for (size_t k = 0; k < pairs; ++k) {
        touch(k, v);
        low[k] = v;
        high[k] = v;
      }
    for (int phase = 0; phase < 2; ++phase)
      for (size_t k = pairs; k-- > 0;) {
        touch(k, v);
        low[k] = v;
        high[k] = v;
      }
    for (size_t k = 0; k < pairs; ++k) {
      if (pass == 0) {
        touch(k, v);
      } else {
        (void)low[k];
        (void)high[k];
      }
    }
  }
}

// Bytes moved per second by a read-then-write sweep on threads, each over its slice.
double sweep_bandwidth(volatile UINT64* words, size_t count, unsigned threads) {
  double best = 1e9;
  for (int round = 0; round < 3; ++round) {
    const auto start = Clock::now();
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < threads; ++t)
      workers.emplace_back([=] {
        for (size_t i = count * t / threads; i < count * (t + 1) / threads; ++i) words[i] = words[i] + 1;
      });
    for (std::thread& w : workers) w.join();
    best = std::min(best, seconds_since(start));
  }
  return 2.0 * count * sizeof(UINT64) / best;
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
  UINT64 result = tarvik::TEST_RESULT_PASSED;
  const auto march = [&](UINT64 processors) {
    tarvik::MarchProgress progress{nullptr, NoProgress, 0, 0, 0};
    tarvik::Mismatch found{0, 0, 0};
    SpinningProcessors cpus{{processors, {}, {}}};
    const auto start = Clock::now();
    const UINT64 r = tarvik::MarchPasses<tarvik::PlainWordAccess, SpinningProcessors>(
                         access, runs.data(), run_count, table.HalfWords, &keep_running, progress, cpus)
                         .Run(&found);
    if (r != tarvik::TEST_RESULT_PASSED) result = r;
    return seconds_since(start);
  };

  double march_s = 1e9, sequence_s = 1e9;
  for (int round = 0; round < 3; ++round) {
    tarvik::MarchProgress progress{nullptr, NoProgress, 0, 0, 0};
    tarvik::Mismatch found{0, 0, 0};
    const auto start = Clock::now();
    const UINT64 r = tarvik::MarchPasses<tarvik::PlainWordAccess>(access, runs.data(), run_count, table.HalfWords,
                                                                  &keep_running, progress)
                         .Run(&found);
    if (r != tarvik::TEST_RESULT_PASSED) result = r;
    march_s = std::min(march_s, seconds_since(start));
    const auto sequence_start = Clock::now();
    access_sequence(words, words + count / 2, count / 2);
    sequence_s = std::min(sequence_s, seconds_since(sequence_start));
  }
  std::printf("buffer: %zu MiB\n", mib);
  std::printf("limit: march %.3f s, its access sequence alone %.3f s, ratio %.3f (target at most 1.10), best of 3\n",
              march_s, sequence_s, march_s / sequence_s);

  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  double one = 0;
  std::printf("threads: march tested MB/s, speed-up over 1, read-write sweep MB/s on as many threads (best of 3)\n");
  for (unsigned threads = 1; threads <= cores; ++threads) {
    double best = 1e9;
    for (int round = 0; round < 3; ++round) best = std::min(best, march(threads));
    const double rate = mib * 1.048576 / best;
    if (threads == 1) one = rate;
    std::printf("threads %u: %.0f MB/s, speed-up %.2f, sweep %.0f MB/s\n", threads, rate, rate / one,
                sweep_bandwidth(words, count, threads) / 1e6);
  }
  munmap(buffer, bytes);
  return result == tarvik::TEST_RESULT_PASSED ? 0 : 2;
}
