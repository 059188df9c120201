#include "tests/support/fake_bad_sectors_tool.h"

#include "core/globals.h"
#include "core/pool_text.h"

namespace testing_support {
namespace {

FakeBadSectorsTool* current = nullptr;

EFI_STATUS copy(const std::u16string& text, CHAR16** out) {
  return tarvik::CopyTextToPool(reinterpret_cast<const CHAR16*>(text.c_str()), out);
}

EFI_STATUS indexed(const std::vector<std::u16string>& texts, UINT64 index, CHAR16** out) {
  if (out == nullptr || index >= texts.size()) return EFI_INVALID_PARAMETER;
  return copy(texts[index], out);
}

EFIAPI UINT64 run_tool(tarvik::BadSectorsToolProtocol*, UINT64 operation, UINT64 device,
                       tarvik::TEST_PROGRESS_CALLBACK progress, tarvik::TEST_MESSAGE_CALLBACK message) {
  current->runs.emplace_back(operation, device);
  return current->run ? current->run(progress, message) : 1000;
}
EFIAPI EFI_STATUS algorithm_name(tarvik::BadSectorsToolProtocol*, UINT64 index, CHAR16** name) {
  return indexed(current->operations, index, name);
}
EFIAPI UINT64 algorithm_count(tarvik::BadSectorsToolProtocol*) { return current->operations.size(); }
EFIAPI EFI_STATUS run_info_row(tarvik::BadSectorsToolProtocol*, UINT64 row, UINT64, CHAR16** label, CHAR16** value) {
  if (row >= current->rows.size() || label == nullptr || value == nullptr) return EFI_INVALID_PARAMETER;
  // Both texts or neither, as the real tool hands them out.
  EFI_STATUS status = copy(current->rows[row].first, label);
  if (EFI_ERROR(status)) return status;
  status = copy(current->rows[row].second, value);
  if (EFI_ERROR(status)) {
    tarvik::gBS->FreePool(*label);
    *label = nullptr;
  }
  return status;
}
EFIAPI UINT64 run_info_row_count(tarvik::BadSectorsToolProtocol*) { return current->rows.size(); }
EFIAPI EFI_STATUS get_tool_name(tarvik::BadSectorsToolProtocol*, CHAR16** name) { return copy(current->tool_name, name); }
EFIAPI EFI_STATUS cancel_tool(tarvik::BadSectorsToolProtocol*) {
  ++current->cancels;
  return EFI_SUCCESS;
}
EFIAPI UINT64 device_count(tarvik::BadSectorsToolProtocol*) { return current->devices.size(); }
EFIAPI EFI_STATUS device_name(tarvik::BadSectorsToolProtocol*, UINT64 index, CHAR16** name) {
  return indexed(current->devices, index, name);
}

}  // namespace

FakeBadSectorsTool::FakeBadSectorsTool() {
  current = this;
  record_.Header.Revision = 1;
  record_.Header.Guid = tarvik::BadSectorsToolProtocolGuid;
  record_.RunTool = run_tool;
  record_.GetAlgorithmName = algorithm_name;
  record_.GetAlgorithmCount = algorithm_count;
  record_.GetRunInfoRow = run_info_row;
  record_.GetRunInfoRowCount = run_info_row_count;
  record_.GetToolName = get_tool_name;
  record_.CancelTool = cancel_tool;
  record_.GetDeviceCount = device_count;
  record_.GetDeviceName = device_name;
}

FakeBadSectorsTool::~FakeBadSectorsTool() { current = nullptr; }

EFI_STATUS tool_line(tarvik::TEST_MESSAGE_CALLBACK message, const std::u16string& text) {
  return message(nullptr, reinterpret_cast<const CHAR16*>(text.c_str()), 3, 0);
}

}  // namespace testing_support
