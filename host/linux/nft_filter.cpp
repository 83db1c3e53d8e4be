#include "host/linux/nft_filter.h"

#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/expr.h>
#include <libnftnl/set.h>
#include <libnftnl/table.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <cerrno>

#include "host/linux/nft_doors.h"

namespace {

constexpr char PROBE_CHAIN[] = "probe";
constexpr char PROBE_TABLE[] = "portisolate_probe";
constexpr uint32_t LAY_TRIES = 10;  // while others change the filter at the same time

// What the filter's own command notes of a set, to print its keys: the byte orders, and for a map of VLANs
// the expressions that it is typed by, in that command's own numbers.
constexpr uint32_t ORDER_HOST = 1;
constexpr uint32_t ORDER_NETWORK = 2;
constexpr uint32_t REMARKS_SIZE = 128;  // bytes
constexpr uint32_t TYPEOF_PAYLOAD = 7;
constexpr uint32_t TYPEOF_META = 9;
constexpr uint32_t PAYLOAD_VLAN = 16;
constexpr uint32_t PAYLOAD_VLAN_ID = 4;
constexpr uint32_t PAYLOAD_VLAN_BITS = 12;

uint32_t flagsOf(const Filter& filter) {
    return filter.owns ? NFT_TABLE_F_OWNER | TABLE_PERSISTS : 0;
}

void appendTable(Batch& batch, const char* name, uint32_t flags) {
    nftnl_table* table = nftnl_table_alloc();
    nftnl_table_set_str(table, NFTNL_TABLE_NAME, name);
    nftnl_table_set_u32(table, NFTNL_TABLE_FLAGS, flags);
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWTABLE, NLM_F_CREATE);
    nftnl_table_nlmsg_build_payload(header, table);
    closeMessage(batch, header);
    nftnl_table_free(table);
}

void appendChain(Batch& batch, const ChainShape& shape, const char* table = FILTER_TABLE) {
    nftnl_chain* chain = nftnl_chain_alloc();
    nftnl_chain_set_str(chain, NFTNL_CHAIN_TABLE, table);
    nftnl_chain_set_str(chain, NFTNL_CHAIN_NAME, shape.name);
    if (shape.hooked) {
        nftnl_chain_set_str(chain, NFTNL_CHAIN_TYPE, "filter");
        nftnl_chain_set_u32(chain, NFTNL_CHAIN_HOOKNUM, shape.hook);
        nftnl_chain_set_s32(chain, NFTNL_CHAIN_PRIO, shape.priority);
        nftnl_chain_set_u32(chain, NFTNL_CHAIN_POLICY, NF_ACCEPT);
    }
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWCHAIN, NLM_F_CREATE);
    nftnl_chain_nlmsg_build_payload(header, chain);
    closeMessage(batch, header);
    nftnl_chain_free(chain);
}

// The key is the expression of a frame's tag or of a meta key, the value a mark.
void putTypes(nftnl_udata_buf* remarks, bool tag) {
    const auto nested = [&](uint8_t type, auto&& fill) {
        nftnl_udata* nest = nftnl_udata_nest_start(remarks, type);
        fill();
        nftnl_udata_nest_end(remarks, nest);
    };
    const auto meta = [&](uint32_t key) {
        nftnl_udata_put_u32(remarks, NFTNL_UDATA_SET_TYPEOF_EXPR, TYPEOF_META);
        nested(NFTNL_UDATA_SET_TYPEOF_DATA, [&] { nftnl_udata_put_u32(remarks, 0, key); });
    };
    nested(NFTNL_UDATA_SET_KEY_TYPEOF, [&] {
        if (!tag) return meta(NFT_META_BRI_IIFPVID);
        nftnl_udata_put_u32(remarks, NFTNL_UDATA_SET_TYPEOF_EXPR, TYPEOF_PAYLOAD);
        nested(NFTNL_UDATA_SET_TYPEOF_DATA, [&] {
            nftnl_udata_put_u32(remarks, 0, PAYLOAD_VLAN);
            nftnl_udata_put_u32(remarks, 1, PAYLOAD_VLAN_ID);
            nftnl_udata_put_u32(remarks, 4, PAYLOAD_VLAN_BITS);
        });
    });
    nested(NFTNL_UDATA_SET_DATA_TYPEOF, [&] { meta(NFT_META_MARK); });
}

void appendRemarks(nftnl_set* set, FilterSet id) {
    const bool tag = id == FilterSet::tags;
    nftnl_udata_buf* remarks = nftnl_udata_buf_alloc(REMARKS_SIZE);
    nftnl_udata_put_u32(remarks, NFTNL_UDATA_SET_KEYBYTEORDER, tag ? ORDER_NETWORK : ORDER_HOST);
    if (shapeOf(id).dataType == NFT_TYPE_MARK) {
        nftnl_udata_put_u32(remarks, NFTNL_UDATA_SET_DATABYTEORDER, ORDER_HOST);
        if (id != FilterSet::spanMarks) putTypes(remarks, tag);
    }
    nftnl_set_set_data(set, NFTNL_SET_USERDATA, nftnl_udata_buf_data(remarks), nftnl_udata_buf_len(remarks));
    nftnl_udata_buf_free(remarks);
}

void appendSet(Batch& batch, uint32_t id) {
    const SetShape& shape = FILTER_SETS[id];
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, shape.name);
    nftnl_set_set_u32(set, NFTNL_SET_ID, id + 1);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_TYPE, shape.keyType);
    nftnl_set_set_u32(set, NFTNL_SET_KEY_LEN, shape.keyLength);
    if (shape.dataType != 0) {
        nftnl_set_set_u32(set, NFTNL_SET_FLAGS, NFT_SET_MAP);
        nftnl_set_set_u32(set, NFTNL_SET_DATA_TYPE, shape.dataType);
        nftnl_set_set_u32(set, NFTNL_SET_DATA_LEN, sizeof(uint32_t));
    }
    if (shape.counts) nftnl_set_add_expr(set, nftnl_expr_alloc("counter"));
    appendRemarks(set, static_cast<FilterSet>(id));
    nlmsghdr* header = appendMessage(batch, NFT_MSG_NEWSET, NLM_F_CREATE);
    nftnl_set_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);
}

bool isLaid(const Filter& filter, const FilterLayout& layout, size_t id) {
    const auto set = static_cast<FilterSet>(id);
    if (set >= FilterSet::spanPorts) return !filter.span.empty();
    return set != FilterSet::opened || !layout.closed.empty();
}

// What the table is made of but for its rules, and for the set of patterns, which is made anew with these.
TableContent bareContent(const Filter& filter, const FilterLayout& layout) {
    TableContent content;
    for (const ChainShape& chain : chainsOf(filter, layout)) {
        content[chainPart(chain.name)] =
            chain.hooked ? chainText(chain.hook, chain.priority, NF_ACCEPT) : NO_HOOK;
    }
    for (size_t id = 0; id < FILTER_SET_COUNT; ++id) {
        const SetShape& shape = FILTER_SETS[id];
        if (!isLaid(filter, layout, id)) continue;
        content[setPart(shape.name)] =
            setText(shape.dataType == 0 ? 0 : NFT_SET_MAP, shape.keyType, shape.keyLength, shape.dataType);
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
void appendRemovals(Batch& batch, const TableContent& standing, const TableContent& wanted) {
    if (standing.empty()) return;
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

struct Laying {
    FilterLayout layout;
    const RawChange* change;
    LayMode mode;
};

int layOnce(Filter& filter, const TableContent& standing, const Laying& laying) {
    TableContent kept = bareContent(filter, laying.layout);
    for (const FilterSet set : {FilterSet::vlanPairs, FilterSet::openVlans, FilterSet::tags, FilterSet::pvids,
                                FilterSet::spanMembers}) {
        if (laying.mode == LayMode::marksMove) kept.erase(setPart(shapeOf(set).name));
    }
    Batch batch = beginBatch(filter);
    const bool exchanged = laying.mode == LayMode::exchange && !standing.empty();
    if (exchanged) appendRemoval(batch, NFT_MSG_DELTABLE, NFTA_TABLE_NAME, 0, "");
    appendTable(batch, FILTER_TABLE, flagsOf(filter));
    if (!exchanged) appendRemovals(batch, standing, kept);
    for (const ChainShape& chain : chainsOf(filter, laying.layout)) appendChain(batch, chain);
    for (uint32_t id = 0; id < FILTER_SET_COUNT; ++id) {
        if (isLaid(filter, laying.layout, id)) appendSet(batch, id);
    }
    if (!laying.layout.closed.empty()) appendClosedSet(batch, FILTER_SET_COUNT + 1, laying.layout.closed);
    appendElements(batch, *laying.change);
    appendRules(batch, laying.layout);
    return commitBatch(batch);
}

}  // namespace

bool standsOtherwise(const Filter& filter, const TableContent& standing) {
    const auto table = standing.find(tablePart());
    return table != standing.end() && table->second != tableText(flagsOf(filter));
}

int layTable(Filter& filter, const FilterLayout& layout, const RawChange& change, LayMode mode,
             LaidTable& laid) {
    const RawChange none;
    Laying laying = {layout, &change, mode};
    // What is read back is what was laid when nobody else has changed the filter in between.
    for (uint32_t i = 0; i < LAY_TRIES; ++i) {
        RuleCounters counted;
        int problem = readGeneration(filter, laid.before);
        if (problem == 0) problem = readContent(filter, CLOSED_SET, laid.content, counted);
        if (problem == 0) problem = layOnce(filter, laid.content, laying);
        if (problem == 0) problem = readContent(filter, CLOSED_SET, laid.content, counted);
        if (problem == 0) problem = readGeneration(filter, laid.after);
        if (problem != 0) return problem;
        if (laid.after == laid.before + 1) return 0;
        laying = {layout, &none, LayMode::keep};
    }
    return EBUSY;
}

void probePvid(Filter& filter) {
    Batch batch = beginBatch(filter);
    appendTable(batch, PROBE_TABLE, 0);
    appendChain(batch, {PROBE_CHAIN, false, 0, 0}, PROBE_TABLE);
    appendPvidProbe(batch, PROBE_TABLE, PROBE_CHAIN);
    filter.seesPvid = abandonBatch(batch) == 0;
}

bool probeOwner(Filter& filter) {
    Batch batch = beginBatch(filter);
    appendTable(batch, PROBE_TABLE, NFT_TABLE_F_OWNER | TABLE_PERSISTS);
    return abandonBatch(batch) == 0;
}

int changeElements(Filter& filter, const RawChange& change) {
    Batch batch = beginBatch(filter);
    appendElements(batch, change);
    return commitBatch(batch);
}

bool isFormerLayout(const TableContent& standing) {
    return standing.contains(setPart("bi"));
}
