// The whole application on the host machine: the entry routine in-process,
// and the tarvik program as a technician starts it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "core/diag_common.h"
#include "sysinfo/smbios_protocol.h"
#include "text/language_protocol.h"
#include "tests/support/test_machine.h"

extern "C" EFIAPI EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

namespace {

using testing_support::TestMachine;

TEST(ApplicationRun, StartsOnTheMainScreenAndExitApplicationEndsInAColdResetWithNothingLeft) {
  TestMachine machine("wait \"Main Screen\"; snap \"main\"; key Up; key Enter");
  const hostfw::RunResult result = machine->run(_ModuleEntryPoint);
  ASSERT_EQ(result.end, hostfw::RunResult::End::Reset) << result.reason;
  EXPECT_EQ(result.reset_type, EfiResetCold);
  EXPECT_EQ(result.status, EFI_SUCCESS);
  EXPECT_EQ(machine->watchdog_seconds(), 0u);
  // No test module is installed yet: the Tests panel offers only the way out.
  const hostfw::ScreenGrid& main = machine->console().snapshot("main").grid;
  EXPECT_TRUE(main.contains("Tarvik Diagnostic"));
  EXPECT_TRUE(main.contains(" Exit Application "));
  EXPECT_TRUE(main.contains(" System Information "));
  EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
  EXPECT_EQ(machine->memory().outstanding_pages(), 0u);
  EFI_GUID common = tarvik::DiagCommonProtocolGuid;
  VOID* found = nullptr;
  EXPECT_EQ(machine->boot_services()->LocateProtocol(&common, nullptr, &found), EFI_NOT_FOUND);
}

TEST(ApplicationRun, ACoreServiceThatCannotBeInstalledStopsStartUpWithoutAReset) {
  TestMachine machine;
  machine->faults().fail_install_of_guid = true;
  machine->faults().install_guid_to_fail = tarvik::LanguageProtocolGuid;
  const hostfw::RunResult result = machine->run(_ModuleEntryPoint);
  ASSERT_EQ(result.end, hostfw::RunResult::End::Returned) << result.reason;
  EXPECT_EQ(result.status, EFI_OUT_OF_RESOURCES);
  EXPECT_NE(machine.transcript().find("Falha ao instalar Language Protocol: Out of Resources\r\n"
                                      "Failed to install language protocols...\r\n"),
            std::string::npos)
      << machine.transcript();
  // The services before it stay installed.
  EFI_GUID smbios = tarvik::SmBiosProtocolGuid;
  VOID* found = nullptr;
  EXPECT_EQ(machine->boot_services()->LocateProtocol(&smbios, nullptr, &found), EFI_SUCCESS);
}

TEST(ApplicationRun, ARunWaitingForKeysThatNeverComeIsStopped) {
  TestMachine machine("wait \"Main Screen\"");
  const hostfw::RunResult result = machine->run(_ModuleEntryPoint);
  EXPECT_EQ(result.end, hostfw::RunResult::End::Stuck);
  EXPECT_FALSE(result.reason.empty());
}

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
  size_t n;
  while ((n = fread(chunk.data(), 1, chunk.size(), pipe)) > 0) finished.output.append(chunk.data(), n);
  const int status = pclose(pipe);
  finished.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return finished;
}

class Program : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_ = std::filesystem::temp_directory_path() / ("tarvik-program-" + std::to_string(getpid()));
    std::filesystem::create_directories(directory_);
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }
  std::filesystem::path directory_;
};

TEST_F(Program, ExitsWithSuccessAfterTheColdResetLeavingNothingAllocated) {
  const Finished run = run_program("--virtual-clock --no-terminal --check-leaks --keys-text "
                                   "'wait \"Main Screen\"; key Up; key Enter'");
  EXPECT_EQ(run.exit_code, 0) << run.output;
  EXPECT_EQ(run.output.find("left allocated"), std::string::npos) << run.output;
}

TEST_F(Program, RefusesAMalformedProfileNamingFileAndLine) {
  const std::string profile = (directory_ / "broken.ini").string();
  std::ofstream(profile) << "[machine]\nname = Broken\nmemory_mib = lots\n";
  const Finished run = run_program("--no-terminal --machine " + profile);
  EXPECT_EQ(run.exit_code, 2);
  EXPECT_NE(run.output.find(profile + ":3:"), std::string::npos) << run.output;
}

TEST_F(Program, ReportsARunThatCannotGoOn) {
  const Finished run = run_program("--virtual-clock --no-terminal --keys-text 'wait 5 \"Text that never appears\"'");
  EXPECT_EQ(run.exit_code, 4) << run.output;
  EXPECT_NE(run.output.find("Text that never appears"), std::string::npos) << run.output;
}

}  // namespace

namespace {

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
