// The two texts of a label/value (or key/value) row that a module hands out:
// each a new pool buffer the caller frees. When the second cannot be
// allocated the first is freed again, so the caller owns both or nothing.
#pragma once

#include "core/pool.h"

namespace tarvik {

class RowTexts {
 public:
  EFI_STATUS Allocate(UINTN Bytes) {
    Bytes_ = Bytes;
    EFI_STATUS Status = Label_.Allocate(Bytes);
    if (!EFI_ERROR(Status)) Status = Value_.Allocate(Bytes);
    if (EFI_ERROR(Status)) Label_.reset();
    return Status;
  }
  CHAR16* Label() { return Label_.get(); }
  CHAR16* Value() { return Value_.get(); }
  UINTN Bytes() const { return Bytes_; }
  EFI_STATUS HandOut(CHAR16** Label, CHAR16** Value) {
    *Label = Label_.release();
    *Value = Value_.release();
    return EFI_SUCCESS;
  }

 private:
  PoolPtr<CHAR16> Label_;
  PoolPtr<CHAR16> Value_;
  UINTN Bytes_ = 0;
};

// Both texts of a row, Bytes each, allocated and emptied for
// Fill(Label, Value) to write, then handed out.
template <typename FillFn>
EFI_STATUS HandOutRowTexts(UINTN Bytes, CHAR16** Label, CHAR16** Value, FillFn Fill) {
  RowTexts Texts;
  const EFI_STATUS Status = Texts.Allocate(Bytes);
  if (EFI_ERROR(Status)) return Status;
  Texts.Label()[0] = 0;
  Texts.Value()[0] = 0;
  Fill(Texts.Label(), Texts.Value());
  return Texts.HandOut(Label, Value);
}

}  // namespace tarvik
