// A simulated machine for tests: the embedded default profile with its
// volumes in a fresh temporary directory, the virtual clock, no terminal,
// and the application's firmware globals pointing at it.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "core/globals.h"
#include "hostfw/console_out.h"
#include "hostfw/machine.h"

namespace testing_support {

class TestMachine {
 public:
  explicit TestMachine(const std::string& key_script = "", hostfw::Profile* profile = nullptr);
  // The default machine, changed by edit before it is built.
  TestMachine(const std::string& key_script, const std::function<void(hostfw::Profile&)>& edit);
  ~TestMachine();

  hostfw::Machine& operator*() { return *machine_; }
  hostfw::Machine* operator->() { return machine_.get(); }
  const std::filesystem::path& directory() const { return directory_; }

  // Everything written to the console so far, as UTF-8.
  std::string transcript() const;

 private:
  void build(const std::string& key_script, hostfw::Profile profile);

  std::filesystem::path directory_;
  std::unique_ptr<hostfw::Machine> machine_;
};

// UTF-8 of a NUL-terminated wide string.
std::string utf8(const CHAR16* text);

// Text without its trailing spaces.
std::string trimmed(std::string text);
// A whole file's bytes; empty when it cannot be read.
std::string file_text(const std::filesystem::path& path);
// The run and recovery screens' panels at 100 columns: the right panel's
// line on a row from its text column (55), the left panel's from column 5.
std::string result_line(const hostfw::ScreenGrid& grid, int row);
std::string left_line(const hostfw::ScreenGrid& grid, int row);

}  // namespace testing_support
