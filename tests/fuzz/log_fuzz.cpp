// The log builders and the line parser on texts and messages of any length
// and content. A test log: a stand-in module whose module key, algorithm
// keys, log rows, summary lines, messages, states, selections, result codes
// and times come from the input; the log is built, every line read back and
// parsed, and every query the log screens make is asked. Then a recovery
// log: a stand-in bad-sector tool whose operation names and rows, and the
// result lines and times, come from the input. Lines must stay within their
// 200 characters and parsed words must lie inside their line. The input may
// make one pool allocation of the builders or the queries fail: an
// operation may then fail, and nothing may leak.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "log/log_line.h"
#include "log/log_protocol.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/fake_bad_sectors_tool.h"
#include "tests/support/fake_test_module.h"

namespace {

using fuzz_support::FuzzInput;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "log: %s\n", what);
  std::abort();
}

// Up to 510 characters: long enough to overrun a line.
std::u16string Text(FuzzInput& in) { return in.take_text(in.take<uint8_t>() * 2u); }

bool Within(const CHAR16* line, size_t length, const tarvik::LogWord& word) {
  return word.Start >= line && word.End() <= line + length;
}

// Parses Line (Length characters) and checks every view lies inside it.
void ParseInside(const CHAR16* line, size_t length) {
  const tarvik::ParsedLogLine parsed = tarvik::ParseLogLine(line);
  const bool stamp_ok = parsed.Stamp.Length == 0 || Within(line, length, parsed.Stamp);
  const bool key_ok = parsed.ModuleKey.Length == 0 || Within(line, length, parsed.ModuleKey);
  const CHAR16* value = tarvik::ResourceValue(parsed);
  const tarvik::LogWord code = tarvik::DeviceResultCode(parsed);
  if (!stamp_ok || !key_ok || !Within(line, length, parsed.Keyword) || parsed.Rest < line ||
      parsed.Rest > line + length || value < line || value > line + length ||
      (code.Length != 0 && !Within(line, length, code)))
    Fail("a parsed word outside its line");
}

// Asks a query and frees the text it handed out.
template <typename Query>
void Ask(Query query) {
  CHAR16* text = nullptr;
  if (!EFI_ERROR(query(&text)) && text != nullptr) tarvik::gBS->FreePool(text);
}

// Reads every line back: each within a log line, each parsed inside itself.
void ReadBack(tarvik::LogProtocol& log, const fuzz_support::FailingPool& pool) {
  for (UINT64 i = 0; i < log.GetLineCount(); ++i) {
    CHAR16* line = nullptr;
    if (EFI_ERROR(log.GetLine(i, &line)) || line == nullptr) {
      if (pool.fired() && line == nullptr) continue;
      Fail("a line not handed out");
    }
    const size_t length = std::u16string_view(line).size();
    if (length >= tarvik::LogLineChars) Fail("a line longer than a log line");
    ParseInside(line, length);
    CHAR16* stripped = nullptr;
    log.StripSecondsSuffix(line, &stripped);
    if (stripped != nullptr) tarvik::gBS->FreePool(stripped);
    tarvik::gBS->FreePool(line);
  }
}

EFIAPI EFI_STATUS KeepTool(EFI_HANDLE) { return EFI_SUCCESS; }

// A recovery log of the input's lines from a stand-in tool.
void RecoveryLog(tarvik::LogProtocol& log, testing_support::FakeBadSectorsTool& tool, FuzzInput& in,
                 const fuzz_support::FailingPool& pool) {
  tool.operations = {Text(in), Text(in)};
  tool.rows = {{Text(in), Text(in)}, {Text(in), Text(in)}};
  tool.rows.resize(in.take<uint8_t>() % 3);  // a tool may lack its rows
  EFI_HANDLE handle = fuzz_support::machine().image_handle();
  tool.record()->Header.ImageHandle = handle;
  EFI_GUID guid = tarvik::BadSectorsToolProtocolGuid;
  VOID* record = tool.record();
  if (EFI_ERROR(tarvik::gDiagCommon->InstallProtocol(tarvik::gDiagCommon, &handle, &guid, &record, KeepTool))) {
    if (pool.fired()) return;
    Fail("no tool");
  }
  std::vector<std::u16string> lines(in.take<uint8_t>() % 8);
  std::vector<CHAR16*> pointers;
  for (std::u16string& line : lines) pointers.push_back((line = Text(in)).data());
  pointers.push_back(nullptr);  // never null, even without lines
  const UINT64 operation = in.take<uint8_t>() % 3;
  const EFI_TIME start = in.take<EFI_TIME>(), end = in.take<EFI_TIME>();
  if (EFI_ERROR(log.BuildRecoverLog(lines.size(), pointers.data(), operation, &start, &end))) {
    if (pool.fired()) return;
    Fail("a recovery log was not built");
  }
  ReadBack(log, pool);
  log.FreeLog();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t fail_allocation = in.take<uint8_t>();
  fuzz_support::LeakCheck leaks("log");
  // Installed during the input, so it must outlive the services' removal.
  testing_support::FakeBadSectorsTool tool;
  fuzz_support::CoreServices services;
  auto* log = static_cast<tarvik::LogProtocol*>(fuzz_support::Located(tarvik::LogProtocolGuid));
  if (log == nullptr) Fail("not installed");

  testing_support::FakeTestModule module(fuzz_support::machine().image_handle());
  module.module_key = Text(in);
  const size_t algorithms = 1 + in.take<uint8_t>() % 3;
  const size_t devices = in.take<uint8_t>() % 4;
  const size_t rows = in.take<uint8_t>() % 12;
  for (size_t a = 0; a < algorithms; ++a) module.algorithms.emplace_back(u"Algorithm", Text(in));
  for (size_t d = 0; d < devices; ++d) {
    testing_support::FakeDevice& device = module.devices.emplace_back(u"Device");
    for (size_t r = 0; r < rows; ++r) {
      std::u16string key = Text(in);
      device.log_rows.emplace_back(key, Text(in));
    }
  }
  if (EFI_ERROR(testing_support::located_test_collection()->AddTest(module.record()))) Fail("not registered");

  // What the run screen collected, in the shapes the log takes them.
  std::vector<std::u16string> summary(in.take<uint8_t>() % 3);
  for (std::u16string& line : summary) line = Text(in);
  std::vector<std::vector<UINT8>> states(devices, std::vector<UINT8>(algorithms));
  std::deque<std::u16string> message_texts;  // what the pointers point into
  std::vector<std::vector<std::vector<CHAR16*>>> message_pointers(devices,
                                                                  std::vector<std::vector<CHAR16*>>(algorithms));
  std::vector<std::vector<UINT64>> message_counts(devices, std::vector<UINT64>(algorithms));
  for (size_t d = 0; d < devices; ++d) {
    for (size_t a = 0; a < algorithms; ++a) {
      states[d][a] = in.take<uint8_t>() % 8;
      message_counts[d][a] = in.take<uint8_t>() % 3;
      for (UINT64 m = 0; m < message_counts[d][a]; ++m)
        message_pointers[d][a].push_back(message_texts.emplace_back(Text(in)).data());
    }
  }
  std::vector<UINT8> algorithm_selection(algorithms), device_selection(devices);
  for (UINT8& selected : algorithm_selection) selected = in.take<uint8_t>() % 3;  // only 1 selects
  for (UINT8& selected : device_selection) selected = in.take<uint8_t>() % 3;
  std::vector<std::u16string> codes(devices);
  std::vector<CHAR16*> code_pointers(devices);
  for (size_t d = 0; d < devices; ++d) {
    codes[d] = Text(in);
    code_pointers[d] = in.take<uint8_t>() % 4 == 0 ? nullptr : codes[d].data();
  }
  // A start time, then one per algorithm that ran on each device.
  std::vector<EFI_TIME> times(2 + devices * algorithms), durations(devices * algorithms);
  for (EFI_TIME& time : times) time = in.take<EFI_TIME>();
  for (EFI_TIME& duration : durations) duration = in.take<EFI_TIME>();
  const std::u16string stray_line = Text(in);

  std::vector<UINT8*> state_rows;
  for (auto& row : states) state_rows.push_back(row.data());
  std::vector<CHAR16*> summary_pointers;
  for (std::u16string& line : summary) summary_pointers.push_back(line.data());
  std::vector<std::vector<CHAR16**>> message_cells(devices, std::vector<CHAR16**>(algorithms));
  std::vector<CHAR16***> message_devices;
  std::vector<UINT64*> count_devices;
  for (size_t d = 0; d < devices; ++d) {
    for (size_t a = 0; a < algorithms; ++a) message_cells[d][a] = message_pointers[d][a].data();
    message_devices.push_back(message_cells[d].data());
    count_devices.push_back(message_counts[d].data());
  }

  // One unused entry past the devices, so an array is never null (the
  // builder refuses null arrays; a run screen always has them).
  state_rows.push_back(nullptr);
  device_selection.push_back(0);
  code_pointers.push_back(nullptr);
  message_devices.push_back(nullptr);
  count_devices.push_back(nullptr);
  fuzz_support::FailingPool pool(fail_allocation);
  const EFI_STATUS built = log->BuildTestLog(
      0, state_rows.data(), algorithm_selection.data(), device_selection.data(), code_pointers.data(), times.data(),
      durations.data(), summary_pointers.data(), summary_pointers.size(), message_devices.data(), count_devices.data());
  if (EFI_ERROR(built)) {
    if (!pool.fired()) Fail("a log was not built");
    RecoveryLog(*log, tool, in, pool);
    return 0;
  }

  ReadBack(*log, pool);
  Ask([&](CHAR16** text) { return log->GetLogModuleKey(text); });
  for (UINT64 n = 0; n <= devices; ++n) {
    Ask([&](CHAR16** text) { return log->GetLogResultCode(text, n); });
    Ask([&](CHAR16** text) { return log->GetLogDisplayName(text, n); });
  }
  log->GetLogDeviceCount();
  log->GetLogFirstDeviceLineCount();
  ParseInside(stray_line.c_str(), stray_line.size());
  log->FreeLog();
  RecoveryLog(*log, tool, in, pool);
  return 0;
}
