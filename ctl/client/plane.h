// What the forwarding plane really holds beside what the daemon asked of it: shown as a table, swept of what
// an earlier run of the daemon left over, restored where something is missing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/client/session.h"

enum class PlaneEntryState : uint8_t { held, leftOver, missing };

struct PlaneEntry {
    std::string kind;      // as the board calls it
    std::string from, to;  // empty: of no particular port
    uint32_t vlan = 0;     // 0: all
    PlaneEntryState state = PlaneEntryState::held;
    std::optional<uint64_t> packets, bytes;  // dropped, where the plane counts
};

struct PlaneReport {
    std::string name;
    std::string state;  // ready, or what else the board says
    std::vector<std::string> notes;
    std::vector<PlaneEntry> entries;
};

// Reads the board's answer. False for one that does not keep to the form.
bool parsePlane(Session& session, const std::vector<std::string>& lines, PlaneReport& report);
// Prints a report. Exit::refused when the plane does not hold all that it was asked for.
Exit tellPlane(const PlaneReport& report, bool json);

// Removes what is left over; Exit::done with the number of elements, else the failure has been told.
Exit sweepPlane(Session& session, uint64_t& removed);
// How many entries are left over.
Exit countLeftOver(Session& session, size_t& entries);
// "2 elements"
std::string elementsText(uint64_t elements);

Exit runPlaneShow(Session& session, const Invocation& invocation);
Exit runPlaneSweep(Session& session, const Invocation& invocation);
Exit runPlaneRestore(Session& session, const Invocation& invocation);
