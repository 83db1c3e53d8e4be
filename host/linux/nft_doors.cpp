#include "host/linux/nft_doors.h"

#include <libmnl/libmnl.h>
#include <libnftnl/set.h>
#include <linux/netfilter/nf_tables.h>

#include <algorithm>
#include <array>

#include "host/linux/nft_content.h"
#include "host/linux/nft_sets.h"

namespace {

constexpr char ANY_MORE = '*';  // at the end of a pattern
using DeviceKey = std::array<char, FILTER_DEVICE_SIZE>;

bool isPrefix(std::string_view pattern) {
    return pattern.ends_with(ANY_MORE);
}

bool covers(std::string_view pattern, std::string_view text) {
    if (!isPrefix(pattern)) return pattern == text;
    return text.starts_with(pattern.substr(0, pattern.size() - 1));
}

// The key behind all those that begin with `length` bytes of this one; false when there is none.
bool stepBehind(DeviceKey& key, size_t length) {
    while (length > 0) {
        auto& byte = reinterpret_cast<unsigned char&>(key[--length]);
        if (++byte != 0) return true;
    }
    return false;
}

void addElement(nftnl_set* set, const DeviceKey& key, uint32_t flags) {
    nftnl_set_elem* element = nftnl_set_elem_alloc();
    nftnl_set_elem_set(element, NFTNL_SET_ELEM_KEY, key.data(), FILTER_DEVICE_SIZE);
    if (flags != 0) nftnl_set_elem_set_u32(element, NFTNL_SET_ELEM_FLAGS, flags);
    nftnl_set_elem_add(set, element);
}

void addPattern(nftnl_set* set, std::string_view pattern) {
    const size_t fixed = isPrefix(pattern) ? pattern.size() - 1 : FILTER_DEVICE_SIZE;
    DeviceKey key = {};
    pattern.copy(key.data(), std::min(fixed, pattern.size()));
    addElement(set, key, 0);
    if (stepBehind(key, fixed)) addElement(set, key, NFT_SET_ELEM_INTERVAL_END);
}

nftnl_set* namedSet() {
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, CLOSED_SET);
    return set;
}

}  // namespace

std::vector<std::string> doorPatterns(const std::vector<std::string>& patterns) {
    std::vector<std::string> sorted = patterns;
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    std::vector<std::string> kept;
    for (const std::string& pattern : sorted) {
        const bool covered = std::any_of(sorted.begin(), sorted.end(), [&](const std::string& other) {
            return other != pattern && covers(other, pattern);
        });
        if (!covered) kept.push_back(pattern);
    }
    return kept;
}

bool matchesDoor(const std::vector<std::string>& patterns, std::string_view device) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return covers(pattern, device); });
}

std::string closedSetText() {
    return setText(NFT_SET_INTERVAL, NFT_TYPE_DEVICE, FILTER_DEVICE_SIZE, 0);
}

void appendClosedSet(Batch& batch, uint32_t id, const std::vector<std::string>& patterns) {
    nftnl_set* set = namedSet();
    nftnl_set_set_u32(set, NFTNL_SET_ID, id);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_TYPE, NFT_TYPE_DEVICE);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_LEN, FILTER_DEVICE_SIZE);
    nftnl_set_set_u32(set, NFTNL_SET_FLAGS, NFT_SET_INTERVAL);
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWSET, NLM_F_CREATE);
    nftnl_set_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);

    set = namedSet();
    for (const std::string& pattern : patterns) addPattern(set, pattern);
    header = appendMessage(batch, NFT_MSG_NEWSETELEM, NLM_F_CREATE);
    nftnl_set_elems_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);
}
