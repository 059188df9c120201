// Directory-backed volumes through the file-system and file protocols, as
// the application reaches them. Saving to volumes that are read-only, fail
// or are full, and the free space the log screen shows, are followed by the
// log-saving and screen tests; here finding and appending to a file, and
// the names Open takes.
#include "hostfw/volumes.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/test_machine.h"

namespace {

namespace fs = std::filesystem;
using testing_support::TestMachine;
using testing_support::utf8;

constexpr UINT64 kRead = EFI_FILE_MODE_READ;
constexpr UINT64 kReadWrite = EFI_FILE_MODE_READ | EFI_FILE_MODE_WRITE;
constexpr UINT64 kCreate = EFI_FILE_MODE_READ | EFI_FILE_MODE_WRITE | EFI_FILE_MODE_CREATE;

EFI_STATUS open(EFI_FILE_PROTOCOL* from, EFI_FILE_PROTOCOL** file, const char16_t* name, UINT64 mode,
                UINT64 attributes = 0) {
  *file = nullptr;
  return from->Open(from, file, const_cast<CHAR16*>(name), mode, attributes);
}

EFI_STATUS write(EFI_FILE_PROTOCOL* file, const std::string& bytes, UINTN* written = nullptr) {
  UINTN size = bytes.size();
  const EFI_STATUS status = file->Write(file, &size, const_cast<char*>(bytes.data()));
  if (written != nullptr) *written = size;
  return status;
}

void close(std::initializer_list<EFI_FILE_PROTOCOL*> files) {
  for (EFI_FILE_PROTOCOL* f : files) EXPECT_EQ(f->Close(f), EFI_SUCCESS);
}

// A machine with one volume, USB, whose directory is inside a fresh
// temporary folder.
class VolumeFiles : public ::testing::Test {
 protected:
  VolumeFiles() { fs::create_directories(base_); }
  ~VolumeFiles() override {
    machine_.reset();
    std::error_code ignored;
    fs::remove_all(base_, ignored);
  }

  // The machine, started once the host files are in place; the volume's root directory.
  EFI_FILE_PROTOCOL* start() {
    profile_ = hostfw::parse_profile("[machine]\nname = Volumes\nmemory_mib = 64\n[volume]\nlabel = USB\n"
                                     "directory = usb\n", "test.ini", base_.string());
    machine_ = std::make_unique<TestMachine>("", &profile_);
    EFI_GUID guid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
    EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* volume = nullptr;
    EFI_FILE_PROTOCOL* dir = nullptr;
    EXPECT_EQ((*machine_)->boot_services()->HandleProtocol((*machine_)->volumes()->handle(0), &guid,
                                                          reinterpret_cast<VOID**>(&volume)),
              EFI_SUCCESS);
    EXPECT_EQ(volume->OpenVolume(volume, &dir), EFI_SUCCESS);
    return dir;
  }

  // A host file below the base folder, its folders made on the way.
  void put(const fs::path& relative, const std::string& bytes) {
    fs::create_directories((base_ / relative).parent_path());
    std::ofstream(base_ / relative, std::ios::binary) << bytes;
  }
  std::string host_text(const fs::path& relative) {
    std::ifstream in(base_ / relative, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  size_t open_files() { return (*machine_)->volumes()->open_files(); }

  inline static std::atomic<int> counter{0};
  const fs::path base_ =
      fs::temp_directory_path() / ("tarvik-volumes-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
  hostfw::Profile profile_;
  std::unique_ptr<TestMachine> machine_;
};

TEST_F(VolumeFiles, AnExistingLogIsFoundWhateverTheCaseAndAppendedTo) {
  put("usb/Log/Log.log", "old\n");
  EFI_FILE_PROTOCOL* dir = start();
  ASSERT_NE(dir, nullptr);
  EFI_FILE_PROTOCOL* file = nullptr;
  EXPECT_EQ(open(dir, &file, u"\\Log\\New.log", kReadWrite), EFI_NOT_FOUND) << "only create makes a file";
  // Creating under another case opens the existing file, untruncated, instead of adding one.
  ASSERT_EQ(open(dir, &file, u"\\LOG\\log.LOG", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  ASSERT_EQ(file->SetPosition(file, EFI_FILE_POSITION_END), EFI_SUCCESS);
  UINTN written = 0;
  EXPECT_EQ(write(file, "new run\n", &written), EFI_SUCCESS);
  EXPECT_EQ(written, 8u);
  close({file});
  EXPECT_EQ(host_text("usb/Log/Log.log"), "old\nnew run\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(base_ / "usb" / "Log"), fs::directory_iterator()), 1);

  // A read-only handle refuses writes.
  ASSERT_EQ(open(dir, &file, u"\\log\\LOG.log", kRead), EFI_SUCCESS);
  EXPECT_EQ(write(file, "x"), EFI_ACCESS_DENIED);
  close({file, dir});
  EXPECT_EQ(open_files(), 0u);
}

TEST_F(VolumeFiles, NamesStayInsideTheVolumeAndBadRequestsAreRefused) {
  put("secret.txt", "outside");
  EFI_FILE_PROTOCOL* dir = start();
  EFI_FILE_PROTOCOL* file = nullptr;
  for (UINT64 mode : {kRead, kCreate})
    for (const char16_t* name : {u"..\\secret.txt", u"\\Log\\..\\..\\escape.txt", u"../escape.txt"})
      EXPECT_NE(open(dir, &file, name, mode), EFI_SUCCESS) << utf8(name);  // '/' is no separator either
  EXPECT_EQ(file, nullptr);
  EXPECT_FALSE(fs::exists(base_ / "escape.txt"));

  // ".." and "." inside the volume are fine; host names are UTF-8.
  EFI_FILE_PROTOCOL* logs = nullptr;
  ASSERT_EQ(open(dir, &logs, u"Log", kCreate, EFI_FILE_DIRECTORY), EFI_SUCCESS);
  ASSERT_EQ(open(logs, &file, u"..\\.\\Relatório.txt", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  EXPECT_TRUE(fs::exists(base_ / "usb" / "Relatório.txt"));
  close({file, logs});

  EXPECT_EQ(open(dir, &file, u"\\Missing\\x.txt", kCreate), EFI_NOT_FOUND) << "no folder is made on the way";
  EXPECT_EQ(open(dir, &file, u"a:b?.txt", kCreate), EFI_INVALID_PARAMETER) << "not a FAT name";
  EXPECT_EQ(open(dir, &file, u"Log", EFI_FILE_MODE_WRITE), EFI_INVALID_PARAMETER) << "write without read";
  close({dir});
  EXPECT_EQ(open_files(), 0u);
}

}  // namespace
