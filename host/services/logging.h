// Where every text of the process goes: one line on standard error. Texts of the daemon arrive through the
// debug and log channels of platform/services.h; the stand-in's own remarks through hostReport. Under a
// service manager (JOURNAL_STREAM set) a line carries a priority prefix in place of the time stamp. The
// monitor's streams (host/services/streams.h) get every text as well.
//
// A reader of standard error that stops reading never stops the daemon: a line that does not fit is dropped,
// and the number of lost lines is reported as soon as there is room again.
//
// Thread-safety
// -------------
// Any task may write at any time; lines stay whole. A line may wait 100 ms for a reader that has fallen
// behind, with no lock held but this file's own, so a caller that holds a lock may delay others by as much.
#pragma once

#include <fmt/format.h>

#include <string_view>

// One remark of the stand-in itself, cut to 1023 bytes; no line end needed.
void reportRemark(std::string_view text);

// The same from a format of fmt's, which the compiler checks against its arguments.
template <typename... Arguments>
void hostReport(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    reportRemark(fmt::vformat(format, fmt::make_format_args(arguments...)));
}

// Ends a process that lacks what it needs, after the report of it. Nothing is tidied up: what the process
// holds ends with it, and the next start replaces its sockets.
[[noreturn]] void refuseStart();

// `text` as one line behind `head`: trailing line ends cut, control characters escaped. `priority` runs from
// 0, the most urgent, to 7; `head` ends with a blank.
void writeLogLine(unsigned priority, std::string_view head, std::string_view text);
// The same without line ends to cut, for what the monitor has in a line of its own.
void writeUnmonitored(unsigned priority, std::string_view head, std::string_view text);
