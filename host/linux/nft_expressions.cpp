#include "host/linux/nft_expressions.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>

#include <array>

namespace {

template <typename Value>
void compareValue(const Rule& rule, uint32_t comparison, const Value& value, uint32_t source = VLAN) {
    nftnl_expr* compared = append(rule, "cmp");
    nftnl_expr_set_u32(compared, NFTNL_EXPR_CMP_SREG, source);
    nftnl_expr_set_u32(compared, NFTNL_EXPR_CMP_OP, comparison);
    nftnl_expr_set(compared, NFTNL_EXPR_CMP_DATA, &value, sizeof(value));
}

template <typename Value>
void maskValue(const Rule& rule, Value mask, Value flip) {
    nftnl_expr* bits = append(rule, "bitwise");
    nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_SREG, VLAN);
    nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_DREG, VLAN);
    nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_LEN, sizeof(mask));
    nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_MASK, &mask, sizeof(mask));
    nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_XOR, &flip, sizeof(flip));
}

}  // namespace

Rule::Rule(Batch& of, const char* chain, const char* table) : batch(of), rule(nftnl_rule_alloc()) {
    nftnl_rule_set_str(rule, NFTNL_RULE_TABLE, table);
    nftnl_rule_set_str(rule, NFTNL_RULE_CHAIN, chain);
}

Rule::~Rule() {
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWRULE, NLM_F_CREATE | NLM_F_APPEND);
    nftnl_rule_nlmsg_build_payload(header, rule);
    closeMessage(batch, header);
    nftnl_rule_free(rule);
}

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

void lookUpNone(const Rule& rule, FilterSet set, uint32_t source) {
    nftnl_expr_set_u32(lookUp(rule, set, source), NFTNL_EXPR_LOOKUP_FLAGS, NFT_LOOKUP_F_INV);
}

void lookUpInto(const Rule& rule, FilterSet map, uint32_t source, uint32_t target) {
    nftnl_expr_set_u32(lookUp(rule, map, source), NFTNL_EXPR_LOOKUP_DREG, target);
}

void compareDevice(const Rule& rule, uint32_t key, std::string_view device) {
    std::array<char, FILTER_DEVICE_SIZE> name = {};
    device.copy(name.data(), name.size() - 1);
    loadMeta(rule, key, SOURCE);
    compareValue(rule, NFT_CMP_EQ, name, SOURCE);
}

void conclude(const Rule& rule, int32_t verdict, const char* chain) {
    nftnl_expr* immediate = append(rule, "immediate");
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT);
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_VERDICT, static_cast<uint32_t>(verdict));
    if (chain != nullptr) nftnl_expr_set_str(immediate, NFTNL_EXPR_IMM_CHAIN, chain);
}

void compare(const Rule& rule, uint32_t comparison, uint32_t value) {
    compareValue(rule, comparison, value);
}

void compare(const Rule& rule, uint32_t comparison, uint16_t value) {
    compareValue(rule, comparison, value);
}

void maskBits(const Rule& rule, uint32_t mask, uint32_t flip) {
    maskValue(rule, mask, flip);
}

void maskBits(const Rule& rule, uint16_t mask, uint16_t flip) {
    maskValue(rule, mask, flip);
}

void loadFrame(const Rule& rule, uint32_t offset) {
    nftnl_expr* payload = append(rule, "payload");
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_BASE, NFT_PAYLOAD_LL_HEADER);
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_OFFSET, offset);
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_LEN, sizeof(uint16_t));
    nftnl_expr_set_u32(payload, NFTNL_EXPR_PAYLOAD_DREG, VLAN);
}

void loadMark(const Rule& rule, uint32_t mask) {
    loadMeta(rule, NFT_META_MARK, VLAN);
    maskBits(rule, mask, NO_MARK);
}

void loadTag(const Rule& rule, uint16_t protocol, uint16_t bits) {
    loadFrame(rule, TYPE_OFFSET);
    compare(rule, NFT_CMP_EQ, htons(protocol));
    loadFrame(rule, TAG_OFFSET);
    maskBits(rule, htons(bits), NO_VLAN);
}

void markWith(const Rule& rule, uint32_t mark) {
    nftnl_expr* immediate = append(rule, "immediate");
    nftnl_expr_set_u32(immediate, NFTNL_EXPR_IMM_DREG, VLAN);
    nftnl_expr_set(immediate, NFTNL_EXPR_IMM_DATA, &mark, sizeof(mark));
    setMark(rule);
}

void changeMark(const Rule& rule, uint32_t mask, uint32_t bits) {
    loadMeta(rule, NFT_META_MARK, VLAN);
    maskBits(rule, mask & ~bits, bits);
    setMark(rule);
}

void addToMark(const Rule& rule, uint32_t bits) {
    changeMark(rule, ~bits, bits);
}
