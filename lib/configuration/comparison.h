// What two boards hold that should hold the same: their configurations, and the settings that decide what
// each carries out.
#pragma once

#include <string>
#include <vector>

#include "lib/configuration/configuration.h"

// A scalar that is not the same on both.
struct SettingDifference {
    uint32_t scalar = 0;
    std::string here, there;
};

struct Comparison {
    Configuration here, there;
    std::vector<SettingDifference> settings;
};

// Whether the two are configured alike; the settings are not looked at, since no request can change them.
bool sameConfiguration(const Comparison& comparison);
bool sameBoards(const Comparison& comparison);

// Reads both boards. A request on its way from one to the other is no difference, so what differs is read
// again until it stays the same. Ends the command when a board does not answer or refuses a look.
Comparison compareBoards(Session& here, Session& there);
