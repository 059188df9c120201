// The march test's passes: three passes of six phases over the pairs of
// words (k, k + N) of the claimed memory, so that both halves are tested in
// step. The pairs of a phase are cut into a few shares per processor; the boot
// processor (BSP) starts the application processors (APs) on theirs, works
// through shares itself between its progress reports, and waits for every
// AP before the next phase. A phase's shares are claimed in the phase's
// order, so a processor alone keeps the order of the whole phase.
//
// Two policies: Access reads and writes the words (plain volatile words in
// the product, a faulty stand-in in the tests); Processors starts the APs
// and lets the BSP wait (the firmware's MP services in the product).
#pragma once

#include "efi/efi.h"
#include "memtest/march_sweep.h"
#include "registry/module_protocol.h"

namespace tarvik {

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

// Processors that take part at most; a machine with more leaves the rest idle.
inline constexpr UINT64 MaxMarchProcessors = 128;
// Shares per processor: a processor slowed down (by the BSP's duties, by
// another guest on the host) takes fewer of them, so all end at about the
// same time.
inline constexpr UINT64 SharesPerProcessor = 4;
inline constexpr UINT64 MaxMarchShares = 128;
// The BSP gives up on an AP whose share shows no progress for this long.
inline constexpr UINT64 ProcessorHangLimitMs = 30000;
// Run's result when an AP stopped answering (the run reports it as failed).
inline constexpr UINT64 MarchProcessorHung = 0xFFFFFFFFFFFFFFFFull;

// Where the passes report to: the progress callback, and the run's counters.
struct MarchProgress {
  TestModuleProtocol* This;
  TEST_PROGRESS_CALLBACK Callback;
  UINT64 StepsDone;
  UINT64 TotalSteps;
  UINT64 ReportedPercent;

  // Not inlined: g++ 12 misplaces stack slots of a large caller around an
  // inlined call through an EFIAPI pointer (seen at -O1 and -O2).
  [[gnu::noinline]] void Report(UINT64 Percent) {
    ReportedPercent = Percent;
    Callback(This, Percent, 0);
  }
};

// The processors of a run without MP services: the BSP alone.
struct BootProcessorOnly {
  UINT64 Count() const { return 1; }
  bool Start(EFI_AP_PROCEDURE, VOID*) { return false; }
  bool Finished() { return true; }
  void Idle() {}
};

// One share's slot, on a cache line of its own: written by the processor
// that claimed the share (its progress, the bad word it found), read by the BSP.
struct alignas(64) ShareSlot {
  UINT64 PairsDone;  // of this phase, published between stretches
  UINT32 State;      // ShareState
  UINT32 Found;      // 1: Word holds the mismatch that ended the share
  Mismatch Word;
};
enum ShareState : UINT32 { ShareFree = 0, ShareClaimed = 1, ShareFinished = 2 };

template <typename Access, typename Processors = BootProcessorOnly>
class MarchPasses {
 public:
  MarchPasses(Access& Words, const PairRun* Runs, UINT64 RunCount, UINT64 HalfWords, const volatile UINT8* RunFlag,
              MarchProgress& Progress, Processors& Cpus)
      : Sweep_(Words, Runs, RunCount), HalfWords_(HalfWords), KeepRunning_(RunFlag), Progress_(Progress),
        Cpus_(Cpus) {
    const UINT64 Count = Cpus.Count();
    Processors_ = Count < 1 ? 1 : Count > MaxMarchProcessors ? MaxMarchProcessors : Count;
    Shares_ = Processors_ == 1                                     ? 1
              : Processors_ * SharesPerProcessor > MaxMarchShares ? MaxMarchShares
                                                                   : Processors_ * SharesPerProcessor;
    if (Shares_ > HalfWords_ && HalfWords_ > 0) Shares_ = HalfWords_;
  }
  MarchPasses(Access& Words, const PairRun* Runs, UINT64 RunCount, UINT64 HalfWords, const volatile UINT8* RunFlag,
              MarchProgress& Progress)
    requires(__is_same(Processors, BootProcessorOnly))
      : MarchPasses(Words, Runs, RunCount, HalfWords, RunFlag, Progress, Alone_) {}

  // TEST_RESULT_PASSED, TEST_RESULT_FAILED with Found describing the word
  // (the first share's when several found one), or MarchProcessorHung.
  UINT64 Run(Mismatch* Found) {
    Progress_.StepsDone = 0;
    Progress_.ReportedPercent = 0;
    Progress_.TotalSteps = MarchPassCount * MarchPhaseCount;
    for (UINT64 Pass = 0; Pass < MarchPassCount; ++Pass) {
      if (*KeepRunning_ == 0) break;
      const UINT64 Set = PatternSetOfPass[Pass % 3];
      const PatternSet& P = PatternSets[Set];
      const PhaseKind Last = Set == 1 ? PhaseKind::RestoreUp : PhaseKind::LastUp;
      const struct {
        PhaseKind Kind;
        UINT64 A, B;
      } Phases[MarchPhaseCount] = {{PhaseKind::WriteUp, P.X, P.X}, {PhaseKind::MoveUp, P.X, P.Y},
                                   {PhaseKind::MoveUp, P.Y, P.Z},  {PhaseKind::MoveDown, P.Z, P.Y},
                                   {PhaseKind::MoveDown, P.Y, P.Z}, {Last, P.Z, P.X}};
      for (const auto& Phase : Phases) {
        if (!RunPhase(Phase.Kind, Phase.A, Phase.B, Found)) return Hung_ ? MarchProcessorHung : TEST_RESULT_FAILED;
      }
    }
    return TEST_RESULT_PASSED;
  }

  // How many processors took a share of at least one phase.
  UINT64 ProcessorsThatTested() const { return ApsStarted_ ? Processors_ : 1; }

 private:
  enum class PhaseKind : UINT8 { WriteUp, MoveUp, MoveDown, LastUp, RestoreUp };
  static bool IsUp(PhaseKind Kind) { return Kind != PhaseKind::MoveDown; }

  // The progress reports of a phase fall where the BSP alone would reach
  // pair k with k mod (N / 10) = 0, counted in pairs done: ascending from
  // k = 0, descending from the highest such k down to, without, k = 0.
  struct Reports {
    UINT64 N, Q, Count, Next;
    bool Up;
    void Begin(UINT64 Pairs, bool Ascending) {
      N = Pairs;
      Q = N / 10 > 0 ? N / 10 : 1;
      Up = Ascending;
      Count = Up ? (N + Q - 1) / Q : (N > 0 ? (N - 1) / Q : 0);
      Next = 0;
    }
    UINT64 Due() const { return Up ? Next * Q : N - 1 - (Count - Next) * Q; }
    bool Pending(UINT64 Done) const { return Next < Count && Due() <= Done; }
  };

  bool Stopping() const { return __atomic_load_n(&Stop_, __ATOMIC_RELAXED) != 0; }
  void RequestStop() { __atomic_store_n(&Stop_, 1u, __ATOMIC_RELAXED); }

  UINT64 PairsDone() const {
    UINT64 Sum = 0;
    for (UINT64 S = 0; S < Shares_; ++S) Sum += __atomic_load_n(&Slots_[S].PairsDone, __ATOMIC_RELAXED);
    return Sum;
  }

  // The BSP's duties between two stretches: the run's stop flag into the
  // processors' one, and the progress reports the pairs done have reached.
  bool TendRun(UINT64 Done) {
    if (*KeepRunning_ == 0) RequestStop();
    if (Stopping()) return false;
    while (Reports_.Pending(Done)) {
      ++Reports_.Next;
      Progress_.Report((Reports_.Next + 10 * Progress_.StepsDone) * 100 / (10 * Progress_.TotalSteps));
    }
    if (*KeepRunning_ == 0) RequestStop();
    return !Stopping();
  }

  // Between the stretches of a share on an AP: publish, look at the flag.
  struct ApHook {
    MarchPasses& Run;
    ShareSlot& Slot;
    UINT64 Next(UINT64 Done) {
      __atomic_store_n(&Slot.PairsDone, Done, __ATOMIC_RELAXED);
      return Run.Stopping() ? 0 : StretchPairs;
    }
    void Finish(UINT64 Done) { __atomic_store_n(&Slot.PairsDone, Done, __ATOMIC_RELAXED); }
  };
  // On the BSP: also its duties; alone, its stretches end where reports fall.
  struct BspHook {
    MarchPasses& Run;
    ShareSlot& Slot;
    UINT64 Next(UINT64 Done) {
      __atomic_store_n(&Slot.PairsDone, Done, __ATOMIC_RELAXED);
      const bool Alone = Run.Shares_ == 1;
      if (!Run.TendRun(Alone ? Done : Run.PairsDone())) return 0;
      UINT64 Length = StretchPairs;
      if (Alone && Run.Reports_.Next < Run.Reports_.Count && Run.Reports_.Due() - Done < Length)
        Length = Run.Reports_.Due() - Done;
      return Length;
    }
    void Finish(UINT64 Done) { __atomic_store_n(&Slot.PairsDone, Done, __ATOMIC_RELAXED); }
  };

  template <typename Hook>
  bool Sweep(PhaseKind Kind, UINT64 Begin, UINT64 End, Hook& Between, Mismatch* Found) {
    const UINT64 A = A_, B = B_;
    switch (Kind) {
      case PhaseKind::WriteUp:
        return Sweep_.template Run<PairWork::Write, true>(A, B, Begin, End, Between, Found);
      case PhaseKind::MoveUp:
        return Sweep_.template Run<PairWork::VerifyAndMove, true>(A, B, Begin, End, Between, Found);
      case PhaseKind::MoveDown:
        return Sweep_.template Run<PairWork::VerifyAndMove, false>(A, B, Begin, End, Between, Found);
      case PhaseKind::LastUp:
        return Sweep_.template Run<PairWork::VerifyLast, true>(A, B, Begin, End, Between, Found);
      case PhaseKind::RestoreUp:
        return Sweep_.template Run<PairWork::VerifyRestore, true>(A, B, Begin, End, Between, Found);
    }
    return true;
  }

  // Claims shares in the phase's order until none is left, and runs each.
  template <typename Hook>
  void WorkShares() {
    for (;;) {
      const UINT64 Claim = __atomic_fetch_add(&NextShare_, 1, __ATOMIC_RELAXED);
      if (Claim >= Shares_) return;
      const UINT64 Share = IsUp(Kind_) ? Claim : Shares_ - 1 - Claim;
      ShareSlot& Slot = Slots_[Share];
      __atomic_store_n(&Slot.State, ShareClaimed, __ATOMIC_RELAXED);
      Hook Between{*this, Slot};
      Mismatch Word{0, 0, 0};
      const bool Sound = Sweep(Kind_, HalfWords_ * Share / Shares_, HalfWords_ * (Share + 1) / Shares_, Between, &Word);
      if (!Sound) {
        Slot.Word = Word;
        Slot.Found = 1;
        RequestStop();
      }
      __atomic_store_n(&Slot.State, ShareFinished, __ATOMIC_RELEASE);
    }
  }

  static EFIAPI VOID ApProcedure(VOID* Argument) { static_cast<MarchPasses*>(Argument)->template WorkShares<ApHook>(); }

  // The BSP waits for the APs, reporting progress meanwhile. False when an
  // AP made no progress for ProcessorHangLimitMs or its firmware gave up on it.
  bool WaitForAps() {
    UINT64 Last = PairsDone(), Quiet = 0;
    while (!Cpus_.Finished()) {
      const UINT64 Done = PairsDone();
      TendRun(Done);
      if (Done != Last) {
        Last = Done;
        Quiet = 0;
      } else if (++Quiet > ProcessorHangLimitMs) {
        RequestStop();
        return false;
      }
      Cpus_.Idle();
    }
    for (UINT64 S = 0; S < Shares_; ++S)
      if (__atomic_load_n(&Slots_[S].State, __ATOMIC_ACQUIRE) != ShareFinished) return false;
    return true;
  }

  bool RunPhase(PhaseKind Kind, UINT64 A, UINT64 B, Mismatch* Found) {
    Kind_ = Kind;
    A_ = A;
    B_ = B;
    NextShare_ = 0;
    Stop_ = *KeepRunning_ == 0 ? 1 : 0;
    for (UINT64 S = 0; S < Shares_; ++S) Slots_[S] = ShareSlot{0, ShareFree, 0, {0, 0, 0}};
    Reports_.Begin(HalfWords_, IsUp(Kind));

    bool ApsRunning = false;
    if (Shares_ > 1 && Stop_ == 0) {
      ApsRunning = Cpus_.Start(ApProcedure, this);
      if (ApsRunning) {
        ApsStarted_ = true;
      } else if (!ApsStarted_) {
        Shares_ = 1;  // refused from the start: the BSP alone, as without MP services
      }
    }
    WorkShares<BspHook>();
    if (ApsRunning && !WaitForAps()) {
      Hung_ = true;
      return false;
    }
    for (UINT64 S = 0; S < Shares_; ++S) {
      const UINT64 Share = IsUp(Kind) ? S : Shares_ - 1 - S;
      if (Slots_[Share].Found != 0) {
        *Found = Slots_[Share].Word;
        return false;
      }
    }
    if (!Stopping()) TendRun(HalfWords_);  // what the APs finished after the BSP's last look
    ++Progress_.StepsDone;
    Progress_.Report(Progress_.StepsDone * 100 / Progress_.TotalSteps);
    return true;
  }

  MarchSweep<Access> Sweep_;
  UINT64 HalfWords_;
  const volatile UINT8* KeepRunning_;
  MarchProgress& Progress_;
  BootProcessorOnly Alone_;
  Processors& Cpus_;
  UINT64 Processors_ = 1;
  UINT64 Shares_ = 1;
  bool ApsStarted_ = false;
  bool Hung_ = false;
  Reports Reports_{};

  // The phase every processor works on; written by the BSP before it starts them.
  PhaseKind Kind_ = PhaseKind::WriteUp;
  UINT64 A_ = 0, B_ = 0;
  UINT64 NextShare_ = 0;
  UINT32 Stop_ = 0;
  ShareSlot Slots_[MaxMarchShares] = {};
};

}  // namespace tarvik
