// The record every test module publishes: the user interface, the log and
// the result code drive memory and storage alike through these 28 slots.
#pragma once

#include "efi/efi.h"

namespace tarvik {

// What RunTest answers. Any other value is the module's own error code,
// explained by its GetResultText.
inline constexpr UINT64 TEST_RESULT_PASSED = 1000;
inline constexpr UINT64 TEST_RESULT_FAILED = 1001;
inline constexpr UINT64 TEST_RESULT_NOT_SUPPORTED = 1002;
inline constexpr UINT64 TEST_RESULT_CANCELED = 1003;
inline constexpr UINT64 TEST_RESULT_PLATFORM_ERROR = 1004;

// What the caller of RunTest does with a text handed to TestMessageCallback.
enum class TestMessageKind : UINT8 {
  Notice = 1,    // message box; Enter gives EFI_SUCCESS, ESC EFI_ABORTED
  Question = 4,  // yes/no box; yes gives EFI_SUCCESS, no EFI_ABORTED
  LogLine = 5,   // kept with the current device and algorithm; goes to the log
  ClockOff = 6,  // stop the clock and spinner from drawing
  ClockOn = 7,   // let them draw again
};

// Percent is 0-100 and may repeat. Reserved is 0.
typedef EFI_STATUS(EFIAPI* TEST_PROGRESS_CALLBACK)(VOID* Context, UINT64 Percent, UINT64 Reserved);
// Kind is a TestMessageKind; the answer of a box is returned to the module.
typedef EFI_STATUS(EFIAPI* TEST_MESSAGE_CALLBACK)(VOID* Context, const CHAR16* Text, UINT8 Kind,
                                                  UINT64 Reserved);

struct TestModuleProtocol;

typedef UINT64(EFIAPI* TEST_RUN_TEST)(TestModuleProtocol* This, UINT64 AlgorithmIndex, UINT8 DeviceIndex,
                                      TEST_PROGRESS_CALLBACK Progress, TEST_MESSAGE_CALLBACK Message);
typedef EFI_STATUS(EFIAPI* TEST_GET_INDEXED_TEXT)(TestModuleProtocol* This, UINT64 Index, CHAR16** Text);
typedef EFI_STATUS(EFIAPI* TEST_GET_TEXT)(TestModuleProtocol* This, CHAR16** Text);
typedef UINT64(EFIAPI* TEST_GET_COUNT)(TestModuleProtocol* This);
typedef EFI_STATUS(EFIAPI* TEST_GET_RUN_INFO_ROW)(TestModuleProtocol* This, UINT64 Row, UINT64 DeviceIndex,
                                                  CHAR16** Label, CHAR16** Value);
typedef EFI_STATUS(EFIAPI* TEST_STOP_TEST)(TestModuleProtocol* This);
typedef EFI_STATUS(EFIAPI* TEST_GET_ROW)(TestModuleProtocol* This, UINT64 Row, CHAR16** Label, CHAR16** Value);
typedef EFI_STATUS(EFIAPI* TEST_TRANSLATE_KEY)(TestModuleProtocol* This, const CHAR16* Key, CHAR16** Text);
typedef UINT64(EFIAPI* TEST_GET_SUMMARY_LINE_COUNT)();
typedef EFI_STATUS(EFIAPI* TEST_GET_SUMMARY_LINE)(UINT64 Index, CHAR16** Text);
// Results: one array per device of one entry per algorithm (1000, 1001,
// 1002 for passed, failed, not supported; 0 otherwise).
typedef EFI_STATUS(EFIAPI* TEST_EVALUATE_RESULTS)(TestModuleProtocol* This, UINT64** Results,
                                                  TEST_MESSAGE_CALLBACK Message);

struct TestModuleProtocol {
  UINT32 Revision;
  EFI_HANDLE ImageHandle;
  EFI_IMAGE_UNLOAD Unload;
  EFI_GUID ModuleGuid;
  TEST_RUN_TEST RunTest;
  TEST_GET_INDEXED_TEXT GetAlgorithmName;
  TEST_GET_INDEXED_TEXT GetAlgorithmKey;
  TEST_GET_COUNT GetAlgorithmCount;
  TEST_GET_RUN_INFO_ROW GetRunInfoRow;
  TEST_GET_COUNT GetRunInfoRowCount;
  TEST_GET_TEXT GetModuleCode;
  TEST_GET_TEXT GetTestName;
  TEST_STOP_TEST StopTest;
  TEST_GET_ROW GetSystemInfoRow;
  TEST_GET_COUNT GetSystemInfoRowCount;
  TEST_GET_TEXT GetModuleName;
  TEST_GET_TEXT GetModuleKey;
  TEST_GET_INDEXED_TEXT GetResultText;
  VOID* DeviceTable;  // the module's own; nobody outside it reads this
  TEST_GET_COUNT GetDeviceCount;
  TEST_GET_INDEXED_TEXT GetDeviceName;
  TEST_GET_COUNT GetLogRowCount;
  TEST_GET_ROW GetLogRow;
  TEST_TRANSLATE_KEY TranslateKey;
  TEST_GET_SUMMARY_LINE_COUNT GetSummaryLineCount;
  TEST_GET_SUMMARY_LINE GetSummaryLine;
  TEST_EVALUATE_RESULTS EvaluateResults;
};

// The slot order is what every caller depends on.
static_assert(__builtin_offsetof(TestModuleProtocol, ImageHandle) == 1 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, Unload) == 2 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, ModuleGuid) == 3 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, RunTest) == 5 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetAlgorithmName) == 6 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetAlgorithmKey) == 7 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetAlgorithmCount) == 8 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetRunInfoRow) == 9 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetRunInfoRowCount) == 10 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetModuleCode) == 11 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetTestName) == 12 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, StopTest) == 13 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetSystemInfoRow) == 14 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetSystemInfoRowCount) == 15 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetModuleName) == 16 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetModuleKey) == 17 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetResultText) == 18 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, DeviceTable) == 19 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetDeviceCount) == 20 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetDeviceName) == 21 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetLogRowCount) == 22 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetLogRow) == 23 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, TranslateKey) == 24 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetSummaryLineCount) == 25 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, GetSummaryLine) == 26 * 8);
static_assert(__builtin_offsetof(TestModuleProtocol, EvaluateResults) == 27 * 8);
static_assert(sizeof(TestModuleProtocol) == 28 * 8);

}  // namespace tarvik
