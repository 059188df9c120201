#include "hostfw/machine.h"

#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "hostfw/ata_controller.h"
#include "hostfw/nvme_controller.h"
#include "hostfw/console_out.h"
#include "hostfw/interrupts.h"
#include "hostfw/keyboard.h"
#include "hostfw/mp_services.h"
#include "hostfw/services.h"
#include "hostfw/smbios.h"
#include "hostfw/terminal.h"
#include "hostfw/volumes.h"

namespace hostfw {
namespace {

Machine* g_current = nullptr;

const EFI_GUID kTextInGuid = EFI_SIMPLE_TEXT_INPUT_PROTOCOL_GUID;
const EFI_GUID kTextOutGuid = EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL_GUID;

}  // namespace

Machine& Machine::current() {
  if (g_current == nullptr) {
    std::fputs("tarvik host firmware: a firmware service was called with no machine running\n", stderr);
    std::abort();
  }
  return *g_current;
}

bool Machine::exists() { return g_current != nullptr; }

Machine::Machine(Profile profile, Options options) : profile_(std::move(profile)), options_(std::move(options)) {
  if (g_current != nullptr) throw std::logic_error("only one simulated machine can run at a time");
  g_current = this;
  fill_boot_services(boot_services_);
  fill_runtime_services(runtime_services_);

  try {
    clock_ = std::make_unique<Clock>(options_.virtual_clock, profile_.clock_start);
    events_ = std::make_unique<Events>(*clock_);
    memory_ = std::make_unique<Memory>(profile_.memory_mib, faults_);
    images_ = std::make_unique<Images>(*this);
    if (options_.use_terminal) terminal_ = Terminal::open();
    console_ = std::make_unique<ConsoleOut>(*this, profile_.console_modes, terminal_.get());
    keyboard_ = std::make_unique<Keyboard>(*this, terminal_.get(), options_.key_script);
    smbios_ = std::make_unique<SmbiosTables>(profile_);
    volumes_ = std::make_unique<Volumes>(*this, profile_.volumes);
    ata_ = std::make_unique<AtaController>(*this, profile_);
    for (const NvmeInfo& drive : profile_.nvme_drives)
      nvme_.push_back(std::make_unique<NvmeController>(*this, drive, nvme_.size()));

    build_system_table();
    mp_ = std::make_unique<MpServices>(*this, profile_.logical_processors);
    events_->set_check_hook([this](EFI_EVENT event) { mp_->poll(event); });
    // The application was loaded from the first volume, the boot device.
    image_handle_ = images_->create(nullptr, volumes_->count() > 0 ? volumes_->handle(0) : nullptr, nullptr);

    if (!options_.virtual_clock) interrupts_ = std::make_unique<Interrupts>(*events_);
  } catch (...) {
    g_current = nullptr;  // a machine that failed to build is not current
    throw;
  }
}

Machine::~Machine() {
  interrupts_.reset();
  if (events_ != nullptr) events_->set_check_hook(nullptr);
  mp_.reset();
  images_.reset();
  nvme_.clear();
  ata_.reset();
  volumes_.reset();
  keyboard_.reset();
  console_.reset();
  terminal_.reset();
  g_current = nullptr;
}

void Machine::build_system_table() {
  for (char c : profile_.firmware_vendor) firmware_vendor_.push_back(static_cast<char16_t>(static_cast<unsigned char>(c)));

  EFI_HANDLE console_in = nullptr;
  handles_.install(&console_in, kTextInGuid, keyboard_->protocol());
  EFI_HANDLE console_out = nullptr;
  handles_.install(&console_out, kTextOutGuid, console_->protocol());

  if (smbios_->entry_point() != nullptr) configuration_.push_back({SMBIOS_TABLE_GUID, smbios_->entry_point()});
  if (smbios_->entry_point3() != nullptr) configuration_.push_back({SMBIOS3_TABLE_GUID, smbios_->entry_point3()});

  system_table_ = EFI_SYSTEM_TABLE{};
  system_table_.Hdr.Signature = EFI_SYSTEM_TABLE_SIGNATURE;
  system_table_.Hdr.Revision = EFI_2_70_SYSTEM_TABLE_REVISION;
  system_table_.Hdr.HeaderSize = sizeof(EFI_SYSTEM_TABLE);
  system_table_.FirmwareVendor = firmware_vendor_.data();
  system_table_.FirmwareRevision = 0x00010000;
  system_table_.ConsoleInHandle = console_in;
  system_table_.ConIn = keyboard_->protocol();
  system_table_.ConsoleOutHandle = console_out;
  system_table_.ConOut = console_->protocol();
  system_table_.StandardErrorHandle = console_out;
  system_table_.StdErr = console_->protocol();
  system_table_.RuntimeServices = &runtime_services_;
  system_table_.BootServices = &boot_services_;
  system_table_.NumberOfTableEntries = configuration_.size();
  system_table_.ConfigurationTable = configuration_.data();
}

RunResult Machine::run(EntryPoint entry) {
  running_ = true;
  has_reset_ = false;
  waiting_without_input_ = false;
  events_->raise(TPL_APPLICATION);
  if (sigsetjmp(run_exit_, 1) == 0) {
    const EFI_STATUS status = entry(image_handle_, &system_table_);
    ending_ = RunResult{};
    ending_.end = RunResult::End::Returned;
    ending_.status = status;
  } else {
    events_->recover_after_abandoned_run();
  }
  running_ = false;
  return ending_;
}

void Machine::end_run(const RunResult& result) {
  if (result.end == RunResult::End::Reset) {
    has_reset_ = true;
    last_reset_ = result;
  }
  if (!running_) return;
  ending_ = result;
  siglongjmp(run_exit_, 1);
}

void Machine::input_polled(bool more_input_possible) {
  if (more_input_possible) {
    waiting_without_input_ = false;
    return;
  }
  const uint64_t now = clock_->now_ns();
  if (!waiting_without_input_) {
    waiting_without_input_ = true;
    waiting_since_ns_ = now;
    return;
  }
  if (now - waiting_since_ns_ >= options_.idle_limit_ns) {
    // Built in a member: ending the run jumps over this frame, so nothing
    // here may own memory.
    stuck_ = RunResult{};
    stuck_.end = RunResult::End::Stuck;
    stuck_.status = EFI_TIMEOUT;
    stuck_.reason = "the application kept waiting for a key after the key script had ended";
    end_run(stuck_);
  }
}

void Machine::idle(uint64_t max_ns) {
  keyboard_->poll();
  const uint64_t now = clock_->now_ns();
  const uint64_t until = std::min(now + max_ns, std::max(events_->next_deadline(), now));
  if (clock_->is_virtual()) {
    events_->advance_virtual_to(until);
    return;
  }
  if (until > now) {
    if (terminal_ != nullptr) {
      // Wake for a key press as well as for the next timer.
      pollfd input{terminal_->input_fd(), POLLIN, 0};
      poll(&input, 1, static_cast<int>((until - now + 999999) / 1000000));
    } else {
      clock_->sleep_for(until - now);
    }
  }
  events_->dispatch();
}

}  // namespace hostfw
