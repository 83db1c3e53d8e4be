#include "host/linux/nft_filter.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/common.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <libnftnl/set.h>
#include <libnftnl/table.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter_bridge.h>

#include <cerrno>
#include <cstddef>

namespace {

constexpr char CHAIN[] = "forward";
constexpr int CHAIN_PRIORITY = -200;  // the family's `filter`
constexpr uint32_t LAY_TRIES = 10;    // while others change the filter at the same time

// Byte orders of a set's keys, in the remarks that the filter's own command reads.
constexpr uint32_t ORDER_HOST = 1;
constexpr uint32_t ORDER_NETWORK = 2;
constexpr uint32_t REMARKS_SIZE = 64;  // bytes

// The expressions of rules. Registers are counted in words from REGISTER on.
constexpr uint32_t REGISTER = NFT_REG32_00;
constexpr uint32_t DEVICE_REGISTERS = FILTER_DEVICE_SIZE / KEY_WORD;
constexpr uint32_t VLAN_REGISTER = REGISTER + 2 * DEVICE_REGISTERS;

nftnl_expr* appendExpression(nftnl_rule* rule, const char* kind) {
    nftnl_expr* expression = nftnl_expr_alloc(kind);
    if (expression != nullptr) nftnl_rule_add_expr(rule, expression);
    return expression;
}

void appendMeta(nftnl_rule* rule, uint32_t key, uint32_t target) {
    nftnl_expr* meta = appendExpression(rule, "meta");
    nftnl_expr_set_u32(meta, NFTNL_EXPR_META_KEY, key);
    nftnl_expr_set_u32(meta, NFTNL_EXPR_META_DREG, target);
}

void appendLookup(nftnl_rule* rule, FilterSet set, uint32_t source, bool inverted) {
    nftnl_expr* lookup = appendExpression(rule, "lookup");
    nftnl_expr_set_u32(lookup, NFTNL_EXPR_LOOKUP_SREG, source);
    nftnl_expr_set_str(lookup, NFTNL_EXPR_LOOKUP_SET, shapeOf(set).name);
    if (inverted) nftnl_expr_set_u32(lookup, NFTNL_EXPR_LOOKUP_FLAGS, NFT_LOOKUP_F_INV);
}

void appendVerdict(nftnl_rule* rule, uint32_t verdict) {
    nftnl_expr* immediate = appendExpression(rule, "immediate");
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT);
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_VERDICT, verdict);
}

void appendPayload(nftnl_rule* rule, uint32_t offset, uint32_t target) {
    nftnl_expr* payload = appendExpression(rule, "payload");
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_LL_HEADER);
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_OFFSET, offset);
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_LEN, sizeof(uint16_t));
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_DREG, target);
}

// Lets the rule go on for frames with a VLAN tag, or for those without one.
void appendTagCheck(nftnl_rule* rule, bool tagged) {
    constexpr uint32_t TYPE_OFFSET = 12;
    const uint16_t tag = htons(0x8100);
    appendPayload(rule, TYPE_OFFSET, VLAN_REGISTER);
    nftnl_expr* compare = appendExpression(rule, "cmp");
    nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_SREG, VLAN_REGISTER);
    nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_OP, tagged ? NFT_CMP_EQ : NFT_CMP_NEQ);
    nftnl_expr_set(compare, NFTNL_EXPR_CMP_DATA, &tag, sizeof(tag));
}

// The VLAN id, in network order: of the tag, or of the port that an untagged frame came in by.
void appendVlan(nftnl_rule* rule, bool tagged) {
    constexpr uint32_t TAG_OFFSET = 14;
    const uint16_t mask = htons(0x0fff);
    const uint16_t none = 0;
    appendTagCheck(rule, tagged);
    if (tagged) {
        appendPayload(rule, TAG_OFFSET, VLAN_REGISTER);
        nftnl_expr* bits = appendExpression(rule, "bitwise");
        nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_SREG, VLAN_REGISTER);
        nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_DREG, VLAN_REGISTER);
        nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_LEN, sizeof(mask));
        nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_MASK, &mask, sizeof(mask));
        nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_XOR, &none, sizeof(none));
        // A tag may bear a priority alone; such a frame is of no VLAN.
        nftnl_expr* compare = appendExpression(rule, "cmp");
        nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_SREG, VLAN_REGISTER);
        nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_OP, NFT_CMP_NEQ);
        nftnl_expr_set(compare, NFTNL_EXPR_CMP_DATA, &none, sizeof(none));
        return;
    }
    appendMeta(rule, NFT_META_BRI_IIFPVID, VLAN_REGISTER);
    nftnl_expr* order = appendExpression(rule, "byteorder");
    nftnl_expr_set_u32(order, NFTNL_EXPR_BYTEORDER_SREG, VLAN_REGISTER);
    nftnl_expr_set_u32(order, NFTNL_EXPR_BYTEORDER_DREG, VLAN_REGISTER);
    nftnl_expr_set_u32(order, NFTNL_EXPR_BYTEORDER_OP, NFT_BYTEORDER_HTON);
    nftnl_expr_set_u32(order, NFTNL_EXPR_BYTEORDER_LEN, sizeof(uint16_t));
    nftnl_expr_set_u32(order, NFTNL_EXPR_BYTEORDER_SIZE, sizeof(uint16_t));
}

void appendDevices(nftnl_rule* rule) {
    appendMeta(rule, NFT_META_IIFNAME, REGISTER);
    appendMeta(rule, NFT_META_OIFNAME, REGISTER + DEVICE_REGISTERS);
}

// What is in the set of pairs is dropped.
void buildPairRule(nftnl_rule* rule, FilterSet set) {
    appendDevices(rule);
    appendLookup(rule, set, REGISTER, false);
    appendVerdict(rule, NF_DROP);
}

void buildVlanRule(nftnl_rule* rule, bool tagged) {
    appendVlan(rule, tagged);
    buildPairRule(rule, FilterSet::biVlan);
}

void appendAccess(nftnl_rule* rule) {
    appendDevices(rule);
    appendLookup(rule, FilterSet::access, REGISTER, false);
    appendLookup(rule, FilterSet::access, REGISTER + DEVICE_REGISTERS, false);
    appendLookup(rule, FilterSet::hairpin, REGISTER, true);
}

void appendCountedDrop(nftnl_rule* rule) {
    appendExpression(rule, "counter");
    appendVerdict(rule, NF_DROP);
}

// Access ports do not reach one another, but for VLANs in which PON isolation is off. Where it is off in
// every VLAN that leaves a port untagged, the way out of that port is open, wherever a frame came from; else
// a frame that came in by a port without a VLAN of its own, and so in an unknown VLAN, is dropped.
void buildPonRule(nftnl_rule* rule, bool tagged) {
    appendAccess(rule);
    if (!tagged) appendLookup(rule, FilterSet::egressOff, REGISTER + DEVICE_REGISTERS, true);
    appendVlan(rule, tagged);
    appendLookup(rule, FilterSet::ponOff, VLAN_REGISTER, true);
    appendCountedDrop(rule);
}

// The same for untagged frames, whose VLAN follows from the port that they leave by.
void buildEgressPairRule(nftnl_rule* rule) {
    appendTagCheck(rule, false);
    buildPairRule(rule, FilterSet::biEgress);
}

void buildEgressPonRule(nftnl_rule* rule) {
    appendTagCheck(rule, false);
    appendAccess(rule);
    appendLookup(rule, FilterSet::egress, REGISTER + DEVICE_REGISTERS, false);
    appendLookup(rule, FilterSet::egressOff, REGISTER + DEVICE_REGISTERS, true);
    appendCountedDrop(rule);
}

void buildEgressEndRule(nftnl_rule* rule) {
    appendTagCheck(rule, false);
    appendMeta(rule, NFT_META_OIFNAME, REGISTER);
    appendLookup(rule, FilterSet::egress, REGISTER, false);
    appendVerdict(rule, NF_ACCEPT);
}

template <typename Build>
void appendRule(Batch& batch, Build&& build) {
    nftnl_rule* rule = nftnl_rule_alloc();
    nftnl_rule_set_str(rule, NFTNL_RULE_TABLE, FILTER_TABLE);
    nftnl_rule_set_str(rule, NFTNL_RULE_CHAIN, CHAIN);
    build(rule);
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWRULE, NLM_F_CREATE | NLM_F_APPEND);
    nftnl_rule_nlmsg_build_payload(header, rule);
    closeMessage(batch, header);
    nftnl_rule_free(rule);
}

// Tagged frames first; then the untagged ones, by the VLAN of their way out where it is known, else by that
// of their way in.
void appendRules(Batch& batch, bool pvid) {
    const auto vlanRules = [&](bool tagged) {
        appendRule(batch, [&](nftnl_rule* rule) { buildVlanRule(rule, tagged); });
        appendRule(batch, [&](nftnl_rule* rule) { buildPonRule(rule, tagged); });
    };
    appendRule(batch, [](nftnl_rule* rule) { buildPairRule(rule, FilterSet::bi); });
    appendRule(batch, [](nftnl_rule* rule) { buildPairRule(rule, FilterSet::uni); });
    vlanRules(true);
    appendRule(batch, buildEgressPairRule);
    appendRule(batch, buildEgressPonRule);
    appendRule(batch, buildEgressEndRule);
    if (pvid) vlanRules(false);
}

void appendTable(Batch& batch) {
    nftnl_table* table = nftnl_table_alloc();
    nftnl_table_set_str(table, NFTNL_TABLE_NAME, FILTER_TABLE);
    nftnl_table_set_u32(table, NFTNL_TABLE_FLAGS, 0);
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWTABLE, NLM_F_CREATE);
    nftnl_table_nlmsg_build_payload(header, table);
    closeMessage(batch, header);
    nftnl_table_free(table);
}

void appendChain(Batch& batch) {
    nftnl_chain* chain = nftnl_chain_alloc();
    nftnl_chain_set_str(chain, NFTNL_CHAIN_TABLE, FILTER_TABLE);
    nftnl_chain_set_str(chain, NFTNL_CHAIN_NAME, CHAIN);
    nftnl_chain_set_str(chain, NFTNL_CHAIN_TYPE, "filter");
    nftnl_chain_set_u32(chain, NFTNL_CHAIN_HOOKNUM, NF_BR_FORWARD);
    nftnl_chain_set_s32(chain, NFTNL_CHAIN_PRIO, CHAIN_PRIORITY);
    nftnl_chain_set_u32(chain, NFTNL_CHAIN_POLICY, NF_ACCEPT);
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWCHAIN, NLM_F_CREATE);
    nftnl_chain_nlmsg_build_payload(header, chain);
    closeMessage(batch, header);
    nftnl_chain_free(chain);
}

uint32_t setFlags(const SetShape& shape) {
    return shape.counts ? NFT_SET_EXPR : 0;
}

void appendSet(Batch& batch, uint32_t id) {
    const SetShape& shape = FILTER_SETS[id];
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, shape.name);
    nftnl_set_set_u32(set, NFTNL_SET_ID, id + 1);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_TYPE, shape.keyType);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_LEN, keyLength(shape));
    if (setFlags(shape) != 0) {
        nftnl_set_set_u32(set, NFTNL_SET_FLAGS, setFlags(shape));
        nftnl_set_add_expr(set, nftnl_expr_alloc("counter"));
    }
    // Without the byte order the filter's own command prints no name of a device that stands alone.
    nftnl_udata_buf* remarks = nftnl_udata_buf_alloc(REMARKS_SIZE);
    nftnl_udata_put_u32(remarks, NFTNL_UDATA_SET_KEYBYTEORDER, shape.vlan ? ORDER_NETWORK : ORDER_HOST);
    nftnl_set_set_data(set, NFTNL_SET_USERDATA, nftnl_udata_buf_data(remarks), nftnl_udata_buf_len(remarks));
    nftnl_udata_buf_free(remarks);
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWSET, NLM_F_CREATE);
    nftnl_set_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);
}

// What the table is made of but for its rules.
TableContent bareContent() {
    TableContent content = {{tablePart(), tableText(0)},
                            {chainPart(CHAIN), chainText(NF_BR_FORWARD, CHAIN_PRIORITY, NF_ACCEPT)}};
    for (const SetShape& shape : FILTER_SETS) {
        content[setPart(shape.name)] = setText(setFlags(shape), shape.keyType, keyLength(shape), 0);
    }
    return content;
}

void appendRemoval(Batch& batch, int type, uint16_t tableAttribute, uint16_t nameAttribute,
                   const std::string& name) {
    nlmsghdr* header = appendMessage(batch, type, 0);
    mnl_attr_put_strz(header, tableAttribute, FILTER_TABLE);
    if (!name.empty()) mnl_attr_put_strz(header, nameAttribute, name.c_str());
    closeMessage(batch, header);
}

// Clears the table of its rules, and of chains and sets that are not as they are laid. A set's elements may
// refer to chains.
void appendRemovals(Batch& batch, const TableContent& standing) {
    if (standing.empty()) return;
    const TableContent wanted = bareContent();
    const auto misfits = [&](const std::string& kind, auto&& remove) {
        for (const auto& [part, text] : standing) {
            const auto fitting = wanted.find(part);
            const bool fits = fitting != wanted.end() && fitting->second == text;
            if (!fits && part.starts_with(kind)) remove(part.substr(kind.size()));
        }
    };
    appendRemoval(batch, NFT_MSG_DELRULE, NFTA_RULE_TABLE, NFTA_RULE_CHAIN, "");
    misfits(setPart(""), [&](const std::string& name) {
        appendRemoval(batch, NFT_MSG_DELSET, NFTA_SET_TABLE, NFTA_SET_NAME, name);
    });
    misfits(chainPart(""), [&](const std::string& name) {
        appendRemoval(batch, NFT_MSG_DELCHAIN, NFTA_CHAIN_TABLE, NFTA_CHAIN_NAME, name);
    });
}

int layTableWith(Filter& filter, const TableContent& standing, bool pvid) {
    Batch batch = beginBatch(filter);
    appendTable(batch);
    appendRemovals(batch, standing);
    appendChain(batch);
    for (uint32_t id = 0; id < FILTER_SET_COUNT; ++id) appendSet(batch, id);
    appendRules(batch, pvid);
    return commitBatch(batch);
}

int layOver(Filter& filter, const TableContent& standing) {
    int problem = layTableWith(filter, standing, true);
    filter.seesPvid = problem == 0;
    if (problem == EOPNOTSUPP || problem == EINVAL || problem == ENOENT) {
        problem = layTableWith(filter, standing, false);
    }
    return problem;
}

}  // namespace

int layTable(Filter& filter, TableContent& laid) {
    // What is read back is what was laid when nobody else has changed the filter in between.
    for (uint32_t i = 0; i < LAY_TRIES; ++i) {
        uint32_t before = 0;
        uint32_t after = 0;
        FilterCounter counted = {};
        int problem = readGeneration(filter, before);
        if (problem == 0) problem = readContent(filter, laid, counted);
        if (problem == 0) problem = layOver(filter, laid);
        if (problem == 0) problem = readContent(filter, laid, counted);
        if (problem == 0) problem = readGeneration(filter, after);
        if (problem != 0) return problem;
        if (after == before + 1) return 0;
    }
    return EBUSY;
}
