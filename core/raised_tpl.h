// Holds the task priority raised for a scope: notifications at or below the
// level wait until the scope ends, then run as RestoreTPL lets them.
#pragma once

#include "core/globals.h"

namespace tarvik {

class RaisedTpl {
 public:
  explicit RaisedTpl(EFI_TPL Level) : Previous_(gBS->RaiseTPL(Level)) {}
  ~RaisedTpl() { gBS->RestoreTPL(Previous_); }
  RaisedTpl(const RaisedTpl&) = delete;
  RaisedTpl& operator=(const RaisedTpl&) = delete;

 private:
  EFI_TPL Previous_;
};

}  // namespace tarvik
