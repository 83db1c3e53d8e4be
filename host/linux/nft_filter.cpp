#include "host/linux/nft_sets.h"

#ifdef PORTISOLATE_NETFILTER

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/common.h>
#include <libnftnl/expr.h>
#include <libnftnl/gen.h>
#include <libnftnl/rule.h>
#include <libnftnl/set.h>
#include <libnftnl/table.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter_bridge.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace {
constexpr char CHAIN[] = "forward";
constexpr int CHAIN_PRIORITY = -200;  // the family's `filter`

// Types by which the filter's own command prints keys. It has none for a VLAN id by its number; a port's
// number, of the same size and byte order, looks the same.
constexpr uint32_t TYPE_DEVICE = 41;
constexpr uint32_t TYPE_VLAN_ID = 13;
constexpr uint32_t TYPE_BITS = 6;
constexpr uint32_t ORDER_HOST = 1;
constexpr uint32_t ORDER_NETWORK = 2;
constexpr uint32_t REMARKS_SIZE = 64;
constexpr uint32_t WORD = 4;  // a part of a key fills whole words
constexpr uint32_t TWO_DEVICES = TYPE_DEVICE << TYPE_BITS | TYPE_DEVICE;

struct SetShape {
    const char* name;
    uint32_t keyType;
    uint32_t devices;  // names in the key
    bool vlan;         // a VLAN id behind them
    bool counts;       // each element counts what it matched
};
constexpr SetShape SETS[] = {
    {"bi", TWO_DEVICES, 2, false, true},
    {"bi_vlan", TWO_DEVICES << TYPE_BITS | TYPE_VLAN_ID, 2, true, true},
    {"bi_egress", TWO_DEVICES, 2, false, true},
    {"uni", TWO_DEVICES, 2, false, true},
    {"access", TYPE_DEVICE, 1, false, false},
    {"pon_off", TYPE_VLAN_ID, 0, true, false},
    {"egress", TYPE_DEVICE, 1, false, false},
    {"egress_off", TYPE_DEVICE, 1, false, false},
};
constexpr size_t SET_COUNT = std::size(SETS);

constexpr size_t MESSAGE_ELEMENTS = 400;  // as many as the 64 KiB of one attribute hold
constexpr size_t MESSAGE_ROOM = 64 * 1024;
constexpr size_t BATCH_ROOM = 4096;  // for the rest of a transaction
constexpr size_t ANSWER_ROOM = 64 * 1024;
constexpr uint32_t DUMP_TRIES = 10;  // of one that somebody else's change interrupts

const SetShape& shapeOf(FilterSet set) {
    return SETS[static_cast<size_t>(set)];
}

uint32_t keyLength(const SetShape& shape) {
    const uint32_t vlan = !shape.vlan ? 0 : shape.devices == 0 ? sizeof(uint16_t) : WORD;
    return shape.devices * static_cast<uint32_t>(FILTER_DEVICE_SIZE) + vlan;
}

// The messages of one transaction, back to back in the filter's buffer.
struct Batch {
    Filter* filter;
    size_t length;
};

nlmsghdr* appendHeader(Batch& batch, uint16_t type, uint16_t family, uint16_t flags, uint16_t resource) {
    Filter& filter = *batch.filter;
    if (filter.message.size() < batch.length + MESSAGE_ROOM + BATCH_ROOM)
        filter.message.resize(batch.length + MESSAGE_ROOM + BATCH_ROOM);
    nlmsghdr* header = mnl_nlmsg_put_header(filter.message.data() + batch.length);
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    header->nlmsg_seq = ++filter.sequence;
    auto* generic = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(nfgenmsg)));
    generic->nfgen_family = static_cast<uint8_t>(family);
    generic->version = NFNETLINK_V0;
    generic->res_id = htons(resource);
    return header;
}

nlmsghdr* appendMessage(Batch& batch, int type, uint16_t flags) {
    return appendHeader(batch, static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | type), NFPROTO_BRIDGE, flags,
                        0);
}

void closeMessage(Batch& batch, const nlmsghdr* header) {
    batch.length += NLMSG_ALIGN(header->nlmsg_len);
}

Batch beginBatch(Filter& filter) {
    Batch batch = {&filter, 0};
    closeMessage(batch, appendHeader(batch, NFNL_MSG_BATCH_BEGIN, AF_UNSPEC, 0, NFNL_SUBSYS_NFTABLES));
    return batch;
}

// Every answer that waits: the kernel has handled a request when the send returns. 0, or the first refusal.
template <typename Message>
int drainAnswers(Filter& filter, Message&& message) {
    int refused = 0;
    for (;;) {
        const ssize_t length =
            recv(mnl_socket_get_fd(filter.socket), filter.answer.data(), filter.answer.size(), MSG_DONTWAIT);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return refused != 0 || errno == EAGAIN ? refused : errno;
        auto left = static_cast<int>(length);
        for (auto* header = reinterpret_cast<nlmsghdr*>(filter.answer.data()); mnl_nlmsg_ok(header, left);
             header = mnl_nlmsg_next(header, &left)) {
            if (header->nlmsg_type != NLMSG_ERROR) {
                message(header);
                continue;
            }
            const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header));
            if (error->error != 0 && refused == 0) refused = -error->error;
        }
    }
}

int sendBuffer(Filter& filter, size_t length) {
    return mnl_socket_sendto(filter.socket, filter.message.data(), length) < 0 ? errno : 0;
}

int commit(Batch& batch) {
    closeMessage(batch, appendHeader(batch, NFNL_MSG_BATCH_END, AF_UNSPEC, 0, NFNL_SUBSYS_NFTABLES));
    const int problem = sendBuffer(*batch.filter, batch.length);
    return problem != 0 ? problem : drainAnswers(*batch.filter, [](const nlmsghdr*) {});
}

// Sends one request outside a transaction and hands its answers on; a dump that a change interrupted is
// begun again.
template <typename Build, typename Reset, typename Message>
int ask(Filter& filter, int type, uint16_t flags, Build&& build, Reset&& reset, Message&& message) {
    for (uint32_t i = 0; i < DUMP_TRIES; i++) {
        reset();
        Batch batch = {&filter, 0};
        nlmsghdr* header = appendMessage(batch, type, flags);
        build(header);
        closeMessage(batch, header);
        int problem = sendBuffer(filter, batch.length);
        bool done = (flags & NLM_F_DUMP) == 0;
        bool interrupted = false;
        if (problem == 0) {
            problem = drainAnswers(filter, [&](const nlmsghdr* answer) {
                interrupted |= (answer->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
                if (answer->nlmsg_type == NLMSG_DONE)
                    done = true;
                else
                    message(answer);
            });
        }
        if (problem == 0 && !done) problem = EINTR;
        if (problem != EINTR && !interrupted) return problem;
    }
    return EINTR;
}

constexpr auto NOTHING = [] {};

// The expressions of rules. Registers are counted in words from REGISTER on.
constexpr uint32_t REGISTER = NFT_REG32_00;
constexpr uint32_t DEVICE_REGISTERS = FILTER_DEVICE_SIZE / WORD;
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

// Goes on for frames with a VLAN tag, or for those without one.
void appendTagCheck(nftnl_rule* rule, bool tagged) {
    constexpr uint32_t TYPE_OFFSET = 12;
    const uint16_t tag = htons(0x8100);
    appendPayload(rule, TYPE_OFFSET, VLAN_REGISTER);
    nftnl_expr* compare = appendExpression(rule, "cmp");
    nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_SREG, VLAN_REGISTER);
    nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_OP, tagged ? NFT_CMP_EQ : NFT_CMP_NEQ);
    nftnl_expr_set(compare, NFTNL_EXPR_CMP_DATA, &tag, sizeof tag);
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
        nftnl_expr_set_u32(bits, NFTNL_EXPR_BITWISE_LEN, sizeof mask);
        nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_MASK, &mask, sizeof mask);
        nftnl_expr_set(bits, NFTNL_EXPR_BITWISE_XOR, &none, sizeof none);
        // A tag may bear a priority alone; such a frame is of no VLAN.
        nftnl_expr* compare = appendExpression(rule, "cmp");
        nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_SREG, VLAN_REGISTER);
        nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_OP, NFT_CMP_NEQ);
        nftnl_expr_set(compare, NFTNL_EXPR_CMP_DATA, &none, sizeof none);
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
}

void appendCountedDrop(nftnl_rule* rule) {
    appendExpression(rule, "counter");
    appendVerdict(rule, NF_DROP);
}

// Access ports do not reach one another in VLANs that are not switched off. A way out that is switched off in
// all that leaves it untagged is open, wherever a frame came from; else one that came in by a port without a
// VLAN of its own, and so in an unknown one, is dropped.
void buildPonRule(nftnl_rule* rule, bool tagged) {
    appendAccess(rule);
    if (!tagged) appendLookup(rule, FilterSet::egressOff, REGISTER + DEVICE_REGISTERS, true);
    appendVlan(rule, tagged);
    appendLookup(rule, FilterSet::ponOff, VLAN_REGISTER, true);
    appendCountedDrop(rule);
}

// The same of frames whose VLAN the way out tells.
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
void appendRuleMessage(Batch& batch, int type, uint16_t flags, Build&& build) {
    nftnl_rule* rule = nftnl_rule_alloc();
    nftnl_rule_set_str(rule, NFTNL_RULE_TABLE, FILTER_TABLE);
    nftnl_rule_set_str(rule, NFTNL_RULE_CHAIN, CHAIN);
    build(rule);
    nlmsghdr* header = appendMessage(batch, type, flags);
    nftnl_rule_nlmsg_build_payload(header, rule);
    closeMessage(batch, header);
    nftnl_rule_free(rule);
}

template <typename Build>
void appendRule(Batch& batch, Build&& build) {
    appendRuleMessage(batch, NFT_MSG_NEWRULE, NLM_F_CREATE | NLM_F_APPEND, build);
}

void flushChain(Batch& batch) {
    appendRuleMessage(batch, NFT_MSG_DELRULE, 0, [](nftnl_rule*) {});
}

constexpr uint32_t PLAIN_RULES = 7;  // those that ask for no ingress VLAN
constexpr uint32_t PVID_RULES = 2;

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

void appendSet(Batch& batch, uint32_t id) {
    const SetShape& shape = SETS[id];
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, shape.name);
    nftnl_set_set_u32(set, NFTNL_SET_ID, id + 1);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_TYPE, shape.keyType);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_LEN, keyLength(shape));
    if (shape.counts) {
        nftnl_set_set_u32(set, NFTNL_SET_FLAGS, NFT_SET_EXPR);
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

int layTableWith(Filter& filter, bool pvid) {
    Batch batch = beginBatch(filter);
    appendTable(batch);
    appendChain(batch);
    for (uint32_t id = 0; id < SET_COUNT; id++) appendSet(batch, id);
    flushChain(batch);
    appendRules(batch, pvid);
    return commit(batch);
}

void setKey(nftnl_set_elem* made, const FilterElement& element) {
    const SetShape& shape = shapeOf(element.set);
    char key[2 * FILTER_DEVICE_SIZE + WORD] = {};
    memcpy(key, element.src.data(), FILTER_DEVICE_SIZE);
    memcpy(key + FILTER_DEVICE_SIZE, element.dst.data(), FILTER_DEVICE_SIZE);
    const uint16_t vid = htons(element.vid);
    if (shape.vlan) memcpy(key + shape.devices * FILTER_DEVICE_SIZE, &vid, sizeof vid);
    nftnl_set_elem_set(made, NFTNL_SET_ELEM_KEY, key, keyLength(shape));
}

// One message for at most MESSAGE_ELEMENTS elements of `set`, from `at` on; `at` goes behind the last.
void appendElements(Batch& batch, int type, FilterSet wanted, const std::vector<FilterElement>& elements,
                    size_t& at) {
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, shapeOf(wanted).name);
    for (size_t count = 0; at < elements.size() && count < MESSAGE_ELEMENTS; at++) {
        if (elements[at].set != wanted) continue;
        nftnl_set_elem* made = nftnl_set_elem_alloc();
        setKey(made, elements[at]);
        nftnl_set_elem_add(set, made);
        count++;
    }
    nlmsghdr* header = appendMessage(batch, type, type == NFT_MSG_NEWSETELEM ? NLM_F_CREATE : 0);
    nftnl_set_elems_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);
}

void appendAllElements(Batch& batch, int type, const std::vector<FilterElement>& elements) {
    for (size_t id = 0; id < SET_COUNT; id++) {
        const auto set = static_cast<FilterSet>(id);
        size_t at = 0;
        while (at < elements.size() && elements[at].set != set) at++;
        while (at < elements.size()) {
            appendElements(batch, type, set, elements, at);
            while (at < elements.size() && elements[at].set != set) at++;
        }
    }
}

FilterElement elementOf(FilterSet set, const char* key, uint32_t length) {
    const SetShape& shape = shapeOf(set);
    FilterElement element = {};
    element.set = set;
    if (length < keyLength(shape)) return element;
    if (shape.devices > 0) memcpy(element.src.data(), key, FILTER_DEVICE_SIZE);
    if (shape.devices > 1) memcpy(element.dst.data(), key + FILTER_DEVICE_SIZE, FILTER_DEVICE_SIZE);
    uint16_t vid = 0;
    if (shape.vlan) memcpy(&vid, key + shape.devices * FILTER_DEVICE_SIZE, sizeof vid);
    element.vid = ntohs(vid);
    return element;
}

bool isCounter(const nftnl_expr* expression) {
    return strcmp(nftnl_expr_get_str(expression, NFTNL_EXPR_NAME), "counter") == 0;
}

void takeElements(FilterSet set, const nlmsghdr* header, FilterElements& elements) {
    nftnl_set* part = nftnl_set_alloc();
    nftnl_set_elems_iter* each =
        nftnl_set_elems_nlmsg_parse(header, part) < 0 ? nullptr : nftnl_set_elems_iter_create(part);
    while (each != nullptr) {
        const nftnl_set_elem* found = nftnl_set_elems_iter_next(each);
        if (found == nullptr) break;
        uint32_t length = 0;
        uint32_t size = 0;
        const auto* key = static_cast<const char*>(
            nftnl_set_elem_get(const_cast<nftnl_set_elem*>(found), NFTNL_SET_ELEM_KEY, &length));
        if (key == nullptr) continue;
        FilterCounter counter = {};
        const auto* expression = static_cast<const nftnl_expr*>(
            nftnl_set_elem_get(const_cast<nftnl_set_elem*>(found), NFTNL_SET_ELEM_EXPR, &size));
        if (expression != nullptr && isCounter(expression))
            counter = {nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_PACKETS),
                       nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_BYTES)};
        elements[elementOf(set, key, length)] = counter;
    }
    if (each != nullptr) nftnl_set_elems_iter_destroy(each);
    nftnl_set_free(part);
}

void countRule(const nlmsghdr* header, uint32_t& rules, FilterCounter& pon) {
    nftnl_rule* rule = nftnl_rule_alloc();
    if (nftnl_rule_nlmsg_parse(header, rule) >= 0) {
        rules++;
        nftnl_expr_iter* each = nftnl_expr_iter_create(rule);
        while (nftnl_expr* expression = nftnl_expr_iter_next(each)) {
            if (!isCounter(expression)) continue;
            pon.packets += nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_PACKETS);
            pon.bytes += nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_BYTES);
        }
        nftnl_expr_iter_destroy(each);
    }
    nftnl_rule_free(rule);
}

int readRules(Filter& filter, uint32_t& rules, FilterCounter& pon) {
    return ask(
        filter, NFT_MSG_GETRULE, NLM_F_DUMP,
        [](nlmsghdr* header) {
            mnl_attr_put_strz(header, NFTA_RULE_TABLE, FILTER_TABLE);
            mnl_attr_put_strz(header, NFTA_RULE_CHAIN, CHAIN);
        },
        [&] {
            rules = 0;
            pon = {};
        },
        [&](const nlmsghdr* header) { countRule(header, rules, pon); });
}

int readTableFlags(Filter& filter, uint32_t& flags) {
    return ask(
        filter, NFT_MSG_GETTABLE, 0,
        [](nlmsghdr* header) { mnl_attr_put_strz(header, NFTA_TABLE_NAME, FILTER_TABLE); }, NOTHING,
        [&](const nlmsghdr* header) {
            nftnl_table* table = nftnl_table_alloc();
            if (nftnl_table_nlmsg_parse(header, table) >= 0)
                flags = nftnl_table_get_u32(table, NFTNL_TABLE_FLAGS);
            nftnl_table_free(table);
        });
}
}  // namespace

FilterElement filterElement(FilterSet set, std::string_view src, std::string_view dst, uint16_t vid) {
    FilterElement element = {};
    src.copy(element.src.data(), FILTER_DEVICE_SIZE - 1);
    dst.copy(element.dst.data(), FILTER_DEVICE_SIZE - 1);
    element.vid = vid;
    element.set = set;
    return element;
}

int openFilter(Filter& filter) {
    filter.socket = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
    if (filter.socket == nullptr) return errno;
    if (mnl_socket_bind(filter.socket, 0, MNL_SOCKET_AUTOPID) < 0) {
        const int problem = errno;
        closeFilter(filter);
        return problem;
    }
    filter.answer.resize(ANSWER_ROOM);
    return 0;
}

void closeFilter(Filter& filter) {
    if (filter.socket != nullptr) mnl_socket_close(filter.socket);
    filter.socket = nullptr;
}

int layTable(Filter& filter) {
    int problem = layTableWith(filter, true);
    filter.seesPvid = problem == 0;
    if (problem == EOPNOTSUPP || problem == EINVAL || problem == ENOENT)
        problem = layTableWith(filter, false);
    return problem;
}

int changeElements(Filter& filter, const std::vector<FilterElement>& add,
                   const std::vector<FilterElement>& del) {
    Batch batch = beginBatch(filter);
    appendAllElements(batch, NFT_MSG_NEWSETELEM, add);
    appendAllElements(batch, NFT_MSG_DELSETELEM, del);
    return commit(batch);
}

int readElements(Filter& filter, FilterElements& elements) {
    elements.clear();
    for (size_t id = 0; id < SET_COUNT; id++) {
        const auto set = static_cast<FilterSet>(id);
        const int problem = ask(
            filter, NFT_MSG_GETSETELEM, NLM_F_DUMP,
            [&](nlmsghdr* header) {
                mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_TABLE, FILTER_TABLE);
                mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_SET, shapeOf(set).name);
            },
            NOTHING, [&](const nlmsghdr* header) { takeElements(set, header, elements); });
        if (problem != 0) return problem;
    }
    return 0;
}

int readGeneration(Filter& filter, uint32_t& generation) {
    return ask(
        filter, NFT_MSG_GETGEN, 0, [](nlmsghdr*) {}, NOTHING,
        [&](const nlmsghdr* header) {
            nftnl_gen* gen = nftnl_gen_alloc();
            if (nftnl_gen_nlmsg_parse(header, gen) >= 0) generation = nftnl_gen_get_u32(gen, NFTNL_GEN_ID);
            nftnl_gen_free(gen);
        });
}

int inspectTable(Filter& filter, const char*& damage, FilterCounter& pon) {
    uint32_t flags = 0;
    uint32_t rules = 0;
    damage = nullptr;
    int problem = readTableFlags(filter, flags);
    if (problem == 0) problem = readRules(filter, rules, pon);
    if (problem == ENOENT) {
        damage = "was deleted from outside";
        return 0;
    }
    if ((flags & NFT_TABLE_F_DORMANT) != 0)
        damage = "was switched off from outside";
    else if (rules != PLAIN_RULES + (filter.seesPvid ? PVID_RULES : 0))
        damage = "was changed from outside";
    return problem;
}

#endif
