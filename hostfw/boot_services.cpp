// EFIAPI entry points of the boot services, acting on the current machine.
// Services that touch shared state hold TPL_NOTIFY while they work, as
// firmware does, so timer notifications never run inside them.
#include <cstring>
#include <vector>

#include "hostfw/machine.h"
#include "hostfw/protocol_thunk.h"
#include "hostfw/services.h"

namespace hostfw {
namespace {

constexpr uint64_t kIdleSliceNs = 10 * 1000 * 1000;

Machine& M() { return Machine::current(); }

// Services that touch shared state run as every host protocol does.
template <typename Operation>
EFI_STATUS at_notify(Operation&& operation) {
  return run_at_notify(M().events(), operation);
}

// ---- Task priority ---------------------------------------------------------------
EFIAPI EFI_TPL RaiseTpl(EFI_TPL new_tpl) { return M().events().raise(new_tpl); }
EFIAPI VOID RestoreTpl(EFI_TPL old_tpl) { M().events().restore(old_tpl); }

// ---- Memory ----------------------------------------------------------------------
EFIAPI EFI_STATUS AllocatePages(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memory_type, UINTN pages,
                                EFI_PHYSICAL_ADDRESS* memory) {
  return at_notify([&]() -> EFI_STATUS {
    return M().memory().allocate_pages(type, memory_type, pages, memory);
  });
}
EFIAPI EFI_STATUS FreePages(EFI_PHYSICAL_ADDRESS memory, UINTN pages) {
  return at_notify([&]() -> EFI_STATUS {
    return M().memory().free_pages(memory, pages);
  });
}
EFIAPI EFI_STATUS GetMemoryMap(UINTN* size, EFI_MEMORY_DESCRIPTOR* map, UINTN* key, UINTN* descriptor_size,
                               UINT32* version) {
  return at_notify([&]() -> EFI_STATUS {
    return M().memory().get_memory_map(size, map, key, descriptor_size, version);
  });
}
EFIAPI EFI_STATUS AllocatePool(EFI_MEMORY_TYPE type, UINTN size, VOID** buffer) {
  return at_notify([&]() -> EFI_STATUS {
    return M().memory().allocate_pool(type, size, buffer);
  });
}
EFIAPI EFI_STATUS FreePool(VOID* buffer) {
  return at_notify([&]() -> EFI_STATUS {
    return M().memory().free_pool(buffer);
  });
}
EFIAPI VOID CopyMem(VOID* destination, VOID* source, UINTN length) { std::memmove(destination, source, length); }
EFIAPI VOID SetMem(VOID* buffer, UINTN size, UINT8 value) { std::memset(buffer, value, size); }

// ---- Events and time -----------------------------------------------------------
EFIAPI EFI_STATUS CreateEvent(UINT32 type, EFI_TPL notify_tpl, EFI_EVENT_NOTIFY notify, VOID* context,
                              EFI_EVENT* event) {
  return M().events().create(type, notify_tpl, notify, context, event);
}
EFIAPI EFI_STATUS SetTimer(EFI_EVENT event, EFI_TIMER_DELAY type, UINT64 trigger_time) {
  return M().events().set_timer(event, type, trigger_time);
}
EFIAPI EFI_STATUS WaitForEvent(UINTN count, EFI_EVENT* events, UINTN* index) {
  Machine& m = M();
  return m.events().wait(count, events, index, [&m] { m.idle(kIdleSliceNs); });
}
EFIAPI EFI_STATUS SignalEvent(EFI_EVENT event) { return M().events().signal(event); }
EFIAPI EFI_STATUS CloseEvent(EFI_EVENT event) { return M().events().close(event); }
EFIAPI EFI_STATUS CheckEvent(EFI_EVENT event) { return M().events().check(event); }
EFIAPI EFI_STATUS Stall(UINTN microseconds) {
  M().events().stall(microseconds);
  return EFI_SUCCESS;
}
EFIAPI EFI_STATUS SetWatchdogTimer(UINTN timeout, UINT64, UINTN, CHAR16*) {
  M().set_watchdog_seconds(timeout);
  return EFI_SUCCESS;
}

// ---- Handle database -------------------------------------------------------------
EFIAPI EFI_STATUS InstallProtocolInterface(EFI_HANDLE* handle, EFI_GUID* protocol, EFI_INTERFACE_TYPE type,
                                           VOID* interface) {
  if (protocol == nullptr || type != EFI_NATIVE_INTERFACE) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    Faults& faults = M().faults();
    if (faults.fail_install_of_guid && faults.install_guid_to_fail == *protocol) return EFI_OUT_OF_RESOURCES;
    return M().handles().install(handle, *protocol, interface);
  });
}
EFIAPI EFI_STATUS UninstallProtocolInterface(EFI_HANDLE handle, EFI_GUID* protocol, VOID* interface) {
  if (protocol == nullptr) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    return M().handles().uninstall(handle, *protocol, interface);
  });
}
EFIAPI EFI_STATUS HandleProtocol(EFI_HANDLE handle, EFI_GUID* protocol, VOID** interface) {
  if (protocol == nullptr) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    return M().handles().handle_protocol(handle, *protocol, interface);
  });
}
EFIAPI EFI_STATUS OpenProtocol(EFI_HANDLE handle, EFI_GUID* protocol, VOID** interface, EFI_HANDLE, EFI_HANDLE,
                               UINT32 attributes) {
  if (protocol == nullptr) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    if (attributes == EFI_OPEN_PROTOCOL_TEST_PROTOCOL) {
      VOID* ignored = nullptr;
      return M().handles().handle_protocol(handle, *protocol, &ignored);
    }
    if (interface == nullptr) return EFI_INVALID_PARAMETER;
    return M().handles().handle_protocol(handle, *protocol, interface);
  });
}
EFIAPI EFI_STATUS CloseProtocol(EFI_HANDLE handle, EFI_GUID* protocol, EFI_HANDLE, EFI_HANDLE) {
  if (protocol == nullptr) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    VOID* ignored = nullptr;
    return EFI_ERROR(M().handles().handle_protocol(handle, *protocol, &ignored)) ? EFI_NOT_FOUND : EFI_SUCCESS;
  });
}
EFIAPI EFI_STATUS LocateProtocol(EFI_GUID* protocol, VOID*, VOID** interface) {
  if (protocol == nullptr) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    return M().handles().locate_protocol(*protocol, interface);
  });
}

EFI_STATUS find_handles(EFI_LOCATE_SEARCH_TYPE search, EFI_GUID* protocol, std::vector<EFI_HANDLE>* out) {
  switch (search) {
    case AllHandles:
      *out = M().handles().handles_with(nullptr);
      break;
    case ByProtocol:
      if (protocol == nullptr) return EFI_INVALID_PARAMETER;
      *out = M().handles().handles_with(protocol);
      break;
    default:
      return EFI_UNSUPPORTED;  // no protocol notifications on this machine
  }
  return out->empty() ? EFI_NOT_FOUND : EFI_SUCCESS;
}

EFIAPI EFI_STATUS LocateHandle(EFI_LOCATE_SEARCH_TYPE search, EFI_GUID* protocol, VOID*, UINTN* buffer_size,
                               EFI_HANDLE* buffer) {
  if (buffer_size == nullptr) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    std::vector<EFI_HANDLE> found;
    EFI_STATUS status = find_handles(search, protocol, &found);
    if (EFI_ERROR(status)) return status;
    const UINTN needed = found.size() * sizeof(EFI_HANDLE);
    if (*buffer_size < needed) {
      *buffer_size = needed;
      return EFI_BUFFER_TOO_SMALL;
    }
    if (buffer == nullptr) return EFI_INVALID_PARAMETER;
    std::memcpy(buffer, found.data(), needed);
    *buffer_size = needed;
    return EFI_SUCCESS;
  });
}

EFIAPI EFI_STATUS LocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE search, EFI_GUID* protocol, VOID*, UINTN* count,
                                     EFI_HANDLE** buffer) {
  if (count == nullptr || buffer == nullptr) return EFI_INVALID_PARAMETER;
  return at_notify([&]() -> EFI_STATUS {
    *count = 0;
    *buffer = nullptr;
    std::vector<EFI_HANDLE> found;
    EFI_STATUS status = find_handles(search, protocol, &found);
    if (EFI_ERROR(status)) return status;
    VOID* pool = nullptr;
    status = M().memory().allocate_pool(EfiBootServicesData, found.size() * sizeof(EFI_HANDLE), &pool);
    if (EFI_ERROR(status)) return status;
    std::memcpy(pool, found.data(), found.size() * sizeof(EFI_HANDLE));
    *buffer = static_cast<EFI_HANDLE*>(pool);
    *count = found.size();
    return EFI_SUCCESS;
  });
}

// The (GUID, interface) pairs of a multiple-protocol call, up to the NULL GUID.
std::vector<std::pair<EFI_GUID*, VOID*>> read_pairs(VA_LIST args) {
  std::vector<std::pair<EFI_GUID*, VOID*>> pairs;
  for (;;) {
    EFI_GUID* guid = VA_ARG(args, EFI_GUID*);
    if (guid == nullptr) break;
    VOID* interface = VA_ARG(args, VOID*);
    pairs.emplace_back(guid, interface);
  }
  return pairs;
}

EFIAPI EFI_STATUS InstallMultipleProtocolInterfaces(EFI_HANDLE* handle, ...) {
  if (handle == nullptr) return EFI_INVALID_PARAMETER;
  VA_LIST args;
  VA_START(args, handle);
  auto pairs = read_pairs(args);
  VA_END(args);

  return at_notify([&]() -> EFI_STATUS {
    EFI_HANDLE original = *handle;
    std::vector<std::pair<EFI_GUID*, VOID*>> done;
    EFI_STATUS status = EFI_SUCCESS;
    for (auto& [guid, interface] : pairs) {
      status = InstallProtocolInterface(handle, guid, EFI_NATIVE_INTERFACE, interface);
      if (EFI_ERROR(status)) break;
      done.emplace_back(guid, interface);
    }
    if (EFI_ERROR(status)) {
      // All or nothing.
      for (auto it = done.rbegin(); it != done.rend(); ++it) M().handles().uninstall(*handle, *it->first, it->second);
      *handle = original;
    }
    return status;
  });
}

EFIAPI EFI_STATUS UninstallMultipleProtocolInterfaces(EFI_HANDLE handle, ...) {
  VA_LIST args;
  VA_START(args, handle);
  auto pairs = read_pairs(args);
  VA_END(args);

  return at_notify([&]() -> EFI_STATUS {
    std::vector<std::pair<EFI_GUID*, VOID*>> done;
    for (auto& [guid, interface] : pairs) {
      if (EFI_ERROR(M().handles().uninstall(handle, *guid, interface))) {
        // All or nothing: put back what was removed.
        for (auto it = done.rbegin(); it != done.rend(); ++it) {
          EFI_HANDLE h = handle;
          M().handles().install(&h, *it->first, it->second);
        }
        return EFI_INVALID_PARAMETER;
      }
      done.emplace_back(guid, interface);
    }
    return EFI_SUCCESS;
  });
}

// ---- Images ----------------------------------------------------------------------
EFIAPI EFI_STATUS LoadImage(BOOLEAN boot_policy, EFI_HANDLE parent, EFI_DEVICE_PATH_PROTOCOL* path, VOID* source,
                            UINTN source_size, EFI_HANDLE* image) {
  return at_notify([&]() -> EFI_STATUS {
    return M().images().load(boot_policy, parent, path, source, source_size, image);
  });
}
EFIAPI EFI_STATUS StartImage(EFI_HANDLE image, UINTN* exit_data_size, CHAR16** exit_data) {
  return M().images().start(image, exit_data_size, exit_data);
}
EFIAPI EFI_STATUS UnloadImage(EFI_HANDLE image) { return M().images().unload(image); }
EFIAPI EFI_STATUS Exit(EFI_HANDLE image, EFI_STATUS status, UINTN, CHAR16*) {
  Machine& m = M();
  if (image != m.image_handle()) return EFI_UNSUPPORTED;
  RunResult result;
  result.end = RunResult::End::Returned;
  result.status = status;
  m.end_run(result);
  return EFI_SUCCESS;
}

}  // namespace

void fill_boot_services(EFI_BOOT_SERVICES& t) {
  t = EFI_BOOT_SERVICES{};
  t.Hdr.Signature = EFI_BOOT_SERVICES_SIGNATURE;
  t.Hdr.Revision = EFI_2_70_SYSTEM_TABLE_REVISION;
  t.Hdr.HeaderSize = sizeof(EFI_BOOT_SERVICES);
  t.RaiseTPL = RaiseTpl;
  t.RestoreTPL = RestoreTpl;
  t.AllocatePages = AllocatePages;
  t.FreePages = FreePages;
  t.GetMemoryMap = GetMemoryMap;
  t.AllocatePool = AllocatePool;
  t.FreePool = FreePool;
  t.CreateEvent = CreateEvent;
  t.SetTimer = SetTimer;
  t.WaitForEvent = WaitForEvent;
  t.SignalEvent = SignalEvent;
  t.CloseEvent = CloseEvent;
  t.CheckEvent = CheckEvent;
  t.InstallProtocolInterface = InstallProtocolInterface;
  t.UninstallProtocolInterface = UninstallProtocolInterface;
  t.HandleProtocol = HandleProtocol;
  t.LocateHandle = LocateHandle;
  t.LoadImage = LoadImage;
  t.StartImage = StartImage;
  t.Exit = Exit;
  t.UnloadImage = UnloadImage;
  t.Stall = Stall;
  t.SetWatchdogTimer = SetWatchdogTimer;
  t.OpenProtocol = OpenProtocol;
  t.CloseProtocol = CloseProtocol;
  t.LocateHandleBuffer = LocateHandleBuffer;
  t.LocateProtocol = LocateProtocol;
  t.InstallMultipleProtocolInterfaces = InstallMultipleProtocolInterfaces;
  t.UninstallMultipleProtocolInterfaces = UninstallMultipleProtocolInterfaces;
  t.CopyMem = CopyMem;
  t.SetMem = SetMem;
}

}  // namespace hostfw
