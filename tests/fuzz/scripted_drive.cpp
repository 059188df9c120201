#include "tests/fuzz/scripted_drive.h"

#include "storage/drive_discovery.h"
#include "tests/fuzz/fuzz_support.h"

namespace fuzz_support {
namespace {

struct ScriptedPassThru {
  ScriptedPassThru() {
    machine();  // the firmware the pass-through is installed on
    fake.devices = {{0, 0xFFFF}};
    fake.responder = [this](const testing_support::RecordedPacket& p) { return current(p.acb); };
    fake.install();
  }

  testing_support::FakeAtaPassThru fake;
  Answer current;
};

ScriptedPassThru& Scripted() {
  // Kept for the process, like the machine it is installed on.
  static auto* PassThru = new ScriptedPassThru();
  return *PassThru;
}

}  // namespace

void WithScriptedDrive(uint8_t FailPool, const Answer& Answer,
                       const std::function<void(tarvik::StorageModule&, UINT64)>& Use) {
  ScriptedPassThru& Scripted = fuzz_support::Scripted();
  Scripted.current = Answer;
  {
    LeakCheck Check("the scripted drive");
    FailingPool Failing(FailPool);
    tarvik::StorageModule Module{};
    if (tarvik::DiscoverStorageDevices(&Module.Drives) == EFI_SUCCESS &&
        tarvik::IdentifyAllDevices(&Module.Drives) == EFI_SUCCESS) {
      for (UINT64 I = 0; I < Module.Drives.DeviceCount; ++I)
        if (Module.Drives.Devices[I].PassThru == Scripted.fake.protocol()) Use(Module, I);
    }
    tarvik::ReleaseStorageDevices(&Module.Drives);
  }
  Scripted.fake.packets.clear();
}

}  // namespace fuzz_support
