// Machine profiles: the embedded default, the examples in machines/, and the
// refusals a technician sees for a profile that cannot be used.
#include "hostfw/profile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

// A fresh directory for one test, removed afterwards.
struct TempDirectory {
  TempDirectory() { fs::create_directories(path_); }
  ~TempDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

  inline static std::atomic<int> counter{0};
  const fs::path path_ =
      fs::temp_directory_path() / ("tarvik-profile-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
};

bool under(const std::string& path, const fs::path& folder) {
  const std::string prefix = folder.lexically_normal().string() + "/";
  return path.compare(0, prefix.size(), prefix) == 0;
}

TEST(MachineProfile, TheDefaultMachineOffersWhatTheApplicationNeeds) {
  TempDirectory base;
  const hostfw::Profile p = hostfw::default_profile(base.path().string());

  std::ifstream file(TARVIK_SOURCE_DIR "/machines/default.ini", std::ios::binary);
  EXPECT_EQ(hostfw::default_profile_text(), std::string(std::istreambuf_iterator<char>(file), {})) << "the embedded default is machines/default.ini";

  EXPECT_GE(p.system.serial.size(), 7u) << "a result code needs a serial of at least 7 characters";
  ASSERT_FALSE(p.processors.empty());
  ASSERT_GE(p.language.installable.size(), 2u);
  std::set<std::string> locators;
  size_t empty_slots = 0;
  for (const auto& m : p.memory_modules) {
    locators.insert(m.locator);
    empty_slots += m.size_mib == 0;
  }
  EXPECT_EQ(locators.size(), p.memory_modules.size()) << "every module has its own locator";
  EXPECT_GE(p.memory_modules.size() - empty_slots, 2u) << "modules";
  EXPECT_GE(empty_slots, 1u) << "an empty slot, which the memory module skips";

  // The drives give the storage tests a rotating drive with bad sectors and a failing one.
  const hostfw::DriveInfo* rotating_with_bad_sectors = nullptr;
  const hostfw::DriveInfo* failing = nullptr;
  for (const auto& d : p.drives) {
    if (d.rotation_rpm > 1 && !d.bad_sectors.empty() && !d.smart_failing) rotating_with_bad_sectors = &d;
    if (d.smart_failing) failing = &d;
  }
  ASSERT_NE(rotating_with_bad_sectors, nullptr);
  EXPECT_EQ(rotating_with_bad_sectors->sectors, 1863ull * 2097152) << "size_gib counts 512-byte sectors";
  EXPECT_NE(failing, nullptr);

  ASSERT_GE(p.volumes.size(), 1u);
  std::set<std::string> directories;
  for (const auto& v : p.volumes) {
    EXPECT_TRUE(under(v.directory, fs::absolute(base.path()))) << v.directory;
    EXPECT_FALSE(v.read_only || v.fail_writes);
    directories.insert(v.directory);
  }
  EXPECT_EQ(directories.size(), p.volumes.size());
  EXPECT_FALSE(fs::exists(p.volumes[0].directory)) << "reading a profile creates nothing";
}

TEST(MachineProfile, EveryExampleMachineParses) {
  const fs::path folder = fs::path(TARVIK_SOURCE_DIR) / "machines";
  int examples = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".ini") continue;
    ++examples;
    SCOPED_TRACE(entry.path().string());
    hostfw::Profile p;
    try {
      p = hostfw::load_profile_file(entry.path().string());
    } catch (const hostfw::ProfileError& e) {
      ADD_FAILURE() << e.what();
      continue;
    }
    EXPECT_FALSE(p.memory_modules.empty());
    for (const auto& v : p.volumes) EXPECT_TRUE(under(v.directory, folder)) << v.directory;
  }
  EXPECT_GE(examples, 3);
}

// The smallest valid profile, which most refusal cases extend. The line a
// refusal must name is marked with the comment "# <-" (ignored by the reader
// like any comment); a case without a mark expects line 1.
constexpr const char* kMinimal = "[machine]\nname = T\nmemory_mib = 64\n";

struct Refusal {
  const char* what;
  std::string text;
  const char* reason;  // a part of the reason given
};

int marked_line(const std::string& text) {
  std::istringstream in(text);
  std::string line;
  for (int n = 1; std::getline(in, line); ++n)
    if (line.find("# <-") != std::string::npos) return n;
  return -1;
}

TEST(MachineProfile, RefusalsNameTheFileTheLineAndTheReason) {
  TempDirectory base;
  std::ofstream(base.path() / "plain-file") << "not a directory";
  const std::string drive = "[drive]\nport = 1\nmodel = M\nserial = S\nsectors = 4096\n";
  const Refusal cases[] = {
      {"unknown section", std::string(kMinimal) + "[gpu]  # <-\nmodel = X\n", "unknown section [gpu]"},
      {"unknown key", std::string(kMinimal) + "colour = red  # <-\n", "unknown key \"colour\" in [machine]"},
      {"missing '='", "[machine]\nname = T\nmemory_mib 64  # <-\n", "expected key = value"},
      {"bad number", "[machine]\nname = T\nmemory_mib = 64k  # <-\n", "memory_mib must be a whole number"},
      {"memory too large", "[machine]\nname = T\nmemory_mib = 65537  # <-\n",
       "memory_mib must lie between 32 and 65536"},
      {"duplicate key", "[machine]\nname = T\nmemory_mib = 64\nNAME = U  # <-\n", "\"name\" is given twice"},
      {"missing required key", "[machine]  # <-\nname = T\n", "[machine] needs \"memory_mib\""},
      {"no machine section", "[bios]\nvendor = V\nversion = 1\n", "no [machine] section"},
      {"first console mode not 80x25", std::string(kMinimal) + "console_modes = 80x50, 80x25  # <-\n",
       "first console mode must be 80x25"},
      {"range ending before its start", std::string(kMinimal) + drive + "bad_sectors = 100, 20-10  # <-\n",
       "ends before it starts"},
      {"range with a negative end", std::string(kMinimal) + drive + "bad_sectors = 5--3  # <-\n",
       "\"5--3\" is neither"},
      {"bad sector beyond the drive", std::string(kMinimal) + drive + "bad_sectors = 4000-4096  # <-\n",
       "beyond the drive's end"},
      {"two drives on one port",
       std::string(kMinimal) + drive + "[drive]\nport = 1  # <-\nmodel = N\nserial = T\nsize_gib = 1\n",
       "two drives on port 1"},
      {"current language not installable",
       std::string(kMinimal) + "[language]\ninstallable = en|US|iso8859-1\ncurrent = pt|BR|iso8859-1  # <-\n",
       "current language must be one of the installable ones"},
      {"second [bios]", std::string(kMinimal) + "[bios]\nvendor = V\nversion = 1\n[BIOS]  # <-\nvendor = W\n",
       "[bios] appears twice"},
      {"control character", std::string(kMinimal) + "firmware_vendor = A\x01" "B  # <-\n",
       "a control character (0x01)"},
      {"flag neither yes nor no",
       std::string(kMinimal) + "[volume]\nlabel = L\ndirectory = v\nread_only = maybe  # <-\n",
       "read_only must be yes or no"},
      {"volume directory that is a file",
       std::string(kMinimal) + "[volume]\nlabel = L\ndirectory = plain-file  # <-\n", "exists and is not a directory"},
  };
  for (const Refusal& c : cases) {
    SCOPED_TRACE(c.what);
    try {
      hostfw::parse_profile(c.text, "case.ini", base.path().string());
      ADD_FAILURE() << "accepted:\n" << c.text;
    } catch (const hostfw::ProfileError& e) {
      const int line = marked_line(c.text) == -1 ? 1 : marked_line(c.text);
      EXPECT_EQ(e.file(), "case.ini");
      EXPECT_EQ(e.line(), line) << e.what();
      EXPECT_NE(e.reason().find(c.reason), std::string::npos) << e.what();
      EXPECT_EQ(std::string(e.what()), "case.ini:" + std::to_string(line) + ": " + e.reason());
    }
  }
}

TEST(MachineProfile, LayoutIsForgivingAndOptionalKeysTakeTheirDefaults) {
  const std::string text =
      "\xEF\xBB\xBF; a byte-order mark, then a comment\r\n"
      "[ Machine ]\r\n"
      "  Name=Bench # after a space, a comment\r\n"
      "MEMORY_MIB   =   48\r\n"
      "[system]\n"
      "manufacturer = A#1 ;x\n"  // '#' inside a word is part of the value
      "product = P\n"
      "serial = S\n"
      "uuid = 00112233-4455-6677-8899-aabbccddeeff\n"
      "[drive]\n"
      "port = 3\n"
      "model = M\n"
      "serial = D\n"
      "size_gib = 1\n"
      "bad_sectors = 7 , 10 - 12,\n"
      "[volume]\n"
      "label = V\n"
      "directory = /absolute/place/../volume\n";
  const hostfw::Profile p = hostfw::parse_profile(text, "layout.ini", "/base");
  EXPECT_EQ(p.name, "Bench");
  EXPECT_EQ(p.memory_mib, 48u);
  EXPECT_EQ(p.system.manufacturer, "A#1");
  EXPECT_EQ(p.system.uuid[0], 0x00);
  EXPECT_EQ(p.system.uuid[15], 0xFF);
  EXPECT_EQ(p.console_modes.size(), 3u) << "without console_modes the machine offers 80x25, 80x50, 100x31";
  ASSERT_EQ(p.drives.size(), 1u);
  EXPECT_EQ(p.drives[0].sectors, 2097152u);
  ASSERT_EQ(p.drives[0].bad_sectors.size(), 2u);
  EXPECT_EQ(p.drives[0].bad_sectors[0].last, 7u);
  EXPECT_EQ(p.drives[0].bad_sectors[1].first, 10u);
  EXPECT_EQ(p.drives[0].bad_sectors[1].last, 12u);
  ASSERT_EQ(p.volumes.size(), 1u);
  EXPECT_EQ(p.volumes[0].directory, "/absolute/volume") << "an absolute directory is kept, only tidied";
}

TEST(MachineProfile, LoadingAFileResolvesRelativeDirectoriesAgainstItsFolder) {
  TempDirectory base;
  const fs::path folder = base.path() / "profiles";
  fs::create_directories(folder);
  const fs::path file = folder / "bench.ini";
  std::ofstream(file) << kMinimal
                      << "[volume]\nlabel = A\ndirectory = volumes/A\n"
                         "[volume]\nlabel = B\ndirectory = ../shared/./B\n";
  const hostfw::Profile p = hostfw::load_profile_file(file.string());
  ASSERT_EQ(p.volumes.size(), 2u);
  EXPECT_EQ(p.volumes[0].directory, (folder / "volumes" / "A").string());
  EXPECT_EQ(p.volumes[1].directory, (base.path() / "shared" / "B").string());

  std::ofstream(folder / "broken.ini") << kMinimal << "memory_mib = 99\n";
  try {
    hostfw::load_profile_file((folder / "broken.ini").string());
    ADD_FAILURE() << "a duplicate key was accepted";
  } catch (const hostfw::ProfileError& e) {
    EXPECT_EQ(e.file(), (folder / "broken.ini").string());
    EXPECT_EQ(e.line(), 4);
  }
  try {
    hostfw::load_profile_file((folder / "missing.ini").string());
    ADD_FAILURE() << "a missing file was accepted";
  } catch (const hostfw::ProfileError& e) {
    EXPECT_EQ(e.file(), (folder / "missing.ini").string());
    EXPECT_EQ(e.reason(), "cannot be read");
  }
}

}  // namespace
