// Reading a log line back: the one parser of the layout in log_layout.h.
// Parsed parts are views into the line (no copies), valid while it is.
#pragma once

#include "log/log_layout.h"

namespace tarvik {

// A word of a line: Length characters from Start, not terminated.
struct LogWord {
  const CHAR16* Start = u"";
  UINTN Length = 0;

  const CHAR16* End() const { return Start + Length; }
  // The whole word is Text.
  BOOLEAN Is(const CHAR16* Text) const;
};

// The word at Text: up to the first blank, colon or end of the text.
LogWord WordAt(const CHAR16* Text);
// Text past the blank or colon that ended a word (Text itself at the end).
inline const CHAR16* PastSeparator(const CHAR16* Text) { return *Text != 0 ? Text + 1 : Text; }
// The word that follows Word and the character that ended it.
inline LogWord WordAfter(const LogWord& Word) { return WordAt(PastSeparator(Word.End())); }

// Line begins with the characters of Word (an empty Word begins every line).
BOOLEAN LineBeginsWith(const CHAR16* Line, const CHAR16* Word);
// A drive's or module's section of a test log runs from its "UID" line up
// to its end line, "STOP TESTS <code>" (algorithm stop lines begin with
// their time stamp, so only end lines begin with STOP).
inline BOOLEAN IsDeviceStartLine(const CHAR16* Line) { return LineBeginsWith(Line, log_word::Uid); }
inline BOOLEAN IsDeviceEndLine(const CHAR16* Line) { return LineBeginsWith(Line, log_word::Stop); }
// Text begins with a time stamp, or with as many dashes, which read as one.
BOOLEAN BeginsWithTimeStamp(const CHAR16* Text);

struct ParsedLogLine {
  BOOLEAN TimeStamped = FALSE;  // the line begins with its time stamp
  // The time stamp: the one a stamped line begins with, or the one after
  // the mark of a header or footer; empty when there is none.
  LogWord Stamp;
  // A stamped line's first word after its stamp; any other line's first
  // word ("+++", "UID", ">>>", "STOP", ...).
  LogWord Keyword;
  // Headers and footers: the word after the mark and its stamp (the
  // module key, or RECOVER); empty on other lines.
  LogWord ModuleKey;
  // What follows the keyword, from the blank or colon that ended it.
  const CHAR16* Rest = u"";
};

ParsedLogLine ParseLogLine(const CHAR16* Line);

// The value of a resource line ("KEY: value"): past the key's colon and
// the blank after it.
const CHAR16* ResourceValue(const ParsedLogLine& Line);

// The result code of a device's end line ("STOP TESTS <code>").
inline LogWord DeviceResultCode(const ParsedLogLine& Line) { return WordAfter(WordAfter(Line.Keyword)); }

}  // namespace tarvik
