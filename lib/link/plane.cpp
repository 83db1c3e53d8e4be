#include "lib/link/plane.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "common/fields.h"
#include "common/text.h"
#include "lib/link/interfaces.h"
#include "lib/link/spanning.h"
#include "lib/text/args.h"

namespace {

// The board's words, in the order of PlaneEntryKind and PlaneEntryState.
constexpr std::string_view KINDS[] = {"bi", "uni", "pon", "pon-off", "span"};
constexpr std::string_view STATES[] = {"held", "left-over", "missing"};

// The one plane that names ports as the kernel does, where a name may look like a number.
constexpr char LINUX_PLANE[] = "linux";

// The place of a word among known ones. False when it is none of them.
template <typename Value, size_t COUNT>
bool parseWord(const std::string_view (&words)[COUNT], const std::string& text, Value& value) {
    const auto* const found = std::find(std::begin(words), std::end(words), text);
    value = static_cast<Value>(found - std::begin(words));
    return found != std::end(words);
}

bool parseCount(const std::string& text, std::optional<uint64_t>& count) {
    if (text == "-") return true;
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    count = value;
    return error == std::errc() && end == text.data() + text.size();
}

// A port as the plane calls it, as an operator knows it.
std::string portName(Session& session, const std::string& plane, const std::string& port) {
    uint32_t number = 0;
    if (port == "-") return {};
    return plane != LINUX_PLANE && parseGivenNumber(port, number) ? interfaceName(session, number) : port;
}

std::string fieldText(const std::vector<Field>& fields, const char* name) {
    const std::string* value = fieldValue(fields, name);
    return value != nullptr ? *value : std::string();
}

bool parseEntry(Session& session, const std::string& plane, const std::vector<Field>& fields,
                PlaneEntry& entry) {
    const auto field = [&fields](const char* name) { return fieldText(fields, name); };
    const std::string group = field("group");
    entry.from = portName(session, plane, field("src"));
    entry.to = portName(session, plane, field("dst"));
    const std::string vlan = field("vlan");
    return parseWord(KINDS, field("kind"), entry.kind) &&
           (vlan == "-" || parseGivenNumber(vlan, entry.vlan)) &&
           (entry.kind == PlaneEntryKind::span) == parseGivenNumber(group, entry.group) &&
           entry.group <= SPANNING_GROUP_MAX && (entry.kind != PlaneEntryKind::span || entry.group != 0) &&
           parseWord(STATES, field("state"), entry.state) && parseCount(field("packets"), entry.packets) &&
           parseCount(field("bytes"), entry.bytes);
}

bool parseHeading(const std::vector<Field>& fields, PlaneReport& report) {
    report.name = fieldText(fields, "name");
    report.state = fieldText(fields, "state");
    report.heal = fieldText(fields, "heal");
    const std::string* healed = fieldValue(fields, "healed");
    std::optional<uint64_t> times;
    if (healed != nullptr && !parseCount(*healed, times)) return false;
    report.healed = times.value_or(0);
    return true;
}

// A line of the board's answer. The heading comes first.
bool parseLine(Session& session, const std::string& line, PlaneReport& report) {
    constexpr std::string_view NOTE = "note ";
    const std::vector<std::string> words = splitWords(line);
    const std::string kind = words.empty() ? "" : words[0];
    std::vector<Field> fields;
    for (const std::string& word : words) fields.push_back(splitField(word));
    if (line.starts_with(NOTE)) {
        report.notes.push_back(line.substr(NOTE.size()));
        return true;
    }
    if (kind == "plane") return parseHeading(fields, report);
    if (kind == SPANNING_WORD) return parseSpanning(words, report.spanning);
    if (kind == "door") return !report.doors.emplace_back(fieldText(fields, "port")).empty();
    if (kind == "doors") return parseCount(fieldText(fields, "packets"), report.doorPackets);
    if (kind == "span") {
        report.spans.push_back({fieldText(fields, "device"), fieldText(fields, "state")});
        return !report.spans.back().device.empty() && !report.spans.back().state.empty();
    }
    return kind == "entry" && parseEntry(session, report.name, fields, report.entries.emplace_back());
}

std::vector<std::string> askPlane(Session& session, const std::string& verb) {
    const std::string request = "plane " + verb;
    return askBoard(session, request, request);
}

uint64_t changePlane(Session& session, const std::string& verb) {
    const std::vector<std::string> lines = askPlane(session, verb);
    std::optional<uint64_t> count;
    if (lines.size() != 1 || !parseCount(lines[0], count) || !count) {
        throw brokenProtocol("no single number in answer to plane " + verb);
    }
    return *count;
}

// As the board takes ports.
uint64_t changeDoors(Session& session, const std::vector<std::string>& ports, bool open) {
    constexpr size_t AT_ONCE = 100;  // ports in a line
    uint64_t changed = 0;
    std::string verb;
    size_t count = 0;
    for (const std::string& port : ports) {
        if (verb.empty()) verb = open ? "open" : "close";
        verb += " " + port;
        if (++count % AT_ONCE != 0 && count != ports.size()) continue;
        changed += changePlane(session, verb);
        verb.clear();
    }
    return changed;
}

}  // namespace

std::optional<PlaneReport> parsePlane(Session& session, const std::vector<std::string>& lines) {
    PlaneReport report;
    for (const std::string& line : lines) {
        if (!parseLine(session, line, report)) return std::nullopt;
    }
    if (report.name.empty() || report.state.empty()) return std::nullopt;
    return report;
}

const SpanPort* findSpan(const PlaneReport& report, const std::string& device) {
    const auto found = std::find_if(report.spans.begin(), report.spans.end(),
                                    [&](const SpanPort& span) { return span.device == device; });
    return found != report.spans.end() ? &*found : nullptr;
}

bool hasShutDoor(const PlaneReport& report, const std::string& name) {
    return std::find(report.doors.begin(), report.doors.end(), name) != report.doors.end();
}

SpanningGroups carriedGroups(const PlaneReport& report, const std::string& device, uint32_t vlan) {
    SpanningGroups groups = 0;
    for (const PlaneEntry& entry : report.entries) {
        const bool within = vlan == 0 || entry.vlan == 0 || entry.vlan == vlan;
        const bool own = entry.kind == PlaneEntryKind::span && entry.to == device;
        if (own && within && entry.state != PlaneEntryState::missing) groups |= spanningBit(entry.group);
    }
    return groups;
}

size_t countEntries(const PlaneReport& report, PlaneEntryState state) {
    return static_cast<size_t>(std::count_if(report.entries.begin(), report.entries.end(),
                                             [=](const PlaneEntry& entry) { return entry.state == state; }));
}

bool holdsAll(const PlaneReport& report) {
    return report.state == PLANE_READY && countEntries(report, PlaneEntryState::missing) == 0;
}

PlaneReport readPlane(Session& session) {
    const std::optional<PlaneReport> report = parsePlane(session, askPlane(session, "show"));
    if (!report) throw brokenProtocol("what the forwarding plane holds");
    return *report;
}

std::vector<PlaneEntry> readVlanEntries(Session& session) {
    std::vector<PlaneEntry> entries;
    for (const std::string& line : askBoard(session, "hardware vlans")) {
        const std::vector<std::string> words = splitWords(line);
        PlaneEntry& entry = entries.emplace_back();
        uint32_t ends[2] = {};
        const bool whole = words.size() > 3 && words[0] == KINDS[0] && parseGivenNumber(words[1], ends[0]) &&
                           parseGivenNumber(words[2], ends[1]);
        const Field vlan = whole ? splitField(words[3]) : Field{};
        if (vlan.name != "vlan" || !parseGivenNumber(vlan.value, entry.vlan)) {
            throw brokenProtocol("what is isolated within VLANs");
        }
        entry.from = interfaceName(session, ends[0]);
        entry.to = interfaceName(session, ends[1]);
    }
    return entries;
}

uint64_t sweepPlane(Session& session) {
    return changePlane(session, "sweep");
}

uint64_t restorePlane(Session& session) {
    return changePlane(session, "restore");
}

uint64_t setDoors(Session& session, const std::set<uint32_t>& numbers, bool open) {
    std::vector<std::string> ports;
    for (const uint32_t number : numbers) ports.push_back(std::to_string(number));
    return changeDoors(session, ports, open);
}

uint64_t openDoors(Session& session, const std::set<uint32_t>& except) {
    std::vector<std::string> ports;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (!interface.present || except.contains(interface.number)) continue;
        ports.push_back(std::to_string(interface.number) + "=" + std::to_string(interface.life));
    }
    return changeDoors(session, ports, true);
}
