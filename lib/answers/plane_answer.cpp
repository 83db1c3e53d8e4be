#include "lib/answers/plane_answer.h"

#include <fmt/format.h>

#include "lib/configuration/shortfall.h"
#include "lib/link/interfaces.h"

namespace {

// In the order of PlaneEntryKind and PlaneEntryState.
constexpr PlaneWord KINDS[] = {{"two-way", "two-way"},
                               {"one-way", "one-way"},
                               {"PON isolation", "pon"},
                               {"PON off", "pon-off"},
                               {"span", "span"}};
constexpr PlaneWord STATES[] = {
    {"held", "held"}, {"left over", "left-over", Tone::warning}, {"MISSING", "missing", Tone::bad}};

Cell wordCell(const PlaneWord& wording) {
    return {wording.text, wording.key, wording.tone};
}

Cell countCell(const std::optional<uint64_t>& count) {
    return count ? numberCell(*count) : noCell();
}

Cell portCell(const std::string& port) {
    return port.empty() ? noCell() : textCell(port);
}

// Where what an entry drops comes from.
Cell sourceCell(const PlaneEntry& entry) {
    if (entry.kind != PlaneEntryKind::span) return portCell(entry.from);
    return {fmt::format("other machines, group {}", entry.group), nullptr};
}

}  // namespace

PlaneWord planeStateWord(PlaneEntryState state) {
    return STATES[static_cast<size_t>(state)];
}

PlaneWord planeKindWord(PlaneEntryKind kind) {
    return KINDS[static_cast<size_t>(kind)];
}

PlaneReport readWholePlane(Session& session) {
    PlaneReport report = readPlane(session);
    for (const Shortfall& one :
         findShortfalls(boardInterfaces(session), readRunning(session), report.entries)) {
        report.shortfalls.push_back(shortfallText(one));
    }
    return report;
}

Listing entryListing(const PlaneReport& report) {
    Listing listing{{{"KIND", "kind"},
                     {"FROM", "from"},
                     {"TO", "to"},
                     {"VLAN", "vlan"},
                     {"STATE", "state"},
                     {"PACKETS", "packets"},
                     {"BYTES", "bytes"},
                     {nullptr, "group"}},
                    {}};
    for (const PlaneEntry& entry : report.entries) {
        listing.rows.push_back({wordCell(planeKindWord(entry.kind)), sourceCell(entry), portCell(entry.to),
                                entry.vlan == 0 ? Cell{"all", nullptr} : numberCell(entry.vlan),
                                wordCell(planeStateWord(entry.state)), countCell(entry.packets),
                                countCell(entry.bytes),
                                entry.group == 0 ? noCell() : numberCell(entry.group)});
    }
    return listing;
}

Json planeAnswer(const PlaneReport& report) {
    Json spans = Json::array();
    for (const SpanPort& span : report.spans) spans.push_back({{"port", span.device}, {"state", span.state}});
    return {{"plane", report.name},
            {"state", report.state},
            {"heal", report.heal.empty() ? Json() : Json(report.heal)},
            {"healed", report.healed},
            {"notes", report.notes},
            {"shortfalls", report.shortfalls},
            {"spans", spans},
            {"spanning", spanningNumbers(report.spanning)},
            {"doors", report.doors},
            {"doorPackets", report.doorPackets ? Json(*report.doorPackets) : Json()},
            {"entries", listingJson(entryListing(report))}};
}
