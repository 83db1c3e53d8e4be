#include "ctl/commands/plane_commands.h"

#include <fmt/format.h>

#include <map>
#include <set>

#include "common/text.h"
#include "lib/answers/plane_answer.h"
#include "lib/link/interfaces.h"
#include "lib/text/listing.h"

namespace {

constexpr char PLANE_DETAILS[] =
    "  held       in force, as it was asked for\n"
    "  left over  in force since before the daemon started, and not asked for since\n"
    "  MISSING    asked for, but not in force\n"
    "\n"
    "  A two-way isolation has a line for each direction. PON isolation has one line for all VLANs in\n"
    "  which it is not off, and one for each port that it holds. A span has a line for each member of a\n"
    "  group that spans machines. Packets and bytes count what was dropped. The exit status is 1 when\n"
    "  something is missing or the plane is not ready.";

void printState(const PlaneReport& report) {
    const Tone tone = report.state == PLANE_READY ? Tone::good : Tone::bad;
    const std::string healed = report.healed == 0   ? ""
                               : report.healed == 1 ? ", healed once"
                                                    : fmt::format(", healed {} times", report.healed);
    printLine("plane " + safeText(report.name) + ": " + toned(tone, safeText(report.state)) + healed);
    for (const std::string& note : report.notes) {
        printLine("note: " + toned(Tone::warning, safeText(note)));
    }
    for (const SpanPort& span : report.spans) {
        const bool carries = span.state == SPAN_CARRIES;
        printLine("span " + safeText(span.device) + ": " +
                  toned(carries ? Tone::good : Tone::bad, safeText(span.state)) +
                  (carries ? " groups " + spanningText(report.spanning)
                           : ", no groups are carried; what members of groups send to it is dropped"));
    }
}

// What members of groups on other machines have sent in vain.
void printRemote(const PlaneReport& report) {
    std::map<uint32_t, uint64_t> packets;
    for (const PlaneEntry& entry : report.entries) {
        if (entry.kind == PlaneEntryKind::span) packets[entry.group] += entry.packets.value_or(0);
    }
    std::vector<std::string> counts;
    for (const auto& [group, count] : packets) counts.push_back(fmt::format("{} of group {}", count, group));
    if (!counts.empty()) printLine("packets dropped from other machines: " + joinWords(counts, ", "));
}

// Who is still behind a closed door, and why.
void printDoors(const PlaneReport& report) {
    if (report.doorPackets.value_or(0) != 0) {
        printLine(fmt::format("closed doors have dropped {} packets", *report.doorPackets));
    }
    if (report.doors.empty()) return;
    std::vector<std::string> names;
    for (const std::string& door : report.doors) names.push_back(safeText(door));
    printLine("behind closed doors, since nothing has opened them since they came: " +
              toned(Tone::warning, joinWords(names, ", ")));
    printLine("`portisolatectl plane open` opens them, and so does an apply");
}

void printTotals(const PlaneReport& report) {
    std::vector<std::string> counts;
    for (const PlaneEntryState state : PLANE_ENTRY_STATES) {
        const size_t entries = countEntries(report, state);
        const PlaneWord word = planeStateWord(state);
        if (entries != 0) counts.push_back(toned(word.tone, fmt::format("{} {}", entries, word.text)));
    }
    uint64_t packets = 0;
    bool counted = false;
    for (const PlaneEntry& entry : report.entries) {
        packets += entry.packets.value_or(0);
        counted = counted || entry.packets;
    }
    printLine((counts.empty() ? "no entries" : joinWords(counts, ", ")) +
              (counted ? fmt::format("; {} packets dropped", packets) : ""));
    const bool damaged = report.state == PLANE_GONE || report.state == PLANE_CHANGED;
    if (damaged || countEntries(report, PlaneEntryState::missing) != 0) {
        printLine("`portisolatectl plane restore` puts back what is missing");
    }
    if (countEntries(report, PlaneEntryState::leftOver) != 0) {
        printLine(
            "`portisolatectl plane sweep` removes what is left over, once all that is wanted is"
            " configured again");
    }
}

// What `sweep` or `restore` has done.
Exit printChange(const Session& session, uint64_t changed, const char* key, const char* nothing,
                 const std::string& something) {
    if (session.json) {
        printLine(jsonText({{key, changed}}));
    } else {
        printLine(changed == 0 ? nothing : something);
    }
    return Exit::done;
}

Exit runShow(Session& session, const Invocation&) {
    return printPlane(readWholePlane(session), session.json);
}

Exit runSweep(Session& session, const Invocation&) {
    const uint64_t removed = sweepPlane(session);
    return printChange(session, removed, "removed", "nothing was left over",
                       "removed " + elementsText(removed) + " that an earlier run left over");
}

Exit runRestore(Session& session, const Invocation&) {
    const uint64_t restored = restorePlane(session);
    return printChange(session, restored, "restored", "nothing was missing",
                       "put back " + (restored == 1 ? "one part or element"
                                                    : std::to_string(restored) + " parts and elements"));
}

constexpr char DOORS_DETAILS[] =
    "  Ports whose names match a `closed` line of board.conf do not reach one another until their doors are\n"
    "  opened, each time that they come or get another name. `apply` opens the doors of all ports once all\n"
    "  that it was given stands. What is configured for a port holds behind an open door, too.";

// The doors of the interfaces that were named, or of all.
Exit changeDoors(Session& session, const Invocation& invocation, bool open) {
    const bool all = fieldValue(invocation.options, "--all") != nullptr;
    if (all != invocation.arguments.empty()) throw misuse("name interfaces, or give --all");
    std::set<uint32_t> numbers;
    Exit exit = Exit::done;
    for (const uint32_t number : resolveInterfaces(session, invocation.arguments)) {
        const BoardInterface* interface = findInterface(session, number);
        if (interface != nullptr && interface->present) {
            numbers.insert(number);
            continue;
        }
        complain(interfaceName(session, number) + " is not there; it comes with a closed door");
        exit = Exit::refused;
    }
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (all && interface.present) numbers.insert(interface.number);
    }
    const uint64_t changed = setDoors(session, numbers, open);
    const std::string done = open ? "opened " : "closed ";
    printChange(session, changed, open ? "opened" : "closed",
                open ? "no door was closed" : "no door was open",
                changed == 1 ? done + "one door" : fmt::format("{}{} doors", done, changed));
    return exit;
}

Exit runOpen(Session& session, const Invocation& invocation) {
    return changeDoors(session, invocation, true);
}

Exit runClose(Session& session, const Invocation& invocation) {
    return changeDoors(session, invocation, false);
}

constexpr Command PLANE_COMMANDS[] = {
    {.object = "plane",
     .verb = "show",
     .help = "compare what the forwarding plane holds with what it was asked for",
     .example = "plane show",
     .run = runShow,
     .details = PLANE_DETAILS,
     .json = "{plane, state, heal, healed, notes, shortfalls, spans, spanning, doors, doorPackets, entries}: "
             "state is ready, "
             "gone, changed or "
             "failed; heal is own, watch or off, or null for a plane that nobody else can change; healed "
             "counts; spans are {port, state}, state carries, plain or absent, and spanning the groups that "
             "they carry; entries are {kind, from, to, vlan, state, packets, bytes, group}, kind two-way, "
             "one-way, pon, pon-off or span, state held, left-over or missing; null stands for no port, all "
             "VLANs, nothing counted, no group"},
    {.object = "plane",
     .verb = "sweep",
     .help = "remove what an earlier run of the daemon left over",
     .example = "plane sweep",
     .run = runSweep,
     .json = "{removed}"},
    {.object = "plane",
     .verb = "restore",
     .help = "put back what is missing",
     .example = "plane restore",
     .run = runRestore,
     .json = "{restored}"},
    {.object = "plane",
     .verb = "open",
     .signature = "[INTERFACE...] [--all]",
     .help = "open the doors of ports that began closed",
     .example = "plane open --all",
     .run = runOpen,
     .details = DOORS_DETAILS,
     .json = "{opened}"},
    {.object = "plane",
     .verb = "close",
     .signature = "[INTERFACE...] [--all]",
     .help = "close the doors of ports again",
     .example = "plane close --all",
     .run = runClose,
     .details = DOORS_DETAILS,
     .json = "{closed}"},
};

}  // namespace

Exit printPlane(const PlaneReport& report, bool json) {
    if (json) {
        printLine(jsonFields(planeAnswer(report), "entries"));
    } else {
        printState(report);
        if (!report.entries.empty()) printListing(entryListing(report), false);
        printTotals(report);
        printRemote(report);
        printDoors(report);
        for (const std::string& one : report.shortfalls) printLine(toned(Tone::bad, safeText(one)));
    }
    return holdsAll(report) ? Exit::done : Exit::refused;
}

std::string elementsText(uint64_t elements) {
    return std::to_string(elements) + (elements == 1 ? " element" : " elements");
}

Commands planeCommands() {
    return PLANE_COMMANDS;
}
