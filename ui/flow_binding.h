// Timer notifications and the callbacks a module is given are EFIAPI
// functions without a context of their own. Each flow keeps one file-static
// pointer to the record of its running flow, and binds it for the flow's
// lifetime with this guard: the notifications read the pointer, and find it
// null once the flow has ended.
#pragma once

namespace tarvik {

template <typename Flow>
class FlowBinding {
 public:
  FlowBinding(Flow*& Slot, Flow& Record) : Slot_(Slot) { Slot_ = &Record; }
  ~FlowBinding() { Slot_ = nullptr; }
  FlowBinding(const FlowBinding&) = delete;
  FlowBinding& operator=(const FlowBinding&) = delete;

 private:
  Flow*& Slot_;
};

}  // namespace tarvik
