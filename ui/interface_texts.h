// Numbers of the "Interface" texts the screens use (looked up with UiText).
#pragma once

#include "efi/efi.h"

namespace tarvik::ui_text {

inline constexpr UINT64 Title = 0;
inline constexpr UINT64 MainScreen = 1;
inline constexpr UINT64 MainFooter = 2;
inline constexpr UINT64 Tests = 3;
inline constexpr UINT64 Tools = 4;
inline constexpr UINT64 Version = 5;
inline constexpr UINT64 ExitApplication = 6;
inline constexpr UINT64 SystemInformation = 7;
inline constexpr UINT64 RecoverBadSectorsTool = 8;
inline constexpr UINT64 TestDevicesFooter = 16;
inline constexpr UINT64 SelectDevices = 17;
inline constexpr UINT64 SelectAlgorithms = 18;
inline constexpr UINT64 Next = 19;
inline constexpr UINT64 Cancel = 20;
inline constexpr UINT64 TestAlgorithmsFooter = 21;
inline constexpr UINT64 ToolDevicesFooter = 22;
inline constexpr UINT64 ToolAlgorithmsFooter = 23;
inline constexpr UINT64 RunTest = 24;
inline constexpr UINT64 SelectDeselectAll = 25;
inline constexpr UINT64 StopFooterScroll = 32;
inline constexpr UINT64 InformationAboutTest = 33;
inline constexpr UINT64 ResultsOfTest = 34;
inline constexpr UINT64 InformationAboutRecover = 35;
inline constexpr UINT64 ResultsOfRecover = 36;
inline constexpr UINT64 OutcomeFooterScroll = 37;
inline constexpr UINT64 StopFooter = 38;
inline constexpr UINT64 OutcomeFooter = 39;
inline constexpr UINT64 Algorithm = 48;
inline constexpr UINT64 AlgorithmNumber = 49;
inline constexpr UINT64 CurrentProgress = 50;
inline constexpr UINT64 DeviceProgress = 51;
inline constexpr UINT64 Operation = 52;
inline constexpr UINT64 ProgressOfOperation = 53;
inline constexpr UINT64 TestStartedAt = 64;
inline constexpr UINT64 TestFinishedAt = 66;
inline constexpr UINT64 TotalTime = 67;
inline constexpr UINT64 RecoverStartedAt = 70;
inline constexpr UINT64 RecoverFinishedAt = 72;
inline constexpr UINT64 DurationOfRecover = 73;
inline constexpr UINT64 ResultCode = 74;
inline constexpr UINT64 SystemInfoFooter = 80;
inline constexpr UINT64 Machine = 81;
inline constexpr UINT64 MachineInformation = 82;
inline constexpr UINT64 MachineManufacturer = 83;
inline constexpr UINT64 ProductName = 84;
inline constexpr UINT64 ProductVersion = 85;
inline constexpr UINT64 MachineSerialNumber = 86;
inline constexpr UINT64 BiosInformation = 87;
inline constexpr UINT64 BiosVersion = 88;
inline constexpr UINT64 BiosReleaseDate = 89;
inline constexpr UINT64 BiosManufacturer = 90;
inline constexpr UINT64 ProcessorInformation = 91;
inline constexpr UINT64 ProcessorManufacturer = 92;
inline constexpr UINT64 ProcessorVersion = 93;
inline constexpr UINT64 GatheringInformation = 94;
inline constexpr UINT64 OnQueue = 96;
inline constexpr UINT64 InProgress = 97;
inline constexpr UINT64 Passed = 98;
inline constexpr UINT64 Failed = 99;
inline constexpr UINT64 Canceled = 100;
inline constexpr UINT64 NotSupported = 101;
inline constexpr UINT64 NotExecuted = 102;
inline constexpr UINT64 Logs = 112;
inline constexpr UINT64 LogFooter = 113;
inline constexpr UINT64 SaveLog = 114;
inline constexpr UINT64 LogSaved = 115;
inline constexpr UINT64 LogNotSaved = 116;
inline constexpr UINT64 NoSaveVolume = 118;
inline constexpr UINT64 LogTitle = 119;
inline constexpr UINT64 Device = 120;
inline constexpr UINT64 Success = 128;
inline constexpr UINT64 Error = 129;
inline constexpr UINT64 PressEnter = 130;
inline constexpr UINT64 PressYesNo = 131;
inline constexpr UINT64 LogIndex = 146;
inline constexpr UINT64 LogStart = 147;
inline constexpr UINT64 LogStop = 148;
inline constexpr UINT64 LogTests = 149;
inline constexpr UINT64 LogResource = 150;
inline constexpr UINT64 LogMessage = 151;
inline constexpr UINT64 LogCritical = 152;
inline constexpr UINT64 LogError = 153;
inline constexpr UINT64 LogWarning = 154;

}  // namespace tarvik::ui_text
