#include "common/config_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "common/config_reader.h"
#include "common/words.h"
#include "wire/records.h"

namespace {

constexpr char VLAN_ID[] = "a VLAN id";
constexpr size_t NEAR_MAX = 40;  // bytes of a wrong word that are compared with right ones
constexpr size_t POLICY_NAME_MAX = 32;
constexpr char POLICY_LETTERS[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-";

bool readMode(Reader& reader, ConfigLine& line) {
    ConfigWord word;
    const bool read = takeNumber(reader, "a mode", 0, UINT32_MAX, word, line.number);
    line.place = word.place;
    return read;
}

bool readGroup(Reader& reader, ConfigLine& line) {
    ConfigWord word;
    if (!takeNumber(reader, "a group number", 1, UINT32_MAX, word, line.number)) return false;
    line.place = word.place;
    if (line.kind == ConfigKind::vlanGroup &&
        (!takeKeyword(reader, "vlan") || !takeNumber(reader, VLAN_ID, 1, VLAN_ID_MAX, word, line.vlan))) {
        return false;
    }
    return takeMembers(reader, line.members);
}

bool readPair(Reader& reader, ConfigLine& line) {
    if (!takeWord(reader, "a source interface", line.source)) return false;
    line.place = line.source.place;
    if (!readSelector(reader, line.source)) return false;
    if (line.source.excluded) return mistake(reader, line.place, "a source cannot be left out");
    return takeKeyword(reader, "to") && takeMembers(reader, line.members);
}

// The VLANs of one word are added to the line, up to one that is not right.
void readVlans(Reader& reader, const ConfigWord& word, ConfigLine& line) {
    for (const std::string& text : expandWord(word.text)) {
        uint32_t vlan = 0;
        if (!parseGivenNumber(text, vlan) || vlan < 1 || vlan > VLAN_ID_MAX) {
            mistake(reader, word.place,
                    fmt::format("{} is not {}: give 1 to {}", quoted(text), VLAN_ID, VLAN_ID_MAX));
            return;
        }
        if (!reader.ponOff.insert(vlan).second) {
            mistake(reader, word.place, fmt::format("VLAN {} was named before", vlan));
            return;
        }
        line.vlans.push_back(vlan);
    }
}

bool readPon(Reader& reader, ConfigLine& line) {
    if (!takeKeyword(reader, "off")) return false;
    if (reader.words.empty()) return mistake(reader, reader.end, std::string(VLAN_ID) + " is missing here");
    for (const ConfigWord& word : reader.words) readVlans(reader, word, line);
    reader.words = {};
    return true;
}

bool readSpanning(Reader& reader, ConfigLine& line) {
    const ConfigWords words = reader.words;
    reader.words = {};
    if (words.empty()) return mistake(reader, reader.end, "a group or \"none\" is missing here");
    line.place = words.front().place;
    if (words.size() == 1 && words.front().text == SPANNING_NONE) return true;
    for (const ConfigWord& word : words) {
        std::string problem = addSpanningWord(word.text, line.spanning);
        if (!problem.empty()) return mistake(reader, word.place, std::move(problem));
    }
    return true;
}

// What a person calls a policy or a community.
bool takeName(Reader& reader, const char* wanted, std::string& name) {
    ConfigWord word;
    if (!takeWord(reader, wanted, word)) return false;
    name = word.text;
    if (name.size() <= POLICY_NAME_MAX && name.find_first_not_of(POLICY_LETTERS) == std::string::npos) {
        return true;
    }
    return mistake(reader, word.place,
                   fmt::format("{} is not {}: give at most {} letters, digits, \"_\", \".\" and \"-\"",
                               quoted(name), wanted, POLICY_NAME_MAX));
}

bool takeGroupRange(Reader& reader, ConfigLine& line) {
    ConfigWord word;
    if (!takeWord(reader, "a range of group numbers", word)) return false;
    const std::vector<std::string> numbers = expandWord(word.text);
    if (parseGivenNumber(numbers.front(), line.number) && line.number > 0 &&
        parseGivenNumber(numbers.back(), line.lastNumber)) {
        return true;
    }
    return mistake(reader, word.place,
                   quoted(word.text) + " is not a range of group numbers: give one such as 20-40");
}

bool readPolicy(Reader& reader, ConfigLine& line) {
    reader.inPolicy = true;
    if (reader.words.empty()) return mistake(reader, reader.end, "a name of the policy is missing here");
    line.place = reader.words.front().place;
    if (!takeName(reader, "a name of a policy", line.name)) return false;
    for (const ConfigLine& other : reader.file.lines) {
        if (other.kind != ConfigKind::policy || other.name != line.name) continue;
        return mistake(reader, line.place,
                       fmt::format("the policy {} stands in line {}", line.name, other.place.line));
    }
    ConfigWord word;
    if (!reader.words.empty() && reader.words.front().text == "vlan" &&
        (!takeKeyword(reader, "vlan") || !takeNumber(reader, VLAN_ID, 1, VLAN_ID_MAX, word, line.vlan))) {
        return false;
    }
    if (reader.words.empty()) return true;
    return takeKeyword(reader, "groups") && takeGroupRange(reader, line);
}

struct RoleWord {
    const char* word;
    RoleKind kind;
};

constexpr RoleWord ROLES[] = {{"promiscuous", RoleKind::promiscuous},
                              {"community", RoleKind::community},
                              {"isolated", RoleKind::isolated}};

// True when the line is one of a policy, right or not. Where the policy's own line has a mistake, its lines
// are read and dropped.
bool readRole(Reader& reader, const ConfigWord& word) {
    const RoleWord* found = std::find_if(std::begin(ROLES), std::end(ROLES),
                                         [&](const RoleWord& one) { return word.text == one.word; });
    if (found == std::end(ROLES)) return false;
    if (!reader.inPolicy) {
        return !mistake(reader, word.place, quoted(word.text) + " stands outside of a policy");
    }
    ConfigRole role{.kind = found->kind, .place = word.place, .name = {}, .members = {}};
    const bool named = role.kind == RoleKind::community;
    if (named && !takeName(reader, "a name of a community", role.name)) return true;
    if (!takeMembers(reader, role.members)) return true;
    std::vector<ConfigLine>& lines = reader.file.lines;
    if (!reader.policyBroken) lines.back().roles.push_back(std::move(role));
    return true;
}

struct Statement {
    const char* word;
    ConfigKind kind;
    bool rows;
    bool (*read)(Reader&, ConfigLine&);
};

constexpr Statement STATEMENTS[] = {
    {.word = "mode", .kind = ConfigKind::mode, .rows = false, .read = readMode},
    {.word = "group", .kind = ConfigKind::group, .rows = true, .read = readGroup},
    {.word = "vlan-group", .kind = ConfigKind::vlanGroup, .rows = true, .read = readGroup},
    {.word = "pair", .kind = ConfigKind::pair, .rows = true, .read = readPair},
    {.word = "pon", .kind = ConfigKind::ponOff, .rows = false, .read = readPon},
    {.word = "policy", .kind = ConfigKind::policy, .rows = false, .read = readPolicy},
    {.word = "spanning", .kind = ConfigKind::spanning, .rows = false, .read = readSpanning},
};
constexpr char CREATED_WORD[] = "created";

void unknownStatement(Reader& reader, const ConfigWord& word) {
    std::vector<std::string> names = {CREATED_WORD};
    for (const Statement& statement : STATEMENTS) names.emplace_back(statement.word);
    if (reader.inPolicy) {
        for (const RoleWord& role : ROLES) names.emplace_back(role.word);
    }
    const std::vector<std::string> near = nearNames(names, word.text.substr(0, NEAR_MAX));
    mistake(reader, word.place,
            quoted(word.text) + " does not begin a line; " +
                (near.empty() ? "these do: " + joinChoices(names, "and")
                              : "did you mean " + joinChoices(near, "or") + "?"));
}

void readLine(Reader& reader) {
    ConfigLine line;
    ConfigWord word = reader.words.front();
    reader.words = reader.words.subspan(1);
    if (readRole(reader, word)) return;
    line.active = word.text != CREATED_WORD;
    if (!line.active && !takeWord(reader, "group, vlan-group or pair", word)) return;
    const Statement* statement = std::find_if(std::begin(STATEMENTS), std::end(STATEMENTS),
                                              [&](const Statement& one) { return word.text == one.word; });
    if (statement == std::end(STATEMENTS)) {
        unknownStatement(reader, word);
        return;
    }
    if (!line.active && !statement->rows) {
        mistake(reader, word.place, "only groups, VLAN groups and pairs can be created without isolating");
        return;
    }
    line.kind = statement->kind;
    reader.inPolicy = false;
    bool read = statement->read(reader, line);
    if (read && !reader.words.empty()) {
        read = mistake(reader, reader.words.front().place,
                       quoted(reader.words.front().text) + " is one word too many");
    }
    reader.policyBroken = !read;
    if (read) reader.file.lines.push_back(std::move(line));
}

bool isBlank(char letter) {
    return letter == ' ' || letter == '\t' || letter == '\r';
}

// The words of a line with their places, up to a comment; `end` becomes the place behind the last.
std::vector<ConfigWord> wordsOf(std::string_view text, uint32_t number, Place& end) {
    std::vector<ConfigWord> words;
    size_t at = 0;
    // Columns are counted from the last word on, since lines may be long.
    size_t counted = 0;
    uint32_t column = 1;
    while (at < text.size()) {
        if (isBlank(text[at])) {
            ++at;
            continue;
        }
        if (text[at] == '#') break;
        size_t stop = at;
        while (stop < text.size() && !isBlank(text[stop])) ++stop;
        column += static_cast<uint32_t>(textWidth(text.substr(counted, at - counted)));
        counted = at;
        words.push_back({{number, column}, std::string(text.substr(at, stop - at))});
        at = stop;
        end = {number, column + static_cast<uint32_t>(textWidth(words.back().text)) + 1};
    }
    return words;
}

}  // namespace

ConfigFile parseConfig(std::string_view text) {
    ConfigFile file;
    if (text.size() > CONFIG_TEXT_MAX) {
        file.mistakes.push_back({{1, 1}, "the text is longer than 4 MiB"});
        return file;
    }
    std::set<uint32_t> ponOff;
    Reader reader{.file = file, .ponOff = ponOff};
    for (uint32_t number = 1; !text.empty(); ++number) {
        const size_t length = std::min(text.find('\n'), text.size());
        Place end;
        const std::vector<ConfigWord> words = wordsOf(text.substr(0, length), number, end);
        text.remove_prefix(std::min(length + 1, text.size()));
        if (words.empty()) continue;
        reader.words = words;
        reader.end = end;
        readLine(reader);
    }
    return file;
}

std::set<std::string> namesIn(const ConfigFile& file) {
    std::set<std::string> names;
    const auto add = [&names](const ConfigWord& word) {
        if (word.kind != WordKind::plain || word.excluded) return;
        for (const std::string& name : expandWord(word.text)) {
            if (names.size() < CONFIG_NAMES_MAX) names.insert(name);
        }
    };
    for (const ConfigLine& line : file.lines) {
        if (line.kind == ConfigKind::pair) add(line.source);
        for (const ConfigWord& member : line.members) add(member);
        for (const ConfigRole& role : line.roles) {
            for (const ConfigWord& member : role.members) add(member);
        }
    }
    return names;
}
