// Why two interfaces may or may not talk: what the daemon's tables say, what the forwarding plane says, and
// whether the two agree.
//
// The tables are judged port by port, as the hardware is programmed: a trunk stands for its member ports on
// the sides that the daemon's switches say, and for itself elsewhere.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ctl/client/session.h"
#include "ctl/configuration/configuration.h"

// What a judgement rests on.
struct Tables {
    std::vector<BoardInterface> interfaces;
    Configuration configuration;
    bool sourceTrunkToPort = true;
    bool targetTrunkToPort = true;
    // The groups that claim a pair of ports, the smaller number first.
    std::map<std::pair<uint32_t, uint32_t>, std::set<uint32_t>> claims;
};

struct Judgement {
    std::string verdict;               // forwards, blocked or partly, as the matrix says it
    std::vector<std::string> reasons;  // what blocks
    std::vector<std::string> notes;    // what comes close
    std::string claims;                // what may explain a difference, empty when nothing does
};

// Traffic between two different interfaces of the board; VLAN 0: of no particular VLAN.
Judgement judgeTables(const Tables& tables, uint32_t from, uint32_t to, uint32_t vlan);

Exit runWhy(Session& session, const Invocation& invocation);
