// The machine's processors and the PI MP services over them. Processor 0,
// the boot processor (BSP), is the thread that runs the application; every
// other processor (AP) is a host thread that waits for the procedures the
// BSP hands it. A procedure runs in real time on its thread; everything the
// BSP sees of it goes through the firmware's services, so under the virtual
// clock a check of the wait event waits in real time for the APs instead of
// letting machine time pass.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "efi/efi.h"
#include "hostfw/protocol_thunk.h"

namespace hostfw {

class Machine;
class Events;

class MpServices {
 public:
  MpServices(Machine& machine, unsigned processors);
  ~MpServices();
  MpServices(const MpServices&) = delete;
  MpServices& operator=(const MpServices&) = delete;

  EFI_MP_SERVICES_PROTOCOL* protocol() { return &hosted_.protocol; }
  EFI_HANDLE handle() const { return handle_; }
  Events& events();
  unsigned processors() const { return static_cast<unsigned>(aps_.size()) + 1; }

  // Procedures started so far on each processor (index 0, the BSP, stays 0).
  std::vector<uint64_t> procedures_run() const;

  // Called by the event code before it looks at an event: signals the wait
  // event of a startup once every AP of it has returned, or its timeout passed.
  void poll(EFI_EVENT event);

  // ---- The operations, on the BSP. ----------------------------------------
  EFI_STATUS number_of_processors(UINTN* total, UINTN* enabled);
  EFI_STATUS processor_info(UINTN number, EFI_PROCESSOR_INFORMATION* info);
  // aps: the processors to start; finished: StartupThisAP's flag, or null.
  EFI_STATUS startup(const std::vector<unsigned>& aps, EFI_AP_PROCEDURE procedure, bool single_thread,
                     EFI_EVENT wait_event, uint64_t timeout_us, VOID* argument, UINTN** failed_list,
                     BOOLEAN* finished);
  static EFI_STATUS who_am_i(UINTN* number);
  static bool on_application_processor();

 private:
  struct Ap {
    std::thread thread;
    bool busy = false;    // holds a procedure of the current startup
    bool failed = false;  // the current startup's timeout ended it
    uint64_t generation = 0;
    uint64_t procedures = 0;
  };
  struct Startup {
    EFI_AP_PROCEDURE procedure = nullptr;
    VOID* argument = nullptr;
    bool single_thread = false;
    std::vector<unsigned> aps;
    size_t serial_turn = 0;  // single-thread: the position in aps whose turn it is
    EFI_EVENT event = nullptr;
    BOOLEAN* finished = nullptr;
    uint64_t deadline_ns = 0;  // machine time; 0: no timeout
    bool active = false;
  };

  void run_ap(unsigned index);
  bool hangs(unsigned index) const;
  unsigned running_locked() const;  // busy APs that are not hanging on purpose
  void end_startup_locked(bool timed_out);
  std::vector<unsigned> failed_locked() const;

  Machine& machine_;
  HostedProtocol<EFI_MP_SERVICES_PROTOCOL, MpServices> hosted_;
  EFI_HANDLE handle_ = nullptr;
  mutable std::mutex mutex_;
  std::condition_variable work_;  // an AP got a procedure, or shutdown
  std::condition_variable done_;  // an AP returned
  std::vector<Ap> aps_;           // aps_[i] is processor i + 1
  Startup startup_;
  uint64_t generation_ = 0;
  bool shutdown_ = false;
};

}  // namespace hostfw
