// Directory-backed volumes through the file-system and file protocols, as
// the application reaches them: handles by protocol, OpenVolume, Open, ...
#include "hostfw/volumes.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
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

std::string host_text(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

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

// Reads up to 4 KiB from the current position.
std::string read(EFI_FILE_PROTOCOL* file) {
  char buffer[4096];
  UINTN size = sizeof buffer;
  EXPECT_EQ(file->Read(file, &size, buffer), EFI_SUCCESS);
  return std::string(buffer, size);
}

std::vector<uint8_t> info(EFI_FILE_PROTOCOL* file, EFI_GUID type) {
  UINTN size = 0;
  EXPECT_EQ(file->GetInfo(file, &type, &size, nullptr), EFI_BUFFER_TOO_SMALL);
  std::vector<uint8_t> buffer(size + 64, 0xCC);
  UINTN given = buffer.size();
  EXPECT_EQ(file->GetInfo(file, &type, &given, buffer.data()), EFI_SUCCESS);
  EXPECT_EQ(given, size) << "the size needed, not the size given";
  buffer.resize(size);
  return buffer;
}

const EFI_FILE_INFO* as_file_info(const std::vector<uint8_t>& b) {
  return reinterpret_cast<const EFI_FILE_INFO*>(b.data());
}
const EFI_FILE_SYSTEM_INFO* as_fs_info(const std::vector<uint8_t>& b) {
  return reinterpret_cast<const EFI_FILE_SYSTEM_INFO*>(b.data());
}

// A machine with the volumes given (profile [volume] sections), their
// directories inside a fresh temporary folder.
class VolumeFiles : public ::testing::Test {
 protected:
  VolumeFiles() {
    static std::atomic<int> counter{0};
    base_ = fs::temp_directory_path() /
            ("tarvik-volumes-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
    fs::create_directories(base_);
  }
  ~VolumeFiles() override {
    machine_.reset();
    std::error_code ignored;
    fs::remove_all(base_, ignored);
  }

  void start(const std::string& volumes) {
    profile_ = hostfw::parse_profile("[machine]\nname = Volumes\nmemory_mib = 64\n" + volumes, "test.ini",
                                     base_.string());
    machine_ = std::make_unique<TestMachine>("", &profile_);
  }

  // The root directory of the volume with this label, found as the
  // application finds volumes to save to.
  EFI_FILE_PROTOCOL* root(const std::string& label) {
    EFI_BOOT_SERVICES* bs = (*machine_)->boot_services();
    EFI_GUID fs_guid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
    UINTN count = 0;
    EFI_HANDLE* handles = nullptr;
    EXPECT_EQ(bs->LocateHandleBuffer(ByProtocol, &fs_guid, nullptr, &count, &handles), EFI_SUCCESS);
    EFI_FILE_PROTOCOL* found = nullptr;
    for (UINTN i = 0; i < count && found == nullptr; ++i) {
      EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* volume = nullptr;
      EXPECT_EQ(bs->HandleProtocol(handles[i], &fs_guid, reinterpret_cast<VOID**>(&volume)), EFI_SUCCESS);
      EFI_FILE_PROTOCOL* dir = nullptr;
      EXPECT_EQ(volume->OpenVolume(volume, &dir), EFI_SUCCESS);
      const auto fs_info = info(dir, EFI_FILE_SYSTEM_INFO_ID);
      if (utf8(as_fs_info(fs_info)->VolumeLabel) == label)
        found = dir;
      else
        EXPECT_EQ(dir->Close(dir), EFI_SUCCESS);
    }
    EXPECT_EQ(bs->FreePool(handles), EFI_SUCCESS);
    EXPECT_NE(found, nullptr) << "no volume labelled " << label;
    return found;
  }

  size_t open_files() { return (*machine_)->volumes()->open_files(); }

  fs::path base_;
  hostfw::Profile profile_;
  std::unique_ptr<TestMachine> machine_;
};

TEST_F(VolumeFiles, TheLogIsCreatedThenAppendedToOnEverySave) {
  start("[volume]\nlabel = USB\ndirectory = usb\nsize_mib = 16\n");
  const fs::path log = base_ / "usb" / "Log" / "Log.log";

  // First save: neither \Log nor Log.log exists yet.
  EFI_FILE_PROTOCOL* dir = root("USB");
  ASSERT_NE(dir, nullptr);
  EFI_FILE_PROTOCOL *logs = nullptr, *file = nullptr;
  EXPECT_EQ(open(dir, &logs, u"\\Log", kReadWrite), EFI_NOT_FOUND);
  ASSERT_EQ(open(dir, &logs, u"\\Log", kCreate, EFI_FILE_DIRECTORY), EFI_SUCCESS);
  EXPECT_TRUE(fs::is_directory(base_ / "usb" / "Log"));
  ASSERT_EQ(open(logs, &file, u"Log.log", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  UINTN written = 0;
  EXPECT_EQ(write(file, "first run\n", &written), EFI_SUCCESS);
  EXPECT_EQ(written, 10u);
  for (EFI_FILE_PROTOCOL* f : {file, logs, dir}) EXPECT_EQ(f->Close(f), EFI_SUCCESS);
  EXPECT_EQ(host_text(log), "first run\n");

  // Second save: the file exists and the new text goes after the old.
  dir = root("USB");
  ASSERT_EQ(open(dir, &file, u"\\Log\\Log.log", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  EXPECT_EQ(as_file_info(info(file, EFI_FILE_INFO_ID))->FileSize, 10u) << "opening does not truncate";
  ASSERT_EQ(file->SetPosition(file, EFI_FILE_POSITION_END), EFI_SUCCESS);
  UINT64 position = 0;
  EXPECT_EQ(file->GetPosition(file, &position), EFI_SUCCESS);
  EXPECT_EQ(position, 10u);
  EXPECT_EQ(write(file, "second"), EFI_SUCCESS);
  EXPECT_EQ(write(file, " run\n"), EFI_SUCCESS);
  EXPECT_EQ(file->Close(file), EFI_SUCCESS);
  EXPECT_EQ(host_text(log), "first run\nsecond run\n");

  // Read back through the protocol, and a read-only handle refuses writes.
  ASSERT_EQ(open(dir, &file, u"\\Log\\Log.log", kRead), EFI_SUCCESS);
  EXPECT_EQ(read(file), "first run\nsecond run\n");
  EXPECT_EQ(read(file), "") << "at the end a read gives nothing";
  EXPECT_EQ(write(file, "x"), EFI_ACCESS_DENIED);
  ASSERT_EQ(file->SetPosition(file, 6), EFI_SUCCESS);
  EXPECT_EQ(read(file), "run\nsecond run\n");
  for (EFI_FILE_PROTOCOL* f : {file, dir}) EXPECT_EQ(f->Close(f), EFI_SUCCESS);
  EXPECT_EQ(host_text(log), "first run\nsecond run\n");
  EXPECT_EQ(open_files(), 0u);
}

TEST_F(VolumeFiles, NamesMatchExistingFilesWithoutRegardToCase) {
  fs::create_directories(base_ / "usb" / "Log");
  std::ofstream(base_ / "usb" / "Log" / "Log.log") << "old\n";
  start("[volume]\nlabel = USB\ndirectory = usb\n");
  EFI_FILE_PROTOCOL* dir = root("USB");
  EFI_FILE_PROTOCOL* file = nullptr;
  ASSERT_EQ(open(dir, &file, u"\\LOG\\log.LOG", kRead), EFI_SUCCESS);
  EXPECT_EQ(read(file), "old\n");
  EXPECT_EQ(utf8(as_file_info(info(file, EFI_FILE_INFO_ID))->FileName), "Log.log") << "the name as stored";
  EXPECT_EQ(file->Close(file), EFI_SUCCESS);

  // Creating under another case opens the existing file instead of adding one.
  ASSERT_EQ(open(dir, &file, u"\\log\\LOG.LOG", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  EXPECT_EQ(file->SetPosition(file, EFI_FILE_POSITION_END), EFI_SUCCESS);
  EXPECT_EQ(write(file, "new\n"), EFI_SUCCESS);
  for (EFI_FILE_PROTOCOL* f : {file, dir}) EXPECT_EQ(f->Close(f), EFI_SUCCESS);
  EXPECT_EQ(host_text(base_ / "usb" / "Log" / "Log.log"), "old\nnew\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(base_ / "usb" / "Log"), fs::directory_iterator()), 1);
  EXPECT_EQ(open_files(), 0u);
}

TEST_F(VolumeFiles, InformationTellsTheSizeNeededThenFillsTheRecord) {
  std::ofstream(base_ / "dataset.txt") << "ignored: outside the volume";
  fs::create_directories(base_ / "data");
  std::ofstream(base_ / "data" / "report.txt") << std::string(1000, 'r');
  start("[volume]\nlabel = DATA\ndirectory = data\nsize_mib = 2\n");
  EFI_FILE_PROTOCOL* dir = root("DATA");
  EFI_FILE_PROTOCOL* file = nullptr;
  ASSERT_EQ(open(dir, &file, u"report.txt", kRead), EFI_SUCCESS);

  const auto record = info(file, EFI_FILE_INFO_ID);
  const EFI_FILE_INFO* fi = as_file_info(record);
  EXPECT_EQ(record.size(), SIZE_OF_EFI_FILE_INFO + sizeof(u"report.txt"));
  EXPECT_EQ(fi->Size, record.size());
  EXPECT_EQ(fi->FileSize, 1000u);
  EXPECT_EQ(fi->PhysicalSize, 1024u);
  EXPECT_EQ(utf8(fi->FileName), "report.txt");
  const auto root_record = info(dir, EFI_FILE_INFO_ID);
  EXPECT_NE(as_file_info(root_record)->Attribute & EFI_FILE_DIRECTORY, 0u);
  EXPECT_EQ(utf8(as_file_info(root_record)->FileName), "") << "the root has no name";

  // Information of the whole volume, asked of one of its files.
  const auto volume = info(file, EFI_FILE_SYSTEM_INFO_ID);
  const EFI_FILE_SYSTEM_INFO* fsi = as_fs_info(volume);
  EXPECT_EQ(volume.size(), SIZE_OF_EFI_FILE_SYSTEM_INFO + sizeof(u"DATA"));
  EXPECT_EQ(fsi->Size, volume.size());
  EXPECT_EQ(fsi->VolumeSize, 2u * 1024 * 1024);
  EXPECT_EQ(fsi->FreeSpace, 2u * 1024 * 1024 - 1000) << "files outside the volume do not count";
  EXPECT_EQ(utf8(fsi->VolumeLabel), "DATA");

  EFI_GUID other = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
  UINTN size = 0;
  EXPECT_EQ(file->GetInfo(file, &other, &size, nullptr), EFI_UNSUPPORTED);
  for (EFI_FILE_PROTOCOL* f : {file, dir}) EXPECT_EQ(f->Close(f), EFI_SUCCESS);
  EXPECT_EQ(open_files(), 0u);
}

TEST_F(VolumeFiles, ADirectoryIsListedOneEntryPerRead) {
  fs::create_directories(base_ / "usb" / "c-folder");
  std::ofstream(base_ / "usb" / "b.txt") << "bb";
  std::ofstream(base_ / "usb" / "a.txt") << "a";
  std::ofstream(base_ / "usb" / "ç-notes.txt") << "ccc";  // a UTF-8 host name
  start("[volume]\nlabel = USB\ndirectory = usb\n");
  EFI_FILE_PROTOCOL* dir = root("USB");

  auto list = [&] {
    std::vector<std::string> names;
    for (;;) {
      UINTN size = 0;
      const EFI_STATUS status = dir->Read(dir, &size, nullptr);
      if (status != EFI_BUFFER_TOO_SMALL) {
        EXPECT_TRUE(status == EFI_SUCCESS && size == 0) << "the end";
        return names;
      }
      std::vector<uint8_t> entry(size);
      EXPECT_EQ(dir->Read(dir, &size, entry.data()), EFI_SUCCESS);
      const EFI_FILE_INFO* fi = as_file_info(entry);
      const bool folder = (fi->Attribute & EFI_FILE_DIRECTORY) != 0;
      names.push_back(utf8(fi->FileName) + (folder ? "/" : ":" + std::to_string(fi->FileSize)));
    }
  };
  const std::vector<std::string> expected = {"a.txt:1", "b.txt:2", "c-folder/", "ç-notes.txt:3"};
  EXPECT_EQ(list(), expected);
  EXPECT_EQ(list(), std::vector<std::string>{}) << "stays at the end";
  EXPECT_EQ(dir->SetPosition(dir, 0), EFI_SUCCESS);
  EXPECT_EQ(list(), expected) << "position 0 starts the listing again";
  EXPECT_EQ(dir->SetPosition(dir, 1), EFI_UNSUPPORTED);
  EXPECT_EQ(write(dir, "x"), EFI_UNSUPPORTED) << "a directory is not written to";
  EXPECT_EQ(dir->Close(dir), EFI_SUCCESS);
}

TEST_F(VolumeFiles, AReadOnlyVolumeRefusesEveryChange) {
  fs::create_directories(base_ / "recovery" / "Log");
  std::ofstream(base_ / "recovery" / "Log" / "Log.log") << "kept\n";
  start("[volume]\nlabel = RECOVERY\ndirectory = recovery\nread_only = yes\n");
  EFI_FILE_PROTOCOL* dir = root("RECOVERY");
  EFI_FILE_PROTOCOL* file = nullptr;
  EXPECT_EQ(open(dir, &file, u"\\Log\\Log.log", kReadWrite), EFI_WRITE_PROTECTED);
  EXPECT_EQ(open(dir, &file, u"\\New.log", kCreate, EFI_FILE_ARCHIVE), EFI_WRITE_PROTECTED);
  EXPECT_FALSE(fs::exists(base_ / "recovery" / "New.log"));

  ASSERT_EQ(open(dir, &file, u"\\Log\\Log.log", kRead), EFI_SUCCESS);
  EXPECT_EQ(read(file), "kept\n");
  EXPECT_EQ(write(file, "x"), EFI_WRITE_PROTECTED);
  EXPECT_NE(as_file_info(info(file, EFI_FILE_INFO_ID))->Attribute & EFI_FILE_READ_ONLY, 0u);
  EXPECT_EQ(as_fs_info(info(dir, EFI_FILE_SYSTEM_INFO_ID))->ReadOnly, TRUE);
  EXPECT_EQ(file->Delete(file), EFI_WARN_DELETE_FAILURE) << "the handle is closed all the same";
  EXPECT_EQ(dir->Close(dir), EFI_SUCCESS);
  EXPECT_EQ(host_text(base_ / "recovery" / "Log" / "Log.log"), "kept\n");
  EXPECT_EQ(open_files(), 0u);
}

TEST_F(VolumeFiles, FailingAndFullVolumesRefuseWritesAndKeepTheFileAsItWas) {
  const std::string before = std::string("run 1\n") + std::string(3, '\0') + "\xff\x80 run 2\n";
  fs::create_directories(base_ / "failing");
  std::ofstream(base_ / "failing" / "Log.log", std::ios::binary) << before;
  fs::create_directories(base_ / "small");
  std::ofstream(base_ / "small" / "filler.bin", std::ios::binary) << std::string(1024 * 1024 - 10, 'f');
  start("[volume]\nlabel = FAILING\ndirectory = failing\nfail_writes = yes\n"
        "[volume]\nlabel = SMALL\ndirectory = small\nsize_mib = 1\n");
  EFI_FILE_PROTOCOL* dir = root("FAILING");
  EFI_FILE_PROTOCOL* file = nullptr;
  ASSERT_EQ(open(dir, &file, u"Log.log", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  ASSERT_EQ(file->SetPosition(file, EFI_FILE_POSITION_END), EFI_SUCCESS);
  UINTN written = 99;
  EXPECT_EQ(write(file, "run 3\n", &written), EFI_DEVICE_ERROR);
  EXPECT_EQ(written, 0u);
  ASSERT_EQ(file->SetPosition(file, 0), EFI_SUCCESS);
  EXPECT_EQ(write(file, "overwrite"), EFI_DEVICE_ERROR);
  for (EFI_FILE_PROTOCOL* f : {file, dir}) EXPECT_EQ(f->Close(f), EFI_SUCCESS);
  EXPECT_EQ(host_text(base_ / "failing" / "Log.log"), before) << "byte for byte";

  const fs::path log = base_ / "small" / "Log.log";
  dir = root("SMALL");
  ASSERT_EQ(open(dir, &file, u"Log.log", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  written = 99;
  EXPECT_EQ(write(file, std::string(11, 'x'), &written), EFI_VOLUME_FULL);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(fs::file_size(log), 0u) << "nothing of a refused write lands";
  EXPECT_EQ(write(file, std::string(10, 'y')), EFI_SUCCESS) << "exactly filling the volume fits";
  EXPECT_EQ(write(file, "z"), EFI_VOLUME_FULL);
  EXPECT_EQ(file->SetPosition(file, 0), EFI_SUCCESS);
  EXPECT_EQ(write(file, "Y"), EFI_SUCCESS) << "overwriting needs no space";
  EXPECT_EQ(host_text(log), "Y" + std::string(9, 'y'));
  EXPECT_EQ(as_fs_info(info(dir, EFI_FILE_SYSTEM_INFO_ID))->FreeSpace, 0u);
  for (EFI_FILE_PROTOCOL* f : {file, dir}) EXPECT_EQ(f->Close(f), EFI_SUCCESS);
}

TEST_F(VolumeFiles, NamesCannotReachAboveTheVolumesRoot) {
  std::ofstream(base_ / "secret.txt") << "outside";
  start("[volume]\nlabel = USB\ndirectory = usb\n");
  EFI_FILE_PROTOCOL* dir = root("USB");
  EFI_FILE_PROTOCOL* file = nullptr;
  EXPECT_NE(open(dir, &file, u"..\\secret.txt", kRead), EFI_SUCCESS);
  EXPECT_NE(open(dir, &file, u"..", kRead), EFI_SUCCESS);
  EXPECT_NE(open(dir, &file, u"\\Log\\..\\..\\escape.txt", kCreate), EFI_SUCCESS);
  EXPECT_NE(open(dir, &file, u"../escape.txt", kCreate), EFI_SUCCESS) << "'/' is no separator here";
  EXPECT_EQ(file, nullptr);
  EXPECT_FALSE(fs::exists(base_ / "escape.txt"));

  // ".." and "." inside the volume are fine.
  EFI_FILE_PROTOCOL* logs = nullptr;
  ASSERT_EQ(open(dir, &logs, u"Log", kCreate, EFI_FILE_DIRECTORY), EFI_SUCCESS);
  ASSERT_EQ(open(logs, &file, u"..\\.\\inside.txt", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  EXPECT_TRUE(fs::exists(base_ / "usb" / "inside.txt"));
  for (EFI_FILE_PROTOCOL* f : {file, logs}) EXPECT_EQ(f->Close(f), EFI_SUCCESS);

  ASSERT_EQ(open(dir, &file, u"Relatório.txt", kCreate, EFI_FILE_ARCHIVE), EFI_SUCCESS);
  EXPECT_TRUE(fs::exists(base_ / "usb" / "Relatório.txt")) << "host names are UTF-8";
  EXPECT_EQ(file->Close(file), EFI_SUCCESS);

  EXPECT_EQ(open(dir, &file, u"\\Missing\\x.txt", kCreate), EFI_NOT_FOUND) << "no folder is made on the way";
  EXPECT_EQ(open(dir, &file, u"a:b?.txt", kCreate), EFI_INVALID_PARAMETER) << "not a FAT name";
  EXPECT_EQ(open(dir, &file, u"inside.txt", EFI_FILE_MODE_WRITE), EFI_INVALID_PARAMETER) << "write without read";
  EXPECT_EQ(open(dir, &file, u"inside.txt", kRead, 0x100), EFI_INVALID_PARAMETER) << "an unknown attribute";
  EXPECT_EQ(open_files(), 1u) << "only the root is open";

  // A handle closed once is not closed again.
  const EFI_FILE_CLOSE close = dir->Close;
  EXPECT_EQ(close(dir), EFI_SUCCESS);
  EXPECT_EQ(close(dir), EFI_INVALID_PARAMETER);
  EXPECT_EQ(open_files(), 0u);
}

TEST_F(VolumeFiles, ADevicePathOfAVolumeAndFileNodesNamesAHostFile) {
  fs::create_directories(base_ / "usb" / "EFI" / "Tools");
  start("[volume]\nlabel = USB\ndirectory = usb\n");
  hostfw::Volumes& volumes = *(*machine_)->volumes();
  EFI_GUID dp_guid = EFI_DEVICE_PATH_PROTOCOL_GUID;
  EFI_DEVICE_PATH_PROTOCOL* volume_path = nullptr;
  ASSERT_EQ((*machine_)->boot_services()->HandleProtocol(volumes.handle(0), &dp_guid,
                                                          reinterpret_cast<VOID**>(&volume_path)),
            EFI_SUCCESS);
  // The volume's own node, then "\EFI" and "tools\Diag.efi" as file-path nodes.
  std::vector<uint8_t> path(reinterpret_cast<const uint8_t*>(volume_path),
                            reinterpret_cast<const uint8_t*>(volume_path) + DevicePathNodeLength(volume_path));
  for (const std::u16string name : {u"\\EFI", u"tools\\Diag.efi"}) {
    const size_t length = 4 + (name.size() + 1) * 2;
    path.insert(path.end(), {MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP, static_cast<uint8_t>(length), 0});
    const auto* bytes = reinterpret_cast<const uint8_t*>(name.c_str());
    path.insert(path.end(), bytes, bytes + (name.size() + 1) * 2);
  }
  path.insert(path.end(), {END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, 4, 0});
  std::string host;
  ASSERT_TRUE(volumes.resolve(reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(path.data()), &host));
  EXPECT_EQ(host, (base_ / "usb" / "EFI" / "Tools" / "Diag.efi").string());

  // A path of another device, or none at all, names nothing.
  const auto end = std::make_unique<uint8_t[]>(4);  // exactly one end node, so reading past it shows
  std::copy_n(path.end() - 4, 4, end.get());
  EXPECT_FALSE(volumes.resolve(reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(end.get()), &host));
  path[20] ^= 1;  // the volume's number
  EXPECT_FALSE(volumes.resolve(reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(path.data()), &host));
}

}  // namespace
