#include "ctl/configuration/configuration.h"

#include <algorithm>

#include "ctl/client/interfaces.h"
#include "ctl/client/settings.h"
#include "ctl/text/output.h"

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
    return formatText("line %u", place.line);
}

// A group number serves plain groups or one VLAN.
bool checkGroup(ConfigFile& file, const ConfigLine& line, Places& places) {
    if (line.kind == ConfigKind::pair) {
        return true;
    }
    const auto [first, fresh] = places.groups.emplace(line.number, line);
    const ConfigLine& before = first->second;
    if (fresh || (before.kind == line.kind && before.vlan == line.vlan)) {
        return true;
    }
    mistake(file, line.place,
            formatText("number %u serves ", line.number) +
                (before.kind == ConfigKind::group ? "a group without a VLAN"
                                                  : formatText("VLAN %u", before.vlan)) +
                " in " + placeText(before.place) + "; take another");
    return false;
}

// The interfaces that a word stands for; none after a mistake.
std::vector<uint32_t> settleWord(Session& session, ConfigFile& file, const ConfigWord& word) {
    std::vector<uint32_t> numbers;
    const std::string wrong = findInterfaces(session, word.text, numbers);
    if (!wrong.empty()) {
        mistake(file, word.place, wrong);
        return {};
    }
    return numbers;
}

// Adds the rows of one word, up to one that is not right.
void settleMembers(Session& session, ConfigFile& file, const ConfigLine& line, RowScope scope,
                   const ConfigWord& word, Configuration& wanted, Places& places) {
    for (const uint32_t member : settleWord(session, file, word)) {
        const ConfigRow row{line.kind, scope, member};
        const std::string name = safeText(interfaceName(session, member));
        if (line.kind == ConfigKind::pair && member == scope.number) {
            return mistake(file, word.place, name + " is its own target");
        }
        const auto [first, fresh] = places.rows.emplace(row, word.place);
        if (!fresh) {
            return mistake(file, word.place, name + " is named here before, in " + placeText(first->second));
        }
        if (wanted.rows.size() == ROWS_MAX) {
            return mistake(file, word.place, formatText("more than %zu rows", ROWS_MAX));
        }
        wanted.rows[row] = line.active;
    }
}

void settleRows(Session& session, ConfigFile& file, const ConfigLine& line, Configuration& wanted,
                Places& places) {
    RowScope scope{line.number, line.vlan};
    if (line.kind == ConfigKind::pair) {
        const std::vector<uint32_t> source = settleWord(session, file, line.source);
        if (source.size() > 1) {
            mistake(file, line.source.place, "one source is wanted here, and the range holds several");
        }
        if (source.size() != 1) {
            return;
        }
        scope.number = source.front();
    }
    for (const ConfigWord& word : line.members) {
        settleMembers(session, file, line, scope, word, wanted, places);
    }
}

// A pair within a group would be refused, whichever came first.
void checkPairs(Session& session, ConfigFile& file, const Configuration& wanted, const Places& places) {
    std::map<uint32_t, std::set<uint32_t>> groups;  // by member
    for (const auto& [row, active] : wanted.rows) {
        if (row.kind == ConfigKind::group) {
            groups[row.member].insert(row.scope.number);
        }
        if (row.kind != ConfigKind::pair) {
            continue;
        }
        for (const uint32_t group : groups[row.scope.number]) {
            if (groups[row.member].contains(group)) {
                mistake(file, places.rows.at(row),
                        safeText(interfaceName(session, row.scope.number)) + " and " +
                            safeText(interfaceName(session, row.member)) +
                            formatText(" share group %u, so they cannot be a pair", group));
            }
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

// The name of an interface where reading it gives the interface again, else its number.
std::string writtenName(Session& session, uint32_t number) {
    std::vector<uint32_t> numbers;
    const std::string name = interfaceName(session, number);
    const bool plain = !name.starts_with('#') && findInterfaces(session, name, numbers).empty() &&
                       numbers == std::vector<uint32_t>{number};
    return plain ? name : std::to_string(number);
}

// "ge1/1-4" for names from one to the other, which count up.
std::string rangeText(const std::string& first, const std::string& last) {
    return first + "-" + last.substr(last.find_last_not_of("0123456789") + 1);
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
        std::vector<uint32_t> numbers;
        if (run.size() >= RANGE_SHORTEST && expandRange(range) == run &&
            findInterfaces(session, range, numbers).empty() && numbers.size() == run.size()) {
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
    if (row.kind == ConfigKind::pair) {
        return front + "pair " + writtenName(session, row.scope.number) + " to";
    }
    return front + (row.kind == ConfigKind::group
                        ? formatText("group %u", row.scope.number)
                        : formatText("vlan-group %u vlan %u", row.scope.number, row.scope.vlan));
}

}  // namespace

const RowFamily& rowFamily(ConfigKind kind) {
    return kind == ConfigKind::group ? GROUP_ROWS : kind == ConfigKind::pair ? PAIR_ROWS : VLAN_GROUP_ROWS;
}

Exit readRunning(Session& session, Configuration& running) {
    uint32_t mode = 0;
    std::vector<uint32_t> vlans;
    Exit exit = readMode(session, mode);
    if (exit == Exit::done) {
        exit = readPonOff(session, vlans);
    }
    running.mode = mode;
    running.ponOff.insert(vlans.begin(), vlans.end());
    for (const ConfigKind kind : ROW_KINDS) {
        std::vector<Row> rows;
        if (exit == Exit::done) {
            exit = collectRows(session, rowFamily(kind), nullptr, true, rows);
        }
        for (const Row& row : rows) {
            running.rows[{kind, row.scope, row.member}] = row.status == STATUS_PROGRAMMED;
        }
    }
    return exit;
}

void settleConfig(Session& session, ConfigFile& file, Configuration& wanted) {
    Places places;
    const ConfigLine* mode = nullptr;
    for (const ConfigLine& line : file.lines) {
        if (line.kind == ConfigKind::ponOff) {
            wanted.ponOff.insert(line.vlans.begin(), line.vlans.end());
        } else if (line.kind != ConfigKind::mode) {
            if (checkGroup(file, line, places)) {
                settleRows(session, file, line, wanted, places);
            }
        } else if (mode != nullptr) {
            mistake(file, line.place, "the mode is set before, in " + placeText(mode->place));
        } else {
            mode = &line;
            wanted.mode = line.number;
        }
    }
    checkPairs(session, file, wanted, places);
    sortMistakes(file);
}

void checkGroupNumbers(ConfigFile& file, uint32_t maxGroups) {
    for (const ConfigLine& line : file.lines) {
        const bool numbered = line.kind == ConfigKind::group || line.kind == ConfigKind::vlanGroup;
        if (numbered && line.number > maxGroups) {
            mistake(file, line.place, formatText("the daemon's group numbers run from 1 to %u", maxGroups));
        }
    }
}

std::vector<std::string> configLines(Session& session, const Configuration& configuration) {
    std::vector<std::string> lines;
    if (configuration.mode) {
        lines.push_back(formatText("mode %u", *configuration.mode));
    }
    for (const ConfigKind kind : ROW_KINDS) {
        std::map<std::pair<RowScope, bool>, std::vector<std::string>> scopes;
        for (const auto& [row, active] : configuration.rows) {
            if (row.kind == kind) {
                scopes[{row.scope, !active}].push_back(writtenName(session, row.member));
            }
        }
        for (const auto& [scope, names] : scopes) {
            appendLines(lines, rowsHead(session, {kind, scope.first, 0}, !scope.second),
                        withRanges(session, names));
        }
    }
    if (!configuration.ponOff.empty()) {
        std::vector<std::string> vlans;
        for (const uint32_t vlan : configuration.ponOff) {
            vlans.push_back(std::to_string(vlan));
        }
        appendLines(lines, "pon off", withRanges(session, vlans));
    }
    return lines;
}
