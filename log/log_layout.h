// The layout of the log's lines, written once: the builders write lines with
// these words and the parser (log/log_line.h) reads them back with them.
//
//   +++ <stamp> <module key> <milliseconds since 1970>   header of a test log
//   <KEY>: <value>                                        a device's resource rows
//   >>> RESOURCE <group> / <<< RESOURCE                   around a resource group
//   START TESTS / STOP TESTS <result code>                around a device's tests
//   <stamp> START <algorithm key>
//   <stamp> MESSAGE|WARNING|ERROR|CRITICAL <text>         summary and module messages
//   <stamp> STOP <algorithm key> <result word>[ <seconds> S]
//   --- <module key>                                      footer of a test log
//   +++ <stamp> RECOVER / --- <stamp> RECOVER             around a recovery log
#pragma once

#include "efi/base.h"

namespace tarvik {

// The time stamp, e.g. "20240315T101500UTC": each field at its width,
// zero-padded; the time is always written as UTC.
inline constexpr UINTN TimeStampChars = 18;

namespace log_stamp {
struct Field {
  UINTN At;
  UINTN Width;
};
inline constexpr Field Year = {0, 4};
inline constexpr Field Month = {4, 2};
inline constexpr Field Day = {6, 2};
inline constexpr UINTN TimeMark = 8;
inline constexpr CHAR16 TimeLetter = u'T';
inline constexpr Field Hour = {9, 2};
inline constexpr Field Minute = {11, 2};
inline constexpr Field Second = {13, 2};
inline constexpr UINTN Zone = 15;
inline constexpr CHAR16 ZoneLetters[] = u"UTC";
static_assert(Zone + sizeof(ZoneLetters) / sizeof(CHAR16) - 1 == TimeStampChars);
}  // namespace log_stamp

namespace log_word {
// Parts of a line are separated by one blank; a resource key ends in a colon.
inline constexpr CHAR16 Blank = u' ';
inline constexpr CHAR16 KeyEnd = u':';

inline constexpr CHAR16 HeaderMark[] = u"+++";
inline constexpr CHAR16 FooterMark[] = u"---";
inline constexpr CHAR16 GroupOpen[] = u">>>";
inline constexpr CHAR16 GroupClose[] = u"<<<";
inline constexpr CHAR16 Resource[] = u"RESOURCE";
inline constexpr CHAR16 Uid[] = u"UID";
inline constexpr CHAR16 DisplayName[] = u"DISPLAYNAME";
inline constexpr CHAR16 Index[] = u"INDEX";
inline constexpr CHAR16 Start[] = u"START";
inline constexpr CHAR16 Stop[] = u"STOP";
inline constexpr CHAR16 Tests[] = u"TESTS";
inline constexpr CHAR16 Recover[] = u"RECOVER";
inline constexpr CHAR16 Operation[] = u"Operation:";

// Message kinds, the first word of a module's message.
inline constexpr CHAR16 Message[] = u"MESSAGE";
inline constexpr CHAR16 Warning[] = u"WARNING";
inline constexpr CHAR16 Error[] = u"ERROR";
inline constexpr CHAR16 Critical[] = u"CRITICAL";

// Result words of an algorithm's stop line.
inline constexpr CHAR16 Success[] = u"SUCCESS";
inline constexpr CHAR16 Failure[] = u"FAILURE";
inline constexpr CHAR16 Aborted[] = u"ABORTED";
inline constexpr CHAR16 Unsupported[] = u"UNSUPPORTED";
inline constexpr CHAR16 Skipped[] = u"SKIPPED";

// The running time that ends a stop line: " 75 S".
inline constexpr CHAR16 SecondsFormat[] = u" %d S";
inline constexpr CHAR16 SecondsUnit = u'S';
}  // namespace log_word

}  // namespace tarvik
