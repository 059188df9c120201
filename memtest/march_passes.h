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
    if (A == Value && B == Value) [[likely]]
      return true;
    Found->BadValue = A != Value ? A : B;
    Found->ExpectedValue = Value;
    return false;
  }
  void Write(volatile UINT64* Low, volatile UINT64* High, UINT64 Value) {
    Words_.Write(Low, Value);
    Words_.Write(High, Value);
  }

  bool RunPass(const PatternSet& P, bool RestoresX, Mismatch* Found) {
    const UINT64 X = P.X, Y = P.Y, Z = P.Z;
    if (!Ascending([&](volatile UINT64* L, volatile UINT64* H) { Write(L, H, X); return true; })) return false;
    const auto Step = [&](UINT64 Old, UINT64 New) {
      return [this, Old, New, Found](volatile UINT64* L, volatile UINT64* H) {
        if (!Verify(L, H, Old, Found)) return false;
        Write(L, H, New);
        if (!Verify(L, H, New, Found)) return false;
        Write(L, H, New);
        return true;
      };
    };
    if (!Ascending(Step(X, Y))) return false;
    if (!Ascending(Step(Y, Z))) return false;
    if (!Descending(Step(Z, Y))) return false;
    if (!Descending(Step(Y, Z))) return false;
    return Ascending([&](volatile UINT64* L, volatile UINT64* H) {
      if (!Verify(L, H, Z, Found)) return false;
      if (!RestoresX) return true;
      Write(L, H, X);
      return Verify(L, H, X, Found);
    });
  }

  // Progress within a phase: every tenth of the pairs.
  UINT64 Tenth() const { return HalfWords_ / 10 > 0 ? HalfWords_ / 10 : 1; }
  void ReportTenth(UINT64 Tenths) {
    Progress_.Report((Tenths + 10 * Progress_.StepsDone) * 100 / (10 * Progress_.TotalSteps));
  }
  void EndPhase() {
    ++Progress_.StepsDone;
    Progress_.Report(Progress_.StepsDone * 100 / Progress_.TotalSteps);
  }

  // Pairs from k = 0 up; the stop flag is tested before each pair.
  template <typename PairOp>
  bool Ascending(PairOp Op) {
    const UINT64 Q = Tenth();
    UINT64 NextReport = 0;
    UINT64 Tenths = 0;
    for (UINT64 R = 0; R < RunCount_; ++R) {
      const PairRun& Run = Runs_[R];
      for (UINT64 I = 0; I < Run.Count; ++I) {
        if (*KeepRunning_ == 0) [[unlikely]]
          goto Stopped;
        if (Run.Start + I == NextReport) [[unlikely]] {
          ReportTenth(++Tenths);
          NextReport += Q;
        }
        if (!Op(Run.Low + I, Run.High + I)) [[unlikely]]
          return false;
      }
    }
  Stopped:
    EndPhase();
    return true;
  }

  // Pairs from k = N - 1 down; the stop flag is tested before the first pair
  // and after each pair. The last pair, k = 0, reports no progress.
  template <typename PairOp>
  bool Descending(PairOp Op) {
    const UINT64 Q = Tenth();
    UINT64 NextReport = HalfWords_ > 0 ? (HalfWords_ - 1) / Q * Q : 0;
    UINT64 Tenths = 0;
    if (*KeepRunning_ == 0) goto Stopped;
    for (UINT64 R = RunCount_; R-- > 0;) {
      const PairRun& Run = Runs_[R];
      for (UINT64 I = Run.Count; I-- > 0;) {
        if (Run.Start + I == NextReport && NextReport != 0) [[unlikely]] {
          ReportTenth(++Tenths);
          NextReport -= Q;
        }
        if (!Op(Run.Low + I, Run.High + I)) [[unlikely]]
          return false;
        if (*KeepRunning_ == 0) [[unlikely]]
          goto Stopped;
      }
    }
  Stopped:
    EndPhase();
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
