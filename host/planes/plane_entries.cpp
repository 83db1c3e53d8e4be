#include "host/planes/plane_entries.h"

#include <algorithm>

#include "common/text.h"

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
        appendFormat(text, "bi %u %u vlan=%u group=%u serial=%u/%u\n", sourceOf(pair), targetOf(pair),
                     entry.vid, entry.group, entry.srcSerial, entry.dstSerial);
    }
    for (const PortPair pair : sortedPairs(oneWay)) {
        const PlaneIsolation& entry = oneWay.at(pair);
        appendFormat(text, "uni %u %u serial=%u/%u\n", sourceOf(pair), targetOf(pair), entry.srcSerial,
                     entry.dstSerial);
    }
}

PlaneEntries::const_iterator findTwoWay(const PlaneEntries& entries, uint32_t src, uint32_t dst) {
    const auto exact = entries.find(pairOf(src, dst));
    return exact != entries.end() ? exact : entries.find(pairOf(dst, src));
}

void describeTwoWay(const PlaneIsolation& isolation, std::string& text) {
    appendFormat(text, "two-way isolation, group %u, ", isolation.group);
    if (isolation.vid == 0)
        text += "all traffic";
    else
        appendFormat(text, "VLAN %u", isolation.vid);
}
