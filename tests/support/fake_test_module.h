// A test module for tests: every slot of the module record answers from
// plain data the test sets up, and RunTest replays scripted outcomes.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "registry/module_registry_protocol.h"

namespace testing_support {

struct FakeAlgorithm {
  FakeAlgorithm(std::u16string name_, std::u16string key_, UINT64 result_ = tarvik::TEST_RESULT_PASSED)
      : name(std::move(name_)), key(std::move(key_)), result(result_) {}
  std::u16string name;
  std::u16string key;
  UINT64 result = tarvik::TEST_RESULT_PASSED;  // what RunTest answers
  std::vector<std::u16string> messages;        // handed to the message callback as log lines
  std::vector<UINT64> progress = {0, 50, 100};  // reported in this order
  // Machine time the run takes, in 10 ms stalls with a report of elapsed
  // time after each; a stop request ends it early (as a polling test does).
  UINT64 busy_ms = 0;
};

struct FakeDevice {
  using Rows = std::vector<std::pair<std::u16string, std::u16string>>;
  FakeDevice(std::u16string name_, Rows log_rows_ = {}, Rows run_info_ = {})
      : name(std::move(name_)), log_rows(std::move(log_rows_)), run_info(std::move(run_info_)) {}
  std::u16string name;
  std::vector<std::pair<std::u16string, std::u16string>> log_rows;  // key, value
  std::vector<std::pair<std::u16string, std::u16string>> run_info;  // label, value
};

class FakeTestModule {
 public:
  explicit FakeTestModule(EFI_HANDLE image_handle);
  ~FakeTestModule();
  FakeTestModule(const FakeTestModule&) = delete;
  FakeTestModule& operator=(const FakeTestModule&) = delete;

  tarvik::TestModuleProtocol* record() { return &slot_.record; }

  std::u16string test_name = u"Fake Device Test";
  std::u16string module_name = u"Fake";
  std::u16string module_key = u"FAKE";
  std::u16string module_code = u"FK";
  std::vector<FakeAlgorithm> algorithms;
  std::vector<FakeDevice> devices;
  std::vector<std::u16string> summary_lines;  // one module's summary at a time: the last constructed
  std::vector<std::pair<std::u16string, std::u16string>> system_info;
  // Log rows per device; every device must carry this many.
  size_t log_rows_per_device() const { return devices.empty() ? 0 : devices[0].log_rows.size(); }

  // What the module saw.
  std::vector<std::pair<UINT64, UINT8>> runs;  // (algorithm, device) of each RunTest
  bool stop_requested = false;

 private:
  struct Slot {
    tarvik::TestModuleProtocol record;
    FakeTestModule* owner;
  };
  static FakeTestModule& of(tarvik::TestModuleProtocol* record);
  static FakeTestModule* summary_owner_;

  static EFIAPI UINT64 RunTest(tarvik::TestModuleProtocol*, UINT64, UINT8, tarvik::TEST_PROGRESS_CALLBACK,
                               tarvik::TEST_MESSAGE_CALLBACK);
  static EFIAPI EFI_STATUS GetAlgorithmName(tarvik::TestModuleProtocol*, UINT64, CHAR16**);
  static EFIAPI EFI_STATUS GetAlgorithmKey(tarvik::TestModuleProtocol*, UINT64, CHAR16**);
  static EFIAPI UINT64 GetAlgorithmCount(tarvik::TestModuleProtocol*);
  static EFIAPI EFI_STATUS GetRunInfoRow(tarvik::TestModuleProtocol*, UINT64, UINT64, CHAR16**, CHAR16**);
  static EFIAPI UINT64 GetRunInfoRowCount(tarvik::TestModuleProtocol*);
  static EFIAPI EFI_STATUS GetModuleCode(tarvik::TestModuleProtocol*, CHAR16**);
  static EFIAPI EFI_STATUS GetTestName(tarvik::TestModuleProtocol*, CHAR16**);
  static EFIAPI EFI_STATUS StopTest(tarvik::TestModuleProtocol*);
  static EFIAPI EFI_STATUS GetSystemInfoRow(tarvik::TestModuleProtocol*, UINT64, CHAR16**, CHAR16**);
  static EFIAPI UINT64 GetSystemInfoRowCount(tarvik::TestModuleProtocol*);
  static EFIAPI EFI_STATUS GetModuleName(tarvik::TestModuleProtocol*, CHAR16**);
  static EFIAPI EFI_STATUS GetModuleKey(tarvik::TestModuleProtocol*, CHAR16**);
  static EFIAPI EFI_STATUS GetResultText(tarvik::TestModuleProtocol*, UINT64, CHAR16**);
  static EFIAPI UINT64 GetDeviceCount(tarvik::TestModuleProtocol*);
  static EFIAPI EFI_STATUS GetDeviceName(tarvik::TestModuleProtocol*, UINT64, CHAR16**);
  static EFIAPI UINT64 GetLogRowCount(tarvik::TestModuleProtocol*);
  static EFIAPI EFI_STATUS GetLogRow(tarvik::TestModuleProtocol*, UINT64, CHAR16**, CHAR16**);
  static EFIAPI EFI_STATUS TranslateKey(tarvik::TestModuleProtocol*, const CHAR16*, CHAR16**);
  static EFIAPI UINT64 GetSummaryLineCount();
  static EFIAPI EFI_STATUS GetSummaryLine(UINT64, CHAR16**);
  static EFIAPI EFI_STATUS EvaluateResults(tarvik::TestModuleProtocol*, UINT64**, tarvik::TEST_MESSAGE_CALLBACK);

  Slot slot_{};
};

// The test registry's record, once installed.
tarvik::TestCollectionProtocol* located_test_collection();

}  // namespace testing_support
