// The journal: every call of the interface and hardware layer as one line of JSON, the way to see exactly
// what the hardware was told. Calls are numbered whether or not anybody listens, so a gap shows; nothing is
// formatted while nobody does. Listeners are the file that the board's description names, and streams with a
// bounded queue each: what a slow reader has no room for is dropped and the number told in its place, the
// daemon never waits.
//
// A stream may ask for everything that happens in place of the calls alone: requests, events, hardware calls
// and log texts, each as one line of words for a client to put into sentences. Its first word is the kind,
// others are `name=value`; bytes are in hexadecimal, and a text runs to the end of its line.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "host/board/hardware_call.h"

struct JournalStream {
    bool everything = false;
    int wake = -1;    // eventfd, readable while lines are queued
    std::mutex lock;  // guards what follows
    std::deque<std::string> lines;
    size_t bytes = 0;
    uint64_t dropped = 0;  // since the lines were taken last
};

void journalCall(const HardwareCall& call, int32_t status);
// For the streams that want everything. The frame of a request is what follows its length word.
void monitorRequest(const void* frame, size_t length, int32_t status);
void monitorEvent(uint32_t group, const void* messages, size_t length);
void monitorText(unsigned priority, std::string_view head, std::string_view text);
// 0, or an errno value. The file starts empty.
int openJournalFile(const std::string& path);
// Null when the system has no descriptor left. The stream ends with closeJournalStream.
std::shared_ptr<JournalStream> openJournalStream(bool everything);
void closeJournalStream(const std::shared_ptr<JournalStream>& stream);
// All lines queued by now; empty when there is none.
std::string takeJournalLines(JournalStream& stream);
