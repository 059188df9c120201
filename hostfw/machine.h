// A whole simulated PC as the application sees it through the system table:
// boot and runtime services, console, keyboard, timers, physical memory,
// SMBIOS tables, ATA drives and file-system volumes, built from a profile.
//
// Firmware services are plain EFIAPI functions without a context argument,
// so they act on the one machine that is current (one per process at a time).
#pragma once

#include <setjmp.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "efi/efi.h"
#include "hostfw/clock.h"
#include "hostfw/events.h"
#include "hostfw/handles.h"
#include "hostfw/images.h"
#include "hostfw/memory.h"
#include "hostfw/profile.h"

namespace hostfw {

class ConsoleOut;
class Keyboard;
class Terminal;
class SmbiosTables;
class Volumes;
class Interrupts;
class AtaController;
class NvmeController;
class MpServices;

struct Options {
  // Time advances only through Stall and waiting, so that a run gives the
  // same screens every time. Otherwise the host's clocks drive time and
  // timer notifications interrupt the application asynchronously.
  bool virtual_clock = false;
  // Draw the console on the terminal and read the keyboard from it.
  bool use_terminal = false;
  // Keys to type, in the key-script language (see hostfw/key_script.h);
  // empty means none (or the terminal's keyboard).
  std::string key_script;
  // Virtual time the application may wait for a key after the key script has
  // ended before the run is stopped as stuck.
  uint64_t idle_limit_ns = 60ull * 1000 * 1000 * 1000;
};

// Test hooks that make firmware services fail on purpose.
struct Faults {
  uint64_t fail_allocate_pool_call = 0;  // 1-based call number to fail, 0 = never
  // 1-based number of the AllocatePages call at a given address to refuse
  // (EFI_NOT_FOUND, as for a region already taken), 0 = never.
  uint64_t fail_allocate_at_address_call = 0;
  // The processor (1 and up) that never returns a procedure the MP services
  // start on it, as a hung core; 0 = none.
  unsigned mp_hung_processor = 0;
  bool mp_refuse_startup = false;  // StartupAllAPs and StartupThisAP report EFI_DEVICE_ERROR
  bool fail_install_of_guid = false;
  EFI_GUID install_guid_to_fail = {};
};

struct RunResult {
  enum class End { Returned, Reset, Stuck };
  End end = End::Returned;
  EFI_STATUS status = EFI_SUCCESS;         // the entry's status, or the reset's
  EFI_RESET_TYPE reset_type = EfiResetCold;
  std::string reason;                      // why a run was stopped as stuck
};

class Machine {
 public:
  Machine(Profile profile, Options options);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // The machine whose services are running. Aborts when there is none.
  static Machine& current();
  static bool exists();

  // Calls the application's entry point with the image handle and the system
  // table. Returns when the entry returns, when it resets the machine, or
  // when it can never continue (waiting for keys that will not come).
  using EntryPoint = EFI_STATUS(EFIAPI*)(EFI_HANDLE, EFI_SYSTEM_TABLE*);
  RunResult run(EntryPoint entry);

  EFI_SYSTEM_TABLE* system_table() { return &system_table_; }
  EFI_BOOT_SERVICES* boot_services() { return &boot_services_; }
  EFI_RUNTIME_SERVICES* runtime_services() { return &runtime_services_; }
  EFI_HANDLE image_handle() const { return image_handle_; }

  const Profile& profile() const { return profile_; }
  const Options& options() const { return options_; }
  Clock& clock() { return *clock_; }
  Events& events() { return *events_; }
  Memory& memory() { return *memory_; }
  HandleDatabase& handles() { return handles_; }
  ConsoleOut& console() { return *console_; }
  Keyboard& keyboard() { return *keyboard_; }
  Terminal* terminal() { return terminal_.get(); }  // null without a terminal
  Faults& faults() { return faults_; }
  Images& images() { return *images_; }
  Volumes* volumes() { return volumes_.get(); }  // null before they exist
  AtaController* ata() { return ata_.get(); }     // null before it exists
  // The NVMe drives in the order of the profile's [nvme] sections.
  size_t nvme_count() const { return nvme_.size(); }
  NvmeController& nvme(size_t index) { return *nvme_.at(index); }
  MpServices& mp() { return *mp_; }
  const SmbiosTables& smbios() const { return *smbios_; }

  // Called while the application waits (WaitForEvent): reads input, runs the
  // key script, lets time pass up to the next timer, at most max_ns.
  void idle(uint64_t max_ns);

  // Told by the keyboard each time the application looks for a key. A run
  // whose key script has ended (and has no terminal to type on) is stopped
  // as stuck once it has looked for keys for Options::idle_limit_ns.
  void input_polled(bool more_input_possible);

  // Ends the current run: ResetSystem, or a run that cannot continue.
  // Returns normally when no run is in progress. It jumps back into run()
  // over every frame in between, as a reset does: callers must not hold
  // anything that needs destroying, and result must outlive the jump.
  void end_run(const RunResult& result);

  // The watchdog as the application last set it (seconds, 0 = disabled).
  uint64_t watchdog_seconds() const { return watchdog_seconds_; }
  void set_watchdog_seconds(uint64_t seconds) { watchdog_seconds_ = seconds; }
  // The last reset the application asked for, if any.
  const RunResult* last_reset() const { return has_reset_ ? &last_reset_ : nullptr; }

 private:
  void build_system_table();

  Profile profile_;
  Options options_;
  std::unique_ptr<Clock> clock_;
  std::unique_ptr<Events> events_;
  std::unique_ptr<Memory> memory_;
  HandleDatabase handles_;
  std::unique_ptr<Terminal> terminal_;
  std::unique_ptr<ConsoleOut> console_;
  std::unique_ptr<Keyboard> keyboard_;
  std::unique_ptr<SmbiosTables> smbios_;
  std::unique_ptr<Volumes> volumes_;
  std::unique_ptr<AtaController> ata_;
  std::vector<std::unique_ptr<NvmeController>> nvme_;
  std::unique_ptr<Images> images_;
  std::unique_ptr<MpServices> mp_;
  std::unique_ptr<Interrupts> interrupts_;
  Faults faults_;

  EFI_SYSTEM_TABLE system_table_{};
  EFI_BOOT_SERVICES boot_services_{};
  EFI_RUNTIME_SERVICES runtime_services_{};
  std::vector<EFI_CONFIGURATION_TABLE> configuration_;
  std::u16string firmware_vendor_;
  EFI_HANDLE image_handle_ = nullptr;
  EFI_LOADED_IMAGE_PROTOCOL loaded_image_{};

  uint64_t watchdog_seconds_ = 300;
  bool has_reset_ = false;
  RunResult last_reset_;
  bool running_ = false;
  RunResult ending_;
  RunResult stuck_;
  sigjmp_buf run_exit_;
  bool waiting_without_input_ = false;
  uint64_t waiting_since_ns_ = 0;
};

}  // namespace hostfw
