#include "hostfw/volumes.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <fstream>
#include <new>
#include <stdexcept>

#include "hostfw/clock.h"
#include "hostfw/events.h"
#include "hostfw/machine.h"
#include "hostfw/text_case.h"
#include "hostfw/utf8.h"

namespace fs = std::filesystem;

namespace hostfw {
namespace {

const EFI_GUID kFileSystemGuid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
const EFI_GUID kDevicePathGuid = EFI_DEVICE_PATH_PROTOCOL_GUID;
const EFI_GUID kFileInfoGuid = EFI_FILE_INFO_ID;
const EFI_GUID kFileSystemInfoGuid = EFI_FILE_SYSTEM_INFO_ID;
// Vendor GUID of the media node naming a host volume.
const EFI_GUID kHostVolumeVendor = {0x7A5C1D10, 0x3B2E, 0x4F61, {0x9A, 0x44, 0x1C, 0x0E, 0x55, 0x21, 0x6B, 0x90}};

// A host file name as the application sees it.
std::u16string widen(const std::string& text) { return utf16_from_utf8(text); }

// Whether FAT allows the name ('/' is refused too: on the host it would
// separate directories).
bool valid_name(const std::string& name) {
  for (unsigned char c : name)
    if (c < 0x20 || std::strchr("\"*/:<>?|", c) != nullptr) return false;
  return true;
}

// Applies a "\"-separated name to a path inside the volume: EFI_NOT_FOUND
// for a name that climbs above the root, EFI_INVALID_PARAMETER for one that
// FAT would not allow.
EFI_STATUS walk(std::vector<std::string>& parts, const std::string& name) {
  size_t at = 0;
  if (!name.empty() && name[0] == '\\') {
    parts.clear();
    at = 1;
  }
  while (at <= name.size()) {
    const size_t end = std::min(name.find('\\', at), name.size());
    const std::string part = name.substr(at, end - at);
    at = end + 1;
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (parts.empty()) return EFI_NOT_FOUND;
      parts.pop_back();
      continue;
    }
    if (!valid_name(part)) return EFI_INVALID_PARAMETER;
    parts.push_back(part);
  }
  return EFI_SUCCESS;
}

// The host path of a path inside the volume, matching existing names without
// regard to case as FAT does.
fs::path host_path(const fs::path& root, const std::vector<std::string>& parts) {
  fs::path at = root;
  for (const std::string& part : parts) {
    fs::path next = at / part;
    std::error_code ec;
    if (!fs::exists(next, ec) && fs::is_directory(at, ec)) {
      for (fs::directory_iterator it(at, ec), end; !ec && it != end; it.increment(ec)) {
        if (ascii_lower(it->path().filename().string()) == ascii_lower(part)) {
          next = it->path();
          break;
        }
      }
    }
    at = next;
  }
  return at;
}

uint64_t bytes_used(const fs::path& root) {
  uint64_t used = 0;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code entry_ec;
    if (!it->is_regular_file(entry_ec)) continue;
    const uint64_t size = it->file_size(entry_ec);
    if (!entry_ec) used += size;
  }
  return used;
}

uint64_t file_size_or_zero(const fs::path& host) {
  std::error_code ec;
  const uint64_t size = fs::file_size(host, ec);
  return ec ? 0 : size;
}

EFI_TIME to_efi_time(time_t seconds) {
  std::tm tm{};
  localtime_r(&seconds, &tm);
  return efi_time_from_tm(tm, 0);
}

// Fills an EFI_FILE_INFO for a host file; BUFFER_TOO_SMALL tells the size needed.
EFI_STATUS file_info(const fs::path& host, const std::string& name, bool read_only, UINTN* size, VOID* buffer) {
  const std::u16string wide = widen(name);
  const UINTN needed = SIZE_OF_EFI_FILE_INFO + (wide.size() + 1) * sizeof(CHAR16);
  if (*size < needed) {
    *size = needed;
    return EFI_BUFFER_TOO_SMALL;
  }
  if (buffer == nullptr) return EFI_INVALID_PARAMETER;
  struct stat st{};
  if (stat(host.c_str(), &st) != 0) return EFI_DEVICE_ERROR;
  auto* info = static_cast<EFI_FILE_INFO*>(buffer);
  std::memset(info, 0, needed);
  info->Size = needed;
  const bool directory = S_ISDIR(st.st_mode);
  info->FileSize = directory ? 0 : static_cast<UINT64>(st.st_size);
  info->PhysicalSize = (info->FileSize + 511) / 512 * 512;
  info->CreateTime = info->LastAccessTime = info->ModificationTime = to_efi_time(st.st_mtime);
  info->Attribute = (directory ? EFI_FILE_DIRECTORY : EFI_FILE_ARCHIVE) | (read_only ? EFI_FILE_READ_ONLY : 0);
  std::memcpy(info->FileName, wide.c_str(), (wide.size() + 1) * sizeof(CHAR16));
  *size = needed;
  return EFI_SUCCESS;
}

// ---- EFIAPI thunks ---------------------------------------------------------------
EFIAPI EFI_STATUS OpenVolume(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* This, EFI_FILE_PROTOCOL** Root) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.open_volume(This, Root); });
}
EFIAPI EFI_STATUS Open(EFI_FILE_PROTOCOL* This, EFI_FILE_PROTOCOL** New, CHAR16* Name, UINT64 Mode, UINT64 Attr) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.open(This, New, Name, Mode, Attr); });
}
EFIAPI EFI_STATUS Close(EFI_FILE_PROTOCOL* This) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.close(This); });
}
EFIAPI EFI_STATUS Delete(EFI_FILE_PROTOCOL* This) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.remove(This); });
}
EFIAPI EFI_STATUS Read(EFI_FILE_PROTOCOL* This, UINTN* Size, VOID* Buffer) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.read(This, Size, Buffer); });
}
EFIAPI EFI_STATUS Write(EFI_FILE_PROTOCOL* This, UINTN* Size, VOID* Buffer) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.write(This, Size, Buffer); });
}
EFIAPI EFI_STATUS GetPosition(EFI_FILE_PROTOCOL* This, UINT64* Position) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.get_position(This, Position); });
}
EFIAPI EFI_STATUS SetPosition(EFI_FILE_PROTOCOL* This, UINT64 Position) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.set_position(This, Position); });
}
EFIAPI EFI_STATUS GetInfo(EFI_FILE_PROTOCOL* This, EFI_GUID* Type, UINTN* Size, VOID* Buffer) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.get_info(This, Type, Size, Buffer); });
}
EFIAPI EFI_STATUS SetInfo(EFI_FILE_PROTOCOL* This, EFI_GUID* Type, UINTN Size, VOID* Buffer) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.set_info(This, Type, Size, Buffer); });
}
EFIAPI EFI_STATUS Flush(EFI_FILE_PROTOCOL* This) {
  return serve<Volumes>(This, [&](Volumes& v) { return v.flush(This); });
}

}  // namespace

Volumes::Volumes(Machine& machine, const std::vector<VolumeInfo>& volumes) : machine_(machine) {
  // Every directory first, so that a volume that cannot exist leaves nothing
  // installed.
  for (const VolumeInfo& info : volumes) {
    std::error_code ec;
    fs::create_directories(info.directory, ec);
    if (ec || !fs::is_directory(info.directory, ec))
      throw std::runtime_error("volume " + info.label + ": cannot create the directory " + info.directory +
                               (ec ? ": " + ec.message() : ""));
  }
  for (size_t i = 0; i < volumes.size(); ++i) {
    auto volume = std::make_unique<Volume>();
    volume->info = volumes[i];
    volume->fs.protocol.Revision = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_REVISION;
    volume->fs.protocol.OpenVolume = OpenVolume;
    volume->fs.owner = this;
    // A vendor media node holding the volume's number, then the end node.
    std::vector<uint8_t>& dp = volume->device_path;
    dp = {MEDIA_DEVICE_PATH, MEDIA_VENDOR_DP, 24, 0};
    const auto* guid = reinterpret_cast<const uint8_t*>(&kHostVolumeVendor);
    dp.insert(dp.end(), guid, guid + sizeof(EFI_GUID));
    const uint32_t index = static_cast<uint32_t>(i);
    const auto* index_bytes = reinterpret_cast<const uint8_t*>(&index);
    dp.insert(dp.end(), index_bytes, index_bytes + 4);
    dp.insert(dp.end(), {END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, 4, 0});
    machine_.handles().install(&volume->handle, kFileSystemGuid, &volume->fs.protocol);
    machine_.handles().install(&volume->handle, kDevicePathGuid, volume->device_path.data());
    volumes_.push_back(std::move(volume));
  }
}

Volumes::~Volumes() {
  open_.clear();
  for (const auto& volume : volumes_) {
    machine_.handles().uninstall(volume->handle, kDevicePathGuid, volume->device_path.data());
    machine_.handles().uninstall(volume->handle, kFileSystemGuid, &volume->fs.protocol);
  }
}

bool Volumes::resolve(const EFI_DEVICE_PATH_PROTOCOL* path, std::string* host) const {
  if (path == nullptr || host == nullptr) return false;
  const auto* bytes = reinterpret_cast<const uint8_t*>(path);
  for (const auto& volume : volumes_) {
    // The volume's node, compared once its length is known to match.
    const size_t prefix = volume->device_path.size() - 4;
    if (DevicePathNodeLength(path) != prefix || std::memcmp(bytes, volume->device_path.data(), prefix) != 0)
      continue;
    std::vector<std::string> parts;
    for (auto* node = reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(bytes + prefix); !IsDevicePathEnd(node);
         node = NextDevicePathNode(node)) {
      const size_t length = DevicePathNodeLength(node);
      if (node->Type != MEDIA_DEVICE_PATH || node->SubType != MEDIA_FILEPATH_DP || length < 6) return false;
      std::u16string name((length - 4) / 2, u'\0');
      std::memcpy(name.data(), node + 1, name.size() * sizeof(char16_t));
      name.resize(std::char_traits<char16_t>::length(name.c_str()));
      if (walk(parts, utf8_from_utf16(name.c_str())) != EFI_SUCCESS) return false;
    }
    *host = host_path(volume->info.directory, parts).string();
    return true;
  }
  return false;
}

Events& Volumes::events() const { return machine_.events(); }

void Volumes::retire(EFI_FILE_PROTOCOL* file) {
  auto it = open_.find(file);
  closed_.push_back(std::move(it->second));
  open_.erase(it);
}

Volumes::OpenFile* Volumes::find(EFI_FILE_PROTOCOL* file) const {
  auto it = open_.find(file);
  return it == open_.end() ? nullptr : it->second.get();
}

EFI_FILE_PROTOCOL* Volumes::add(Volume* volume, std::vector<std::string> parts, bool writable) {
  auto file = std::make_unique<OpenFile>();
  file->protocol.owner = this;
  file->protocol.protocol = EFI_FILE_PROTOCOL{EFI_FILE_PROTOCOL_REVISION, Open, Close, Delete, Read, Write, GetPosition,
                                     SetPosition, GetInfo, SetInfo, Flush, nullptr, nullptr, nullptr, nullptr};
  file->volume = volume;
  file->host = host_path(volume->info.directory, parts);
  file->parts = std::move(parts);
  std::error_code ec;
  file->directory = fs::is_directory(file->host, ec);
  file->writable = writable;
  EFI_FILE_PROTOCOL* handle = &file->protocol.protocol;
  open_[handle] = std::move(file);
  return handle;
}

EFI_STATUS Volumes::open_volume(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* fs_protocol, EFI_FILE_PROTOCOL** root) {
  if (root == nullptr) return EFI_INVALID_PARAMETER;
  for (const auto& volume : volumes_) {
    if (&volume->fs.protocol != fs_protocol) continue;
    std::error_code ec;
    if (!fs::is_directory(volume->info.directory, ec)) return EFI_NO_MEDIA;
    volume->used = bytes_used(volume->info.directory);
    *root = add(volume.get(), {}, !volume->info.read_only);
    return EFI_SUCCESS;
  }
  return EFI_INVALID_PARAMETER;
}

EFI_STATUS Volumes::open(EFI_FILE_PROTOCOL* from, EFI_FILE_PROTOCOL** opened, const CHAR16* name, UINT64 mode,
                         UINT64 attributes) {
  OpenFile* base = find(from);
  if (base == nullptr || opened == nullptr || name == nullptr) return EFI_INVALID_PARAMETER;
  constexpr UINT64 kRead = EFI_FILE_MODE_READ, kWrite = EFI_FILE_MODE_WRITE, kCreate = EFI_FILE_MODE_CREATE;
  if (mode != kRead && mode != (kRead | kWrite) && mode != (kRead | kWrite | kCreate)) return EFI_INVALID_PARAMETER;
  if ((attributes & ~EFI_FILE_VALID_ATTR) != 0) return EFI_INVALID_PARAMETER;
  Volume* volume = base->volume;
  if ((mode & kWrite) != 0 && volume->info.read_only) return EFI_WRITE_PROTECTED;

  std::vector<std::string> parts = base->parts;
  if (const EFI_STATUS status = walk(parts, utf8_from_utf16(name)); status != EFI_SUCCESS) return status;
  const fs::path host = host_path(volume->info.directory, parts);
  std::error_code ec;
  if (!fs::exists(host, ec)) {
    if ((mode & kCreate) == 0) return EFI_NOT_FOUND;
    if (parts.empty() || !fs::is_directory(host.parent_path(), ec)) return EFI_NOT_FOUND;
    if ((attributes & EFI_FILE_DIRECTORY) != 0) {
      if (!fs::create_directory(host, ec)) return EFI_DEVICE_ERROR;
    } else {
      std::ofstream created(host, std::ios::binary);
      if (!created) return EFI_DEVICE_ERROR;
    }
  }
  *opened = add(volume, parts, (mode & kWrite) != 0);
  return EFI_SUCCESS;
}

EFI_STATUS Volumes::close(EFI_FILE_PROTOCOL* file) {
  if (find(file) == nullptr) return EFI_INVALID_PARAMETER;
  retire(file);
  return EFI_SUCCESS;
}

EFI_STATUS Volumes::remove(EFI_FILE_PROTOCOL* file) {
  OpenFile* f = find(file);
  if (f == nullptr) return EFI_INVALID_PARAMETER;
  Volume& volume = *f->volume;
  // Write-protected and failing media keep their files, and the root stays.
  bool removed = false;
  if (!volume.info.read_only && !volume.info.fail_writes && !f->parts.empty()) {
    const uint64_t size = f->directory ? 0 : file_size_or_zero(f->host);
    std::error_code ec;
    removed = fs::remove(f->host, ec);  // a directory only when it is empty
    if (removed) volume.used -= std::min(volume.used, size);
  }
  retire(file);
  return removed ? EFI_SUCCESS : EFI_WARN_DELETE_FAILURE;
}

EFI_STATUS Volumes::read(EFI_FILE_PROTOCOL* file, UINTN* size, VOID* buffer) {
  OpenFile* f = find(file);
  if (f == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  std::error_code ec;
  if (f->directory) {
    // One entry per call, in name order; a size of 0 marks the end.
    std::vector<fs::path> entries;
    for (fs::directory_iterator it(f->host, ec), end; !ec && it != end; it.increment(ec))
      entries.push_back(it->path());
    if (ec) return EFI_DEVICE_ERROR;
    std::sort(entries.begin(), entries.end());
    if (f->position >= entries.size()) {
      *size = 0;
      return EFI_SUCCESS;
    }
    const fs::path& entry = entries[f->position];
    EFI_STATUS status = file_info(entry, entry.filename().string(), f->volume->info.read_only, size, buffer);
    if (status == EFI_SUCCESS) ++f->position;
    return status;
  }
  const uint64_t length = fs::file_size(f->host, ec);
  if (ec) return EFI_DEVICE_ERROR;
  if (f->position > length) return EFI_DEVICE_ERROR;
  const uint64_t count = std::min<uint64_t>(*size, length - f->position);
  if (count > 0 && buffer == nullptr) return EFI_INVALID_PARAMETER;
  std::ifstream in(f->host, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(f->position));
  in.read(static_cast<char*>(buffer), static_cast<std::streamsize>(count));
  if (!in && count > 0) return EFI_DEVICE_ERROR;
  f->position += count;
  *size = count;
  return EFI_SUCCESS;
}

EFI_STATUS Volumes::write(EFI_FILE_PROTOCOL* file, UINTN* size, VOID* buffer) {
  OpenFile* f = find(file);
  if (f == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  if (f->directory) return EFI_UNSUPPORTED;
  Volume& volume = *f->volume;
  if (volume.info.read_only) return EFI_WRITE_PROTECTED;
  if (!f->writable) return EFI_ACCESS_DENIED;
  if (*size > 0 && buffer == nullptr) return EFI_INVALID_PARAMETER;
  if (volume.info.fail_writes) {
    *size = 0;
    return EFI_DEVICE_ERROR;
  }
  std::error_code ec;
  const uint64_t length = fs::file_size(f->host, ec);
  if (ec) return EFI_DEVICE_ERROR;  // deleted through another handle
  const uint64_t end = f->position + *size;
  const uint64_t growth = end > length ? end - length : 0;
  if (volume.used + growth > volume.info.size_mib * 1024 * 1024) {
    *size = 0;
    return EFI_VOLUME_FULL;
  }
  std::fstream out(f->host, std::ios::binary | std::ios::in | std::ios::out);
  if (!out) return EFI_DEVICE_ERROR;
  if (f->position > length) {  // writing past the end fills the gap with zeros
    out.seekp(0, std::ios::end);
    out.write(std::string(f->position - length, '\0').data(), static_cast<std::streamsize>(f->position - length));
  }
  out.seekp(static_cast<std::streamoff>(f->position));
  out.write(static_cast<const char*>(buffer), static_cast<std::streamsize>(*size));
  if (!out) return EFI_DEVICE_ERROR;
  volume.used += growth;
  f->position = end;
  return EFI_SUCCESS;
}

EFI_STATUS Volumes::get_position(EFI_FILE_PROTOCOL* file, UINT64* position) {
  OpenFile* f = find(file);
  if (f == nullptr || position == nullptr) return EFI_INVALID_PARAMETER;
  if (f->directory) return EFI_UNSUPPORTED;
  *position = f->position;
  return EFI_SUCCESS;
}

EFI_STATUS Volumes::set_position(EFI_FILE_PROTOCOL* file, UINT64 position) {
  OpenFile* f = find(file);
  if (f == nullptr) return EFI_INVALID_PARAMETER;
  if (f->directory) {
    if (position != 0) return EFI_UNSUPPORTED;
    f->position = 0;
    return EFI_SUCCESS;
  }
  f->position = position == EFI_FILE_POSITION_END ? file_size_or_zero(f->host) : position;
  return EFI_SUCCESS;
}

EFI_STATUS Volumes::get_info(EFI_FILE_PROTOCOL* file, const EFI_GUID* type, UINTN* size, VOID* buffer) {
  OpenFile* f = find(file);
  if (f == nullptr || type == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  const Volume& volume = *f->volume;
  if (*type == kFileInfoGuid)
    return file_info(f->host, f->parts.empty() ? "" : f->host.filename().string(), volume.info.read_only, size,
                     buffer);
  if (*type == kFileSystemInfoGuid) {
    const std::u16string label = widen(volume.info.label);
    const UINTN needed = SIZE_OF_EFI_FILE_SYSTEM_INFO + (label.size() + 1) * sizeof(CHAR16);
    if (*size < needed) {
      *size = needed;
      return EFI_BUFFER_TOO_SMALL;
    }
    if (buffer == nullptr) return EFI_INVALID_PARAMETER;
    auto* out = static_cast<EFI_FILE_SYSTEM_INFO*>(buffer);
    std::memset(out, 0, needed);
    out->Size = needed;
    out->ReadOnly = volume.info.read_only ? TRUE : FALSE;
    out->VolumeSize = volume.info.size_mib * 1024 * 1024;
    out->FreeSpace = volume.used >= out->VolumeSize ? 0 : out->VolumeSize - volume.used;
    out->BlockSize = 512;
    std::memcpy(out->VolumeLabel, label.c_str(), (label.size() + 1) * sizeof(CHAR16));
    *size = needed;
    return EFI_SUCCESS;
  }
  return EFI_UNSUPPORTED;
}

// Only a file's size can be changed, and only made smaller (a save that
// takes back what it appended); names, times and attributes stay as the
// host has them.
EFI_STATUS Volumes::set_info(EFI_FILE_PROTOCOL* file, const EFI_GUID* type, UINTN size, VOID* buffer) {
  OpenFile* f = find(file);
  if (f == nullptr || type == nullptr || buffer == nullptr) return EFI_INVALID_PARAMETER;
  if (std::memcmp(type, &kFileInfoGuid, sizeof(EFI_GUID)) != 0 || f->directory) return EFI_UNSUPPORTED;
  if (size < SIZE_OF_EFI_FILE_INFO) return EFI_BAD_BUFFER_SIZE;
  if (f->volume->info.read_only) return EFI_WRITE_PROTECTED;
  if (!f->writable) return EFI_ACCESS_DENIED;
  std::error_code ec;
  const uint64_t length = fs::file_size(f->host, ec);
  if (ec) return EFI_DEVICE_ERROR;
  const uint64_t wanted = static_cast<const EFI_FILE_INFO*>(buffer)->FileSize;
  if (wanted == length) return EFI_SUCCESS;
  if (wanted > length) return EFI_UNSUPPORTED;
  fs::resize_file(f->host, wanted, ec);
  if (ec) return EFI_DEVICE_ERROR;
  f->volume->used -= std::min(f->volume->used, length - wanted);
  return EFI_SUCCESS;
}

EFI_STATUS Volumes::flush(EFI_FILE_PROTOCOL* file) {
  OpenFile* f = find(file);
  if (f == nullptr) return EFI_INVALID_PARAMETER;
  if (f->volume->info.read_only) return EFI_WRITE_PROTECTED;
  if (!f->writable) return EFI_ACCESS_DENIED;
  return EFI_SUCCESS;  // every write has reached the host file already
}

}  // namespace hostfw
