// The march test's passes: three passes of six phases over the pairs of
// words (k, k + N) of the claimed memory, so that both halves are tested in
// step. The word accesses go through an access policy: the product reads and
// writes plain volatile words; tests put in one that holds faults.
#pragma once

#include "efi/efi.h"
#include "registry/test_module_protocol.h"

namespace tarvik {

// A stretch of pairs whose two words each stay inside one claimed block:
// Low[i] is word Start + i, High[i] is word Start + i + N.
struct PairRun {
  UINT64 Start;
  UINT64 Count;
  volatile UINT64* Low;
  volatile UINT64* High;
};

struct PatternSet {
  UINT64 X, Y, Z;
};
inline constexpr PatternSet PatternSets[3] = {
    {0xFFFFFFFFFFFFFFFFull, 0x0000000000000000ull, 0xFFFFFFFFFFFFFFFFull},
    {0x0000000000000000ull, 0x5555555555555555ull, 0xAAAAAAAAAAAAAAAAull},
    {0x5555555555555555ull, 0xAAAAAAAAAAAAAAAAull, 0x5555555555555555ull},
};
// Passes use set 1, then set 0, then set 2.
inline constexpr UINT64 PatternSetOfPass[3] = {1, 0, 2};

inline constexpr UINT64 MarchPassCount = 3;
inline constexpr UINT64 MarchPhaseCount = 6;

// Where the passes report to: the progress callback, and the run's counters.
struct MarchProgress {
  TestModuleProtocol* This;
  TEST_PROGRESS_CALLBACK Callback;
  UINT64 StepsDone;
  UINT64 TotalSteps;
  UINT64 ReportedPercent;

  void Report(UINT64 Percent) {
    ReportedPercent = Percent;
    Callback(This, Percent, 0);
  }
};

// The word that did not hold its value, and the value it should have held.
struct Mismatch {
  UINT64 BadValue;
  UINT64 ExpectedValue;
};

struct PlainWordAccess {
  static UINT64 Read(volatile UINT64* Word) { return *Word; }
  static void Write(volatile UINT64* Word, UINT64 Value) { *Word = Value; }
};

template <typename Access>
class MarchPasses {
 public:
  MarchPasses(Access& Words, const PairRun* Runs, UINT64 RunCount, UINT64 HalfWords,
              const volatile UINT8* RunFlag, MarchProgress& Progress)
      : Words_(Words), Runs_(Runs), RunCount_(RunCount), HalfWords_(HalfWords), KeepRunning_(RunFlag),
        Progress_(Progress) {}

  // TEST_RESULT_PASSED, or TEST_RESULT_FAILED with Found describing the word.
  UINT64 Run(Mismatch* Found) {
    Progress_.StepsDone = 0;
    Progress_.ReportedPercent = 0;
    Progress_.TotalSteps = MarchPassCount * MarchPhaseCount;
    for (UINT64 Pass = 0; Pass < MarchPassCount; ++Pass) {
      if (*KeepRunning_ == 0) return TEST_RESULT_PASSED;
      if (!RunPass(PatternSets[PatternSetOfPass[Pass % 3]], PatternSetOfPass[Pass % 3] == 1, Found))
        return TEST_RESULT_FAILED;
    }
    return TEST_RESULT_PASSED;
  }

 private:
  // Reads word k, then word k + N; the first that differs from Value fails the pass.
  bool Verify(volatile UINT64* Low, volatile UINT64* High, UINT64 Value, Mismatch* Found) {
    const UINT64 A = Words_.Read(Low);
    const UINT64 B = Words_.Read(High);
    if (((A ^ Value) | (B ^ Value)) == 0) [[likely]]
      return true;
    Found->BadValue = A != Value ? A : B;
    Found->ExpectedValue = Value;
    return false;
  }
  void Write(volatile UINT64* Low, volatile UINT64* High, UINT64 Value) {
    Words_.Write(Low, Value);
    Words_.Write(High, Value);
  }

  // What one phase does to each pair.
  enum class PairWork {
    Write,          // write A
    VerifyAndMove,  // verify A; write B; verify B; write B
    VerifyLast,     // verify A
    VerifyRestore,  // verify A; write B; verify B (the set that ends on X)
  };

  bool RunPass(const PatternSet& P, bool RestoresX, Mismatch* Found) {
    const UINT64 X = P.X, Y = P.Y, Z = P.Z;
    if (!Phase<PairWork::Write, true>(X, X, Found)) return false;
    if (!Phase<PairWork::VerifyAndMove, true>(X, Y, Found)) return false;
    if (!Phase<PairWork::VerifyAndMove, true>(Y, Z, Found)) return false;
    if (!Phase<PairWork::VerifyAndMove, false>(Z, Y, Found)) return false;
    if (!Phase<PairWork::VerifyAndMove, false>(Y, Z, Found)) return false;
    return RestoresX ? Phase<PairWork::VerifyRestore, true>(Z, X, Found)
                     : Phase<PairWork::VerifyLast, true>(Z, Z, Found);
  }

  // One pair's accesses, word k before word k + N, each read before the write
  // that follows it. A and B arrive in registers: the loops keep nothing in
  // memory that a volatile word store could be taken to change.
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

  // Ascending phases (Up) test the stop flag before each pair; descending
  // ones before their first pair and after each pair. Every tenth of the
  // pairs reports progress, except the last pair of a descending phase
  // (k = 0). The pairs between two reports run as one stretch, so the
  // progress test costs nothing per pair.
  template <PairWork Work, bool Up>
  bool Phase(UINT64 A, UINT64 B, Mismatch* Found) {
    const UINT64 Q = HalfWords_ / 10 > 0 ? HalfWords_ / 10 : 1;
    const volatile UINT8* const Flag = KeepRunning_;
    UINT64 NextReport = Up ? 0 : (HalfWords_ > 0 ? (HalfWords_ - 1) / Q * Q : 0);
    bool Reporting = Up || NextReport != 0;
    UINT64 Tenths = 0;
    const auto Report = [&]() {
      Progress_.Report((++Tenths + 10 * Progress_.StepsDone) * 100 / (10 * Progress_.TotalSteps));
      if (Up) {
        NextReport += Q;
      } else {
        Reporting = NextReport > Q;
        NextReport = Reporting ? NextReport - Q : 0;
      }
    };
    if (!Up && *Flag == 0) goto Stopped;
    for (UINT64 Step = 0; Step < RunCount_; ++Step) {
      const PairRun& Run = Runs_[Up ? Step : RunCount_ - 1 - Step];
      const UINT64 Start = Run.Start, Count = Run.Count;
      volatile UINT64* const Low = Run.Low;
      volatile UINT64* const High = Run.High;
      if (Up) {
        for (UINT64 I = 0; I < Count;) {
          // The report falls on pair At of this run, or after it.
          const UINT64 At = NextReport < Start + Count ? NextReport - Start : Count;
          for (; I < At; ++I) {
            if (*Flag == 0) [[unlikely]]
              goto Stopped;
            if (!Pair<Work>(Low + I, High + I, A, B, Found)) [[unlikely]]
              return false;
          }
          if (I == Count) break;
          if (*Flag == 0) [[unlikely]]
            goto Stopped;
          Report();
          if (!Pair<Work>(Low + I, High + I, A, B, Found)) [[unlikely]]
            return false;
          ++I;
        }
      } else {
        for (UINT64 I = Count; I > 0;) {
          // Pairs I - 1 down to After + 1 run before the report at pair After.
          const bool Here = Reporting && NextReport >= Start && NextReport < Start + I;
          const UINT64 After = Here ? NextReport - Start : 0;
          for (; I > After + (Here ? 1 : 0); --I) {
            if (!Pair<Work>(Low + I - 1, High + I - 1, A, B, Found)) [[unlikely]]
              return false;
            if (*Flag == 0) [[unlikely]]
              goto Stopped;
          }
          if (!Here) break;
          Report();
          if (!Pair<Work>(Low + I - 1, High + I - 1, A, B, Found)) [[unlikely]]
            return false;
          --I;
          if (*Flag == 0) [[unlikely]]
            goto Stopped;
        }
      }
    }
  Stopped:
    ++Progress_.StepsDone;
    Progress_.Report(Progress_.StepsDone * 100 / Progress_.TotalSteps);
    return true;
  }

  Access& Words_;
  const PairRun* Runs_;
  UINT64 RunCount_;
  UINT64 HalfWords_;
  const volatile UINT8* KeepRunning_;
  MarchProgress& Progress_;
};

}  // namespace tarvik
