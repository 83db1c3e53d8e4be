#include "ctl/client/plane.h"

#include <algorithm>
#include <charconv>

#include "ctl/client/interfaces.h"
#include "ctl/text/output.h"
#include "wire/framing.h"

namespace {

struct PlaneKind {
    const char* word;  // the board's
    const char* text;
    const char* key;  // in JSON
};
constexpr PlaneKind KINDS[] = {{"bi", "two-way", "two-way"},
                               {"uni", "one-way", "one-way"},
                               {"pon", "PON isolation", "pon"},
                               {"pon-off", "PON off", "pon-off"}};

struct EntryStateText {
    const char* text;
    const char* key;  // the board's word, and in JSON
    Tone tone;
};
// In the order of PlaneEntryState.
constexpr EntryStateText STATES[] = {{"held", "held", Tone::plain},
                                     {"left over", "left-over", Tone::warning},
                                     {"MISSING", "missing", Tone::bad}};

constexpr char READY[] = "ready";
constexpr char GONE[] = "gone";
// The one plane that names ports as the kernel does, where a name may look like a number.
constexpr char LINUX_PLANE[] = "linux";

const PlaneKind* kindOf(const std::string& word) {
    const auto* found = std::find_if(std::begin(KINDS), std::end(KINDS),
                                     [&](const PlaneKind& kind) { return word == kind.word; });
    return found == std::end(KINDS) ? nullptr : found;
}

const EntryStateText& stateOf(const PlaneEntry& entry) {
    return STATES[static_cast<size_t>(entry.state)];
}

bool parseCount(const std::string& text, std::optional<uint64_t>& count) {
    if (text == "-") {
        return true;
    }
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    count = value;
    return error == std::errc() && end == text.data() + text.size();
}

bool parseState(const std::string& text, PlaneEntryState& state) {
    for (size_t at = 0; at < std::size(STATES); ++at) {
        if (text == STATES[at].key) {
            state = static_cast<PlaneEntryState>(at);
            return true;
        }
    }
    return false;
}

// A port as the plane calls it, as an operator knows it.
std::string portName(Session& session, const std::string& plane, const std::string& port) {
    uint32_t number = 0;
    if (port == "-") {
        return {};
    }
    return plane != LINUX_PLANE && parseNumber(port, number) ? interfaceName(session, number) : port;
}

// The words `KEY=VALUE` behind the first one.
std::vector<GivenOption> fieldsOf(const std::vector<std::string>& words) {
    std::vector<GivenOption> fields;
    for (size_t at = 1; at < words.size(); ++at) {
        const size_t equals = std::min(words[at].find('='), words[at].size());
        fields.push_back(
            {words[at].substr(0, equals), words[at].substr(std::min(equals + 1, words[at].size()))});
    }
    return fields;
}

bool parseEntry(Session& session, const PlaneReport& report, const std::vector<GivenOption>& fields,
                PlaneEntry& entry) {
    const auto field = [&fields](const char* name) {
        const std::string* value = optionValue(fields, name);
        return value != nullptr ? *value : std::string();
    };
    entry.kind = field("kind");
    entry.from = portName(session, report.name, field("src"));
    entry.to = portName(session, report.name, field("dst"));
    const std::string vlan = field("vlan");
    return kindOf(entry.kind) != nullptr && (vlan == "-" || parseNumber(vlan, entry.vlan)) &&
           parseState(field("state"), entry.state) && parseCount(field("packets"), entry.packets) &&
           parseCount(field("bytes"), entry.bytes);
}

size_t entriesIn(const PlaneReport& report, PlaneEntryState state) {
    return static_cast<size_t>(std::count_if(report.entries.begin(), report.entries.end(),
                                             [=](const PlaneEntry& entry) { return entry.state == state; }));
}

bool holdsAll(const PlaneReport& report) {
    return report.state == READY && entriesIn(report, PlaneEntryState::missing) == 0;
}

Cell countCell(const std::optional<uint64_t>& count) {
    return count ? numberCell(*count) : noCell();
}

Cell portCell(const std::string& port) {
    return port.empty() ? noCell() : textCell(port);
}

Listing entryListing(const PlaneReport& report) {
    Listing listing{{{"KIND", "kind"},
                     {"FROM", "from"},
                     {"TO", "to"},
                     {"VLAN", "vlan"},
                     {"STATE", "state"},
                     {"PACKETS", "packets"},
                     {"BYTES", "bytes"}},
                    {}};
    for (const PlaneEntry& entry : report.entries) {
        const PlaneKind& kind = *kindOf(entry.kind);
        const EntryStateText& state = stateOf(entry);
        listing.rows.push_back({Cell{kind.text, jsonString(kind.key)}, portCell(entry.from),
                                portCell(entry.to),
                                entry.vlan == 0 ? Cell{"all", "null"} : numberCell(entry.vlan),
                                Cell{state.text, jsonString(state.key), state.tone}, countCell(entry.packets),
                                countCell(entry.bytes)});
    }
    return listing;
}

void printState(const PlaneReport& report) {
    const Tone tone = report.state == READY ? Tone::good : Tone::bad;
    printLine("plane " + safeText(report.name) + ": " + toned(tone, safeText(report.state)));
    for (const std::string& note : report.notes) {
        printLine("note: " + toned(Tone::warning, safeText(note)));
    }
}

void printTotals(const PlaneReport& report) {
    std::vector<std::string> counts;
    for (size_t at = 0; at < std::size(STATES); ++at) {
        const size_t entries = entriesIn(report, static_cast<PlaneEntryState>(at));
        if (entries != 0) {
            counts.push_back(toned(STATES[at].tone, formatText("%zu %s", entries, STATES[at].text)));
        }
    }
    uint64_t packets = 0;
    bool counted = false;
    for (const PlaneEntry& entry : report.entries) {
        packets += entry.packets.value_or(0);
        counted = counted || entry.packets;
    }
    printLine((counts.empty() ? "no entries" : joinWords(counts, ", ")) +
              (counted ? formatText("; %ju packets dropped", static_cast<uintmax_t>(packets)) : ""));
    if (report.state == GONE || entriesIn(report, PlaneEntryState::missing) != 0) {
        printLine("`portisolatectl plane restore` puts back what is missing");
    }
    if (entriesIn(report, PlaneEntryState::leftOver) != 0) {
        printLine(
            "`portisolatectl plane sweep` removes what is left over, once all that is wanted is"
            " configured again");
    }
}

void printJson(const PlaneReport& report) {
    printLine("{\"plane\":" + jsonString(report.name) + ",\n \"state\":" + jsonString(report.state) +
              ",\n \"notes\":" + listCell(report.notes).json +
              ",\n \"entries\":" + listingJson(entryListing(report)) + "}");
}

// `VERB` of the board's plane.
Exit askPlane(Session& session, const std::string& verb, std::vector<std::string>& lines) {
    const auto keep = [&lines](std::string_view line) {
        lines.emplace_back(line);
        return true;
    };
    std::string why;
    const LineResult result = boardRequest("plane " + verb, session.timeoutMs, false, keep, why);
    return lineExit(result, "plane " + verb, BOARD_SOCKET_PATH, why);
}

Exit readPlane(Session& session, PlaneReport& report) {
    std::vector<std::string> lines;
    const Exit exit = askPlane(session, "show", lines);
    if (exit != Exit::done) {
        return exit;
    }
    return parsePlane(session, lines, report) ? Exit::done
                                              : brokenProtocol("what the forwarding plane holds");
}

Exit changePlane(Session& session, const std::string& verb, uint64_t& changed) {
    std::vector<std::string> lines;
    const Exit exit = askPlane(session, verb, lines);
    if (exit != Exit::done) {
        return exit;
    }
    std::optional<uint64_t> count;
    if (lines.size() != 1 || !parseCount(lines[0], count) || !count) {
        return brokenProtocol("no single number in answer to plane " + verb);
    }
    changed = *count;
    return Exit::done;
}

// What `sweep` or `restore` has done.
void tellChange(const Session& session, uint64_t changed, const char* key, const char* nothing,
                const std::string& something) {
    if (session.json) {
        printLine(jsonObject({{nullptr, key}}, {numberCell(changed)}));
    } else {
        printLine(changed == 0 ? nothing : something);
    }
}

}  // namespace

bool parsePlane(Session& session, const std::vector<std::string>& lines, PlaneReport& report) {
    constexpr std::string_view NOTE = "note ";
    for (const std::string& line : lines) {
        const std::vector<std::string> words = splitWords(line);
        const std::vector<GivenOption> fields = fieldsOf(words);
        if (line.starts_with(NOTE)) {
            report.notes.push_back(line.substr(NOTE.size()));
        } else if (!words.empty() && words[0] == "plane") {
            const std::string* name = optionValue(fields, "name");
            const std::string* state = optionValue(fields, "state");
            report.name = name != nullptr ? *name : "";
            report.state = state != nullptr ? *state : "";
        } else if (words.empty() || words[0] != "entry" ||
                   !parseEntry(session, report, fields, report.entries.emplace_back())) {
            return false;
        }
    }
    return !report.name.empty() && !report.state.empty();
}

Exit tellPlane(const PlaneReport& report, bool json) {
    if (json) {
        printJson(report);
    } else {
        printState(report);
        if (!report.entries.empty()) {
            printListing(entryListing(report), false);
        }
        printTotals(report);
    }
    return holdsAll(report) ? Exit::done : Exit::refused;
}

Exit sweepPlane(Session& session, uint64_t& removed) {
    return changePlane(session, "sweep", removed);
}

Exit countLeftOver(Session& session, size_t& entries) {
    PlaneReport report;
    const Exit exit = readPlane(session, report);
    entries = entriesIn(report, PlaneEntryState::leftOver);
    return exit;
}

std::string elementsText(uint64_t elements) {
    return std::to_string(elements) + (elements == 1 ? " element" : " elements");
}

Exit runPlaneShow(Session& session, const Invocation&) {
    PlaneReport report;
    const Exit exit = readPlane(session, report);
    return exit == Exit::done ? tellPlane(report, session.json) : exit;
}

Exit runPlaneSweep(Session& session, const Invocation&) {
    uint64_t removed = 0;
    const Exit exit = sweepPlane(session, removed);
    if (exit == Exit::done) {
        tellChange(session, removed, "removed", "nothing was left over",
                   "removed " + elementsText(removed) + " that an earlier run left over");
    }
    return exit;
}

Exit runPlaneRestore(Session& session, const Invocation&) {
    uint64_t restored = 0;
    const Exit exit = changePlane(session, "restore", restored);
    if (exit == Exit::done) {
        tellChange(session, restored, "restored", "nothing was missing",
                   "put back " + elementsText(restored));
    }
    return exit;
}
