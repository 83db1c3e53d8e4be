#include "host/linux/nft_rules.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter_bridge.h>

#include <utility>

#include "host/linux/nft_doors.h"

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

// Registers are counted in words from here on: the devices' names, and behind them the VLAN or its mark.
constexpr uint32_t DEVICE_REGISTERS = FILTER_DEVICE_SIZE / sizeof(uint32_t);
constexpr uint32_t SOURCE = NFT_REG32_00;
constexpr uint32_t TARGET = SOURCE + DEVICE_REGISTERS;
constexpr uint32_t VLAN = TARGET + DEVICE_REGISTERS;

constexpr uint32_t TYPE_OFFSET = 12;  // bytes into the frame
constexpr uint32_t TAG_OFFSET = 14;
constexpr uint16_t TAG_VLAN = 0x0fff;
constexpr uint32_t VLAN_BITS = 12;

// A rule under construction, which is added to the batch.
struct Rule {
    Batch& batch;
    nftnl_rule* rule = nftnl_rule_alloc();

    Rule(Batch& of, const char* chain, const char* table = FILTER_TABLE) : batch(of) {
        nftnl_rule_set_str(rule, NFTNL_RULE_TABLE, table);
        nftnl_rule_set_str(rule, NFTNL_RULE_CHAIN, chain);
    }
    Rule(const Rule&) = delete;
    ~Rule() {
        nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWRULE, NLM_F_CREATE | NLM_F_APPEND);
        nftnl_rule_nlmsg_build_payload(header, rule);
        closeMessage(batch, header);
        nftnl_rule_free(rule);
    }
};

nftnl_expr* append(const Rule& rule, const char* kind) {
    nftnl_expr* expression = nftnl_expr_alloc(kind);
    if (expression != nullptr) nftnl_rule_add_expr(rule.rule, expression);
    return expression;
}

void loadMeta(const Rule& rule, uint32_t key, uint32_t target) {
    nftnl_expr* meta = append(rule, "meta");
    nftnl_expr_set_u32(meta, NFTNL_EXPR_META_KEY, key);
    nftnl_expr_set_u32(meta, NFTNL_EXPR_META_DREG, target);
}

void setMark(const Rule& rule) {
    nftnl_expr* meta = append(rule, "meta");
    nftnl_expr_set_u32(meta, NFTNL_EXPR_META_KEY, NFT_META_MARK);
    nftnl_expr_set_u32(meta, NFTNL_EXPR_META_SREG, VLAN);
}

nftnl_expr* lookUp(const Rule& rule, const char* set, uint32_t source) {
    nftnl_expr* lookup = append(rule, "lookup");
    nftnl_expr_set_u32(lookup, NFTNL_EXPR_LOOKUP_SREG, source);
    nftnl_expr_set_str(lookup, NFTNL_EXPR_LOOKUP_SET, set);
    return lookup;
}

nftnl_expr* lookUp(const Rule& rule, FilterSet set, uint32_t source) {
    return lookUp(rule, shapeOf(set).name, source);
}

void lookUpInto(const Rule& rule, FilterSet map, uint32_t source, uint32_t target) {
    nftnl_expr_set_u32(lookUp(rule, map, source), NFTNL_EXPR_LOOKUP_DREG, target);
}

void conclude(const Rule& rule, int32_t verdict, const char* chain = nullptr) {
    nftnl_expr* immediate = append(rule, "immediate");
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT);
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_VERDICT, static_cast<uint32_t>(verdict));
    if (chain != nullptr) nftnl_expr_set_str(immediate, NFTNL_EXPR_IMM_CHAIN, chain);
}

template <typename Value>
void compare(const Rule& rule, uint32_t comparison, Value value) {
    nftnl_expr* compared = append(rule, "cmp");
    nftnl_expr_set_u32(compared, NFTNL_EXPR_CMP_SREG, VLAN);
    nftnl_expr_set_u32(compared, NFTNL_EXPR_CMP_OP, comparison);
    nftnl_expr_set(compared, NFTNL_EXPR_CMP_DATA, &value, sizeof(value));
}

// Keeps the bits of the mask, and turns those of `flip`.
template <typename Value>
void maskBits(const Rule& rule, Value mask, Value flip) {
    nftnl_expr* bits = append(rule, "bitwise");
    nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_SREG, VLAN);
    nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_DREG, VLAN);
    nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_LEN, sizeof(mask));
    nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_MASK, &mask, sizeof(mask));
    nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_XOR, &flip, sizeof(flip));
}

void loadFrame(const Rule& rule, uint32_t offset) {
    nftnl_expr* payload = append(rule, "payload");
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_LL_HEADER);
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_OFFSET, offset);
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_LEN, sizeof(uint16_t));
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_DREG, VLAN);
}

// What the frame's mark is within the mask.
void loadMark(const Rule& rule, uint32_t mask) {
    loadMeta(rule, NFT_META_MARK, VLAN);
    maskBits<uint32_t>(rule, mask, 0);
}

// For frames with the bridge's tag, whose VLAN is left in its register, in network order.
void loadTag(const Rule& rule, uint16_t protocol, uint16_t bits = TAG_VLAN) {
    loadFrame(rule, TYPE_OFFSET);
    compare<uint16_t>(rule, NFT_CMP_EQ, htons(protocol));
    loadFrame(rule, TAG_OFFSET);
    maskBits<uint16_t>(rule, htons(bits), 0);
}

void markWith(const Rule& rule, uint32_t mark) {
    nftnl_expr* immediate = append(rule, "immediate");
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_DREG, VLAN);
    nftnl_expr_set(immediate, NFTNL_EXPR_IMM_DATA, &mark, sizeof(mark));
    setMark(rule);
}

// Sets these bits of the mark and leaves the others.
void addToMark(const Rule& rule, uint32_t bits) {
    loadMeta(rule, NFT_META_MARK, VLAN);
    maskBits<uint32_t>(rule, ~bits, bits);
    setMark(rule);
}

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
        nftnl_expr_set_u32(lookUp(rule, FilterSet::opened, SOURCE), NFTNL_EXPR_LOOKUP_FLAGS,
                           NFT_LOOKUP_F_INV);
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
    compare<uint32_t>(rule, NFT_CMP_NEQ, 0);
    loadMark(rule, mask);
    nftnl_expr_set_u32(lookUp(rule, FilterSet::openVlans, VLAN), NFTNL_EXPR_LOOKUP_FLAGS, NFT_LOOKUP_F_INV);
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
        // Nothing else holds a frame of no VLAN.
        const Rule rule(batch, WITHIN_CHAIN);
        loadMeta(rule, NFT_META_MARK, VLAN);
        compare<uint32_t>(rule, NFT_CMP_EQ, 0);
        conclude(rule, NF_ACCEPT);
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
    compare<uint16_t>(rule, NFT_CMP_EQ, 0);
    conclude(rule, NF_DROP);
}

// The usual case: the frame has no mark yet, and its mark can be written as a whole.
void appendMarking(Batch& batch, const FilterLayout& layout) {
    const uint32_t mask = batch.filter->markMask;
    {
        const Rule rule(batch, MARK_CHAIN);
        loadMeta(rule, NFT_META_MARK, VLAN);
        compare<uint32_t>(rule, NFT_CMP_NEQ, 0);
        conclude(rule, NFT_GOTO, KEEP_CHAIN);
    }
    {
        const Rule rule(batch, MARK_CHAIN);
        loadFrame(rule, TYPE_OFFSET);
        compare<uint16_t>(rule, NFT_CMP_EQ, htons(layout.tagProtocol));
        conclude(rule, NFT_JUMP, OWN_TAG_CHAIN);
    }
    for (const bool named : {true, false}) {
        const Rule rule(batch, OWN_TAG_CHAIN);
        loadTag(rule, layout.tagProtocol);
        if (named) {
            lookUpInto(rule, FilterSet::tags, VLAN, VLAN);
            setMark(rule);
        } else {
            compare<uint16_t>(rule, NFT_CMP_NEQ, 0);
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
            compare<uint16_t>(rule, NFT_CMP_NEQ, 0);
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
        loadMark(rule, ~mask);
        setMark(rule);
    }
    {
        const Rule rule(batch, KEEP_CHAIN);
        loadTag(rule, layout.tagProtocol);
        compare<uint16_t>(rule, NFT_CMP_NEQ, 0);
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
        compare<uint16_t>(rule, NFT_CMP_EQ, htons(value));
        addToMark(rule, markOfVlan(mask, value));
    }
    appendOfNoVlan(batch, layout, PVID_CHAIN);
    for (uint32_t bit = 0; batch.filter->seesPvid && bit < VLAN_BITS; ++bit) {
        const auto value = static_cast<uint16_t>(1U << bit);
        const Rule rule(batch, PVID_CHAIN);
        loadMeta(rule, NFT_META_BRI_IIFPVID, VLAN);
        maskBits<uint16_t>(rule, value, 0);
        compare<uint16_t>(rule, NFT_CMP_EQ, value);
        addToMark(rule, markOfVlan(mask, value));
    }
}

}  // namespace

std::vector<ChainShape> chainsOf(const FilterLayout& layout) {
    std::vector<ChainShape> chains = {{WITHIN_CHAIN, false, 0, 0}};
    if (!layout.closed.empty()) chains.push_back({DOOR_CHAIN, false, 0, 0});
    if (layout.ports) {
        for (const char* name : {OWN_TAG_CHAIN, TAG_CHAIN, PVID_CHAIN, KEEP_CHAIN, MARK_CHAIN}) {
            chains.push_back({name, false, 0, 0});
        }
        chains.push_back({INGRESS_CHAIN, true, NF_BR_PRE_ROUTING, INGRESS_PRIORITY});
    }
    chains.push_back({FORWARD_CHAIN, true, NF_BR_FORWARD, FORWARD_PRIORITY});
    return chains;
}

void appendPvidProbe(Batch& batch, const char* table, const char* chain) {
    const Rule rule(batch, chain, table);
    loadMeta(rule, NFT_META_BRI_IIFPVID, VLAN);
}

void appendRules(Batch& batch, const FilterLayout& layout) {
    appendForward(batch, layout);
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
