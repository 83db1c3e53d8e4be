#include "lib/configuration/configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "common/config_reader.h"
#include "common/text.h"
#include "lib/link/interfaces.h"
#include "lib/link/scalars.h"
#include "lib/link/spanning.h"
#include "lib/text/args.h"
#include "lib/text/output.h"
#include "wire/scalars.h"

namespace {

constexpr size_t RANGE_SHORTEST = 3;  // members that are worth a range
constexpr size_t LINE_WIDTH = 90;     // beyond which a group goes on with a line of its own

constexpr ConfigKind ROW_KINDS[] = {ConfigKind::group, ConfigKind::vlanGroup, ConfigKind::pair};

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
    if (isReadAsPattern(name)) return escapedName(name);
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
    running.spanning = readSpanning(session).groups;
    const std::vector<uint32_t> vlans = readPonOff(session);
    running.ponOff.insert(vlans.begin(), vlans.end());
    for (const ConfigKind kind : ROW_KINDS) {
        for (const Row& row : collectRows(session, rowFamily(kind), nullptr)) {
            running.rows[{kind, row.scope, row.member}] = row.status == ROW_STATE_PROGRAMMED;
        }
    }
    return running;
}

std::vector<std::string> configLines(Session& session, const Configuration& configuration) {
    std::vector<std::string> lines;
    if (configuration.mode) lines.push_back(fmt::format("mode {}", *configuration.mode));
    if (configuration.spanning) lines.push_back("spanning " + spanningText(*configuration.spanning));
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

bool spanDifferently(const Configuration& left, const Configuration& right) {
    return left.spanning && right.spanning && left.spanning != right.spanning;
}

Configuration without(const Configuration& whole, const Configuration& other) {
    Configuration rest;
    if (whole.mode && other.mode && whole.mode != other.mode) rest.mode = whole.mode;
    if (spanDifferently(whole, other)) rest.spanning = whole.spanning;
    for (const auto& [row, active] : whole.rows) {
        const auto same = other.rows.find(row);
        if (same == other.rows.end() || same->second != active) rest.rows[row] = active;
    }
    std::set_difference(whole.ponOff.begin(), whole.ponOff.end(), other.ponOff.begin(), other.ponOff.end(),
                        std::inserter(rest.ponOff, rest.ponOff.end()));
    return rest;
}
