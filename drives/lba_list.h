// A set of sector addresses kept as a singly linked list of pool nodes,
// newest first: the blocks a drive's logs name, the sectors the targeted
// read could not read, the bad-sector tool's finds. The list owns its nodes
// and frees whatever is left when it goes.
#pragma once

#include "efi/efi.h"

namespace tarvik {

struct LbaNode {
  UINT64 Lba;
  LbaNode* Next;
};
static_assert(sizeof(LbaNode) == 16);

class LbaList {
 public:
  LbaList() = default;
  ~LbaList() { Clear(); }
  LbaList(const LbaList&) = delete;
  LbaList& operator=(const LbaList&) = delete;

  // Puts Lba at the head unless it is already listed. EFI_SUCCESS either
  // way; EFI_OUT_OF_RESOURCES when no node can be had.
  EFI_STATUS Add(UINT64 Lba);
  bool Contains(UINT64 Lba) const;
  bool Empty() const { return Head_ == nullptr; }
  UINT64 Count() const;
  // The newest entry; only while the list is not empty.
  UINT64 Front() const { return Head_->Lba; }
  // Frees the newest node.
  VOID PopFront();
  VOID Clear();

  // Calls Visit(Lba) for every entry, newest first.
  template <typename Visitor>
  VOID ForEach(Visitor Visit) const {
    for (const LbaNode* Node = Head_; Node != nullptr; Node = Node->Next) Visit(Node->Lba);
  }

 private:
  LbaNode* Head_ = nullptr;
};

}  // namespace tarvik
