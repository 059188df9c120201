#include "hostfw/handles.h"

#include <algorithm>

namespace hostfw {

HandleDatabase::Handle* HandleDatabase::find(EFI_HANDLE handle) const {
  for (const auto& h : handles_)
    if (h.get() == handle) return h.get();
  return nullptr;
}

bool HandleDatabase::valid(EFI_HANDLE handle) const { return find(handle) != nullptr; }

EFI_STATUS HandleDatabase::install(EFI_HANDLE* handle, const EFI_GUID& guid, void* interface) {
  if (handle == nullptr) return EFI_INVALID_PARAMETER;
  Handle* h = nullptr;
  if (*handle != nullptr) {
    h = find(*handle);
    if (h == nullptr) return EFI_INVALID_PARAMETER;
    for (const auto& [g, i] : h->protocols)
      if (g == guid) return EFI_INVALID_PARAMETER;
  } else {
    handles_.push_back(std::make_unique<Handle>(Handle{next_serial_++, {}}));
    h = handles_.back().get();
    *handle = h;
  }
  h->protocols.emplace_back(guid, interface);
  installations_.push_back({guid, Installation{next_sequence_++, h, interface}});
  return EFI_SUCCESS;
}

EFI_STATUS HandleDatabase::uninstall(EFI_HANDLE handle, const EFI_GUID& guid, void* interface) {
  Handle* h = find(handle);
  if (h == nullptr) return EFI_INVALID_PARAMETER;
  auto it = std::find_if(h->protocols.begin(), h->protocols.end(),
                         [&](const auto& p) { return p.first == guid && p.second == interface; });
  if (it == h->protocols.end()) return EFI_NOT_FOUND;
  h->protocols.erase(it);
  installations_.erase(std::find_if(installations_.begin(), installations_.end(), [&](const auto& p) {
    return p.first == guid && p.second.handle == h && p.second.interface == interface;
  }));
  if (h->protocols.empty())
    handles_.erase(std::find_if(handles_.begin(), handles_.end(), [h](const auto& p) { return p.get() == h; }));
  return EFI_SUCCESS;
}

EFI_STATUS HandleDatabase::handle_protocol(EFI_HANDLE handle, const EFI_GUID& guid, void** interface) const {
  if (interface == nullptr) return EFI_INVALID_PARAMETER;
  *interface = nullptr;
  Handle* h = find(handle);
  if (h == nullptr) return EFI_INVALID_PARAMETER;
  for (const auto& [g, i] : h->protocols) {
    if (g == guid) {
      *interface = i;
      return EFI_SUCCESS;
    }
  }
  return EFI_UNSUPPORTED;
}

EFI_STATUS HandleDatabase::locate_protocol(const EFI_GUID& guid, void** interface) const {
  if (interface == nullptr) return EFI_INVALID_PARAMETER;
  for (const auto& [g, installation] : installations_) {
    if (g == guid) {
      *interface = installation.interface;
      return EFI_SUCCESS;
    }
  }
  *interface = nullptr;
  return EFI_NOT_FOUND;
}

std::vector<EFI_HANDLE> HandleDatabase::handles_with(const EFI_GUID* guid) const {
  std::vector<EFI_HANDLE> out;
  for (const auto& h : handles_) {
    if (guid == nullptr ||
        std::any_of(h->protocols.begin(), h->protocols.end(), [&](const auto& p) { return p.first == *guid; }))
      out.push_back(h.get());
  }
  return out;
}

}  // namespace hostfw
