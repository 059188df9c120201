// File-system volumes backed by host directories: the simple-file-system
// protocol and the file protocol over each directory, so that a log saved to
// a volume lands in <directory>/Log/Log.log.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "efi/efi.h"
#include "hostfw/profile.h"
#include "hostfw/protocol_thunk.h"

namespace hostfw {

class Machine;

class Volumes {
 public:
  Volumes(Machine& machine, const std::vector<VolumeInfo>& volumes);
  ~Volumes();
  Volumes(const Volumes&) = delete;
  Volumes& operator=(const Volumes&) = delete;

  size_t count() const { return volumes_.size(); }
  EFI_HANDLE handle(size_t i) const { return volumes_.at(i)->handle; }
  // The host file named by a device path that starts with a volume's device
  // path and continues with media file-path nodes.
  bool resolve(const EFI_DEVICE_PATH_PROTOCOL* path, std::string* host_path) const;
  size_t open_files() const { return open_.size(); }
  Events& events() const;

  // ---- The protocols' operations (reached through EFIAPI thunks) -------------
  struct Volume;
  struct OpenFile;
  EFI_STATUS open_volume(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* fs, EFI_FILE_PROTOCOL** root);
  EFI_STATUS open(EFI_FILE_PROTOCOL* from, EFI_FILE_PROTOCOL** opened, const CHAR16* name, UINT64 mode,
                  UINT64 attributes);
  EFI_STATUS close(EFI_FILE_PROTOCOL* file);
  EFI_STATUS remove(EFI_FILE_PROTOCOL* file);
  EFI_STATUS read(EFI_FILE_PROTOCOL* file, UINTN* size, VOID* buffer);
  EFI_STATUS write(EFI_FILE_PROTOCOL* file, UINTN* size, VOID* buffer);
  EFI_STATUS get_position(EFI_FILE_PROTOCOL* file, UINT64* position);
  EFI_STATUS set_position(EFI_FILE_PROTOCOL* file, UINT64 position);
  EFI_STATUS get_info(EFI_FILE_PROTOCOL* file, const EFI_GUID* type, UINTN* size, VOID* buffer);
  EFI_STATUS set_info(EFI_FILE_PROTOCOL* file, const EFI_GUID* type, UINTN size, VOID* buffer);
  EFI_STATUS flush(EFI_FILE_PROTOCOL* file);

  struct Volume {
    VolumeInfo info;
    HostedProtocol<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL, Volumes> fs;
    std::vector<uint8_t> device_path;  // ends with the end node
    EFI_HANDLE handle = nullptr;
    // Bytes of the files under the directory: counted again at each
    // OpenVolume, kept up to date by writes and deletions in between.
    uint64_t used = 0;
  };
  struct OpenFile {
    HostedProtocol<EFI_FILE_PROTOCOL, Volumes> protocol;
    Volume* volume = nullptr;
    std::filesystem::path host;       // absolute host path
    std::vector<std::string> parts;   // path inside the volume
    bool directory = false;
    bool writable = false;
    uint64_t position = 0;            // bytes, or the next directory entry
  };

 private:
  OpenFile* find(EFI_FILE_PROTOCOL* file) const;
  EFI_FILE_PROTOCOL* add(Volume* volume, std::vector<std::string> parts, bool writable);
  // Ends a handle. Its record is kept, so that a call on the closed handle
  // still finds its owner and is refused.
  void retire(EFI_FILE_PROTOCOL* file);

  Machine& machine_;
  std::vector<std::unique_ptr<Volume>> volumes_;
  std::map<EFI_FILE_PROTOCOL*, std::unique_ptr<OpenFile>> open_;
  std::vector<std::unique_ptr<OpenFile>> closed_;
};

}  // namespace hostfw
