#include "host/planes/plane_entries.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

void listTwoWay(PortPair pair, const PlaneIsolation& entry, std::string& text) {
    text += fmt::format("bi {} {} vlan={} group={} serial={}/{}\n", sourceOf(pair), targetOf(pair), entry.vid,
                        entry.group, entry.srcSerial, entry.dstSerial);
}

}  // namespace

std::vector<PortPair> sortedPairs(const PlaneEntries& entries) {
    std::vector<PortPair> pairs;
    pairs.reserve(entries.size());
    for (const auto& [pair, isolation] : entries) pairs.push_back(pair);
    std::sort(pairs.begin(), pairs.end());
    return pairs;
}

void listEntries(const PlaneEntries& twoWay, const PlaneEntries& oneWay, std::string& text) {
    for (const PortPair pair : sortedPairs(twoWay)) listTwoWay(pair, twoWay.at(pair), text);
    for (const PortPair pair : sortedPairs(oneWay)) {
        const PlaneIsolation& entry = oneWay.at(pair);
        text += fmt::format("uni {} {} serial={}/{}\n", sourceOf(pair), targetOf(pair), entry.srcSerial,
                            entry.dstSerial);
    }
}

void listWithinVlans(const PlaneEntries& twoWay, std::string& text) {
    std::vector<PortPair> within;
    for (const auto& [pair, entry] : twoWay) {
        const auto reverse = twoWay.find(pairOf(targetOf(pair), sourceOf(pair)));
        if (entry.vid != 0 || (reverse != twoWay.end() && reverse->second.vid != 0)) within.push_back(pair);
    }
    std::sort(within.begin(), within.end());
    for (const PortPair pair : within) listTwoWay(pair, twoWay.at(pair), text);
}

PlaneEntries::const_iterator findTwoWay(const PlaneEntries& entries, uint32_t src, uint32_t dst) {
    const auto exact = entries.find(pairOf(src, dst));
    return exact != entries.end() ? exact : entries.find(pairOf(dst, src));
}

std::string twoWayText(const PlaneIsolation& isolation) {
    const std::string scope = isolation.vid == 0 ? "all traffic" : fmt::format("VLAN {}", isolation.vid);
    return fmt::format("two-way isolation, group {}, {}", isolation.group, scope);
}
