#include "host/linux/nft_elements.h"

#include <libmnl/libmnl.h>
#include <libnftnl/expr.h>
#include <libnftnl/set.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace {

constexpr size_t MESSAGE_ELEMENTS = 400;  // as many as the 64 KiB of one attribute hold
constexpr uint32_t REMARK_SIZE = 64;      // bytes

constexpr const char* REMARKS[] = {nullptr, nullptr, "one-way", "two-way and one-way"};  // by NEED_DROP

void setVerdict(nftnl_set_elem* made, uint8_t needs) {
    constexpr auto JUMP = static_cast<uint32_t>(NFT_JUMP);
    const uint32_t verdict = (needs & NEED_DROP) != 0 ? NF_DROP : needs == NEED_HAIRPIN ? NF_ACCEPT : JUMP;
    nftnl_set_elem_set_u32(made, NFTNL_SET_ELEM_VERDICT, verdict);
    if (needs == NEED_WITHIN) nftnl_set_elem_set_str(made, NFTNL_SET_ELEM_CHAIN, WITHIN_CHAIN);
    const char* remark = REMARKS[needs & NEED_DROP];
    if (remark == nullptr) return;
    nftnl_udata_buf* remarks = nftnl_udata_buf_alloc(REMARK_SIZE);
    nftnl_udata_put_strz(remarks, NFTNL_UDATA_SET_ELEM_COMMENT, remark);
    nftnl_set_elem_set(made, NFTNL_SET_ELEM_USERDATA, nftnl_udata_buf_data(remarks),
                       nftnl_udata_buf_len(remarks));
    nftnl_udata_buf_free(remarks);
}

nftnl_set_elem* makeElement(const RawElement& raw, bool whole) {
    const SetShape& shape = shapeOf(raw.set);
    nftnl_set_elem* made = nftnl_set_elem_alloc();
    nftnl_set_elem_set(made, NFTNL_SET_ELEM_KEY, raw.key.data(), shape.keyLength);
    if (whole && shape.dataType == NFT_VERDICTS) setVerdict(made, raw.needs);
    if (whole && shape.dataType == NFT_TYPE_MARK) {
        nftnl_set_elem_set(made, NFTNL_SET_ELEM_DATA, &raw.mark, sizeof(raw.mark));
    }
    if (whole && raw.counter.packets != 0) {
        nftnl_expr* counter = nftnl_expr_alloc("counter");
        nftnl_expr_set_u64(counter, NFTNL_EXPR_CTR_PACKETS, raw.counter.packets);
        nftnl_expr_set_u64(counter, NFTNL_EXPR_CTR_BYTES, raw.counter.bytes);
        nftnl_set_elem_add_expr(made, counter);
    }
    return made;
}

// One message for at most MESSAGE_ELEMENTS elements of `wanted`, from `at` on; `at` goes behind the last.
void appendMessageOf(Batch& batch, int type, FilterSet wanted, const std::vector<RawElement>& elements,
                     size_t& at) {
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, shapeOf(wanted).name);
    for (size_t count = 0; at < elements.size() && count < MESSAGE_ELEMENTS; ++at) {
        if (elements[at].set != wanted) continue;
        nftnl_set_elem_add(set, makeElement(elements[at], type == NFT_MSG_NEWSETELEM));
        ++count;
    }
    nlmsghdr* header = appendMessage(batch, type, type == NFT_MSG_NEWSETELEM ? NLM_F_CREATE : 0);
    nftnl_set_elems_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);
}

void appendAll(Batch& batch, int type, const std::vector<RawElement>& elements) {
    for (size_t id = 0; id < FILTER_SET_COUNT; ++id) {
        const auto set = static_cast<FilterSet>(id);
        size_t at = 0;
        const auto skip = [&] {
            while (at < elements.size() && elements[at].set != set) ++at;
        };
        for (skip(); at < elements.size(); skip()) appendMessageOf(batch, type, set, elements, at);
    }
}

bool isRemark(nftnl_set_elem* element, const char* remark) {
    uint32_t length = 0;
    const auto* data =
        static_cast<const char*>(nftnl_set_elem_get(element, NFTNL_SET_ELEM_USERDATA, &length));
    const std::string_view text = data == nullptr ? "" : std::string_view(data, length);
    return remark == nullptr ? text.empty()
                             : text.find(remark) == 2 && text.size() == std::strlen(remark) + 3;
}

uint8_t needsOf(nftnl_set_elem* element) {
    if (!nftnl_set_elem_is_set(element, NFTNL_SET_ELEM_VERDICT)) return NEED_STRANGE;
    const auto verdict = static_cast<int32_t>(nftnl_set_elem_get_u32(element, NFTNL_SET_ELEM_VERDICT));
    const char* chain = nftnl_set_elem_get_str(element, NFTNL_SET_ELEM_CHAIN);
    const bool within = chain != nullptr && std::string_view(chain) == WITHIN_CHAIN;
    if (verdict == NF_ACCEPT) return NEED_HAIRPIN;
    if (verdict == NFT_JUMP && within) return NEED_WITHIN;
    for (uint8_t needs = NEED_TWO_WAY; verdict == NF_DROP && needs <= NEED_DROP; ++needs) {
        if (isRemark(element, REMARKS[needs])) return needs;
    }
    return NEED_STRANGE;
}

FoundElement foundElement(nftnl_set_elem* element, uint32_t keyLength, uint32_t dataType) {
    FoundElement found = {};
    uint32_t length = 0;
    uint32_t size = 0;
    found.key = static_cast<const char*>(nftnl_set_elem_get(element, NFTNL_SET_ELEM_KEY, &length));
    if (length != keyLength) found.key = nullptr;
    const auto* expression =
        static_cast<const nftnl_expr*>(nftnl_set_elem_get(element, NFTNL_SET_ELEM_EXPR, &size));
    if (expression != nullptr) found.counter = countedBy(expression);
    if (dataType == NFT_VERDICTS) found.needs = needsOf(element);
    const void* data =
        dataType == NFT_TYPE_MARK ? nftnl_set_elem_get(element, NFTNL_SET_ELEM_DATA, &size) : nullptr;
    if (data != nullptr && size == sizeof(found.mark)) std::memcpy(&found.mark, data, sizeof(found.mark));
    return found;
}

void takeMessage(const nlmsghdr* header, uint32_t keyLength, uint32_t dataType, const TakeElement& take) {
    nftnl_set* part = nftnl_set_alloc();
    nftnl_set_elems_iter* each =
        nftnl_set_elems_nlmsg_parse(header, part) < 0 ? nullptr : nftnl_set_elems_iter_create(part);
    while (nftnl_set_elem* element = each == nullptr ? nullptr : nftnl_set_elems_iter_next(each)) {
        const FoundElement found = foundElement(element, keyLength, dataType);
        if (found.key != nullptr) take(found);
    }
    if (each != nullptr) nftnl_set_elems_iter_destroy(each);
    nftnl_set_free(part);
}

}  // namespace

void appendElements(Batch& batch, const RawChange& change) {
    appendAll(batch, NFT_MSG_DELSETELEM, change.del);
    appendAll(batch, NFT_MSG_NEWSETELEM, change.add);
}

int readSet(Filter& filter, const char* name, uint32_t keyLength, uint32_t dataType,
            const TakeElement& take) {
    const auto build = [&](nlmsghdr* header) {
        mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_TABLE, FILTER_TABLE);
        mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_SET, name);
    };
    const auto read = [&](const nlmsghdr* header) { takeMessage(header, keyLength, dataType, take); };
    const int problem = ask(filter, NFT_MSG_GETSETELEM, NLM_F_DUMP, {.build = build, .read = read});
    return problem == ENOENT ? 0 : problem;
}

int readSet(Filter& filter, FilterSet set, const TakeElement& take) {
    const SetShape& shape = shapeOf(set);
    return readSet(filter, shape.name, shape.keyLength, shape.dataType, take);
}
