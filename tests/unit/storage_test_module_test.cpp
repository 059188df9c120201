// The storage module through its record, on the simulated drives: the rows
// it shows and logs, its keys, its verdict over a run, RunTest's own share
// of a run (SMART switched back off, a stop request), and its installation
// failing without leaving anything behind. A pool allocation failing at
// each step of an installation is TestModuleInstaller's test, and during
// discovery and identification the IDENTIFY fuzz replays'.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "app/application_plan.h"
#include "core/diag_common.h"
#include "core/protocol_registry.h"
#include "hostfw/ata_controller.h"
#include "storage/storage_device.h"
#include "storage/storage_test_protocol.h"
#include "tests/support/ata_interposer.h"
#include "tests/support/fake_test_module.h"
#include "tests/support/test_machine.h"

namespace {

using testing_support::AtaInterposer;
using testing_support::TestMachine;
using testing_support::utf8;
using Row = std::pair<std::string, std::string>;

// What a run or a verdict told its callbacks.
struct Heard {
  static inline std::vector<std::string> lines;
  static inline std::vector<std::pair<std::string, UINT8>> boxes;
  static inline tarvik::TestModuleProtocol* stop_on_report = nullptr;
  static inline UINT64 reports = 0, stop_after = 1;  // stop once this many reports came
  static inline EFI_STATUS box_answer = EFI_SUCCESS;

  static void clear() {
    lines.clear();
    boxes.clear();
    stop_on_report = nullptr;
    reports = 0;
    box_answer = EFI_SUCCESS;
  }
  static EFIAPI EFI_STATUS Progress(VOID*, UINT64, UINT64) {
    if (stop_on_report != nullptr && ++reports >= stop_after) stop_on_report->StopTest(stop_on_report);
    return EFI_SUCCESS;
  }
  static EFIAPI EFI_STATUS Message(VOID*, const CHAR16* text, UINT8 kind, UINT64) {
    if (kind == static_cast<UINT8>(tarvik::TestMessageKind::LogLine)) {
      lines.push_back(utf8(text));
      return EFI_SUCCESS;
    }
    boxes.emplace_back(utf8(text), kind);
    return box_answer;
  }
};

constexpr char kAdvice[] =
    "Problems have been identified on one or more of your storage devices.Backup the data on the affected storage "
    "device as soon as possible. You can attempt to correct the problem using the Recover Bad Sectors Tool in the "
    "tools menu after backing up your data. Be sure to select the Check and Recover Bad Sectors test.";

class StorageModule : public ::testing::Test {
 protected:
  // The default machine (three drives), changed by edit, with the core
  // services installed and the controller behind an interposer that can
  // refuse IDENTIFY or SMART DISABLE OPERATIONS, which no profile says.
  void boot(const std::function<void(hostfw::Profile&)>& edit = nullptr) {
    wire.reset();
    machine.reset();
    machine = std::make_unique<TestMachine>("", [&](hostfw::Profile& p) {
      if (edit) edit(p);
    });
    for (UINTN i = 0; i < tarvik::ApplicationPlan.CoreServiceCount; ++i)
      ASSERT_EQ(tarvik::ApplicationPlan.CoreServices[i].Install((*machine)->image_handle(), (*machine)->system_table()),
                EFI_SUCCESS);
    identify_fails_after = -1;
    refuse_smart_off = false;
    wire = std::make_unique<AtaInterposer>(
        (*machine)->ata()->protocol(),
        [this](EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, UINT16, const AtaInterposer::Forward& drive) {
          const UINT8 command = packet.Acb->AtaCommand;
          if (command == 0xEC && identify_fails_after >= 0 &&
              wire->count(0xEC) > static_cast<size_t>(identify_fails_after))
            return AtaInterposer::Abort(packet);
          if (command == 0xB0 && packet.Acb->AtaFeatures == 0xD9 && refuse_smart_off)
            return AtaInterposer::Abort(packet);
          return drive();
        });
    Heard::clear();
    pools_before = (*machine)->memory().outstanding_pools();
    pages_before = (*machine)->memory().outstanding_pages();
    records_before = tarvik::InstalledRecordCount();
  }
  EFI_STATUS install() {
    return tarvik::InstallStorageTest((*machine)->image_handle(), (*machine)->system_table(), nullptr);
  }
  void start(const std::function<void(hostfw::Profile&)>& edit = nullptr) {
    boot(edit);
    ASSERT_EQ(install(), EFI_SUCCESS);
    ASSERT_EQ(testing_support::located_test_collection()->GetTest(0, &record), EFI_SUCCESS);
  }
  // A failed installation leaves the machine as it found it.
  void expect_nothing_left() {
    EXPECT_EQ(testing_support::located_test_collection()->GetTestCount(), 0u);
    EXPECT_EQ(tarvik::InstalledRecordCount(), records_before);
    EXPECT_EQ((*machine)->memory().outstanding_pools(), pools_before);
    EXPECT_EQ((*machine)->memory().outstanding_pages(), pages_before);
  }
  // Teardown as start-up does it: every record unloaded, nothing left.
  void tear_down_and_expect_nothing_left() {
    tarvik::gDiagCommon->UninstallAllProtocols(tarvik::gDiagCommon);
    tarvik::UninstallDiagCommon();
    EXPECT_EQ((*machine)->memory().outstanding_pools(), 0u);
    EXPECT_EQ((*machine)->memory().outstanding_pages(), 0u);
  }

  template <typename Getter>
  Row row(Getter get, UINT64 index) {
    CHAR16* label = nullptr;
    CHAR16* value = nullptr;
    EXPECT_EQ(get(record, index, &label, &value), EFI_SUCCESS) << index;
    Row texts{utf8(label), utf8(value)};
    tarvik::gBS->FreePool(label);
    tarvik::gBS->FreePool(value);
    return texts;
  }
  Row system(UINT64 index) { return row(record->GetSystemInfoRow, index); }
  Row log(UINT64 index) { return row(record->GetLogRow, index); }

  template <typename Getter>
  std::string text(Getter get) {
    CHAR16* out = nullptr;
    EXPECT_EQ(get(&out), EFI_SUCCESS);
    std::string s = utf8(out);
    tarvik::gBS->FreePool(out);
    return s;
  }
  std::string translated(const CHAR16* key) {
    return text([&](CHAR16** out) { return record->TranslateKey(record, key, out); });
  }
  const tarvik::StorageDevice& drive(UINT64 index) {
    return static_cast<const tarvik::StorageDevice*>(record->DeviceTable)[index];
  }
  UINT64 run(UINT64 algorithm, UINT8 device) {
    return record->RunTest(record, algorithm, device, Heard::Progress, Heard::Message);
  }

  std::unique_ptr<TestMachine> machine;
  std::unique_ptr<AtaInterposer> wire;
  int identify_fails_after = -1;  // IDENTIFY commands past this many are refused
  bool refuse_smart_off = false;
  tarvik::TestModuleProtocol* record = nullptr;
  size_t pools_before = 0;
  uint64_t pages_before = 0;
  UINT32 records_before = 0;
};

// A sample of the rows: the QEMU test reads every System Information row and
// log key of its drives, the storage screen tests the log view and the saved
// log. Here the rotating drive has 4096-byte physical sectors and no SMART.
TEST_F(StorageModule, SystemRowsComeFromAFreshIdentificationLogRowsFromTheOneAtHand) {
  start([](hostfw::Profile& p) {
    p.drives[1].physical_sector_bytes = 4096;
    p.drives[1].smart_supported = false;
  });
  ASSERT_EQ(record->GetDeviceCount(record), 3u);
  EXPECT_EQ(record->GetSystemInfoRowCount(record), 57u);
  EXPECT_EQ(record->GetLogRowCount(record), 48u);
  const std::vector<std::pair<UINT64, Row>> rows = {
      {4, {"Size:", "476 GB"}},
      {5, {"Cache size:", " - "}},
      {7, {"Temperature:", "33 C"}},
      {11, {"Supported standards:", ""}},
      {16, {"   ATA8_ACS:", "Supported"}},
      {17, {"Standard version", "ACS-2 Revision 3"}},
      {18, {"", ""}},
      // Row 19 is the first row of the second drive.
      {19 + 5, {"Cache size:", "16 MB"}},
      {19 + 7, {"Temperature:", " - "}},
      {19 + 8, {"Phisycal sector size:", "4096 bytes"}},
      {56, {"", ""}},
  };
  wire->commands.clear();
  for (const auto& [r, expected] : rows) EXPECT_EQ(system(r), expected) << r;
  EXPECT_EQ(wire->count(0xEC), rows.size()) << "every row identifies the drive afresh";
  EXPECT_EQ(log(16 + 10), (Row{"TEMPERATURE:", "0 C"}));
  EXPECT_EQ(log(16 + 11), (Row{"PHYSICAL_SECTOR_SIZE:", "4096 bytes"}));
  EXPECT_EQ(wire->count(0xEC), rows.size()) << "log rows use the identification at hand";

  CHAR16* label = nullptr;
  CHAR16* value = nullptr;
  EXPECT_EQ(record->GetLogRow(record, 48, &label, &value), EFI_INVALID_PARAMETER);
  EXPECT_EQ(record->GetLogRow(record, 0, nullptr, &value), EFI_ABORTED);
  EXPECT_EQ(record->GetSystemInfoRow(record, 57, &label, &value), EFI_INVALID_PARAMETER);
  EXPECT_EQ(record->GetSystemInfoRow(record, 0, &label, nullptr), EFI_ABORTED);
  EXPECT_EQ(record->GetSystemInfoRow(record, 99, nullptr, &value), EFI_ABORTED) << "out-pointers are checked first";
  identify_fails_after = static_cast<int>(wire->count(0xEC));
  EXPECT_EQ(record->GetSystemInfoRow(record, 0, &label, &value), EFI_DEVICE_ERROR);
  EXPECT_EQ(label, nullptr);
  EXPECT_EQ(value, nullptr);
  tear_down_and_expect_nothing_left();
}

// The device and algorithm names, and the keys in the saved log, are the
// storage screen tests'; here the rest and the refusals.
TEST_F(StorageModule, NamesKeysAndTexts) {
  start();
  EXPECT_EQ(text([&](CHAR16** t) { return record->GetDeviceName(record, 1, t); }), "SEAGATE ST2000TV101")
      << "cut at 19 characters";
  CHAR16* out = nullptr;
  EXPECT_EQ(record->GetDeviceName(record, 3, &out), EFI_INVALID_PARAMETER);
  EXPECT_EQ(record->GetAlgorithmCount(record), 6u);
  EXPECT_EQ(text([&](CHAR16** t) { return record->GetAlgorithmKey(record, 4, t); }), "FUNNELSEEK");
  EXPECT_EQ(translated(u"FUNNELSEEK"), "Funnel Seek Test");
  EXPECT_EQ(record->GetAlgorithmName(record, 6, &out), EFI_ABORTED) << "the extended self-test is not listed";
  EXPECT_EQ(record->GetAlgorithmKey(record, 6, &out), EFI_ABORTED);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(translated(u"READ_SECTOR_ERROR"), "Error reading sector");
  EXPECT_EQ(translated(u"UID"), "UID") << "a key the module does not know comes back as it is";
  EXPECT_EQ(translated(u"read_sector_error"), "read_sector_error");
  EXPECT_EQ(record->TranslateKey(record, u"SIZE", nullptr), EFI_ABORTED);
  EXPECT_EQ(text([&](CHAR16** t) { return record->GetModuleKey(record, t); }), "STORAGE");
  EXPECT_EQ(text([&](CHAR16** t) { return record->GetResultText(record, 12345, t); }),
            "Failed to run Quick Storage Device Test.");
  EXPECT_EQ(record->GetSummaryLine(0, &out), EFI_ABORTED);
  EXPECT_EQ(record->GetRunInfoRowCount(record), 1u);
  EXPECT_EQ(row([](tarvik::TestModuleProtocol* m, UINT64 r, CHAR16** l, CHAR16** v) {
              return m->GetRunInfoRow(m, r, 2, l, v);
            }, 0), (Row{"Device: WDC WX5000TVK-00A1B0", ""}));
  CHAR16* label = nullptr;
  EXPECT_EQ(record->GetRunInfoRow(record, 1, 0, &label, &out), EFI_INVALID_PARAMETER);
  EXPECT_EQ(record->GetRunInfoRow(record, 0, 3, &label, &out), EFI_INVALID_PARAMETER);
  EXPECT_EQ(record->GetRunInfoRow(record, 0, 3, nullptr, &out), EFI_ABORTED);
  tear_down_and_expect_nothing_left();
}

// Not supported (1002) and passed (1000) bring no box; a failure (1001)
// does, and ESC on it changes nothing.
TEST_F(StorageModule, OnlyAFailedAlgorithmBringsUpTheAdviceBox) {
  start();
  std::vector<std::vector<UINT64>> results(3, {1000, 1002, 1002, 1000, 1000, 1002});
  std::vector<UINT64*> rows;
  for (auto& r : results) rows.push_back(r.data());
  EXPECT_EQ(record->EvaluateResults(record, rows.data(), Heard::Message), EFI_ABORTED);
  EXPECT_TRUE(Heard::boxes.empty());
  results[2][5] = 1001;
  Heard::box_answer = EFI_ABORTED;
  EXPECT_EQ(record->EvaluateResults(record, rows.data(), Heard::Message), EFI_SUCCESS);
  EXPECT_EQ(Heard::boxes, (std::vector<std::pair<std::string, UINT8>>{{kAdvice, 1}}));
  tear_down_and_expect_nothing_left();
}

// A failed installation says why (or nothing, when a drive is not
// identified) and leaves the machine as it found it. Discovery's failures
// each have their message checked by DriveDiscovery's tests.
TEST_F(StorageModule, AFailedInstallationSaysWhyAndLeavesNothing) {
  boot();
  (*machine)->faults().fail_install_of_guid = true;
  (*machine)->faults().install_guid_to_fail = tarvik::StorageTestProtocolGuid;
  EXPECT_EQ(install(), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(machine->transcript(),
            "Fail during Storage Test Protocol installation in Image Handle: Out of Resources\r\n");
  expect_nothing_left();
  boot();
  identify_fails_after = 3;  // the three probes pass, the first identification fails
  EXPECT_EQ(install(), EFI_ABORTED);
  EXPECT_EQ(machine->transcript(), "");
  EXPECT_EQ(wire->count(0xEC), 4u);
  expect_nothing_left();
}

TEST_F(StorageModule, AFullRegistryRefusesTheModuleWithItsMessage) {
  boot();
  std::vector<std::unique_ptr<testing_support::FakeTestModule>> others;
  for (UINT64 i = 0; i < tarvik::TestCollectionCapacity; ++i) {
    others.push_back(std::make_unique<testing_support::FakeTestModule>((*machine)->image_handle()));
    ASSERT_EQ(testing_support::located_test_collection()->AddTest(others.back()->record()), EFI_SUCCESS);
  }
  const size_t pools = (*machine)->memory().outstanding_pools();
  EXPECT_EQ(install(), EFI_VOLUME_FULL);
  EXPECT_EQ(machine->transcript(), "Fail in Test Collection during Storage Test Protocol installation : Volume Full\r\n");
  EXPECT_EQ(testing_support::located_test_collection()->GetTestCount(), tarvik::TestCollectionCapacity);
  EXPECT_EQ((*machine)->memory().outstanding_pools(), pools);
  EXPECT_EQ((*machine)->memory().outstanding_pages(), pages_before);
}

TEST_F(StorageModule, SmartSwitchedOnForAnAlgorithmIsSwitchedOffAgainAndADriveThatRefusesFailsThePair) {
  start([](hostfw::Profile& p) { p.drives[0].smart_enabled = false; });
  EXPECT_EQ(drive(0).Info->SmartEnabled, 0);
  EXPECT_EQ(record->RunTest(record, 0, 0, nullptr, Heard::Message), tarvik::TEST_RESULT_PASSED)
      << "no progress callback is needed";
  EXPECT_EQ(Heard::lines, (std::vector<std::string>{"MESSAGE SMART_DISABLED", "MESSAGE ENABLING_SMART"}));
  system(0);  // identifies the drive afresh
  EXPECT_EQ(drive(0).Info->SmartEnabled, 0);

  Heard::clear();
  refuse_smart_off = true;
  EXPECT_EQ(run(0, 0), tarvik::TEST_RESULT_FAILED);
  EXPECT_EQ(Heard::lines, (std::vector<std::string>{"MESSAGE SMART_DISABLED", "MESSAGE ENABLING_SMART",
                                                    "WARNING CANT_DISABLE_SMART"}));
  Heard::clear();
  EXPECT_EQ(run(0, 1), tarvik::TEST_RESULT_PASSED) << "SMART was on: nothing to switch off";
  EXPECT_TRUE(Heard::lines.empty());
  tear_down_and_expect_nothing_left();
}

// The storage test only reads: whatever a drive answers, no algorithm
// writes a sector, marks one uncorrectable or writes a log.
TEST_F(StorageModule, NoAlgorithmEverWritesToADrive) {
  start();
  const hostfw::AtaController& controller = *(*machine)->ata();
  const UINT64 algorithms = record->GetAlgorithmCount(record) + 1;  // and the extended self-test
  for (UINT8 device = 0; device < record->GetDeviceCount(record); ++device)
    for (UINT64 algorithm = 0; algorithm < algorithms; ++algorithm) {
      Heard::clear();
      const hostfw::AtaCommandCounts& counts = controller.counts(drive(device).Port);
      const uint64_t before = counts.total;
      run(algorithm, device);
      SCOPED_TRACE("device " + std::to_string(device) + ", algorithm " + std::to_string(algorithm));
      EXPECT_GT(counts.total, before) << "the algorithm reached the drive";
      EXPECT_TRUE(counts.sector_writes.empty());
      EXPECT_TRUE(counts.uncorrectable_marks.empty());
      for (const uint8_t write : {0x30, 0x34, 0x35, 0x3F, 0x45, 0x57, 0xCA, 0xCC})
        EXPECT_EQ(counts.command(write), 0u) << "opcode " << int{write};
      EXPECT_EQ(counts.smart(0xD6), 0u) << "SMART WRITE LOG";
    }
  tear_down_and_expect_nothing_left();
}

// A stop request after so many progress reports: the algorithm sends no
// further command (the targeted read finishes the candidate in hand), and a
// self-test is aborted on the drive.
TEST_F(StorageModule, AStopRequestCancelsWhateverTheAlgorithmFound) {
  start();
  const struct {
    UINT64 algorithm, reports;
    size_t commands;
  } cases[] = {{0, 8, 7}, {3, 8, 7}, {4, 8, 14}, {5, 8, 77}, {6, 1, 3}};
  for (const auto& c : cases) {
    Heard::clear();
    Heard::stop_on_report = record;
    Heard::stop_after = c.reports;
    wire->commands.clear();
    EXPECT_EQ(run(c.algorithm, 1), tarvik::TEST_RESULT_CANCELED) << c.algorithm;
    EXPECT_EQ(wire->commands.size(), c.commands) << c.algorithm;
  }
  EXPECT_EQ(wire->count(0xB0, 0xD4, 0x7F), 1u) << "the extended self-test aborted";
  Heard::clear();
  EXPECT_EQ(run(3, 0), tarvik::TEST_RESULT_PASSED) << "the next run starts afresh";
  EXPECT_EQ(run(7, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ(run(0, 3), EFI_INVALID_PARAMETER);
  tear_down_and_expect_nothing_left();
}

}  // namespace
