// The self-test follow loop's ends that neither drive kind's simulator
// reaches: a stop request arriving while the outcome is on its way, an abort
// the drive refuses, a poll without an answer.
#include "drives/self_test_follow.h"

#include <gtest/gtest.h>

#include <vector>

#include "registry/module_protocol.h"
#include "tests/support/test_machine.h"

namespace {

using tarvik::DriveOutcome;
using tarvik::SelfTestPoll;
using Outcomes = std::vector<DriveOutcome>;

// A drive whose every poll answers `poll`, the run stopped at the poll when
// `stop_at_poll`; the module's result records the outcomes it was handed.
struct ScriptedDrive {
  SelfTestPoll poll;
  bool stop_at_poll = false;
  DriveOutcome abort_answer = DriveOutcome::Passed;
  tarvik::DriveRun run{nullptr, nullptr, nullptr, 1, 0};
  int polls = 0, aborts = 0;
  Outcomes handed = {};

  static inline ScriptedDrive* current = nullptr;
  static SelfTestPoll poll_once(VOID* self) {
    auto& drive = *static_cast<ScriptedDrive*>(self);
    ++drive.polls;
    if (drive.stop_at_poll) drive.run.Running = 0;
    return drive.poll;
  }
  static DriveOutcome abort(VOID* self) {
    auto& drive = *static_cast<ScriptedDrive*>(self);
    ++drive.aborts;
    return drive.abort_answer;
  }
  static UINT64 result(tarvik::DriveRun&, const SelfTestPoll& poll) {
    current->handed.push_back(poll.Outcome);
    return poll.Outcome == DriveOutcome::Passed ? tarvik::TEST_RESULT_PASSED : tarvik::TEST_RESULT_FAILED;
  }
  UINT64 follow() {
    testing_support::TestMachine machine;
    current = this;
    tarvik::DriveOperations drive{this, 0, 1, nullptr};
    drive.PollSelfTest = poll_once;
    drive.AbortSelfTest = abort;
    tarvik::PeriodicTimer timer;
    EXPECT_EQ(timer.StartWaitable(10000000), EFI_SUCCESS);  // 1 s
    return tarvik::FollowSelfTest(run, drive, timer, 5, result);
  }
};

TEST(FollowSelfTest, AnOutcomeReachedAsTheRunStopsIsReportedAndTheTestStillAborted) {
  ScriptedDrive drive{{DriveOutcome::Unreadable}, true};
  EXPECT_EQ(drive.follow(), tarvik::TEST_RESULT_CANCELED);
  EXPECT_EQ(drive.handed, Outcomes{DriveOutcome::Unreadable}) << "its lines are logged";
  EXPECT_EQ(drive.aborts, 1);
}

TEST(FollowSelfTest, ARefusedAbortOrAnUnansweredPollEndsWithTheModulesResult) {
  ScriptedDrive refusing{{DriveOutcome::Running, 40}, true, DriveOutcome::Refused};
  EXPECT_EQ(refusing.follow(), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(refusing.handed, Outcomes{DriveOutcome::Refused});
  ScriptedDrive silent{{DriveOutcome::NoAnswer}};
  EXPECT_EQ(silent.follow(), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(silent.handed, Outcomes{DriveOutcome::NoAnswer});
  EXPECT_EQ(silent.polls, 1);
  EXPECT_EQ(silent.aborts, 0) << "a drive that does not answer is sent nothing more";
}

}  // namespace
