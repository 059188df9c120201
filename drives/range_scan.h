// Verifying a range of blocks in the largest commands the drive takes, and
// narrowing a failed command down to the blocks it could not read: a failed
// range is halved until single blocks remain, so a few bad blocks in a long
// command cost a few dozen commands, not one per block. The same scan reads
// the window around each block a drive's logs name.
//
// The Sink the scans report to has
//   bool KeepRunning();             read before every command
//   void Progress(UINT64 Done);     blocks finished of the whole scan
//   bool Unreadable(UINT64 Lba);    one unreadable block; false ends the scan
#pragma once

#include "drives/drive_operations.h"
#include "drives/lba_list.h"

namespace tarvik {

enum class ScanEnd : UINT8 {
  Completed,  // every block was tried
  Stopped,    // KeepRunning said no, or the sink wanted no more blocks
  NoAnswer,   // the drive stopped answering
};

namespace range_scan {

// Blocks [Lba, Lba + Blocks) after their command failed as unreadable.
template <typename Sink>
ScanEnd Narrow(const DriveOperations& Drive, UINT64 Lba, UINT32 Blocks, Sink& Report) {
  if (Blocks == 1) return Report.Unreadable(Lba) ? ScanEnd::Completed : ScanEnd::Stopped;
  const UINT32 Halves[2] = {Blocks / 2, Blocks - Blocks / 2};
  UINT64 At = Lba;
  for (const UINT32 Half : Halves) {
    if (!Report.KeepRunning()) return ScanEnd::Stopped;
    const DriveOutcome Outcome = Drive.VerifyRange(Drive.Context, At, Half);
    if (Outcome == DriveOutcome::NoAnswer) return ScanEnd::NoAnswer;
    if (Outcome == DriveOutcome::Unreadable) {
      const ScanEnd End = Narrow(Drive, At, Half, Report);
      if (End != ScanEnd::Completed) return End;
    }
    At += Half;
  }
  return ScanEnd::Completed;
}

}  // namespace range_scan

// Verifies Count blocks from First (clamped to the drive), reporting
// progress after every command and every unreadable block, in order.
template <typename Sink>
ScanEnd ScanRange(const DriveOperations& Drive, UINT64 First, UINT64 Count, Sink& Report) {
  if (First >= Drive.BlockCount) return ScanEnd::Completed;
  if (Count > Drive.BlockCount - First) Count = Drive.BlockCount - First;
  const UINT64 Step = Drive.MaxBlocksPerCommand == 0 ? 1 : Drive.MaxBlocksPerCommand;
  for (UINT64 Done = 0; Done < Count;) {
    if (!Report.KeepRunning()) return ScanEnd::Stopped;
    const UINT32 Blocks = static_cast<UINT32>(Count - Done < Step ? Count - Done : Step);
    const DriveOutcome Outcome = Drive.VerifyRange(Drive.Context, First + Done, Blocks);
    if (Outcome == DriveOutcome::NoAnswer) return ScanEnd::NoAnswer;
    if (Outcome == DriveOutcome::Unreadable) {
      const ScanEnd End = range_scan::Narrow(Drive, First + Done, Blocks, Report);
      if (End != ScanEnd::Completed) return End;
    }
    Done += Blocks;
    Report.Progress(Done);
  }
  return ScanEnd::Completed;
}

// The window of Before blocks before Lba, Lba itself and After blocks after
// it, clipped to the drive: where a logged error's neighbours lie.
struct BlockWindow {
  UINT64 First;
  UINT64 Count;  // 0 when Lba lies outside the drive
};

constexpr BlockWindow WindowAround(UINT64 Lba, UINT64 Before, UINT64 After, UINT64 BlockCount) {
  if (Lba >= BlockCount) return {0, 0};
  const UINT64 First = Lba > Before ? Lba - Before : 0;
  const UINT64 Last = BlockCount - 1 - Lba > After ? Lba + After : BlockCount - 1;
  return {First, Last - First + 1};
}

// Verifies the window around each listed block, head first, emptying the
// list as it goes (the list holds no block twice). Besides ScanRange's, the
// Sink has
//   bool Reading(UINT64 Lba, UINT64 Index, UINT64 Count, BlockWindow Window);
//                                    before a block's window; false skips it
//   void Read(UINT64 Index, UINT64 Count);  after it, unless the scan ended
template <typename Sink>
ScanEnd ReadAroundLogged(const DriveOperations& Drive, LbaList& Lbas, UINT64 Before, UINT64 After, Sink& Report) {
  const UINT64 Count = Lbas.Count();
  for (UINT64 Index = 0; !Lbas.Empty() && Report.KeepRunning(); ++Index) {
    const BlockWindow Window = WindowAround(Lbas.Front(), Before, After, Drive.BlockCount);
    if (Report.Reading(Lbas.Front(), Index, Count, Window)) {
      const ScanEnd End = ScanRange(Drive, Window.First, Window.Count, Report);
      // A stop request still counts the block as read; a sink wanting no more ends here.
      if (End == ScanEnd::NoAnswer || (End == ScanEnd::Stopped && Report.KeepRunning())) return End;
    }
    Lbas.PopFront();
    Report.Read(Index, Count);
  }
  return Report.KeepRunning() ? ScanEnd::Completed : ScanEnd::Stopped;
}

}  // namespace tarvik
