#include "hostfw/images.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "hostfw/machine.h"
#include "hostfw/volumes.h"

namespace hostfw {
namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

size_t device_path_bytes(const EFI_DEVICE_PATH_PROTOCOL* path) {
  size_t size = 0;
  for (const EFI_DEVICE_PATH_PROTOCOL* node = path;; node = NextDevicePathNode(node)) {
    const size_t length = DevicePathNodeLength(node);
    if (length < sizeof(EFI_DEVICE_PATH_PROTOCOL)) return 0;
    size += length;
    if (IsDevicePathEnd(node)) return size;
  }
}

const EFI_GUID kLoadedImageGuid = EFI_LOADED_IMAGE_PROTOCOL_GUID;

}  // namespace

Images::Images(Machine& machine) : machine_(machine) {}

Images::~Images() {
  while (!images_.empty()) remove(images_.back().get());
}

EFI_HANDLE Images::create(EFI_HANDLE parent, EFI_HANDLE device, EntryPoint entry) {
  auto image = std::make_unique<Image>();
  image->loaded.Revision = EFI_LOADED_IMAGE_PROTOCOL_REVISION;
  image->loaded.ParentHandle = parent;
  image->loaded.SystemTable = machine_.system_table();
  image->loaded.DeviceHandle = device;
  image->loaded.ImageCodeType = EfiLoaderCode;
  image->loaded.ImageDataType = EfiLoaderData;
  image->entry = entry;
  EFI_HANDLE handle = nullptr;
  machine_.handles().install(&handle, kLoadedImageGuid, &image->loaded);
  image->handle = handle;
  images_.push_back(std::move(image));
  return handle;
}

void Images::register_file(const std::string& file_name, EntryPoint entry) { files_[lower(file_name)] = entry; }

Images::Image* Images::find(EFI_HANDLE handle) {
  for (const auto& image : images_)
    if (image->handle == handle) return image.get();
  return nullptr;
}

void Images::remove(Image* image) {
  machine_.handles().uninstall(image->handle, kLoadedImageGuid, &image->loaded);
  images_.erase(std::find_if(images_.begin(), images_.end(), [image](const auto& p) { return p.get() == image; }));
}

EFI_STATUS Images::load(BOOLEAN, EFI_HANDLE parent, EFI_DEVICE_PATH_PROTOCOL* path, void* source, UINTN,
                        EFI_HANDLE* image) {
  if (image == nullptr || !machine_.handles().valid(parent)) return EFI_INVALID_PARAMETER;
  if (source != nullptr) return EFI_UNSUPPORTED;  // only files on volumes
  if (path == nullptr) return EFI_NOT_FOUND;
  std::string host_path;
  if (machine_.volumes() == nullptr || !machine_.volumes()->resolve(path, &host_path) ||
      !std::filesystem::is_regular_file(host_path))
    return EFI_NOT_FOUND;
  auto it = files_.find(lower(std::filesystem::path(host_path).filename().string()));
  if (it == files_.end()) return EFI_LOAD_ERROR;

  Image* device_image = find(parent);
  EFI_HANDLE created = create(parent, device_image ? device_image->loaded.DeviceHandle : nullptr, it->second);
  Image* loaded = find(created);
  const auto* bytes = reinterpret_cast<const uint8_t*>(path);
  loaded->file_path.assign(bytes, bytes + device_path_bytes(path));
  loaded->loaded.FilePath = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL*>(loaded->file_path.data());
  *image = created;
  return EFI_SUCCESS;
}

EFI_STATUS Images::start(EFI_HANDLE handle, UINTN* exit_data_size, CHAR16** exit_data) {
  Image* image = find(handle);
  if (image == nullptr || image->entry == nullptr || image->started) return EFI_INVALID_PARAMETER;
  if (exit_data_size != nullptr) *exit_data_size = 0;
  if (exit_data != nullptr) *exit_data = nullptr;
  image->started = true;
  return image->entry(handle, machine_.system_table());
}

EFI_STATUS Images::unload(EFI_HANDLE handle) {
  Image* image = find(handle);
  if (image == nullptr || handle == machine_.image_handle()) return EFI_INVALID_PARAMETER;
  if (image->loaded.Unload != nullptr) {
    EFI_STATUS status = image->loaded.Unload(handle);
    if (EFI_ERROR(status)) return status;
  } else if (image->started) {
    return EFI_UNSUPPORTED;  // a started image without an unload operation stays
  }
  remove(image);
  return EFI_SUCCESS;
}

}  // namespace hostfw
