// Move-only owners of firmware pool buffers and the buffer-too-small retry.
#pragma once

#include "core/globals.h"

namespace tarvik {

// Owns one pool buffer (EfiBootServicesData unless told otherwise) and frees
// it on destruction.
// release() hands the buffer to a caller that frees it itself, e.g. a text
// returned through an out-parameter.
template <typename T = VOID>
class PoolPtr {
 public:
  PoolPtr() = default;
  explicit PoolPtr(T* Buffer) : Buffer_(Buffer) {}
  ~PoolPtr() { reset(); }
  PoolPtr(const PoolPtr&) = delete;
  PoolPtr& operator=(const PoolPtr&) = delete;
  PoolPtr(PoolPtr&& Other) : Buffer_(Other.release()) {}
  PoolPtr& operator=(PoolPtr&& Other) {
    if (this != &Other) reset(Other.release());
    return *this;
  }

  // Allocates Bytes bytes, replacing (and freeing) any buffer held before.
  EFI_STATUS Allocate(UINTN Bytes, EFI_MEMORY_TYPE Type = EfiBootServicesData) {
    reset();
    VOID* Raw = nullptr;
    EFI_STATUS Status = gBS->AllocatePool(Type, Bytes, &Raw);
    if (EFI_ERROR(Status)) return Status;
    Buffer_ = static_cast<T*>(Raw);
    return EFI_SUCCESS;
  }

  T* get() const { return Buffer_; }
  T* operator->() const { return Buffer_; }
  explicit operator bool() const { return Buffer_ != nullptr; }

  T* release() {
    T* Buffer = Buffer_;
    Buffer_ = nullptr;
    return Buffer;
  }

  void reset(T* Buffer = nullptr) {
    if (Buffer_ != nullptr) gBS->FreePool(Buffer_);
    Buffer_ = Buffer;
  }

 private:
  T* Buffer_ = nullptr;
};

// A zero-filled pool array of Count elements (room for one when Count is 0),
// owned by the caller; null when the pool is exhausted.
template <typename T>
T* AllocateZeroedArray(UINT64 Count) {
  const UINTN Bytes = (Count > 0 ? Count : 1) * sizeof(T);
  VOID* Buffer = nullptr;
  if (EFI_ERROR(gBS->AllocatePool(EfiBootServicesData, Bytes, &Buffer))) return nullptr;
  gBS->SetMem(Buffer, Bytes, 0);
  return static_cast<T*>(Buffer);
}

// Calls Query(Buffer, &Size) with a growing pool buffer until it stops
// answering EFI_BUFFER_TOO_SMALL, the firmware's way of telling the size it
// needs (GetMemoryMap, GetInfo, LocateHandle). Size starts as the caller's
// first guess and ends as the size the firmware filled in. Slack covers
// growth between the two calls (an allocation can add a memory-map entry).
template <typename T, typename QueryFn>
EFI_STATUS QueryWithGrowingBuffer(PoolPtr<T>& Buffer, UINTN& Size, QueryFn Query, UINTN Slack = 0,
                                  EFI_MEMORY_TYPE Type = EfiBootServicesData) {
  for (int Attempt = 0; Attempt < 8; ++Attempt) {
    EFI_STATUS Status = Buffer.Allocate(Size == 0 ? 1 : Size, Type);
    if (EFI_ERROR(Status)) return Status;
    UINTN Needed = Size;
    Status = Query(Buffer.get(), &Needed);
    if (Status != EFI_BUFFER_TOO_SMALL) {
      if (EFI_ERROR(Status)) Buffer.reset();
      Size = Needed;
      return Status;
    }
    Size = Needed + Slack;
  }
  Buffer.reset();
  return EFI_BUFFER_TOO_SMALL;
}

}  // namespace tarvik
