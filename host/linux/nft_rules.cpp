#include "host/linux/nft_rules.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter_bridge.h>

#include <utility>

#include "host/linux/nft_doors.h"
#include "host/linux/nft_expressions.h"
#include "host/linux/nft_span.h"

namespace {

constexpr char INGRESS_CHAIN[] = "prerouting";
constexpr char MARK_CHAIN[] = "mark_vlan";
constexpr char KEEP_CHAIN[] = "mark_vlan_keeping";  // of frames that bear a mark
constexpr char OWN_TAG_CHAIN[] = "mark_own_tag";
constexpr char TAG_CHAIN[] = "mark_tag";
constexpr char PVID_CHAIN[] = "mark_pvid";
constexpr int32_t FORWARD_PRIORITY = -200;  // the family's `filter`
// Behind what others do to the mark of a frame that comes in.
constexpr int32_t INGRESS_PRIORITY = 300;

constexpr uint32_t VLAN_BITS = 12;

// Both ends have a door, and one of them is closed.
void appendDoors(Batch& batch) {
    {
        const Rule rule(batch, FORWARD_CHAIN);
        for (const uint32_t device : {NFT_META_IIFNAME, NFT_META_OIFNAME}) {
            loadMeta(rule, device, SOURCE);
            lookUp(rule, CLOSED_SET, SOURCE);
        }
        conclude(rule, NFT_JUMP, DOOR_CHAIN);
    }
    for (const auto& [index, name] :
         {std::pair(NFT_META_IIF, NFT_META_IIFNAME), std::pair(NFT_META_OIF, NFT_META_OIFNAME)}) {
        const Rule rule(batch, DOOR_CHAIN);
        loadMeta(rule, index, SOURCE);
        loadMeta(rule, name, SOURCE + 1);
        lookUpNone(rule, FilterSet::opened, SOURCE);
        append(rule, "counter");
        conclude(rule, NF_DROP);
    }
}

void appendForward(Batch& batch, const FilterLayout& layout) {
    if (!layout.closed.empty()) appendDoors(batch);
    if (layout.pairs) {
        const Rule rule(batch, FORWARD_CHAIN);
        loadMeta(rule, NFT_META_IIFNAME, SOURCE);
        loadMeta(rule, NFT_META_OIFNAME, TARGET);
        lookUpInto(rule, FilterSet::pairs, SOURCE, NFT_REG_VERDICT);
    }
    if (!layout.access) return;
    // Access ports do not reach one another, but for VLANs in which PON isolation is off. One look-up for the
    // VLAN is cheaper than two for the devices.
    const uint32_t mask = batch.filter->markMask;
    const Rule rule(batch, FORWARD_CHAIN);
    loadMark(rule, mask);
    compare(rule, NFT_CMP_NEQ, NO_MARK);
    loadMark(rule, mask);
    lookUpNone(rule, FilterSet::openVlans, VLAN);
    for (const uint32_t device : {NFT_META_IIFNAME, NFT_META_OIFNAME}) {
        loadMeta(rule, device, SOURCE);
        lookUp(rule, FilterSet::access, SOURCE);
    }
    append(rule, "counter");
    conclude(rule, NF_DROP);
}

// Frames whose VLAN nobody can tell.
bool marksUnknown(const Batch& batch, const FilterLayout& layout) {
    return layout.filters && !batch.filter->seesPvid;
}

void appendWithin(Batch& batch, const FilterLayout& layout) {
    const uint32_t mask = batch.filter->markMask;
    {
        // Nothing else holds a frame of no VLAN, but what leads to other machines.
        const Rule rule(batch, WITHIN_CHAIN);
        loadMeta(rule, NFT_META_MARK, VLAN);
        compare(rule, NFT_CMP_EQ, NO_MARK);
        conclude(rule, batch.filter->span.empty() ? NF_ACCEPT : NFT_RETURN);
    }
    {
        const Rule rule(batch, WITHIN_CHAIN);
        loadMeta(rule, NFT_META_IIFNAME, SOURCE);
        loadMeta(rule, NFT_META_OIFNAME, TARGET);
        loadMark(rule, mask);
        lookUp(rule, FilterSet::vlanPairs, SOURCE);
        conclude(rule, NF_DROP);
    }
    if (!marksUnknown(batch, layout)) return;
    const Rule rule(batch, WITHIN_CHAIN);
    loadMark(rule, mask);
    compare(rule, NFT_CMP_EQ, markOfUnknown(mask));
    conclude(rule, NF_DROP);
}

// The bridge drops a frame that is of no VLAN. Where the port gets its PVID before the bridge looks, the
// frame would go on with a wrong mark: so it is dropped here, before other rules ask for the PVID again.
void appendOfNoVlan(Batch& batch, const FilterLayout& layout, const char* chain) {
    if (!layout.filters || !batch.filter->seesPvid) return;
    const Rule rule(batch, chain);
    loadMeta(rule, NFT_META_BRI_IIFPVID, VLAN);
    compare(rule, NFT_CMP_EQ, NO_VLAN);
    conclude(rule, NF_DROP);
}

// The usual case: the frame has no mark yet, and its mark can be written as a whole.
void appendMarking(Batch& batch, const FilterLayout& layout) {
    const uint32_t mask = batch.filter->markMask;
    {
        const Rule rule(batch, MARK_CHAIN);
        loadMeta(rule, NFT_META_MARK, VLAN);
        compare(rule, NFT_CMP_NEQ, NO_MARK);
        conclude(rule, NFT_GOTO, KEEP_CHAIN);
    }
    {
        const Rule rule(batch, MARK_CHAIN);
        loadFrame(rule, TYPE_OFFSET);
        compare(rule, NFT_CMP_EQ, htons(layout.tagProtocol));
        conclude(rule, NFT_JUMP, OWN_TAG_CHAIN);
    }
    for (const bool named : {true, false}) {
        const Rule rule(batch, OWN_TAG_CHAIN);
        loadTag(rule, layout.tagProtocol);
        if (named) {
            lookUpInto(rule, FilterSet::tags, VLAN, VLAN);
            setMark(rule);
        } else {
            compare(rule, NFT_CMP_NEQ, NO_VLAN);
            markWith(rule, markOfOthers(mask));
        }
        conclude(rule, NF_ACCEPT);
    }
    appendOfNoVlan(batch, layout, MARK_CHAIN);
    for (const bool named : {true, false}) {
        if (!batch.filter->seesPvid) continue;
        const Rule rule(batch, MARK_CHAIN);
        loadMeta(rule, NFT_META_BRI_IIFPVID, VLAN);
        if (named) {
            lookUpInto(rule, FilterSet::pvids, VLAN, VLAN);
            setMark(rule);
        } else {
            compare(rule, NFT_CMP_NEQ, NO_VLAN);
            markWith(rule, markOfOthers(mask));
        }
        conclude(rule, NF_ACCEPT);
    }
    if (!marksUnknown(batch, layout)) return;
    const Rule rule(batch, MARK_CHAIN);
    markWith(rule, markOfUnknown(mask));
}

// A mark of somebody else's stays, but for our bits of it: the kernel has no way but to set the VLAN's bits
// one by one.
void appendKeeping(Batch& batch, const FilterLayout& layout) {
    const uint32_t mask = batch.filter->markMask;
    {
        const Rule rule(batch, KEEP_CHAIN);
        changeMark(rule, ~mask, 0);
    }
    {
        const Rule rule(batch, KEEP_CHAIN);
        loadTag(rule, layout.tagProtocol);
        compare(rule, NFT_CMP_NEQ, NO_VLAN);
        conclude(rule, NFT_GOTO, TAG_CHAIN);
    }
    if (batch.filter->seesPvid) {
        const Rule rule(batch, KEEP_CHAIN);
        conclude(rule, NFT_GOTO, PVID_CHAIN);
    } else if (marksUnknown(batch, layout)) {
        const Rule rule(batch, KEEP_CHAIN);
        addToMark(rule, markOfUnknown(mask));
    }
    for (uint32_t bit = 0; bit < VLAN_BITS; ++bit) {
        const auto value = static_cast<uint16_t>(1U << bit);
        const Rule rule(batch, TAG_CHAIN);
        loadTag(rule, layout.tagProtocol, value);
        compare(rule, NFT_CMP_EQ, htons(value));
        addToMark(rule, markOfVlan(mask, value));
    }
    appendOfNoVlan(batch, layout, PVID_CHAIN);
    for (uint32_t bit = 0; batch.filter->seesPvid && bit < VLAN_BITS; ++bit) {
        const auto value = static_cast<uint16_t>(1U << bit);
        const Rule rule(batch, PVID_CHAIN);
        loadMeta(rule, NFT_META_BRI_IIFPVID, VLAN);
        maskBits(rule, value, NO_VLAN);
        compare(rule, NFT_CMP_EQ, value);
        addToMark(rule, markOfVlan(mask, value));
    }
}

}  // namespace

std::vector<ChainShape> chainsOf(const Filter& filter, const FilterLayout& layout) {
    std::vector<ChainShape> chains = {{WITHIN_CHAIN, false, 0, 0}};
    if (!layout.closed.empty()) chains.push_back({DOOR_CHAIN, false, 0, 0});
    if (layout.ports) {
        for (const char* name : {OWN_TAG_CHAIN, TAG_CHAIN, PVID_CHAIN, KEEP_CHAIN, MARK_CHAIN}) {
            chains.push_back({name, false, 0, 0});
        }
        chains.push_back({INGRESS_CHAIN, true, NF_BR_PRE_ROUTING, INGRESS_PRIORITY});
    }
    if (!filter.span.empty()) appendSpanChains(chains);
    chains.push_back({FORWARD_CHAIN, true, NF_BR_FORWARD, FORWARD_PRIORITY});
    return chains;
}

void appendPvidProbe(Batch& batch, const char* table, const char* chain) {
    const Rule rule(batch, chain, table);
    loadMeta(rule, NFT_META_BRI_IIFPVID, VLAN);
}

void appendRules(Batch& batch, const FilterLayout& layout) {
    appendForward(batch, layout);
    if (!batch.filter->span.empty()) appendSpanRules(batch, layout);
    appendWithin(batch, layout);
    if (!layout.ports) return;
    {
        const Rule rule(batch, INGRESS_CHAIN);
        loadMeta(rule, NFT_META_IIFNAME, SOURCE);
        lookUp(rule, FilterSet::vlanPorts, SOURCE);
        conclude(rule, NFT_JUMP, MARK_CHAIN);
    }
    appendMarking(batch, layout);
    appendKeeping(batch, layout);
}
