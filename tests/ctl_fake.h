// What the tests of the operator's command share: a session whose daemon is a small table of rows, and a
// board.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>

#include "common/text.h"
#include "ctl/commands/commands.h"
#include "ctl/text/command_line.h"
#include "lib/link/interfaces.h"
#include "lib/text/output.h"
#include "wire/operations.h"
#include "wire/records.h"
#include "wire/scalars.h"
#include "wire/status.h"

using Words = std::vector<std::string>;

// Why a step ends the command; empty where it does not.
template <typename Step>
std::string endOf(Step&& step) {
    try {
        step();
    } catch (const CommandEnds& end) {
        return end.why;
    }
    return {};
}

// What a step prints on both channels.
template <typename Step>
std::string printedBy(Step&& step) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    step();
    return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
}

inline std::string bytesOf(const std::vector<uint32_t>& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(uint32_t)};
}

// A daemon of one group table, which refuses to activate one member, one change for some
// time, and to answer at all after some requests.
struct FakeDaemon {
    std::map<uint32_t, uint32_t> rows;  // of group 5: status by member
    uint32_t refused = 0;
    uint32_t answers = UINT32_MAX;
    bool stuck = false;  // get next does not advance
    std::string refusedChange = "none";
    uint32_t refusals = UINT32_MAX;             // how often
    Words changes{};                            // what was asked to change, in words
    std::map<std::string, Words> boardLines{};  // its answers by request
    Words board{};                              // the lines that the board was asked
};

// What a request changes, such as "group1=4"; empty where it only asks.
inline std::string changeText(const Request& request) {
    const std::pair<uint32_t, const char*> names[] = {
        {OP_GROUP_SET, "group"}, {OP_VLAN_SET, "pon"}, {OP_SCALAR_SET, "scalar"}};
    for (const auto& [opcode, name] : names) {
        if (request.opcode != opcode) continue;
        const uint32_t what = request.index.empty() ? request.column : wordAt(request.index, 0);
        return fmt::format("{}{}={}", name, what, wordAt(request.value, 0));
    }
    return {};
}

inline Reply answer(FakeDaemon& daemon, const Request& request) {
    const std::string change = changeText(request);
    if (!change.empty()) daemon.changes.push_back(change);
    if (change == daemon.refusedChange && daemon.refusals-- != 0) return {STATUS_NOT_SUPPORTED, {}, {}};
    const uint32_t scalar = request.column == SCALAR_MODE ? 2 : 32;
    if (request.opcode == OP_SCALAR_GET) return {STATUS_OK, {}, wordBytes(scalar)};
    const uint32_t member = wordAt(request.index, 0);
    auto row = daemon.rows.find(member);
    if (request.opcode == OP_GROUP_SET) {
        const uint32_t action = wordAt(request.value, 0);
        if (action == ROW_ACTIVATE && member == daemon.refused) return {STATUS_GROUP_FULL, {}, {}};
        if (wordAt(request.index, 1) != 5) return {};
        daemon.rows[member] = action == ROW_ACTIVATE ? ROW_STATE_PROGRAMMED : ROW_STATE_CREATED;
        if (action == ROW_DESTROY) daemon.rows.erase(member);
        return {};
    }
    if (!change.empty()) return {};
    if (request.opcode == OP_GROUP_GET_NEXT) {
        row = daemon.stuck ? row : daemon.rows.upper_bound(member);
    } else if (request.opcode == OP_GROUP_GET_FIRST) {
        if ((wordAt(request.index, 2) & MATCH_IF_UNIT) == 0) row = daemon.rows.begin();
    } else if (request.opcode != OP_GROUP_GET) {
        row = daemon.rows.end();
    }
    if (row == daemon.rows.end()) return {STATUS_NOT_FOUND, {}, {}};
    if (request.opcode == OP_GROUP_GET) return {STATUS_OK, {}, wordBytes(row->second)};
    return {STATUS_OK, wordBytes(row->first) + wordBytes(5) + request.index.substr(8), {}};
}

// A session with that daemon and a board of four interfaces, whose plane has nothing to sweep.
struct Ctl : testing::Test {
    FakeDaemon daemon;
    Session session;

    void SetUp() override {
        session.exchange = [this](const Request& request) {
            const bool gone = daemon.answers-- == 0;
            return gone ? std::nullopt : std::optional(answer(daemon, request));
        };
        session.board = [this](const std::string& request, bool, const LineSink& sink) -> LineAnswer {
            const std::string spanning = "plane spanning";
            const bool sets = request.starts_with(spanning + " ");
            if (sets) daemon.changes.push_back("spans " + request.substr(spanning.size() + 1));
            if (sets && daemon.changes.back() == daemon.refusedChange) return {LineResult::refused, "no"};
            if (!request.starts_with(spanning)) daemon.board.push_back(request);
            const auto lines = daemon.boardLines.find(request);
            if (lines != daemon.boardLines.end()) {
                for (const std::string& line : lines->second) {
                    if (!sink(line)) break;
                }
            } else {
                sink(request == "plane show" ? "plane name=sim state=ready" : "0");
            }
            return {};
        };
        session.interfacesAsked = true;
        session.interfaces = {{.number = 1, .name = "ge1/1"},
                              {.number = 2, .name = "ge1/2"},
                              {.number = 3, .name = "ge1/3"},
                              {.number = 101, .name = "lag1"}};
    }

    // Runs a command line in this session.
    Exit run(const std::string& text) {
        const CommandLine line = parseCommandLine(splitWords(text));
        const FoundCommand found = findCommand(commandTable(), line.words);
        Invocation invocation = {
            .object = found.command->object, .verb = found.command->verb, .options = line.options};
        invocation.arguments.assign(line.words.begin() + static_cast<std::ptrdiff_t>(found.named),
                                    line.words.end());
        session.json = line.json;
        try {
            return found.command->run(session, invocation);
        } catch (const CommandEnds& end) {
            return tellEnd(end);
        }
    }
};
