// Installs the log service. Its clean-up also discards a log still built
// at exit, so that teardown leaves no pool behind.
#include "log/line_store.h"
#include "log/log_operations.h"

namespace tarvik {
namespace {

constinit LogProtocol* LogRecord = nullptr;

EFIAPI EFI_STATUS UnloadLog(EFI_HANDLE) {
  ReleaseLogLines();
  return ReleaseServiceRecord(gBS, LogRecord);
}

VOID FillOperations(LogProtocol& Record) {
  Record.BuildTestLog = BuildTestLog;
  Record.BuildRecoverLog = BuildRecoverLog;
  Record.SaveLog = SaveLog;
  Record.GetLineCount = GetLineCount;
  Record.GetLine = GetLine;
  Record.FreeLog = FreeLog;
  Record.GetLogModuleKey = GetLogModuleKey;
  Record.GetLogDisplayName = GetLogDisplayName;
  Record.GetLogDeviceCount = GetLogDeviceCount;
  Record.GetLogFirstDeviceLineCount = GetLogFirstDeviceLineCount;
  Record.GetLogResultCode = GetLogResultCode;
  Record.StripSecondsSuffix = StripSecondsSuffix;
}

}  // namespace

EFI_STATUS InstallLog(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  ServiceDescriptor<LogProtocol> Service = {
      .Guid = LogProtocolGuid,
      .Name = u"Log Protocol",
      .ModuleRecord = &LogRecord,
      .Unload = UnloadLog,
      .FillOperations = FillOperations,
  };
  return InstallService(ImageHandle, SystemTable, Service);
}

}  // namespace tarvik
