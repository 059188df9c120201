// The tarvik program as a technician starts it, and the simulated machine
// it builds.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/test_machine.h"

namespace {

struct Finished {
  int exit_code = -1;
  std::string output;
};

Finished run_program(const std::string& arguments) {
  const std::string command = std::string(TARVIK_BINARY) + " " + arguments + " 2>&1";
  Finished finished;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return finished;
  std::array<char, 4096> chunk;
  for (size_t n; (n = fread(chunk.data(), 1, chunk.size(), pipe)) > 0;) finished.output.append(chunk.data(), n);
  const int status = pclose(pipe);
  finished.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return finished;
}

// The program ends with 0 only after a cold reset with success, and with
// --check-leaks only when no pool or page is left allocated; with 4, naming
// what it waited for, when a run cannot go on.
TEST(Program, ExitsWithSuccessAfterTheColdResetLeavingNothingAllocatedAndReportsARunThatCannotGoOn) {
  const Finished run = run_program("--virtual-clock --no-terminal --check-leaks --keys-text "
                                   "'wait \"Main Screen\"; key Up; key Enter'");
  EXPECT_EQ(run.exit_code, 0) << run.output;
  EXPECT_EQ(run.output.find("left allocated"), std::string::npos) << run.output;
  const Finished stuck = run_program("--virtual-clock --no-terminal --keys-text 'wait 5 \"Text that never appears\"'");
  EXPECT_EQ(stuck.exit_code, 4) << stuck.output;
  EXPECT_NE(stuck.output.find("Text that never appears"), std::string::npos) << stuck.output;
}

TEST(Program, RefusesAMalformedProfileNamingFileAndLine) {
  const std::string profile =
      (std::filesystem::temp_directory_path() / ("tarvik-broken-" + std::to_string(getpid()) + ".ini")).string();
  std::ofstream(profile) << "[machine]\nname = Broken\nmemory_mib = lots\n";
  const Finished run = run_program("--no-terminal --machine " + profile);
  std::filesystem::remove(profile);
  EXPECT_EQ(run.exit_code, 2);
  EXPECT_NE(run.output.find(profile + ":3:"), std::string::npos) << run.output;
}

TEST(MachineBuild, AMachineThatFailsToBuildLeavesRoomForTheNext) {
  const auto dir = std::filesystem::temp_directory_path() / ("tarvik-build-" + std::to_string(getpid()));
  hostfw::Options options;
  options.virtual_clock = true;
  options.key_script = "key NoSuchKey";
  EXPECT_THROW(hostfw::Machine(hostfw::default_profile(dir.string()), options), std::invalid_argument);
  EXPECT_FALSE(hostfw::Machine::exists());
  options.key_script.clear();
  hostfw::Machine machine(hostfw::default_profile(dir.string()), options);
  EXPECT_TRUE(hostfw::Machine::exists());
  std::filesystem::remove_all(dir);
}

}  // namespace
