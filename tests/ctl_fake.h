// What the tests of the operator's command share: a session whose daemon is a small table of rows, and a
// board.
#pragma once

#include <gtest/gtest.h>

#include <map>

#include "ctl/client/interfaces.h"
#include "ctl/text/output.h"
#include "wire/operations.h"
#include "wire/records.h"
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

// A daemon of one group table, which refuses to activate one member and to answer at all after some requests.
struct FakeDaemon {
    std::map<uint32_t, uint32_t> rows;  // of group 5: status by member
    uint32_t refused = 0;
    uint32_t answers = UINT32_MAX;
    bool stuck = false;  // get next does not advance
};

inline Reply answer(FakeDaemon& daemon, const Request& request) {
    const uint32_t member = wordAt(request.index, 0);
    auto row = daemon.rows.find(member);
    if (request.opcode == OP_GROUP_SET) {
        const uint32_t action = wordAt(request.value, 0);
        if (action == ROW_ACTIVATE && member == daemon.refused) return {STATUS_GROUP_FULL, {}, {}};
        daemon.rows[member] = action == ROW_ACTIVATE ? ROW_STATE_PROGRAMMED : ROW_STATE_CREATED;
        if (action == ROW_DESTROY) daemon.rows.erase(member);
        return {};
    }
    if (request.opcode == OP_GROUP_GET_NEXT) {
        row = daemon.stuck ? row : daemon.rows.upper_bound(member);
    } else if (request.opcode == OP_GROUP_GET_FIRST && (wordAt(request.index, 2) & MATCH_IF_UNIT) == 0) {
        row = daemon.rows.begin();
    }
    if (row == daemon.rows.end()) return {STATUS_NOT_FOUND, {}, {}};
    if (request.opcode == OP_GROUP_GET) return {STATUS_OK, {}, wordBytes(row->second)};
    return {STATUS_OK, wordBytes(row->first) + wordBytes(5) + request.index.substr(8), {}};
}

// A session with that daemon and a board of four interfaces.
struct Ctl : testing::Test {
    FakeDaemon daemon;
    Session session;

    void SetUp() override {
        session.exchange = [this](const Request& request) {
            const bool gone = daemon.answers-- == 0;
            return gone ? std::nullopt : std::optional(answer(daemon, request));
        };
        session.interfacesAsked = true;
        session.interfaces = {{.number = 1, .name = "ge1/1"},
                              {.number = 2, .name = "ge1/2"},
                              {.number = 3, .name = "ge1/3"},
                              {.number = 101, .name = "lag1"}};
    }
};
