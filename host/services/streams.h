// Streams: what happens in the process, line by line, for readers who follow along.
//
// There are three kinds. A stream of calls carries the journal's lines, one JSON object for each call of the
// interface and hardware layer (host/board/journal.h). A stream of everything carries the monitor's lines:
// requests, events, hardware calls and log texts, each as one line of words for a client to put into
// sentences. The first word is the kind, the others are `name=value`; bytes are in hexadecimal, and a text
// runs to the end of its line. A stream of changes has of these the events and the requests that change
// something: its reader may ask as much as it likes without an overflow of what it waits for.
//
// Slow readers
// ------------
// Each stream has a queue of at most STREAM_BYTES_MAX bytes. The writer never waits: once a line has no room,
// it and every line after it are dropped until the reader takes what is queued; a note with their number then
// stands in their place. So a gap shows, and shows where the lines are missing.
//
// Cost
// ----
// The maker of a line asks hasStream first: while nobody reads a kind, none of its lines is made.
//
// Thread-safety
// -------------
// Everything here may be called by any task, holding any lock of the process but those of this file: nothing
// here calls out. `fd` of a stream may be polled without a lock; everything else in it is this file's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

inline constexpr size_t STREAM_BYTES_MAX = 256 * 1024;  // queued for one reader

enum class StreamKind : uint8_t { calls, everything, changes };
inline constexpr size_t STREAM_KINDS = 3;

struct LineStream {
    StreamKind kind = StreamKind::calls;
    int fd = -1;      // an eventfd: readable while lines are queued
    std::mutex lock;  // guards what follows
    std::deque<std::string> lines;
    size_t bytes = 0;      // of the lines
    uint64_t dropped = 0;  // since the lines were taken last
};

// Null when the system has no descriptor left. The stream ends with closeStream.
std::shared_ptr<LineStream> openStream(StreamKind kind);
void closeStream(const std::shared_ptr<LineStream>& stream);
// All lines queued by now, each with its line end, and a note of what was dropped behind them; empty when
// there is none.
std::string takeLines(LineStream& stream);

// Whether a stream of this kind is open. Costs a load.
bool hasStream(StreamKind kind);
// Queues a whole line, its line end included, for each stream of this kind.
void queueLine(StreamKind kind, const std::string& line);

// How a monitor's line begins: `KIND time=SECONDS.MICROSECONDS`.
std::string monitorLine(const char* kind);
// The monitor's lines but for the hardware calls. The frame of a request is what follows its length word;
// `status` is that of its reply; `sets` whether it changes something; `asker` is words of the same form,
// about who sent it. `priority` runs from 0 to 7, `head` ends with a blank.
void monitorRequest(const void* frame, size_t length, int32_t status, bool sets, std::string_view asker);
void monitorEvent(uint32_t group, const void* messages, size_t length);
void monitorText(unsigned priority, std::string_view head, std::string_view text);
