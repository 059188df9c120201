#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/diag_common.h"
#include "core/locate.h"
#include "hostfw/volumes.h"
#include "log/log_protocol.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace {

namespace fs = std::filesystem;
using testing_support::FakeTestModule;
using testing_support::file_text;
using testing_support::TestMachine;
using tarvik::SaveLogCode;

// The default machine plus volumes that refuse writing (a full volume is
// saved to by a whole run: screens, full_volume_save).
hostfw::Profile refusing_volumes(const fs::path& directory) {
  hostfw::Profile profile = hostfw::default_profile(directory.string());
  profile.volumes.clear();
  auto volume = [&](const char* label) -> hostfw::VolumeInfo& {
    profile.volumes.push_back({label, (directory / label).string()});
    fs::create_directories(directory / label / "Log");
    return profile.volumes.back();
  };
  volume("GOOD");
  volume("LOCKED").read_only = true;
  volume("FAILING").fail_writes = true;
  return profile;
}

class SaveLog : public ::testing::Test {
 protected:
  SaveLog()
      : directory(fs::temp_directory_path() / ("tarvik-save-" + std::to_string(getpid()))),
        profile(refusing_volumes(directory)),
        machine("", &profile),
        module(machine->image_handle()) {}

  void SetUp() override {
    ASSERT_EQ(tarvik::InstallDiagCommon(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallTestCollection(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    ASSERT_EQ(tarvik::InstallLog(machine->image_handle(), machine->system_table()), EFI_SUCCESS);
    log = tarvik::LocateService<tarvik::LogProtocol>(tarvik::LogProtocolGuid);
    ASSERT_NE(log, nullptr);
    ASSERT_EQ(testing_support::located_test_collection()->AddTest(module.record()), EFI_SUCCESS);
    fs::remove_all(directory / "GOOD" / "Log");  // a fresh stick: no \Log yet
    build_log();
  }
  void TearDown() override {
    log->FreeLog();
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ(machine->memory().outstanding_pools(), 0u);
    fs::remove_all(directory);
  }

  // A log with characters beyond 8 bits in a device row and an empty line
  // at its end: the room kept for the rows of a device that was not tested.
  void build_log() {
    module.algorithms = {{u"A", u"ALPHA"}};
    module.devices = {{u"D", {{u"DISPLAYNAME:", u"Caf\u00e9 \u0141\u00f3d\u017a"}}},
                      {u"E", {{u"DISPLAYNAME:", u"untested"}}}};
    UINT8 states[] = {2}, algorithms[] = {1}, devices[] = {1, 0};
    UINT8* state_rows[] = {states, states};
    CHAR16 code[] = u"UFK001000-AAAAAA";
    CHAR16* codes[] = {code, code};
    const auto at = [](UINT8 second) { return EFI_TIME{2025, 4, 5, 0, 0, second, 0, 0, 0, 0, 0}; };
    EFI_TIME times[3] = {at(0), at(0), at(9)}, durations[1] = {EFI_TIME{0, 0, 0, 0, 0, 9, 0, 0, 0, 0, 0}};
    ASSERT_EQ(log->BuildTestLog(0, state_rows, algorithms, devices, codes, times, durations, nullptr, 0, nullptr,
                                nullptr),
              EFI_SUCCESS);
  }

  UINT64 save_to(size_t volume) { return log->SaveLog(machine->volumes()->handle(volume)); }
  fs::path log_file(const char* volume) const { return directory / volume / "Log" / "Log.log"; }

  fs::path directory;
  hostfw::Profile profile;
  TestMachine machine;
  FakeTestModule module;
  tarvik::LogProtocol* log = nullptr;
};

// The saved file line by line is checked on real firmware (qemu: log_file);
// here, the narrowing to 8 bits and the append.
TEST_F(SaveLog, CreatesTheDirectoryAndAppendsEightBitLinesOnEverySave) {
  EXPECT_EQ(save_to(0), static_cast<UINT64>(SaveLogCode::Saved));
  EXPECT_EQ(save_to(0), static_cast<UINT64>(SaveLogCode::Saved));
  const std::string saved = file_text(log_file("GOOD")), once = saved.substr(0, saved.size() / 2);
  EXPECT_EQ(saved, once + once);
  EXPECT_EQ(once.substr(0, 23), "+++ 20250405T000000UTC ");
  EXPECT_NE(once.find("\nDISPLAYNAME: Caf\xe9 A\xf3\x64z\n"), std::string::npos) << once;
  EXPECT_EQ(once.substr(once.size() - 10), "--- FAKE\n\n") << "an empty line for the untested device";
}

TEST_F(SaveLog, RefusingVolumesAndHandlesGiveTheirCodeAndKeepWhatWasSaved) {
  for (const char* volume : {"LOCKED", "FAILING"})
    std::ofstream(log_file(volume), std::ios::binary) << "an earlier run\n";
  EXPECT_EQ(save_to(1), static_cast<UINT64>(SaveLogCode::FileNotOpened));  // write-protected
  EXPECT_EQ(save_to(2), static_cast<UINT64>(SaveLogCode::WriteFailed));
  for (const char* volume : {"LOCKED", "FAILING"}) EXPECT_EQ(file_text(log_file(volume)), "an earlier run\n") << volume;

  // A write-protected stick without \Log cannot get one either.
  fs::remove_all(directory / "LOCKED" / "Log");
  EXPECT_EQ(save_to(1), static_cast<UINT64>(SaveLogCode::FileNotOpened));
  EXPECT_EQ(log->SaveLog(machine->image_handle()), static_cast<UINT64>(SaveLogCode::NoFileSystem));
}

}  // namespace
