#include "hostfw/mp_services.h"

#include <signal.h>

#include <algorithm>
#include <chrono>

#include "hostfw/clock.h"
#include "hostfw/machine.h"

namespace hostfw {
namespace {

const EFI_GUID kMpServicesGuid = EFI_MP_SERVICES_PROTOCOL_GUID;

// The processor the calling thread is: 0 on the BSP.
thread_local unsigned t_processor = 0;

// How long a check of the wait event waits for the APs in real time: under
// the virtual clock until they return (bounded, so that a procedure that
// never returns cannot freeze the machine); otherwise a moment.
constexpr auto kVirtualWaitLimit = std::chrono::seconds(120);
constexpr auto kRealClockWait = std::chrono::milliseconds(1);

// Every operation but WhoAmI belongs to the BSP.
template <typename Operation>
EFI_STATUS on_bsp(EFI_MP_SERVICES_PROTOCOL* This, Operation&& operation) {
  if (MpServices::on_application_processor()) return EFI_DEVICE_ERROR;
  return serve<MpServices>(This, operation);
}

EFIAPI EFI_STATUS GetNumberOfProcessors(EFI_MP_SERVICES_PROTOCOL* This, UINTN* total, UINTN* enabled) {
  return on_bsp(This, [&](MpServices& mp) { return mp.number_of_processors(total, enabled); });
}
EFIAPI EFI_STATUS GetProcessorInfo(EFI_MP_SERVICES_PROTOCOL* This, UINTN number, EFI_PROCESSOR_INFORMATION* info) {
  return on_bsp(This, [&](MpServices& mp) { return mp.processor_info(number, info); });
}
EFIAPI EFI_STATUS StartupAllAPs(EFI_MP_SERVICES_PROTOCOL* This, EFI_AP_PROCEDURE procedure, BOOLEAN single_thread,
                                EFI_EVENT wait_event, UINTN timeout_us, VOID* argument, UINTN** failed_list) {
  return on_bsp(This, [&](MpServices& mp) {
    std::vector<unsigned> aps;
    for (unsigned p = 1; p < mp.processors(); ++p) aps.push_back(p);
    return mp.startup(aps, procedure, single_thread != 0, wait_event, timeout_us, argument, failed_list, nullptr);
  });
}
EFIAPI EFI_STATUS StartupThisAP(EFI_MP_SERVICES_PROTOCOL* This, EFI_AP_PROCEDURE procedure, UINTN number,
                                EFI_EVENT wait_event, UINTN timeout_us, VOID* argument, BOOLEAN* finished) {
  return on_bsp(This, [&](MpServices& mp) -> EFI_STATUS {
    if (number == 0 || number >= mp.processors()) return EFI_INVALID_PARAMETER;
    return mp.startup({static_cast<unsigned>(number)}, procedure, false, wait_event, timeout_us, argument, nullptr,
                      finished);
  });
}
// Every processor stays what it is: the BSP cannot move, none can be disabled.
EFIAPI EFI_STATUS SwitchBSP(EFI_MP_SERVICES_PROTOCOL* This, UINTN, BOOLEAN) {
  return on_bsp(This, [](MpServices&) { return EFI_UNSUPPORTED; });
}
EFIAPI EFI_STATUS EnableDisableAP(EFI_MP_SERVICES_PROTOCOL* This, UINTN, BOOLEAN, UINT32*) {
  return on_bsp(This, [](MpServices&) { return EFI_UNSUPPORTED; });
}
// May run on an AP: touches nothing shared.
EFIAPI EFI_STATUS WhoAmI(EFI_MP_SERVICES_PROTOCOL* This, UINTN* number) {
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return MpServices::who_am_i(number);
}

}  // namespace

MpServices::MpServices(Machine& machine, unsigned processors) : machine_(machine), aps_(processors - 1) {
  hosted_.owner = this;
  hosted_.protocol.GetNumberOfProcessors = GetNumberOfProcessors;
  hosted_.protocol.GetProcessorInfo = GetProcessorInfo;
  hosted_.protocol.StartupAllAPs = StartupAllAPs;
  hosted_.protocol.StartupThisAP = StartupThisAP;
  hosted_.protocol.SwitchBSP = SwitchBSP;
  hosted_.protocol.EnableDisableAP = EnableDisableAP;
  hosted_.protocol.WhoAmI = WhoAmI;
  for (unsigned i = 0; i < aps_.size(); ++i) aps_[i].thread = std::thread([this, i] { run_ap(i); });
  machine_.handles().install(&handle_, kMpServicesGuid, protocol());
}

MpServices::~MpServices() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    shutdown_ = true;
  }
  work_.notify_all();
  for (Ap& ap : aps_) ap.thread.join();
}

Events& MpServices::events() { return machine_.events(); }

std::vector<uint64_t> MpServices::procedures_run() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<uint64_t> counts{0};
  for (const Ap& ap : aps_) counts.push_back(ap.procedures);
  return counts;
}

bool MpServices::on_application_processor() { return t_processor != 0; }

EFI_STATUS MpServices::who_am_i(UINTN* number) {
  if (number == nullptr) return EFI_INVALID_PARAMETER;
  *number = t_processor;
  return EFI_SUCCESS;
}

EFI_STATUS MpServices::number_of_processors(UINTN* total, UINTN* enabled) {
  if (total == nullptr || enabled == nullptr) return EFI_INVALID_PARAMETER;
  *total = *enabled = processors();
  return EFI_SUCCESS;
}

EFI_STATUS MpServices::processor_info(UINTN number, EFI_PROCESSOR_INFORMATION* info) {
  if (info == nullptr) return EFI_INVALID_PARAMETER;
  if (number >= processors()) return EFI_NOT_FOUND;
  *info = EFI_PROCESSOR_INFORMATION{};
  info->ProcessorId = number;
  info->StatusFlag = PROCESSOR_ENABLED_BIT | PROCESSOR_HEALTH_STATUS_BIT | (number == 0 ? PROCESSOR_AS_BSP_BIT : 0);
  info->Location = {0, static_cast<UINT32>(number), 0};
  return EFI_SUCCESS;
}

bool MpServices::hangs(unsigned index) const { return machine_.faults().mp_hung_processor == index + 1; }

unsigned MpServices::running_locked() const {
  unsigned running = 0;
  for (unsigned i = 0; i < aps_.size(); ++i) running += aps_[i].busy && !hangs(i);
  return running;
}

std::vector<unsigned> MpServices::failed_locked() const {
  std::vector<unsigned> failed;
  for (unsigned i = 0; i < aps_.size(); ++i)
    if (aps_[i].failed) failed.push_back(i + 1);
  return failed;
}

EFI_STATUS MpServices::startup(const std::vector<unsigned>& aps, EFI_AP_PROCEDURE procedure, bool single_thread,
                               EFI_EVENT wait_event, uint64_t timeout_us, VOID* argument, UINTN** failed_list,
                               BOOLEAN* finished) {
  if (failed_list != nullptr) *failed_list = nullptr;
  if (procedure == nullptr) return EFI_INVALID_PARAMETER;
  if (aps.empty()) return EFI_NOT_STARTED;
  if (wait_event != nullptr && !events().valid(wait_event)) return EFI_INVALID_PARAMETER;
  if (machine_.faults().mp_refuse_startup) return EFI_DEVICE_ERROR;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    if (startup_.active) return EFI_NOT_READY;
    for (unsigned p : aps)
      if (aps_[p - 1].busy) return EFI_NOT_READY;
    startup_ = Startup{procedure, argument, single_thread, aps, 0, wait_event, finished,
                       timeout_us == 0 ? 0 : machine_.clock().now_ns() + timeout_us * 1000, true};
    if (finished != nullptr) *finished = FALSE;
    ++generation_;
    for (unsigned p : aps) {
      aps_[p - 1].busy = true;
      aps_[p - 1].failed = false;
      aps_[p - 1].generation = generation_;
    }
  }
  work_.notify_all();
  if (wait_event != nullptr) return EFI_SUCCESS;

  // Blocking: the APs that return, then the timeout for those that do not.
  std::unique_lock<std::mutex> lock(mutex_);
  done_.wait(lock, [&] { return running_locked() == 0; });
  bool timed_out = false;
  for (unsigned p : aps) timed_out = timed_out || aps_[p - 1].busy;
  if (timed_out) {
    lock.unlock();
    events().let_virtual_time_pass(timeout_us * 1000);
    lock.lock();
  }
  end_startup_locked(timed_out);
  if (!timed_out) return EFI_SUCCESS;
  if (failed_list != nullptr) {
    const std::vector<unsigned> failed = failed_locked();
    VOID* pool = nullptr;
    if (!EFI_ERROR(machine_.memory().allocate_pool(EfiBootServicesData, (failed.size() + 1) * sizeof(UINTN), &pool))) {
      auto* list = static_cast<UINTN*>(pool);
      for (size_t i = 0; i < failed.size(); ++i) list[i] = failed[i];
      list[failed.size()] = END_OF_CPU_LIST;
      *failed_list = list;
    }
  }
  return EFI_TIMEOUT;
}

// With the lock held: the startup is over; APs still busy (hanging) failed.
void MpServices::end_startup_locked(bool timed_out) {
  for (unsigned p : startup_.aps) {
    Ap& ap = aps_[p - 1];
    if (ap.busy && timed_out) {
      ap.busy = false;
      ap.failed = true;
    }
  }
  if (startup_.finished != nullptr) *startup_.finished = timed_out ? FALSE : TRUE;
  startup_.active = false;
  work_.notify_all();  // a hanging AP lets go of the procedure it never ran
}

void MpServices::poll(EFI_EVENT event) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!startup_.active || startup_.event != event) return;
  const auto all_returned = [&] { return running_locked() == 0; };
  if (machine_.clock().is_virtual()) {
    done_.wait_for(lock, kVirtualWaitLimit, all_returned);
  } else {
    done_.wait_for(lock, kRealClockWait, all_returned);
  }
  if (!all_returned()) return;
  bool hanging = false;
  for (unsigned p : startup_.aps) hanging = hanging || aps_[p - 1].busy;
  if (hanging && (startup_.deadline_ns == 0 || machine_.clock().now_ns() < startup_.deadline_ns)) return;
  end_startup_locked(hanging);
  lock.unlock();
  events().signal(event);
}

void MpServices::run_ap(unsigned index) {
  t_processor = index + 1;
  // The host interval timer stands in for the BSP's timer interrupt only.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);

  std::unique_lock<std::mutex> lock(mutex_);
  uint64_t served = 0;
  for (;;) {
    Ap& ap = aps_[index];
    work_.wait(lock, [&] { return shutdown_ || (ap.busy && ap.generation != served); });
    if (shutdown_) return;
    served = ap.generation;
    if (hangs(index)) {
      // A processor that stopped answering: it holds the procedure until the
      // startup's timeout takes it back, and never runs it.
      work_.wait(lock, [&] { return shutdown_ || !ap.busy; });
      continue;
    }
    const size_t position =
        std::find(startup_.aps.begin(), startup_.aps.end(), index + 1) - startup_.aps.begin();
    if (startup_.single_thread) work_.wait(lock, [&] { return shutdown_ || startup_.serial_turn == position; });
    if (shutdown_) return;
    const EFI_AP_PROCEDURE procedure = startup_.procedure;
    VOID* const argument = startup_.argument;
    ++ap.procedures;
    lock.unlock();
    procedure(argument);
    lock.lock();
    ap.busy = false;
    ++startup_.serial_turn;
    done_.notify_all();
    work_.notify_all();
  }
}

}  // namespace hostfw
