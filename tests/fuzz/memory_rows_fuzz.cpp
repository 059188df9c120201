// The memory module's rows on any SMBIOS table: the modules it gathers from
// the Memory Device structures at installation, then every system
// information, log and run information row and its summary line, as the
// screens and the log ask for them. Each text must be terminated within
// its row's buffer, the row counts must describe the same modules, and a
// row past the last is refused. The input may make one pool allocation of
// the installation or of the rows fail: a row may then be refused, and
// nothing may leak.
#include <cstdio>
#include <cstdlib>

#include "memtest/memory_test_protocol.h"
#include "registry/module_registry_protocol.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/fake_test_module.h"

namespace {

// Characters a row's texts may hold, terminator included (the rows'
// buffers are 2048 bytes).
constexpr size_t kRowChars = 1024;

[[noreturn]] void Fail(const char* what, UINT64 row) {
  std::fprintf(stderr, "memory rows: %s (row %llu)\n", what, static_cast<unsigned long long>(row));
  std::abort();
}

void CheckText(const CHAR16* text, UINT64 row) {
  if (text == nullptr) Fail("a row without its text", row);
  size_t length = 0;
  while (text[length] != 0) ++length;
  if (length >= kRowChars) Fail("a text longer than its row", row);
  tarvik::gBS->FreePool(const_cast<CHAR16*>(text));
}

// Every row of one getter, then the first row past the last.
template <typename Get>
void ReadRows(UINT64 count, const fuzz_support::FailingPool& pool, Get get) {
  for (UINT64 row = 0; row <= count; ++row) {
    CHAR16* label = nullptr;
    CHAR16* value = nullptr;
    const EFI_STATUS status = get(row, &label, &value);
    if (row == count) {
      if (status != EFI_INVALID_PARAMETER || label != nullptr || value != nullptr) Fail("a row past the last", row);
      continue;
    }
    if (EFI_ERROR(status)) {
      if (!pool.fired() || label != nullptr || value != nullptr) Fail("a row refused", row);
      continue;
    }
    CheckText(label, row);
    CheckText(value, row);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_support::FuzzInput in(data, size);
  const uint8_t fail_allocation = in.take<uint8_t>();
  fuzz_support::SmbiosFirmware firmware(fuzz_support::TakeSmbiosInput(in));
  fuzz_support::LeakCheck leaks("memory rows");
  fuzz_support::CoreServices services(firmware.system_table());
  fuzz_support::FailingPool pool(fail_allocation);
  if (EFI_ERROR(tarvik::InstallMemoryTest(fuzz_support::machine().image_handle(), firmware.system_table()))) {
    if (pool.fired()) return 0;
    Fail("not installed", 0);
  }
  tarvik::TestModuleProtocol* module = nullptr;
  if (EFI_ERROR(testing_support::located_test_collection()->GetTest(0, &module)) || module == nullptr)
    Fail("not registered", 0);

  const UINT64 system_rows = module->GetSystemInfoRowCount(module);
  const UINT64 log_rows = module->GetLogRowCount(module);
  if ((system_rows - 1) % 7 != 0 || (log_rows - 3) % 8 != 0 || (system_rows - 1) / 7 != (log_rows - 3) / 8)
    Fail("row counts of different modules", system_rows);
  ReadRows(system_rows, pool, [&](UINT64 row, CHAR16** label, CHAR16** value) {
    return module->GetSystemInfoRow(module, row, label, value);
  });
  ReadRows(log_rows, pool, [&](UINT64 row, CHAR16** key, CHAR16** value) {
    return module->GetLogRow(module, row, key, value);
  });
  ReadRows(module->GetRunInfoRowCount(module), pool, [&](UINT64 row, CHAR16** label, CHAR16** value) {
    return module->GetRunInfoRow(module, row, 0, label, value);
  });
  for (UINT64 line = 0; line < module->GetSummaryLineCount(); ++line) {
    CHAR16* text = nullptr;
    if (EFI_ERROR(module->GetSummaryLine(line, &text))) {
      if (!pool.fired() || text != nullptr) Fail("a summary line refused", line);
      continue;
    }
    CheckText(text, line);
  }
  return 0;
}
