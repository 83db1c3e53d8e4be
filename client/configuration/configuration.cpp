#include "client/configuration/configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "client/link/interfaces.h"
#include "client/link/scalars.h"
#include "client/text/args.h"
#include "client/text/output.h"
#include "common/text.h"
#include "wire/scalars.h"

namespace {

constexpr size_t ROWS_MAX = 1 << 20;  // no daemon's tables hold more, and a file may name ranges at will
constexpr size_t RANGE_SHORTEST = 3;  // members that are worth a range
constexpr size_t LINE_WIDTH = 90;     // beyond which a group goes on with a line of its own

constexpr ConfigKind ROW_KINDS[] = {ConfigKind::group, ConfigKind::vlanGroup, ConfigKind::pair};

// Where each row and each group number of a file is named first.
struct Places {
    std::map<ConfigRow, Place> rows;
    std::map<uint32_t, ConfigLine> groups;
};

void mistake(ConfigFile& file, Place place, std::string text) {
    file.mistakes.push_back({place, std::move(text)});
}

std::string placeText(Place place) {
    return fmt::format("line {}", place.line);
}

// A file while its names are resolved.
struct Resolver {
    Session& session;
    ConfigFile& file;
    Configuration wanted;
    Places places;
};

// A group number serves plain groups or one VLAN.
bool checkGroup(Resolver& resolver, const ConfigLine& line) {
    if (line.kind == ConfigKind::pair) return true;
    const auto [first, fresh] = resolver.places.groups.emplace(line.number, line);
    const ConfigLine& before = first->second;
    if (fresh || (before.kind == line.kind && before.vlan == line.vlan)) return true;
    mistake(resolver.file, line.place,
            fmt::format("number {} serves {} in {}; take another", line.number,
                        before.kind == ConfigKind::group ? "a group without a VLAN"
                                                         : fmt::format("VLAN {}", before.vlan),
                        placeText(before.place)));
    return false;
}

// The interfaces that a word stands for; none after a mistake.
std::vector<uint32_t> resolveWord(Resolver& resolver, const ConfigWord& word) {
    const FoundInterfaces found = findInterfaces(resolver.session, word.text);
    const std::string wrong =
        found.wrong.empty() ? unlistedInterface(resolver.session, found.numbers) : found.wrong;
    if (wrong.empty()) return found.numbers;
    mistake(resolver.file, word.place, wrong);
    return {};
}

// Adds the rows of one word, up to one that is not right.
void resolveMembers(Resolver& resolver, const ConfigLine& line, RowScope scope, const ConfigWord& word) {
    ConfigFile& file = resolver.file;
    for (const uint32_t member : resolveWord(resolver, word)) {
        const ConfigRow row{line.kind, scope, member};
        const std::string name = safeText(interfaceName(resolver.session, member));
        if (line.kind == ConfigKind::pair && member == scope.number) {
            return mistake(file, word.place, name + " is its own target");
        }
        const auto [first, fresh] = resolver.places.rows.emplace(row, word.place);
        if (!fresh) {
            return mistake(file, word.place, name + " was named before, in " + placeText(first->second));
        }
        if (resolver.wanted.rows.size() == ROWS_MAX) {
            return mistake(file, word.place, fmt::format("more than {} rows", ROWS_MAX));
        }
        resolver.wanted.rows[row] = line.active;
    }
}

void resolveRows(Resolver& resolver, const ConfigLine& line) {
    RowScope scope{line.number, line.vlan};
    if (line.kind == ConfigKind::pair) {
        const std::vector<uint32_t> source = resolveWord(resolver, line.source);
        if (source.size() > 1) {
            mistake(resolver.file, line.source.place, "give one source: this range holds several");
        }
        if (source.size() != 1) return;
        scope.number = source.front();
    }
    for (const ConfigWord& word : line.members) resolveMembers(resolver, line, scope, word);
}

// A pair within a group would be refused, whichever came first.
void checkPairs(Resolver& resolver) {
    std::map<uint32_t, std::set<uint32_t>> groups;  // by member
    for (const auto& [row, active] : resolver.wanted.rows) {
        if (row.kind == ConfigKind::group) groups[row.member].insert(row.scope.number);
        if (row.kind != ConfigKind::pair) continue;
        for (const uint32_t group : groups[row.scope.number]) {
            if (!groups[row.member].contains(group)) continue;
            mistake(resolver.file, resolver.places.rows.at(row),
                    fmt::format("{} and {} share group {}, so they cannot be a pair",
                                safeText(interfaceName(resolver.session, row.scope.number)),
                                safeText(interfaceName(resolver.session, row.member)), group));
        }
    }
}

void sortMistakes(ConfigFile& file) {
    std::stable_sort(file.mistakes.begin(), file.mistakes.end(),
                     [](const Mistake& left, const Mistake& right) {
                         return std::pair(left.place.line, left.place.column) <
                                std::pair(right.place.line, right.place.column);
                     });
}

// "ge1/1-4" for names from one to the other, which count up.
std::string rangeText(const std::string& first, const std::string& last) {
    return first + "-" + last.substr(last.find_last_not_of("0123456789") + 1);
}

// The name of an interface where reading it gives the interface again, else its number. A name that looks
// like a range is written as the range that holds it alone: it is read so also while the board does not have
// it.
std::string writtenName(Session& session, uint32_t number) {
    std::string name = interfaceName(session, number);
    const bool comment = name.starts_with('#');
    const auto isRead = [&](const std::string& text) {
        return findInterfaces(session, text).numbers == std::vector<uint32_t>{number};
    };
    const std::string alone = expandRange(name).empty() ? name : rangeText(name, name);
    for (const std::string& text : {alone, name}) {
        if (!comment && isRead(text)) return text;
    }
    const std::string decimal = std::to_string(number);
    return isRead(decimal) ? decimal : fmt::format("{:#x}", number);
}

// `names` with those that count up as ranges, where reading the range gives them again.
std::vector<std::string> withRanges(Session& session, const std::vector<std::string>& names) {
    std::vector<std::string> words;
    for (size_t at = 0; at < names.size();) {
        size_t end = at + 1;
        while (end < names.size() && end - at < RANGE_MAX &&
               expandRange(rangeText(names[end - 1], names[end])) ==
                   std::vector<std::string>{names[end - 1], names[end]}) {
            ++end;
        }
        const auto first = names.begin() + static_cast<ptrdiff_t>(at);
        const std::vector<std::string> run(first, names.begin() + static_cast<ptrdiff_t>(end));
        const std::string range = rangeText(run.front(), run.back());
        if (run.size() >= RANGE_SHORTEST && expandRange(range) == run &&
            findInterfaces(session, range).numbers.size() == run.size()) {
            words.push_back(range);
        } else {
            words.insert(words.end(), run.begin(), run.end());
        }
        at = end;
    }
    return words;
}

// `head` and words behind it, on as many lines as it takes; each begins with the head.
void appendLines(std::vector<std::string>& lines, const std::string& head,
                 const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        if (!line.empty() && textWidth(line) + 1 + textWidth(word) > LINE_WIDTH) {
            lines.push_back(line);
            line.clear();
        }
        line += (line.empty() ? head : "") + " " + word;
    }
    lines.push_back(line);
}

std::string rowsHead(Session& session, const ConfigRow& row, bool active) {
    const std::string front = active ? "" : "created ";
    if (row.kind == ConfigKind::pair) return front + "pair " + writtenName(session, row.scope.number) + " to";
    return front + (row.kind == ConfigKind::group
                        ? fmt::format("group {}", row.scope.number)
                        : fmt::format("vlan-group {} vlan {}", row.scope.number, row.scope.vlan));
}

}  // namespace

const RowFamily& rowFamily(ConfigKind kind) {
    return kind == ConfigKind::group ? GROUP_ROWS : kind == ConfigKind::pair ? PAIR_ROWS : VLAN_GROUP_ROWS;
}

Configuration readRunning(Session& session) {
    Configuration running;
    running.mode = readNumber(session, SCALAR_MODE);
    const std::vector<uint32_t> vlans = readPonOff(session);
    running.ponOff.insert(vlans.begin(), vlans.end());
    for (const ConfigKind kind : ROW_KINDS) {
        for (const Row& row : collectRows(session, rowFamily(kind), nullptr)) {
            running.rows[{kind, row.scope, row.member}] = row.status == ROW_STATE_PROGRAMMED;
        }
    }
    return running;
}

Configuration resolveConfig(Session& session, ConfigFile& file) {
    Resolver resolver{session, file, {}, {}};
    const ConfigLine* mode = nullptr;
    for (const ConfigLine& line : file.lines) {
        if (line.kind == ConfigKind::ponOff) {
            resolver.wanted.ponOff.insert(line.vlans.begin(), line.vlans.end());
        } else if (line.kind != ConfigKind::mode) {
            if (checkGroup(resolver, line)) resolveRows(resolver, line);
        } else if (mode != nullptr) {
            mistake(file, line.place, "the mode was set before, in " + placeText(mode->place));
        } else {
            mode = &line;
            resolver.wanted.mode = line.number;
        }
    }
    checkPairs(resolver);
    sortMistakes(file);
    return resolver.wanted;
}

void checkGroupNumbers(ConfigFile& file, uint32_t maxGroups) {
    for (const ConfigLine& line : file.lines) {
        const bool numbered = line.kind == ConfigKind::group || line.kind == ConfigKind::vlanGroup;
        if (numbered && line.number > maxGroups) {
            mistake(file, line.place, fmt::format("the daemon's group numbers run from 1 to {}", maxGroups));
        }
    }
}

std::vector<std::string> configLines(Session& session, const Configuration& configuration) {
    std::vector<std::string> lines;
    if (configuration.mode) lines.push_back(fmt::format("mode {}", *configuration.mode));
    for (const ConfigKind kind : ROW_KINDS) {
        std::map<std::pair<RowScope, bool>, std::vector<std::string>> scopes;
        for (const auto& [row, active] : configuration.rows) {
            if (row.kind == kind) scopes[{row.scope, !active}].push_back(writtenName(session, row.member));
        }
        for (const auto& [scope, names] : scopes) {
            appendLines(lines, rowsHead(session, {kind, scope.first, 0}, !scope.second),
                        withRanges(session, names));
        }
    }
    if (!configuration.ponOff.empty()) {
        std::vector<std::string> vlans;
        for (const uint32_t vlan : configuration.ponOff) vlans.push_back(std::to_string(vlan));
        appendLines(lines, "pon off", withRanges(session, vlans));
    }
    return lines;
}

Configuration without(const Configuration& whole, const Configuration& other) {
    Configuration rest;
    if (whole.mode && other.mode && whole.mode != other.mode) rest.mode = whole.mode;
    for (const auto& [row, active] : whole.rows) {
        const auto same = other.rows.find(row);
        if (same == other.rows.end() || same->second != active) rest.rows[row] = active;
    }
    std::set_difference(whole.ponOff.begin(), whole.ponOff.end(), other.ponOff.begin(), other.ponOff.end(),
                        std::inserter(rest.ponOff, rest.ponOff.end()));
    return rest;
}
