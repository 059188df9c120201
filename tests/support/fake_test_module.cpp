#include "tests/support/fake_test_module.h"

#include "core/globals.h"
#include "core/pool_text.h"

namespace testing_support {

using tarvik::CopyTextToPool;
using tarvik::TestModuleProtocol;

FakeTestModule* FakeTestModule::summary_owner_ = nullptr;

namespace {

EFI_STATUS pair_out(const std::pair<std::u16string, std::u16string>& row, CHAR16** first, CHAR16** second) {
  EFI_STATUS status = CopyTextToPool(row.first.c_str(), first);
  if (EFI_ERROR(status)) return status;
  status = CopyTextToPool(row.second.c_str(), second);
  if (EFI_ERROR(status)) {
    tarvik::gBS->FreePool(*first);
    *first = nullptr;
  }
  return status;
}

}  // namespace

FakeTestModule::FakeTestModule(EFI_HANDLE image_handle) {
  TestModuleProtocol& r = slot_.record;
  slot_.owner = this;
  summary_owner_ = this;
  r.Revision = 1;
  r.ImageHandle = image_handle;
  r.ModuleGuid = EFI_GUID{0xFA4E0001, 0x0001, 0x0002, {1, 2, 3, 4, 5, 6, 7, 8}};
  r.RunTest = RunTest;
  r.GetAlgorithmName = GetAlgorithmName;
  r.GetAlgorithmKey = GetAlgorithmKey;
  r.GetAlgorithmCount = GetAlgorithmCount;
  r.GetRunInfoRow = GetRunInfoRow;
  r.GetRunInfoRowCount = GetRunInfoRowCount;
  r.GetModuleCode = GetModuleCode;
  r.GetTestName = GetTestName;
  r.StopTest = StopTest;
  r.GetSystemInfoRow = GetSystemInfoRow;
  r.GetSystemInfoRowCount = GetSystemInfoRowCount;
  r.GetModuleName = GetModuleName;
  r.GetModuleKey = GetModuleKey;
  r.GetResultText = GetResultText;
  r.GetDeviceCount = GetDeviceCount;
  r.GetDeviceName = GetDeviceName;
  r.GetLogRowCount = GetLogRowCount;
  r.GetLogRow = GetLogRow;
  r.TranslateKey = TranslateKey;
  r.GetSummaryLineCount = GetSummaryLineCount;
  r.GetSummaryLine = GetSummaryLine;
  r.EvaluateResults = EvaluateResults;
}

FakeTestModule::~FakeTestModule() {
  if (summary_owner_ == this) summary_owner_ = nullptr;
}

FakeTestModule& FakeTestModule::of(TestModuleProtocol* record) { return *reinterpret_cast<Slot*>(record)->owner; }

UINT64 FakeTestModule::RunTest(TestModuleProtocol* self, UINT64 algorithm, UINT8 device,
                               tarvik::TEST_PROGRESS_CALLBACK progress, tarvik::TEST_MESSAGE_CALLBACK message) {
  FakeTestModule& m = of(self);
  if (algorithm >= m.algorithms.size()) return EFI_INVALID_PARAMETER;
  m.runs.emplace_back(algorithm, device);
  const FakeAlgorithm& run = m.algorithms[algorithm];
  for (UINT64 percent : run.progress) {
    if (progress != nullptr) progress(self, percent, 0);
  }
  for (UINT64 ms = 10; ms <= run.busy_ms && !m.stop_requested; ms += 10) {
    tarvik::gBS->Stall(10000);
    if (progress != nullptr) progress(self, ms * 100 / run.busy_ms, 0);
  }
  for (const std::u16string& text : m.algorithms[algorithm].messages) {
    if (message != nullptr) message(self, text.c_str(), static_cast<UINT8>(tarvik::TestMessageKind::LogLine), 0);
  }
  return m.stop_requested ? tarvik::TEST_RESULT_CANCELED : m.algorithms[algorithm].result;
}

EFI_STATUS FakeTestModule::GetAlgorithmName(TestModuleProtocol* self, UINT64 index, CHAR16** text) {
  FakeTestModule& m = of(self);
  if (index >= m.algorithms.size() || text == nullptr) return EFI_ABORTED;
  return CopyTextToPool(m.algorithms[index].name.c_str(), text);
}

EFI_STATUS FakeTestModule::GetAlgorithmKey(TestModuleProtocol* self, UINT64 index, CHAR16** text) {
  FakeTestModule& m = of(self);
  if (index >= m.algorithms.size() || text == nullptr) return EFI_ABORTED;
  return CopyTextToPool(m.algorithms[index].key.c_str(), text);
}

UINT64 FakeTestModule::GetAlgorithmCount(TestModuleProtocol* self) { return of(self).algorithms.size(); }

EFI_STATUS FakeTestModule::GetRunInfoRow(TestModuleProtocol* self, UINT64 row, UINT64 device, CHAR16** label,
                                         CHAR16** value) {
  FakeTestModule& m = of(self);
  if (label == nullptr || value == nullptr) return EFI_ABORTED;
  if (device >= m.devices.size() || row >= m.devices[device].run_info.size()) return EFI_INVALID_PARAMETER;
  return pair_out(m.devices[device].run_info[row], label, value);
}

UINT64 FakeTestModule::GetRunInfoRowCount(TestModuleProtocol* self) {
  FakeTestModule& m = of(self);
  return m.devices.empty() ? 0 : m.devices[0].run_info.size();
}

EFI_STATUS FakeTestModule::GetModuleCode(TestModuleProtocol* self, CHAR16** text) {
  return CopyTextToPool(of(self).module_code.c_str(), text);
}

EFI_STATUS FakeTestModule::GetTestName(TestModuleProtocol* self, CHAR16** text) {
  return CopyTextToPool(of(self).test_name.c_str(), text);
}

EFI_STATUS FakeTestModule::StopTest(TestModuleProtocol* self) {
  of(self).stop_requested = true;
  return EFI_SUCCESS;
}

EFI_STATUS FakeTestModule::GetSystemInfoRow(TestModuleProtocol* self, UINT64 row, CHAR16** label, CHAR16** value) {
  FakeTestModule& m = of(self);
  if (label == nullptr || value == nullptr) return EFI_ABORTED;
  if (row >= m.system_info.size()) return EFI_INVALID_PARAMETER;
  return pair_out(m.system_info[row], label, value);
}

UINT64 FakeTestModule::GetSystemInfoRowCount(TestModuleProtocol* self) { return of(self).system_info.size(); }

EFI_STATUS FakeTestModule::GetModuleName(TestModuleProtocol* self, CHAR16** text) {
  return CopyTextToPool(of(self).module_name.c_str(), text);
}

EFI_STATUS FakeTestModule::GetModuleKey(TestModuleProtocol* self, CHAR16** text) {
  return CopyTextToPool(of(self).module_key.c_str(), text);
}

EFI_STATUS FakeTestModule::GetResultText(TestModuleProtocol*, UINT64 code, CHAR16** text) {
  return CopyTextToPool((u"Fake failure " + std::u16string(1, static_cast<char16_t>(u'0' + code % 10))).c_str(), text);
}

UINT64 FakeTestModule::GetDeviceCount(TestModuleProtocol* self) { return of(self).devices.size(); }

EFI_STATUS FakeTestModule::GetDeviceName(TestModuleProtocol* self, UINT64 device, CHAR16** text) {
  FakeTestModule& m = of(self);
  if (device >= m.devices.size()) return EFI_INVALID_PARAMETER;
  return CopyTextToPool(m.devices[device].name.c_str(), text);
}

UINT64 FakeTestModule::GetLogRowCount(TestModuleProtocol* self) {
  FakeTestModule& m = of(self);
  return m.devices.size() * m.log_rows_per_device();
}

EFI_STATUS FakeTestModule::GetLogRow(TestModuleProtocol* self, UINT64 row, CHAR16** key, CHAR16** value) {
  FakeTestModule& m = of(self);
  if (key == nullptr || value == nullptr) return EFI_ABORTED;
  const size_t per_device = m.log_rows_per_device();
  if (per_device == 0 || row >= m.devices.size() * per_device) return EFI_INVALID_PARAMETER;
  return pair_out(m.devices[row / per_device].log_rows[row % per_device], key, value);
}

EFI_STATUS FakeTestModule::TranslateKey(TestModuleProtocol*, const CHAR16* key, CHAR16** text) {
  return CopyTextToPool(key, text);
}

UINT64 FakeTestModule::GetSummaryLineCount() {
  return summary_owner_ == nullptr ? 0 : summary_owner_->summary_lines.size();
}

EFI_STATUS FakeTestModule::GetSummaryLine(UINT64 index, CHAR16** text) {
  if (text == nullptr) return EFI_ABORTED;
  if (summary_owner_ == nullptr || index >= summary_owner_->summary_lines.size()) return EFI_INVALID_PARAMETER;
  return CopyTextToPool(summary_owner_->summary_lines[index].c_str(), text);
}

EFI_STATUS FakeTestModule::EvaluateResults(TestModuleProtocol*, UINT64**, tarvik::TEST_MESSAGE_CALLBACK) {
  return EFI_ABORTED;
}

tarvik::TestCollectionProtocol* located_test_collection() {
  EFI_GUID guid = tarvik::TestCollectionProtocolGuid;
  VOID* found = nullptr;
  if (EFI_ERROR(tarvik::gBS->LocateProtocol(&guid, nullptr, &found))) return nullptr;
  return static_cast<tarvik::TestCollectionProtocol*>(found);
}

}  // namespace testing_support
