#include "host/linux/nft_span.h"

#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter_bridge.h>

#include <string>
#include <utility>

#include "host/linux/nft_doors.h"
#include "host/linux/nft_expressions.h"

namespace {

constexpr char OUT_CHAIN[] = "span_out";
constexpr char KEEP_CHAIN[] = "span_out_keeping";  // of frames that bear a mark
constexpr char FROM_HOST_CHAIN[] = "output";
constexpr char TO_HOST_CHAIN[] = "input";
constexpr int32_t OWN_PRIORITY = 300;  // behind what others do to the mark

void matchSpan(const Rule& rule, uint32_t key) {
    const std::vector<std::string>& span = rule.batch.filter->span;
    if (span.size() == 1) return compareDevice(rule, key, span.front());
    loadMeta(rule, key, SOURCE);
    lookUp(rule, FilterSet::spanPorts, SOURCE);
}

// For ports that are not in the set by index and name.
void matchNoneOf(const Rule& rule, FilterSet set, uint32_t index, uint32_t name) {
    loadMeta(rule, index, SOURCE);
    loadMeta(rule, name, SOURCE + 1);
    lookUpNone(rule, set, SOURCE);
}

void matchShut(const Rule& rule, uint32_t index, uint32_t name) {
    loadMeta(rule, name, SOURCE);
    lookUp(rule, CLOSED_SET, SOURCE);
    matchNoneOf(rule, FilterSet::opened, index, name);
}

// A device and, of the frame's mark, the bits of the mask are looked up together.
void loadMember(const Rule& rule, uint32_t device, uint32_t mask) {
    loadMeta(rule, device, TARGET);
    loadMark(rule, mask);
}

void compareMark(const Rule& rule, uint32_t mask, uint32_t comparison) {
    loadMark(rule, mask);
    compare(rule, comparison, NO_MARK);
}

bool isUsed(const FilterLayout& layout) {
    return (layout.spanPlain | layout.spanVlan | layout.spanDoors) != 0;
}

void appendForward(Batch& batch, const FilterLayout& layout) {
    if (isUsed(layout)) {
        const Rule rule(batch, FORWARD_CHAIN);
        matchSpan(rule, NFT_META_IIFNAME);
        conclude(rule, NFT_JUMP, SPAN_IN_CHAIN);
    }
    const Rule rule(batch, FORWARD_CHAIN);
    matchSpan(rule, NFT_META_OIFNAME);
    conclude(rule, NFT_JUMP, OUT_CHAIN);
}

void appendIn(Batch& batch, const FilterLayout& layout) {
    if (!isUsed(layout)) return;
    {
        const Rule rule(batch, SPAN_IN_CHAIN);
        compareMark(rule, layout.spanPlain | layout.spanVlan | layout.spanDoors, NFT_CMP_EQ);
        conclude(rule, NFT_RETURN);
    }
    if (layout.spanDoors != 0) {
        const Rule rule(batch, SPAN_IN_CHAIN);
        compareMark(rule, layout.spanDoors, NFT_CMP_NEQ);
        matchShut(rule, NFT_META_OIF, NFT_META_OIFNAME);
        append(rule, "counter");
        conclude(rule, NF_DROP);
    }
    for (const auto& [groups, vlans] :
         {std::pair(layout.spanPlain, 0U), std::pair(layout.spanVlan, batch.filter->markMask)}) {
        for (const uint32_t group : spanningNumbers(groups)) {
            const uint32_t bit = spanningBit(group);
            const Rule rule(batch, SPAN_IN_CHAIN);
            compareMark(rule, bit, NFT_CMP_NEQ);
            loadMember(rule, NFT_META_OIFNAME, bit | vlans);
            lookUp(rule, FilterSet::spanMembers, TARGET);
            conclude(rule, NF_DROP);
        }
    }
}

// What comes from another machine goes on with the groups that it came with.
void appendOut(Batch& batch, const FilterLayout& layout) {
    const uint32_t mask = batch.filter->markMask;
    {
        const Rule rule(batch, OUT_CHAIN);
        matchSpan(rule, NFT_META_IIFNAME);
        changeMark(rule, ~mask, NO_MARK);
        conclude(rule, NFT_GOTO, SPAN_CARRY_CHAIN);
    }
    if (layout.spanDoors != 0) {
        const Rule rule(batch, OUT_CHAIN);
        matchShut(rule, NFT_META_IIF, NFT_META_IIFNAME);
        changeMark(rule, ~(mask | GROUP_BITS), layout.spanDoors);
        conclude(rule, NFT_GOTO, SPAN_CARRY_CHAIN);
    }
    {
        const Rule rule(batch, OUT_CHAIN);
        changeMark(rule, ~(mask | GROUP_BITS), NO_MARK);
    }
    if ((layout.spanPlain | layout.spanVlan) == 0) return;
    {
        const Rule rule(batch, OUT_CHAIN);
        loadMeta(rule, NFT_META_MARK, VLAN);
        compare(rule, NFT_CMP_NEQ, NO_MARK);
        conclude(rule, NFT_GOTO, KEEP_CHAIN);
    }
    const Rule rule(batch, OUT_CHAIN);
    loadMeta(rule, NFT_META_IIFNAME, TARGET);
    lookUpInto(rule, FilterSet::spanMarks, TARGET, VLAN);
    setMark(rule);
    conclude(rule, NFT_GOTO, SPAN_CARRY_CHAIN);
}

// A mark of somebody else's stays: all groups are put into it, and those taken out that the sender is not in.
void appendKeeping(Batch& batch, const FilterLayout& layout) {
    const auto used = static_cast<SpanningGroups>(layout.spanPlain | layout.spanVlan);
    if (used == 0) return;
    {
        const Rule rule(batch, KEEP_CHAIN);
        addToMark(rule, used);
    }
    for (const uint32_t group : spanningNumbers(used)) {
        const uint32_t bit = spanningBit(group);
        const Rule rule(batch, KEEP_CHAIN);
        loadMember(rule, NFT_META_IIFNAME, bit);
        lookUpNone(rule, FilterSet::spanSenders, TARGET);
        changeMark(rule, ~bit, NO_MARK);
    }
    const Rule rule(batch, KEEP_CHAIN);
    conclude(rule, NFT_GOTO, SPAN_CARRY_CHAIN);
}

void appendCarry(Batch& batch) {
    const Rule rule(batch, SPAN_CARRY_CHAIN);
    compareMark(rule, GROUP_BITS, NFT_CMP_NEQ);
    matchNoneOf(rule, FilterSet::spanOpen, NFT_META_OIF, NFT_META_OIFNAME);
    append(rule, "counter");
    conclude(rule, NF_DROP);
}

// What the machine itself sends is of no group, and no group is a mark to what it does with frames.
void appendOwn(Batch& batch) {
    for (const auto& [chain, key] :
         {std::pair(FROM_HOST_CHAIN, NFT_META_OIFNAME), std::pair(TO_HOST_CHAIN, NFT_META_IIFNAME)}) {
        const Rule rule(batch, chain);
        matchSpan(rule, key);
        changeMark(rule, ~GROUP_BITS, NO_MARK);
    }
}

}  // namespace

void appendSpanChains(std::vector<ChainShape>& chains) {
    for (const char* name : {SPAN_CARRY_CHAIN, KEEP_CHAIN, OUT_CHAIN, SPAN_IN_CHAIN}) {
        chains.push_back({name, false, 0, 0});
    }
    chains.push_back({FROM_HOST_CHAIN, true, NF_BR_LOCAL_OUT, OWN_PRIORITY});
    chains.push_back({TO_HOST_CHAIN, true, NF_BR_LOCAL_IN, OWN_PRIORITY});
}

void appendSpanRules(Batch& batch, const FilterLayout& layout) {
    appendForward(batch, layout);
    appendIn(batch, layout);
    appendOut(batch, layout);
    appendKeeping(batch, layout);
    appendCarry(batch);
    appendOwn(batch);
}
