// A configuration as a whole: what the daemon runs with, or what a file wants. Both are read into the same
// record, so that they can be compared, and both are written in the words of common/config_file.h.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/config_file.h"
#include "lib/link/rows.h"

struct ConfigRow {
    ConfigKind kind = ConfigKind::group;  // of a family of rows; their order is the order of adding
    RowScope scope;
    uint32_t member = 0;
    auto operator<=>(const ConfigRow&) const = default;
};

struct Configuration {
    std::optional<uint32_t> mode;    // nothing: as it is
    std::map<ConfigRow, bool> rows;  // true: active, false: created only
    std::set<uint32_t> ponOff;
    // Groups that mean the same on other machines. Nothing: no port carries groups there, or, of a file for
    // such a board, no line speaks of it.
    std::optional<SpanningGroups> spanning;
};

const RowFamily& rowFamily(ConfigKind kind);

// The daemon's configuration. Ends the command when the daemon does not answer or refuses a look.
Configuration readRunning(Session& session);

// The lines that state a configuration. Reading and resolving them gives the same configuration.
std::vector<std::string> configLines(Session& session, const Configuration& configuration);

// Whether groups of both span machines, and not the same.
bool spanDifferently(const Configuration& left, const Configuration& right);

// What one configuration has and another has not, as a configuration of its own.
Configuration without(const Configuration& whole, const Configuration& other);
