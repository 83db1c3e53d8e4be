// Where every text of the process goes: one line on standard error. Texts of the daemon arrive through the
// debug and log channels of platform/services.h; the stand-in's own remarks through hostReport. Under a
// service manager (JOURNAL_STREAM set) a line carries a priority prefix in place of the time stamp.
//
// A reader that stops reading never stops the daemon: a line that does not fit is dropped, and the number of
// lost lines is told as soon as there is room again.
#pragma once

#include <string_view>

// One remark of the stand-in itself; no line end needed.
void hostReport(const char* format, ...) __attribute__((format(printf, 1, 2)));

// `text` as one line: trailing line ends cut, control characters escaped. `priority` runs from 0 to 7.
void writeLogLine(unsigned priority, std::string_view head, std::string_view text);
