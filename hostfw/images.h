// Loaded images: the application's own, and images it loads from a volume.
//
// The host cannot run PE files, so an image file is started only when the
// host has registered a stand-in for its file name (tests do); any other
// existing file fails to load with EFI_LOAD_ERROR.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "efi/efi.h"

namespace hostfw {

class Machine;

class Images {
 public:
  using EntryPoint = EFI_STATUS(EFIAPI*)(EFI_HANDLE, EFI_SYSTEM_TABLE*);

  explicit Images(Machine& machine);
  ~Images();

  // A handle with a loaded-image record, as firmware makes for every image.
  EFI_HANDLE create(EFI_HANDLE parent, EFI_HANDLE device, EntryPoint entry);
  // Host stand-in for an image file, by file name (case-insensitive).
  void register_file(const std::string& file_name, EntryPoint entry);

  EFI_STATUS load(BOOLEAN boot_policy, EFI_HANDLE parent, EFI_DEVICE_PATH_PROTOCOL* path, void* source,
                  UINTN source_size, EFI_HANDLE* image);
  EFI_STATUS start(EFI_HANDLE image, UINTN* exit_data_size, CHAR16** exit_data);
  EFI_STATUS unload(EFI_HANDLE image);
  size_t loaded_count() const { return images_.size(); }

 private:
  struct Image {
    EFI_LOADED_IMAGE_PROTOCOL loaded{};
    EFI_HANDLE handle = nullptr;
    EntryPoint entry = nullptr;
    bool started = false;
    std::vector<uint8_t> file_path;
  };
  Image* find(EFI_HANDLE handle);
  void remove(Image* image);

  Machine& machine_;
  std::vector<std::unique_ptr<Image>> images_;
  std::map<std::string, EntryPoint> files_;
};

}  // namespace hostfw
