// Machine profiles: the embedded default, the examples in machines/, and the
// refusals a technician sees for a profile that cannot be used.
#include "hostfw/profile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
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
  TempDirectory() { fs::create_directories(path); }
  ~TempDirectory() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  inline static std::atomic<int> counter{0};
  const fs::path path =
      fs::temp_directory_path() / ("tarvik-profile-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
};

bool under(const std::string& path, const fs::path& folder) {
  return path.starts_with(folder.lexically_normal().string() + "/");
}

TEST(MachineProfile, TheDefaultMachineIsTheShippedFileWithItsVolumesInsideTheGivenFolder) {
  TempDirectory base;
  const hostfw::Profile p = hostfw::default_profile(base.path.string());
  std::ifstream file(TARVIK_SOURCE_DIR "/machines/default.ini", std::ios::binary);
  EXPECT_EQ(hostfw::default_profile_text(), std::string(std::istreambuf_iterator<char>(file), {}))
      << "the embedded default is machines/default.ini";
  ASSERT_GE(p.volumes.size(), 1u);
  for (const auto& v : p.volumes) {
    EXPECT_TRUE(under(v.directory, fs::absolute(base.path)) && !v.read_only && !v.fail_writes) << v.directory;
    EXPECT_FALSE(fs::exists(v.directory)) << "reading a profile creates nothing";
  }
}

TEST(MachineProfile, EveryExampleMachineParses) {
  const fs::path folder = fs::path(TARVIK_SOURCE_DIR) / "machines";
  int examples = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".ini") continue;
    ++examples;
    try {
      for (const auto& v : hostfw::load_profile_file(entry.path().string()).volumes)
        EXPECT_TRUE(under(v.directory, folder)) << v.directory;
    } catch (const hostfw::ProfileError& e) {
      ADD_FAILURE() << e.what();
    }
  }
  EXPECT_GE(examples, 3);
}

TEST(MachineProfile, RefusalsNameTheFileTheLineAndTheReason) {
  TempDirectory base;
  std::ofstream(base.path / "plain-file") << "not a directory";
  // Each case extends the smallest valid profile. The line a refusal must
  // name is marked "# <-" (a comment to the reader); without a mark, line 1.
  const std::string minimal = "[machine]\nname = T\nmemory_mib = 64\n";
  const std::string drive = minimal + "[drive]\nport = 1\nmodel = M\nserial = S\nsectors = 4096\n";
  const struct {
    std::string text;
    const char* reason;  // a part of the reason given
  } cases[] = {
      {minimal + "[gpu]  # <-\nmodel = X\n", "unknown section [gpu]"},
      {minimal + "colour = red  # <-\n", "unknown key \"colour\" in [machine]"},
      {"[machine]\nname = T\nmemory_mib 64  # <-\n", "expected key = value"},
      {"[machine]\nname = T\nmemory_mib = 65537  # <-\n", "memory_mib must lie between 32 and 65536"},
      {minimal + "NAME = U  # <-\n", "\"name\" is given twice"},
      {"[machine]  # <-\nname = T\n", "[machine] needs \"memory_mib\""},
      {"[bios]\nvendor = V\nversion = 1\n", "no [machine] section"},
      {minimal + "console_column_limit = 100x31  # <-\n", "written COLUMNSxROWS:COLUMN"},
      {drive + "bad_sectors = 100, 20-10  # <-\n", "ends before it starts"},
      {drive + "bad_sectors = 4000-4096  # <-\n", "beyond the drive's end"},
      {drive + "[drive]\nport = 1  # <-\nmodel = N\nserial = T\nsize_gib = 1\n", "two drives on port 1"},
      {drive + "lba48 = no\n[drive]  # <-\nport = 2\nmodel = N\nserial = T\nsize_gib = 200\nlba48 = no\n",
       "without 48-bit addresses has at most 268435455 sectors"},
      {drive + "physical_sector_bytes = 1536  # <-\n", "logical size times a power of two"},
      {drive + "error_log_lbas = 10-20  # <-\n", "single LBAs, not ranges"},
      {minimal + "[language]\ninstallable = en|US|iso8859-1\ncurrent = pt|BR|iso8859-1  # <-\n",
       "current language must be one of the installable ones"},
      {minimal + "firmware_vendor = A\x01" "B  # <-\n", "a control character (0x01)"},
      {minimal + "[volume]\nlabel = L\ndirectory = plain-file  # <-\n", "exists and is not a directory"},
  };
  for (const auto& c : cases) {
    int line = 1;
    std::istringstream in(c.text);
    for (std::string text; std::getline(in, text) && text.find("# <-") == std::string::npos;) ++line;
    if (line > std::count(c.text.begin(), c.text.end(), '\n')) line = 1;
    try {
      hostfw::parse_profile(c.text, "case.ini", base.path.string());
      ADD_FAILURE() << "accepted:\n" << c.text;
    } catch (const hostfw::ProfileError& e) {
      EXPECT_EQ(std::string(e.what()), "case.ini:" + std::to_string(line) + ": " + e.reason());
      EXPECT_NE(e.reason().find(c.reason), std::string::npos) << e.what();
    }
  }
}

TEST(MachineProfile, AFileIsReadForgivinglyWithDirectoriesRelativeToItsFolder) {
  TempDirectory base;
  const fs::path folder = base.path / "profiles";
  fs::create_directories(folder);
  std::ofstream(folder / "bench.ini", std::ios::binary)
      << "\xEF\xBB\xBF; a byte-order mark, then a comment\r\n"
         "[ Machine ]\r\n"
         "  Name=Bench # after a space, a comment\r\n"
         "MEMORY_MIB   =   48\r\n"
         "console_column_limit = 100x31 : 80\r\n"
         "[system]\nmanufacturer = A#1 ;x\n"  // '#' inside a word is part of the value
         "product = P\nserial = S\nuuid = 00112233-4455-6677-8899-aabbccddeeff\n"
         "[drive]\nport = 3\nmodel = M\nserial = D\nsize_gib = 1\nbad_sectors = 7 , 10 - 12,\n"
         "[volume]\nlabel = A\ndirectory = volumes/A\n"
         "[volume]\nlabel = B\ndirectory = ../shared/./B\n"
         "[volume]\nlabel = C\ndirectory = /absolute/place/../volume\n";
  const hostfw::Profile p = hostfw::load_profile_file((folder / "bench.ini").string());
  EXPECT_EQ(p.name + " " + std::to_string(p.memory_mib) + " " + p.system.manufacturer, "Bench 48 A#1");
  EXPECT_EQ(p.console_modes.size(), 3u) << "without console_modes the machine offers 80x25, 80x50, 100x31";
  EXPECT_EQ(p.console_modes[2].first_refused_column * 100 + p.console_modes[1].first_refused_column, 80 * 100)
      << "console_column_limit = 100x31:80 applies to 100x31 alone";
  ASSERT_EQ(p.drives.size(), 1u);
  std::vector<uint64_t> bad;
  for (const auto& range : p.drives[0].bad_sectors) bad.insert(bad.end(), {range.first, range.last});
  EXPECT_EQ(bad, (std::vector<uint64_t>{7, 7, 10, 12}));
  ASSERT_EQ(p.volumes.size(), 3u);
  EXPECT_EQ(p.volumes[0].directory, (folder / "volumes" / "A").string());
  EXPECT_EQ(p.volumes[1].directory, (base.path / "shared" / "B").string());
  EXPECT_EQ(p.volumes[2].directory, "/absolute/volume") << "an absolute directory is kept, only tidied";
  try {
    hostfw::load_profile_file((folder / "missing.ini").string());
    ADD_FAILURE() << "a missing file was accepted";
  } catch (const hostfw::ProfileError& e) {
    EXPECT_EQ(e.what(), (folder / "missing.ini").string() + ": cannot be read: No such file or directory");
  }
}

}  // namespace
