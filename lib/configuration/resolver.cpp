#include "lib/configuration/resolver.h"

#include <fmt/format.h>

#include "lib/link/interfaces.h"

void addMistake(Resolver& resolver, Place place, std::string text) {
    resolver.file.mistakes.push_back({place, std::move(text)});
}

std::string lineText(Place place) {
    return fmt::format("line {}", place.line);
}

std::vector<uint32_t> resolveWord(Resolver& resolver, const ConfigWord& word) {
    const FoundInterfaces found = findInterfaces(resolver.session, word.text);
    const std::string wrong =
        found.wrong.empty() ? unlistedInterface(resolver.session, found.numbers) : found.wrong;
    if (wrong.empty()) return found.numbers;
    addMistake(resolver, word.place, wrong);
    return {};
}

bool addRow(Resolver& resolver, const ConfigRow& row, bool active, const Origin& origin) {
    if (resolver.result.wanted.rows.size() == CONFIG_ROWS_MAX) {
        addMistake(resolver, origin.place, fmt::format("more than {} rows", CONFIG_ROWS_MAX));
        return false;
    }
    resolver.result.wanted.rows[row] = active;
    resolver.result.origins.emplace(row, origin);
    return true;
}
