// What the forwarding plane really holds beside what the daemon asked of it, as the board reports it.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/spanning_groups.h"
#include "lib/link/session.h"

// span: the port drops what members of a group on other machines send.
enum class PlaneEntryKind : uint8_t { twoWay, oneWay, pon, ponOff, span };
enum class PlaneEntryState : uint8_t { held, leftOver, missing };

struct PlaneEntry {
    PlaneEntryKind kind = PlaneEntryKind::twoWay;
    std::string from, to;  // empty: of no particular port
    uint32_t vlan = 0;     // 0: all
    uint32_t group = 0;    // of span
    PlaneEntryState state = PlaneEntryState::held;
    std::optional<uint64_t> packets, bytes;  // dropped, where the plane counts
};

inline constexpr char PLANE_READY[] = "ready";
inline constexpr char PLANE_GONE[] = "gone";        // nothing is in force
inline constexpr char PLANE_CHANGED[] = "changed";  // by somebody else

// A port of the bridge that leads to other machines.
struct SpanPort {
    std::string device;
    std::string state;  // carries, or why it does not carry groups: plain, absent
};
inline constexpr char SPAN_CARRIES[] = "carries";

struct PlaneReport {
    std::string name;
    std::string state;  // one of the above, or what else the board says
    std::string heal;   // own, watch or off; empty: nobody else can change the plane
    uint64_t healed = 0;
    std::vector<std::string> doors;       // ports behind closed doors
    std::optional<uint64_t> doorPackets;  // held by them, where ports can have doors
    std::vector<std::string> notes;
    std::vector<SpanPort> spans;
    SpanningGroups spanning = 0;  // groups that mean the same on other machines
    std::vector<PlaneEntry> entries;
    // Sentences about what is isolated in fewer VLANs than was asked for; for who compares it with the tables
    // to fill.
    std::vector<std::string> shortfalls{};
};

// Reads the board's answer; the session gives the ports their names. Nothing where the answer does not keep
// to the form.
std::optional<PlaneReport> parsePlane(Session& session, const std::vector<std::string>& lines);

// Null for a port that does not lead to other machines.
const SpanPort* findSpan(const PlaneReport& report, const std::string& device);
bool hasShutDoor(const PlaneReport& report, const std::string& name);
// The groups whose members on other machines do not reach the port; within a VLAN, or whatever the VLAN (0).
SpanningGroups carriedGroups(const PlaneReport& report, const std::string& device, uint32_t vlan);

size_t countEntries(const PlaneReport& report, PlaneEntryState state);
// Whether the plane is ready and nothing is missing. What is left over isolates too much, not too little.
bool holdsAll(const PlaneReport& report);

// What follows asks the board and ends the command when it cannot be reached, refuses, or answers what cannot
// be read.
PlaneReport readPlane(Session& session);
// What the daemon has asked for between ports that are isolated within a VLAN, two-way, by the interfaces'
// names. The daemon answers from its records; for the whole report it reads the kernel's table, which takes
// longer than to fill it.
std::vector<PlaneEntry> readVlanEntries(Session& session);
// Removes what is left over, and puts back what is missing. Answer the number of elements.
uint64_t sweepPlane(Session& session);
uint64_t restorePlane(Session& session);
// Opens the doors of the interfaces that the board listed to this session, but for those of the numbers in
// `except`: of one that has come since, or has got another name or alias, nothing is known. Closes those of
// the given numbers. Answer how many doors were not so before.
uint64_t openDoors(Session& session, const std::set<uint32_t>& except);
uint64_t setDoors(Session& session, const std::set<uint32_t>& numbers, bool open);
