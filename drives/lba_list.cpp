#include "drives/lba_list.h"

#include "core/globals.h"

namespace tarvik {

EFI_STATUS LbaList::Add(UINT64 Lba) {
  if (Contains(Lba)) return EFI_SUCCESS;
  VOID* Raw = nullptr;
  const EFI_STATUS Status = gBS->AllocatePool(EfiBootServicesData, sizeof(LbaNode), &Raw);
  if (EFI_ERROR(Status)) return EFI_OUT_OF_RESOURCES;
  LbaNode* Node = static_cast<LbaNode*>(Raw);
  Node->Lba = Lba;
  Node->Next = Head_;
  Head_ = Node;
  return EFI_SUCCESS;
}

bool LbaList::Contains(UINT64 Lba) const {
  for (const LbaNode* Node = Head_; Node != nullptr; Node = Node->Next)
    if (Node->Lba == Lba) return true;
  return false;
}

UINT64 LbaList::Count() const {
  UINT64 Count = 0;
  for (const LbaNode* Node = Head_; Node != nullptr; Node = Node->Next) ++Count;
  return Count;
}

VOID LbaList::PopFront() {
  LbaNode* Node = Head_;
  if (Node == nullptr) return;
  Head_ = Node->Next;
  gBS->FreePool(Node);
}

VOID LbaList::Clear() {
  while (Head_ != nullptr) PopFront();
}

}  // namespace tarvik
