// A test-double bad-sector tool whose every operation answers from plain
// data, and whose run is a script given the screen's callbacks. Like the
// real tool, its operations ignore This (the screens pass null); one
// instance may exist at a time.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "badsector/bad_sectors_tool_protocol.h"

namespace testing_support {

class FakeBadSectorsTool {
 public:
  using Script = std::function<UINT64(tarvik::TEST_PROGRESS_CALLBACK, tarvik::TEST_MESSAGE_CALLBACK)>;

  FakeBadSectorsTool();
  ~FakeBadSectorsTool();
  FakeBadSectorsTool(const FakeBadSectorsTool&) = delete;
  FakeBadSectorsTool& operator=(const FakeBadSectorsTool&) = delete;

  tarvik::BadSectorsToolProtocol* record() { return &record_; }

  std::u16string tool_name = u"Bad Sectors Tool";
  std::vector<std::u16string> devices = {u"Drive 0"};
  std::vector<std::u16string> operations = {u"Check bad sectors", u"Check and recover bad sectors"};
  std::vector<std::pair<std::u16string, std::u16string>> rows = {{u"Device 0:", u"Drive 0"}, {u"Size:", u"1 GB"}};
  Script run;  // without one, RunTool returns 1000 at once

  // What the screens asked for.
  std::vector<std::pair<UINT64, UINT64>> runs;  // (operation, device)
  int cancels = 0;

 private:
  tarvik::BadSectorsToolProtocol record_{};
};

// Sends one kind 3 line through Message.
EFI_STATUS tool_line(tarvik::TEST_MESSAGE_CALLBACK message, const std::u16string& text);

}  // namespace testing_support
