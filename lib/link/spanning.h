// Which groups mean the same on other machines, where ports of the board carry them there.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/spanning_groups.h"
#include "lib/link/session.h"

struct Spanning {
    bool known = true;                       // false: the daemon is older than such groups
    std::optional<SpanningGroups> groups{};  // nothing: no port carries groups
};

// Of a line of the board that begins with this word. False when it is no such line.
inline constexpr char SPANNING_WORD[] = "spanning";
bool parseSpanning(const std::vector<std::string>& words, SpanningGroups& groups);

// Both end the command when the board cannot be reached.
Spanning readSpanning(Session& session);
// Why the board refuses, empty when it does not.
std::string sendSpanning(Session& session, SpanningGroups groups);
