#include "common/config_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <span>

#include "common/words.h"
#include "wire/records.h"

namespace {

constexpr char VLAN_ID[] = "a VLAN id";
constexpr size_t QUOTED_MAX = 40;  // bytes of a wrong word that are shown

using Words = std::span<const ConfigWord>;

// What is being read: the line so far, and where mistakes go.
struct Reader {
    ConfigFile& file;
    std::set<uint32_t>& ponOff;  // VLANs of the lines before
    Words words;                 // those left of the line
    Place end;                   // behind the last word
};

std::string quoted(std::string_view text) {
    const bool cut = text.size() > QUOTED_MAX;
    return "\"" + std::string(text.substr(0, QUOTED_MAX)) + (cut ? "..." : "") + "\"";
}

bool mistake(Reader& reader, Place place, std::string text) {
    reader.file.mistakes.push_back({place, std::move(text)});
    return false;
}

// Takes the next word off the line; without one it is a mistake that `wanted` is missing.
bool takeWord(Reader& reader, const char* wanted, ConfigWord& word) {
    if (reader.words.empty()) return mistake(reader, reader.end, std::string(wanted) + " is missing here");
    word = reader.words.front();
    reader.words = reader.words.subspan(1);
    return true;
}

bool takeKeyword(Reader& reader, const char* keyword) {
    ConfigWord word;
    const std::string wanted = "\"" + std::string(keyword) + "\"";
    if (!takeWord(reader, wanted.c_str(), word)) return false;
    return word.text == keyword ||
           mistake(reader, word.place, quoted(word.text) + " stands where " + wanted + " belongs");
}

bool takeNumber(Reader& reader, const char* wanted, uint32_t least, uint32_t most, ConfigWord& word,
                uint32_t& number) {
    if (!takeWord(reader, wanted, word)) return false;
    if (parseGivenNumber(word.text, number) && number >= least && number <= most) return true;
    const std::string range =
        most == UINT32_MAX ? fmt::format("a number from {} up", least) : fmt::format("{} to {}", least, most);
    return mistake(reader, word.place,
                   fmt::format("{} is not {}: give {}", quoted(word.text), wanted, range));
}

bool takeMembers(Reader& reader, ConfigLine& line) {
    if (reader.words.empty()) return mistake(reader, reader.end, "an interface is missing here");
    line.members.assign(reader.words.begin(), reader.words.end());
    reader.words = {};
    return true;
}

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
    return takeMembers(reader, line);
}

bool readPair(Reader& reader, ConfigLine& line) {
    if (!takeWord(reader, "a source interface", line.source)) return false;
    line.place = line.source.place;
    return takeKeyword(reader, "to") && takeMembers(reader, line);
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
};
constexpr char CREATED_WORD[] = "created";

void unknownStatement(Reader& reader, const ConfigWord& word) {
    std::vector<std::string> names = {CREATED_WORD};
    for (const Statement& statement : STATEMENTS) names.emplace_back(statement.word);
    const std::vector<std::string> near = nearNames(names, word.text.substr(0, QUOTED_MAX));
    mistake(reader, word.place,
            quoted(word.text) + " does not begin a line; " +
                (near.empty() ? "these do: " + joinChoices(names, "and")
                              : "did you mean " + joinChoices(near, "or") + "?"));
}

void readLine(Reader& reader) {
    ConfigLine line;
    ConfigWord word = reader.words.front();
    reader.words = reader.words.subspan(1);
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
    if (!statement->read(reader, line)) return;
    if (!reader.words.empty()) {
        mistake(reader, reader.words.front().place,
                quoted(reader.words.front().text) + " is one word too many");
        return;
    }
    reader.file.lines.push_back(std::move(line));
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
    for (uint32_t number = 1; !text.empty(); ++number) {
        const size_t length = std::min(text.find('\n'), text.size());
        Place end;
        const std::vector<ConfigWord> words = wordsOf(text.substr(0, length), number, end);
        text.remove_prefix(std::min(length + 1, text.size()));
        if (words.empty()) continue;
        Reader reader{file, ponOff, words, end};
        readLine(reader);
    }
    return file;
}

std::set<std::string> namesIn(const ConfigFile& file) {
    std::set<std::string> names;
    const auto add = [&names](const ConfigWord& word) {
        for (const std::string& name : expandWord(word.text)) {
            if (names.size() < CONFIG_NAMES_MAX) names.insert(name);
        }
    };
    for (const ConfigLine& line : file.lines) {
        if (line.kind == ConfigKind::pair) add(line.source);
        for (const ConfigWord& member : line.members) add(member);
    }
    return names;
}
