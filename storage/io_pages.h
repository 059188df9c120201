// Page buffers for data and status blocks handed to the pass-through,
// aligned to what its Mode->IoAlign asks.
#pragma once

#include "efi/efi.h"
#include "storage/storage_device.h"

namespace tarvik {

// ceil(Size / 4096) pages of boot-services data aligned to IoAlign of the
// drive's pass-through (extra pages around the aligned range are returned to
// the firmware). Null when Size is 0, the pages cannot be had or IoAlign
// cannot be met.
VOID* AllocateIoPages(const StorageDevice* Device, UINTN Size);
// Returns the pages of an AllocateIoPages buffer of Size bytes; null is ignored.
VOID FreeIoPages(VOID* Buffer, UINTN Size);

// Owns one AllocateIoPages buffer and returns it on destruction; release()
// hands it over (e.g. to a StorageDevice field).
class IoPages {
 public:
  IoPages() = default;
  IoPages(const StorageDevice* Device, UINTN Size) : Buffer_(AllocateIoPages(Device, Size)), Size_(Size) {}
  ~IoPages() { FreeIoPages(Buffer_, Size_); }
  IoPages(const IoPages&) = delete;
  IoPages& operator=(const IoPages&) = delete;

  VOID* get() const { return Buffer_; }
  explicit operator bool() const { return Buffer_ != nullptr; }
  VOID* release() {
    VOID* Buffer = Buffer_;
    Buffer_ = nullptr;
    return Buffer;
  }

 private:
  VOID* Buffer_ = nullptr;
  UINTN Size_ = 0;
};

// A drive's LogBuffer for one log read: allocated and named in
// Device->LogBuffer here, returned and cleared at the end of the scope.
class LogBufferPages {
 public:
  LogBufferPages(StorageDevice* Device, UINTN Size) : Device_(Device), Pages_(Device, Size) {
    Device_->LogBuffer = Pages_.get();
  }
  ~LogBufferPages() { Device_->LogBuffer = nullptr; }
  LogBufferPages(const LogBufferPages&) = delete;
  LogBufferPages& operator=(const LogBufferPages&) = delete;

  VOID* get() const { return Pages_.get(); }
  explicit operator bool() const { return static_cast<bool>(Pages_); }

 private:
  StorageDevice* Device_;
  IoPages Pages_;
};

}  // namespace tarvik
