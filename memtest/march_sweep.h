// One processor's sweep of one march phase over a range of pairs (k, k + N):
// the word accesses of each pair, in stretches between which the processor
// looks at its stop flag and publishes how far it got. Nothing here calls
// the firmware: application processors run it.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// A stretch of pairs whose two words each stay inside one claimed block:
// Low[i] is word Start + i, High[i] is word Start + i + N.
struct PairRun {
  UINT64 Start;
  UINT64 Count;
  volatile UINT64* Low;
  volatile UINT64* High;
};

// The word that did not hold its value, the value it should have held, and
// its address.
struct Mismatch {
  UINT64 BadValue;
  UINT64 ExpectedValue;
  UINT64 Address;
};

struct PlainWordAccess {
  static UINT64 Read(volatile UINT64* Word) { return *Word; }
  static void Write(volatile UINT64* Word, UINT64 Value) { *Word = Value; }
};

// What one phase does to each pair.
enum class PairWork : UINT8 {
  Write,          // write A
  VerifyAndMove,  // verify A; write B; verify B; write B
  VerifyLast,     // verify A
  VerifyRestore,  // verify A; write B; verify B (the set that ends on X)
};

// Pairs between two looks at the stop flag: 64 KiB of each half, so the
// look costs nothing against the accesses and a stop lands within
// microseconds.
inline constexpr UINT64 StretchPairs = 8192;

template <typename Access>
class MarchSweep {
 public:
  MarchSweep(Access& Words, const PairRun* Runs, UINT64 RunCount) : Words_(Words), Runs_(Runs), RunCount_(RunCount) {}

  // Runs Work over the pairs [Begin, End), ascending (Up) or descending.
  // Before each stretch Between.Next(pairs done) says how many pairs the
  // next stretch may hold (0: stop here); Between.Finish(pairs done) ends
  // the sweep. False at a mismatch, described in Found.
  template <PairWork Work, bool Up, typename Hook>
  bool Run(UINT64 A, UINT64 B, UINT64 Begin, UINT64 End, Hook& Between, Mismatch* Found) {
    UINT64 Done = 0;
    for (UINT64 Step = 0; Step < RunCount_; ++Step) {
      const PairRun& R = Runs_[Up ? Step : RunCount_ - 1 - Step];
      const UINT64 From = R.Start > Begin ? R.Start : Begin;
      const UINT64 To = R.Start + R.Count < End ? R.Start + R.Count : End;
      if (From >= To) continue;
      // Offsets in the run: [First, Last) still to do.
      UINT64 First = From - R.Start, Last = To - R.Start;
      volatile UINT64* const Low = R.Low;
      volatile UINT64* const High = R.High;
      while (First < Last) {
        UINT64 Length = Between.Next(Done);
        if (Length == 0) {
          Between.Finish(Done);
          return true;
        }
        if (Length > Last - First) Length = Last - First;
        if (Up) {
          for (const UINT64 Stop = First + Length; First < Stop; ++First)
            if (!Pair<Work>(Low + First, High + First, A, B, Found)) [[unlikely]]
              return false;
        } else {
          for (const UINT64 Stop = Last - Length; Last > Stop; --Last)
            if (!Pair<Work>(Low + Last - 1, High + Last - 1, A, B, Found)) [[unlikely]]
              return false;
        }
        Done += Length;
      }
    }
    Between.Finish(Done);
    return true;
  }

 private:
  // Reads word k, then word k + N; the first that differs from Value fails.
  // Two compares, each fused with its branch, cost less than combining them.
  bool Verify(volatile UINT64* Low, volatile UINT64* High, UINT64 Value, Mismatch* Found) {
    const UINT64 L = Words_.Read(Low);
    const UINT64 H = Words_.Read(High);
    if (L != Value) [[unlikely]]
      return Report(Low, L, Value, Found);
    if (H != Value) [[unlikely]]
      return Report(High, H, Value, Found);
    return true;
  }
  [[gnu::cold]] static bool Report(volatile UINT64* Word, UINT64 Read, UINT64 Value, Mismatch* Found) {
    Found->BadValue = Read;
    Found->ExpectedValue = Value;
    Found->Address = reinterpret_cast<UINT64>(Word);
    return false;
  }
  void Write(volatile UINT64* Low, volatile UINT64* High, UINT64 Value) {
    Words_.Write(Low, Value);
    Words_.Write(High, Value);
  }

  // One pair's accesses, word k before word k + N, each read before the
  // write that follows it. A and B arrive in registers: the loops keep
  // nothing in memory that a volatile word store could be taken to change.
  template <PairWork Work>
  bool Pair(volatile UINT64* L, volatile UINT64* H, UINT64 A, UINT64 B, Mismatch* Found) {
    if constexpr (Work == PairWork::Write) {
      Write(L, H, A);
      return true;
    } else {
      if (!Verify(L, H, A, Found)) [[unlikely]]
        return false;
      if constexpr (Work == PairWork::VerifyLast) return true;
      Write(L, H, B);
      if (!Verify(L, H, B, Found)) [[unlikely]]
        return false;
      if constexpr (Work == PairWork::VerifyAndMove) Write(L, H, B);
      return true;
    }
  }

  Access& Words_;
  const PairRun* Runs_;
  UINT64 RunCount_;
};

}  // namespace tarvik
