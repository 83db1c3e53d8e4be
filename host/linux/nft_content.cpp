#include "host/linux/nft_content.h"

#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <libnftnl/set.h>
#include <libnftnl/table.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr char RULE_PART[] = "rule ";
constexpr char DORMANT[] = "dormant";

template <typename Take>
int handOn(const nlattr* attribute, void* take) {
    (*static_cast<Take*>(take))(attribute);
    return MNL_CB_OK;
}

// The attributes within `outer`, which may be null.
template <typename Take>
void eachIn(const nlattr* outer, Take take) {
    if (outer != nullptr) mnl_attr_parse_nested(outer, handOn<Take>, &take);
}

// Null when there is none of this type.
const nlattr* attributeIn(const nlattr* outer, uint16_t wanted) {
    const nlattr* found = nullptr;
    eachIn(outer, [&](const nlattr* attribute) {
        if (mnl_attr_get_type(attribute) == wanted) found = attribute;
    });
    return found;
}

std::string textOf(const nlattr* attribute) {
    if (attribute == nullptr || mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) < 0) return {};
    return mnl_attr_get_str(attribute);
}

// The expressions as the kernel tells them, without what its counters have counted.
std::string expressionsText(const nlattr* expressions) {
    std::string text;
    eachIn(expressions, [&](const nlattr* element) {
        const std::string kind = textOf(attributeIn(element, NFTA_EXPR_NAME));
        const nlattr* data = attributeIn(element, NFTA_EXPR_DATA);
        text += kind + '\n';
        if (data == nullptr || kind == "counter") return;
        text.append(static_cast<const char*>(mnl_attr_get_payload(data)), mnl_attr_get_payload_len(data));
    });
    return text;
}

void addCounters(const nlmsghdr* header, FilterCounter& counted) {
    nftnl_rule* rule = nftnl_rule_alloc();
    nftnl_expr_iter* each = nftnl_rule_nlmsg_parse(header, rule) < 0 ? nullptr : nftnl_expr_iter_create(rule);
    while (nftnl_expr* expression = each == nullptr ? nullptr : nftnl_expr_iter_next(each)) {
        const FilterCounter counter = countedBy(expression);
        counted.packets += counter.packets;
        counted.bytes += counter.bytes;
    }
    if (each != nullptr) nftnl_expr_iter_destroy(each);
    nftnl_rule_free(rule);
}

void takeTable(const nlmsghdr* header, TableContent& content) {
    nftnl_table* table = nftnl_table_alloc();
    if (nftnl_table_nlmsg_parse(header, table) >= 0) {
        content[tablePart()] = tableText(nftnl_table_get_u32(table, NFTNL_TABLE_FLAGS));
    }
    nftnl_table_free(table);
}

void takeChain(const nlmsghdr* header, TableContent& content) {
    nftnl_chain* chain = nftnl_chain_alloc();
    if (nftnl_chain_nlmsg_parse(header, chain) >= 0 &&
        std::string_view(nftnl_chain_get_str(chain, NFTNL_CHAIN_TABLE)) == FILTER_TABLE) {
        std::string& text = content[chainPart(nftnl_chain_get_str(chain, NFTNL_CHAIN_NAME))];
        text = NO_HOOK;
        if (nftnl_chain_is_set(chain, NFTNL_CHAIN_HOOKNUM)) {
            text = chainText(nftnl_chain_get_u32(chain, NFTNL_CHAIN_HOOKNUM),
                             nftnl_chain_get_s32(chain, NFTNL_CHAIN_PRIO),
                             nftnl_chain_get_u32(chain, NFTNL_CHAIN_POLICY));
        }
    }
    nftnl_chain_free(chain);
}

// Sets without a name are a part of their rule, and go with it.
void takeSet(const nlmsghdr* header, TableContent& content) {
    nftnl_set* set = nftnl_set_alloc();
    if (nftnl_set_nlmsg_parse(header, set) >= 0) {
        const uint32_t flags = nftnl_set_get_u32(set, NFTNL_SET_FLAGS);
        if ((flags & NFT_SET_ANONYMOUS) == 0) {
            content[setPart(nftnl_set_get_str(set, NFTNL_SET_NAME))] = setText(
                flags, nftnl_set_get_u32(set, NFTNL_SET_KEY_TYPE), nftnl_set_get_u32(set, NFTNL_SET_KEY_LEN),
                (flags & NFT_SET_MAP) == 0 ? 0 : nftnl_set_get_u32(set, NFTNL_SET_DATA_TYPE));
        }
    }
    nftnl_set_free(set);
}

// Rules are told chain by chain, in their order.
struct RuleReader {
    TableContent& content;
    RuleCounters& counted;
    std::map<std::string, uint32_t> places = {};

    void take(const nlmsghdr* header) {
        const nlattr* expressions = nullptr;
        std::string chain;
        auto note = [&](const nlattr* attribute) {
            if (mnl_attr_get_type(attribute) == NFTA_RULE_CHAIN) chain = textOf(attribute);
            if (mnl_attr_get_type(attribute) == NFTA_RULE_EXPRESSIONS) expressions = attribute;
        };
        mnl_attr_parse(header, sizeof(nfgenmsg), handOn<decltype(note)>, &note);
        content[fmt::format("{}{} of chain {}", RULE_PART, ++places[chain], chain)] =
            expressionsText(expressions);
        addCounters(header, counted[chain]);
    }
};

int dump(Filter& filter, int type, uint16_t tableAttribute, const std::function<void()>& reset,
         const MessageReader& read) {
    const auto build = [&](nlmsghdr* header) { mnl_attr_put_strz(header, tableAttribute, FILTER_TABLE); };
    return ask(filter, type, NLM_F_DUMP, {.build = build, .reset = reset, .read = read});
}

void forget(TableContent& content, const std::string& kind) {
    std::erase_if(content, [&](const auto& part) { return part.first.starts_with(kind); });
}

// The elements as the kernel tells them, for a set whose elements do not count.
int readListed(Filter& filter, const char* name, TableContent& content) {
    std::string& text = content[fmt::format("content of set {}", name)];
    const auto build = [&](nlmsghdr* header) {
        mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_TABLE, FILTER_TABLE);
        mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_SET, name);
    };
    auto note = [&](const nlattr* attribute) {
        if (mnl_attr_get_type(attribute) != NFTA_SET_ELEM_LIST_ELEMENTS) return;
        text.append(static_cast<const char*>(mnl_attr_get_payload(attribute)),
                    mnl_attr_get_payload_len(attribute));
    };
    const auto read = [&](const nlmsghdr* header) {
        mnl_attr_parse(header, sizeof(nfgenmsg), handOn<decltype(note)>, &note);
    };
    return ask(filter, NFT_MSG_GETSETELEM, NLM_F_DUMP,
               {.build = build, .reset = [&] { text.clear(); }, .read = read});
}

}  // namespace

FilterCounter countedBy(const nftnl_expr* expression) {
    if (std::strcmp(nftnl_expr_get_str(expression, NFTNL_EXPR_NAME), "counter") != 0) return {};
    return {.packets = nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_PACKETS),
            .bytes = nftnl_expr_get_u64(expression, NFTNL_EXPR_CTR_BYTES)};
}

std::string tablePart() {
    return "table";
}

std::string chainPart(std::string_view chain) {
    return fmt::format("chain {}", chain);
}

std::string setPart(std::string_view set) {
    return fmt::format("set {}", set);
}

std::string tableText(uint32_t flags) {
    if ((flags & NFT_TABLE_F_DORMANT) != 0) return DORMANT;
    return (flags & TABLE_PERSISTS) != 0 ? "persistent" : "in force";
}

std::string chainText(uint32_t hook, int32_t priority, uint32_t policy) {
    return fmt::format("hook {} priority {} policy {}", hook, priority, policy);
}

std::string setText(uint32_t flags, uint32_t keyType, uint32_t keyLength, uint32_t dataType) {
    return fmt::format("flags {:#x} key {:#x} of {} to {:#x}", flags, keyType, keyLength, dataType);
}

int readContent(Filter& filter, const char* listed, TableContent& content, RuleCounters& counted) {
    content.clear();
    counted = {};
    const auto build = [](nlmsghdr* header) { mnl_attr_put_strz(header, NFTA_TABLE_NAME, FILTER_TABLE); };
    int problem = ask(filter, NFT_MSG_GETTABLE, 0,
                      {.build = build, .read = [&](const nlmsghdr* header) { takeTable(header, content); }});
    if (problem == ENOENT) return 0;
    if (problem == 0) {
        problem = dump(
            filter, NFT_MSG_GETCHAIN, NFTA_CHAIN_TABLE, [&] { forget(content, chainPart("")); },
            [&](const nlmsghdr* header) { takeChain(header, content); });
    }
    if (problem == 0) {
        problem = dump(
            filter, NFT_MSG_GETSET, NFTA_SET_TABLE, [&] { forget(content, setPart("")); },
            [&](const nlmsghdr* header) { takeSet(header, content); });
    }
    if (problem == 0 && content.contains(setPart(listed))) problem = readListed(filter, listed, content);
    RuleReader rules = {content, counted};
    const auto forgetRules = [&] {
        forget(content, RULE_PART);
        rules.places.clear();
        counted = {};
    };
    if (problem == 0) {
        problem = dump(filter, NFT_MSG_GETRULE, NFTA_RULE_TABLE, forgetRules,
                       [&](const nlmsghdr* header) { rules.take(header); });
    }
    return problem;
}

std::vector<std::string> contentDifferences(const TableContent& laid, const TableContent& found) {
    std::vector<std::string> differences;
    const auto compare = [&](const std::string& part, const std::string& text) {
        const auto now = found.find(part);
        if (now == found.end()) {
            differences.push_back(part + " was deleted");
        } else if (now->second == DORMANT) {
            differences.push_back(part + " was switched off");
        } else if (now->second != text) {
            differences.push_back((part == tablePart() ? "its flags were" : part + " was") + " changed");
        }
    };
    compare(tablePart(), laid.empty() ? tableText(0) : laid.at(tablePart()));
    if (found.empty()) return differences;
    for (const auto& [part, text] : laid) {
        if (part != tablePart()) compare(part, text);
    }
    for (const auto& [part, text] : found) {
        if (!laid.contains(part)) differences.push_back(part + " was added");
    }
    return differences;
}
