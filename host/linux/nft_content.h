// What stands in the filter's table, part by part, so that it can be compared with what was laid: the table,
// each chain, each set, and each rule expression by expression. What changes by itself (counters, handles) is
// left out, and so are the sets' elements.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/linux/nft_transaction.h"

struct nftnl_expr;

struct FilterCounter {
    uint64_t packets;
    uint64_t bytes;
};

// What an expression of a rule or an element has counted; nothing when it is no counter.
FilterCounter countedBy(const nftnl_expr* expression);

// By the part's name in words, such as `rule 3 of chain forward`: what it is made of.
using TableContent = std::map<std::string, std::string>;

std::string tablePart();
std::string chainPart(std::string_view chain);
std::string setPart(std::string_view set);
// What the parts are made of, for one who lays them. The chain is one of the type `filter` with this hook.
// The flag of a table that outlives its owner, which the kernel knows since 6.9.
inline constexpr uint32_t TABLE_PERSISTS = 4;
std::string tableText(uint32_t flags);
inline constexpr char NO_HOOK[] = "no hook";
std::string chainText(uint32_t hook, int32_t priority, uint32_t policy);
std::string setText(uint32_t flags, uint32_t keyType, uint32_t keyLength, uint32_t dataType);

// What the rules of each chain count by themselves.
using RuleCounters = std::map<std::string, FilterCounter>;

// All parts; none where there is no table. Of the set `listed` its elements are a part, too.
int readContent(Filter& filter, const char* listed, TableContent& content, RuleCounters& counted);

// How `found` differs from what was laid, each as a part with a verb: "set bi was deleted". Empty: not at
// all. Where nothing of the table is in force, the first begins with its part.
std::vector<std::string> contentDifferences(const TableContent& laid, const TableContent& found);
