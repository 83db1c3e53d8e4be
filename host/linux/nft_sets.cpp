#include "host/linux/nft_sets.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/expr.h>
#include <libnftnl/set.h>
#include <linux/netfilter/nf_tables.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr size_t MESSAGE_ELEMENTS = 400;  // as many as the 64 KiB of one attribute hold

void setKey(nftnl_set_elem* made, const FilterElement& element) {
    const SetShape& shape = shapeOf(element.set);
    char key[KEY_MAX] = {};
    std::memcpy(key, element.src.data(), FILTER_DEVICE_SIZE);
    std::memcpy(key + FILTER_DEVICE_SIZE, element.dst.data(), FILTER_DEVICE_SIZE);
    const uint16_t vid = htons(element.vid);
    if (shape.vlan) std::memcpy(key + shape.devices * FILTER_DEVICE_SIZE, &vid, sizeof(vid));
    nftnl_set_elem_set(made, NFTNL_SET_ELEM_KEY, key, keyLength(shape));
}

// One message for at most MESSAGE_ELEMENTS elements of `set`, from `at` on; `at` goes behind the last.
void appendElements(Batch& batch, int type, FilterSet wanted, const std::vector<FilterElement>& elements,
                    size_t& at) {
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, shapeOf(wanted).name);
    for (size_t count = 0; at < elements.size() && count < MESSAGE_ELEMENTS; ++at) {
        if (elements[at].set != wanted) continue;
        nftnl_set_elem* made = nftnl_set_elem_alloc();
        setKey(made, elements[at]);
        nftnl_set_elem_add(set, made);
        ++count;
    }
    nlmsghdr* header = appendMessage(batch, type, type == NFT_MSG_NEWSETELEM ? NLM_F_CREATE : 0);
    nftnl_set_elems_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);
}

void appendAllElements(Batch& batch, int type, const std::vector<FilterElement>& elements) {
    for (size_t id = 0; id < FILTER_SET_COUNT; ++id) {
        const auto set = static_cast<FilterSet>(id);
        size_t at = 0;
        while (at < elements.size() && elements[at].set != set) ++at;
        while (at < elements.size()) {
            appendElements(batch, type, set, elements, at);
            while (at < elements.size() && elements[at].set != set) ++at;
        }
    }
}

FilterElement elementOf(FilterSet set, const char* key) {
    const SetShape& shape = shapeOf(set);
    FilterElement element = {};
    element.set = set;
    if (shape.devices > 0) std::memcpy(element.src.data(), key, FILTER_DEVICE_SIZE);
    if (shape.devices > 1) std::memcpy(element.dst.data(), key + FILTER_DEVICE_SIZE, FILTER_DEVICE_SIZE);
    uint16_t vid = 0;
    if (shape.vlan) std::memcpy(&vid, key + shape.devices * FILTER_DEVICE_SIZE, sizeof(vid));
    element.vid = ntohs(vid);
    return element;
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
        if (key == nullptr || length != keyLength(shapeOf(set))) continue;
        const auto* expression = static_cast<const nftnl_expr*>(
            nftnl_set_elem_get(const_cast<nftnl_set_elem*>(found), NFTNL_SET_ELEM_EXPR, &size));
        elements[elementOf(set, key)] = expression == nullptr ? FilterCounter{} : countedBy(expression);
    }
    if (each != nullptr) nftnl_set_elems_iter_destroy(each);
    nftnl_set_free(part);
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

int changeElements(Filter& filter, const std::vector<FilterElement>& add,
                   const std::vector<FilterElement>& del) {
    Batch batch = beginBatch(filter);
    appendAllElements(batch, NFT_MSG_NEWSETELEM, add);
    appendAllElements(batch, NFT_MSG_DELSETELEM, del);
    return commitBatch(batch);
}

int readElements(Filter& filter, FilterElements& elements) {
    elements.clear();
    for (size_t id = 0; id < FILTER_SET_COUNT; ++id) {
        const auto set = static_cast<FilterSet>(id);
        const int problem =
            ask(filter, NFT_MSG_GETSETELEM, NLM_F_DUMP,
                {.build =
                     [&](nlmsghdr* header) {
                         mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_TABLE, FILTER_TABLE);
                         mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_SET, shapeOf(set).name);
                     },
                 .read = [&](const nlmsghdr* header) { takeElements(set, header, elements); }});
        if (problem != 0 && problem != ENOENT) return problem;
    }
    return 0;
}
