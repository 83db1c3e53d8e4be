#include "lib/configuration/resolution.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/text.h"
#include "lib/configuration/patterns.h"
#include "lib/configuration/policy_rows.h"
#include "lib/link/interfaces.h"
#include "lib/link/scalars.h"
#include "lib/text/args.h"
#include "lib/text/output.h"
#include "wire/scalars.h"

namespace {

// A group number serves plain groups or one VLAN.
bool checkGroup(Resolver& resolver, const ConfigLine& line) {
    if (line.kind == ConfigKind::pair) return true;
    const auto [first, fresh] = resolver.groups.emplace(line.number, line);
    const ConfigLine& before = first->second;
    if (fresh || (before.kind == line.kind && before.vlan == line.vlan)) return true;
    addMistake(resolver, line.place,
               fmt::format("number {} serves {} in {}; take another", line.number,
                           before.kind == ConfigKind::group ? "a group without a VLAN"
                                                            : fmt::format("VLAN {}", before.vlan),
                           lineText(before.place)));
    return false;
}

// Adds the rows of one word, up to one that is not right.
void resolveMembers(Resolver& resolver, const ConfigLine& line, RowScope scope, const ConfigWord& word) {
    for (const uint32_t member : resolveWord(resolver, word)) {
        const ConfigRow row{line.kind, scope, member};
        const std::string name = safeText(interfaceName(resolver.session, member));
        if (line.kind == ConfigKind::pair && member == scope.number) {
            return addMistake(resolver, word.place, name + " is its own target");
        }
        const auto first = resolver.result.origins.find(row);
        if (first != resolver.result.origins.end()) {
            return addMistake(resolver, word.place,
                              name + " was named before, in " + lineText(first->second.place));
        }
        if (!addRow(resolver, row, line.active, {.place = word.place})) return;
    }
}

// The rows of one pattern that no name and no pattern in front of it speaks of.
void matchMembers(Resolver& resolver, const ConfigLine& line, RowScope scope, const ConfigWord& word) {
    for (const uint32_t member : matchPattern(boardInterfaces(resolver.session), word, line.members)) {
        const ConfigRow row{line.kind, scope, member};
        const bool itself = line.kind == ConfigKind::pair && member == scope.number;
        if (itself || resolver.result.origins.contains(row)) continue;
        if (!addRow(resolver, row, line.active, {.place = word.place, .pattern = true})) return;
    }
}

// The sources of a pair, or the group. Those that patterns stand for only with `patterns`.
std::vector<RowScope> scopesOf(Resolver& resolver, const ConfigLine& line, bool patterns) {
    if (line.kind != ConfigKind::pair) return {{line.number, line.vlan}};
    std::vector<uint32_t> sources;
    if (line.source.kind != WordKind::plain) {
        sources = matchPattern(boardInterfaces(resolver.session), line.source, {});
    } else {
        const FoundInterfaces found = findInterfaces(resolver.session, line.source.text);
        sources = patterns ? found.numbers : resolveWord(resolver, line.source);
        if (!patterns && sources.size() > 1) {
            addMistake(resolver, line.source.place, "give one source: this range holds several");
        }
        if (sources.size() > 1) sources.clear();
    }
    std::vector<RowScope> scopes;
    for (const uint32_t source : sources) scopes.push_back({source, 0});
    return scopes;
}

// Names before patterns, since they decide.
void resolveRows(Resolver& resolver, const ConfigLine& line, bool patterns) {
    const bool ofPattern = line.kind == ConfigKind::pair && line.source.kind != WordKind::plain;
    if (ofPattern && !patterns) return;
    for (const RowScope scope : scopesOf(resolver, line, patterns)) {
        for (const ConfigWord& word : line.members) {
            if (word.excluded) continue;
            const bool plain = word.kind == WordKind::plain;
            if (plain && patterns == ofPattern) resolveMembers(resolver, line, scope, word);
            if (!plain && patterns) matchMembers(resolver, line, scope, word);
        }
    }
}

// A pair within a group would be refused, whichever came first.
void checkPairs(Resolver& resolver) {
    std::map<uint32_t, std::set<uint32_t>> groups;  // by member
    for (const auto& [row, active] : resolver.result.wanted.rows) {
        if (row.kind == ConfigKind::group) groups[row.member].insert(row.scope.number);
        if (row.kind != ConfigKind::pair) continue;
        for (const uint32_t group : groups[row.scope.number]) {
            if (!groups[row.member].contains(group)) continue;
            addMistake(resolver, resolver.result.origins.at(row).place,
                       fmt::format("{} and {} share group {}, so they cannot be a pair",
                                   safeText(interfaceName(resolver.session, row.scope.number)),
                                   safeText(interfaceName(resolver.session, row.member)), group));
        }
    }
}

// The only line of its kind, the first where there are several; null where there is none.
const ConfigLine* singleLine(Resolver& resolver, ConfigKind kind, const char* what) {
    const ConfigLine* first = nullptr;
    for (const ConfigLine& line : resolver.file.lines) {
        if (line.kind != kind) continue;
        if (first != nullptr) {
            addMistake(resolver, line.place, std::string(what) + " set before, in " + lineText(first->place));
        }
        if (first == nullptr) first = &line;
    }
    return first;
}

void resolveValues(Resolver& resolver) {
    Configuration& wanted = resolver.result.wanted;
    for (const ConfigLine& line : resolver.file.lines) {
        if (line.kind == ConfigKind::ponOff) wanted.ponOff.insert(line.vlans.begin(), line.vlans.end());
    }
    const ConfigLine* mode = singleLine(resolver, ConfigKind::mode, "the mode was");
    if (mode != nullptr) wanted.mode = mode->number;
    const ConfigLine* spanning = singleLine(resolver, ConfigKind::spanning, "the groups that span were");
    if (spanning != nullptr) {
        wanted.spanning = spanning->spanning;
    } else if (resolver.standing.running.spanning) {
        wanted.spanning = SPANNING_ALL;
    }
}

bool isOfRows(const ConfigLine& line) {
    return line.kind == ConfigKind::group || line.kind == ConfigKind::vlanGroup ||
           line.kind == ConfigKind::pair;
}

void sortMistakes(ConfigFile& file) {
    std::stable_sort(file.mistakes.begin(), file.mistakes.end(),
                     [](const Mistake& left, const Mistake& right) {
                         return std::pair(left.place.line, left.place.column) <
                                std::pair(right.place.line, right.place.column);
                     });
}

}  // namespace

DaemonLimits readLimits(Session& session, const ConfigFile& file) {
    const bool needed = std::any_of(file.lines.begin(), file.lines.end(),
                                    [](const ConfigLine& line) { return line.kind == ConfigKind::policy; });
    if (!needed) return {};
    return {.groups = readNumber(session, SCALAR_MAX_ISO_GRP_NUM),
            .portsPerGroup = readNumber(session, SCALAR_MAX_PORT_NUM_PER_GRP),
            .pairsPerSource = readNumber(session, SCALAR_MAX_UNI_ISO_PORT_NUM)};
}

Resolution resolveConfig(Session& session, ConfigFile& file, const Standing& standing) {
    Resolver resolver{session, file, standing};
    resolveValues(resolver);
    std::vector<const ConfigLine*> lines;
    for (const ConfigLine& line : file.lines) {
        if (isOfRows(line) && checkGroup(resolver, line)) lines.push_back(&line);
    }
    for (const bool patterns : {false, true}) {
        for (const ConfigLine* line : lines) resolveRows(resolver, *line, patterns);
    }
    for (const ConfigLine& line : file.lines) {
        for (uint32_t number = line.number; line.lastNumber != 0 && number <= line.lastNumber; ++number) {
            resolver.reserved.insert(number);
        }
    }
    for (const ConfigLine& line : file.lines) {
        if (line.kind == ConfigKind::policy) resolvePolicy(resolver, line);
    }
    checkPairs(resolver);
    sortMistakes(file);
    return std::move(resolver.result);
}

void checkGroupNumbers(ConfigFile& file, uint32_t maxGroups) {
    for (const ConfigLine& line : file.lines) {
        const bool numbered = line.kind == ConfigKind::group || line.kind == ConfigKind::vlanGroup;
        if ((numbered && line.number > maxGroups) || line.lastNumber > maxGroups) {
            file.mistakes.push_back(
                {line.place, fmt::format("the daemon's group numbers run from 1 to {}", maxGroups)});
        }
    }
    sortMistakes(file);
}

std::string policyUseText(const PolicyUse& use) {
    std::vector<std::string> runs;
    for (auto number = use.groups.begin(); number != use.groups.end();) {
        const uint32_t first = *number;
        uint32_t last = first;
        while (++number != use.groups.end() && *number == last + 1) ++last;
        runs.push_back(first == last ? std::to_string(first) : fmt::format("{} to {}", first, last));
    }
    std::string text = fmt::format("policy {}: ", use.name);
    if (runs.empty()) text += "no group";
    if (!runs.empty()) text += (use.groups.size() == 1 ? "group " : "groups ") + joinChoices(runs, "and");
    if (use.pairs != 0) text += fmt::format(", {} pairs of ports both ways", use.pairs);
    return text;
}
