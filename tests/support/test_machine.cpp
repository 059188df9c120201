#include "tests/support/test_machine.h"

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>

#include "core/diag_common.h"
#include "hostfw/utf8.h"

namespace testing_support {

namespace {

std::filesystem::path fresh_directory() {
  static std::atomic<int> counter{0};
  auto directory = std::filesystem::temp_directory_path() /
                   ("tarvik-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
  std::filesystem::create_directories(directory);
  return directory;
}

}  // namespace

TestMachine::TestMachine(const std::string& key_script, hostfw::Profile* profile) : directory_(fresh_directory()) {
  build(key_script, profile != nullptr ? *profile : hostfw::default_profile(directory_.string()));
}

TestMachine::TestMachine(const std::string& key_script, const std::function<void(hostfw::Profile&)>& edit)
    : directory_(fresh_directory()) {
  hostfw::Profile profile = hostfw::default_profile(directory_.string());
  edit(profile);
  build(key_script, std::move(profile));
}

void TestMachine::build(const std::string& key_script, hostfw::Profile profile) {
  hostfw::Options options;
  options.virtual_clock = true;
  options.use_terminal = false;
  options.key_script = key_script;
  machine_ = std::make_unique<hostfw::Machine>(std::move(profile), options);
  tarvik::gST = machine_->system_table();
  tarvik::gBS = machine_->boot_services();
  tarvik::gRT = machine_->runtime_services();
  tarvik::gImageHandle = machine_->image_handle();
}

TestMachine::~TestMachine() {
  // A run that ended without the application's teardown (a core service
  // failed, or the run was stopped as stuck) leaves its services installed;
  // remove them while the machine still exists, so no module keeps state
  // that points into it.
  if (tarvik::gDiagCommon != nullptr) {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
  }
  machine_.reset();
  tarvik::gST = nullptr;
  tarvik::gBS = nullptr;
  tarvik::gRT = nullptr;
  tarvik::gImageHandle = nullptr;
  tarvik::gDiagCommon = nullptr;
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

std::string TestMachine::transcript() const { return machine_->console().transcript(); }

std::string utf8(const CHAR16* text) { return hostfw::utf8_from_utf16(text); }

std::string trimmed(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string file_text(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string result_line(const hostfw::ScreenGrid& grid, int row) { return trimmed(grid.text_at(55, row, 42)); }
std::string left_line(const hostfw::ScreenGrid& grid, int row) { return trimmed(grid.text_at(5, row, 43)); }

}  // namespace testing_support
