// Move-only owner of an open file-protocol handle: closes it when it goes.
#pragma once

#include "efi/efi.h"

namespace tarvik {

class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(EFI_FILE_PROTOCOL* File) : File_(File) {}
  ~FileHandle() { reset(); }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  FileHandle(FileHandle&& Other) : File_(Other.File_) { Other.File_ = nullptr; }
  FileHandle& operator=(FileHandle&& Other) {
    if (this != &Other) {
      reset();
      File_ = Other.File_;
      Other.File_ = nullptr;
    }
    return *this;
  }

  EFI_FILE_PROTOCOL* get() const { return File_; }
  EFI_FILE_PROTOCOL* operator->() const { return File_; }
  explicit operator bool() const { return File_ != nullptr; }
  // For the out-parameter of OpenVolume and Open; closes what was held.
  EFI_FILE_PROTOCOL** out() {
    reset();
    return &File_;
  }

  void reset() {
    if (File_ != nullptr) File_->Close(File_);
    File_ = nullptr;
  }

 private:
  EFI_FILE_PROTOCOL* File_ = nullptr;
};

}  // namespace tarvik
