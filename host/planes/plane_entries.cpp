#include "host/planes/plane_entries.h"

#include <fmt/format.h>

#include <algorithm>

std::vector<PortPair> sortedPairs(const PlaneEntries& entries) {
    std::vector<PortPair> pairs;
    pairs.reserve(entries.size());
    for (const auto& [pair, isolation] : entries) pairs.push_back(pair);
    std::sort(pairs.begin(), pairs.end());
    return pairs;
}

void listEntries(const PlaneEntries& twoWay, const PlaneEntries& oneWay, std::string& text) {
    for (const PortPair pair : sortedPairs(twoWay)) {
        const PlaneIsolation& entry = twoWay.at(pair);
        text += fmt::format("bi {} {} vlan={} group={} serial={}/{}\n", sourceOf(pair), targetOf(pair),
                            entry.vid, entry.group, entry.srcSerial, entry.dstSerial);
    }
    for (const PortPair pair : sortedPairs(oneWay)) {
        const PlaneIsolation& entry = oneWay.at(pair);
        text += fmt::format("uni {} {} serial={}/{}\n", sourceOf(pair), targetOf(pair), entry.srcSerial,
                            entry.dstSerial);
    }
}

PlaneEntries::const_iterator findTwoWay(const PlaneEntries& entries, uint32_t src, uint32_t dst) {
    const auto exact = entries.find(pairOf(src, dst));
    return exact != entries.end() ? exact : entries.find(pairOf(dst, src));
}

std::string twoWayText(const PlaneIsolation& isolation) {
    const std::string scope = isolation.vid == 0 ? "all traffic" : fmt::format("VLAN {}", isolation.vid);
    return fmt::format("two-way isolation, group {}, {}", isolation.group, scope);
}
