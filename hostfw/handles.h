// The handle database: protocol interfaces installed on handles, keyed by GUID.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "efi/efi.h"

namespace hostfw {

class HandleDatabase {
 public:
  // Installs interface under guid on *handle; a null *handle gets a new handle.
  // EFI_INVALID_PARAMETER when that GUID is already on that handle.
  EFI_STATUS install(EFI_HANDLE* handle, const EFI_GUID& guid, void* interface);
  // Removes exactly that interface; a handle left without protocols goes away.
  EFI_STATUS uninstall(EFI_HANDLE handle, const EFI_GUID& guid, void* interface);
  EFI_STATUS handle_protocol(EFI_HANDLE handle, const EFI_GUID& guid, void** interface) const;
  // The interface installed first under guid, on any handle.
  EFI_STATUS locate_protocol(const EFI_GUID& guid, void** interface) const;
  // Handles carrying guid, in order of creation; all handles for nullptr.
  std::vector<EFI_HANDLE> handles_with(const EFI_GUID* guid) const;
  bool valid(EFI_HANDLE handle) const;
  size_t handle_count() const { return handles_.size(); }

 private:
  struct Handle {
    uint64_t serial;
    std::vector<std::pair<EFI_GUID, void*>> protocols;  // in order of installation
  };
  struct Installation {
    uint64_t sequence;
    Handle* handle;
    void* interface;
  };
  Handle* find(EFI_HANDLE handle) const;

  std::vector<std::unique_ptr<Handle>> handles_;  // in order of creation
  uint64_t next_serial_ = 1;
  uint64_t next_sequence_ = 1;
  std::vector<std::pair<EFI_GUID, Installation>> installations_;  // in order of installation
};

}  // namespace hostfw
