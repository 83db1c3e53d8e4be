#include "common/config_reader.h"

#include <fmt/format.h>

#include "common/words.h"

namespace {

constexpr char EXCLUSION = '!';
constexpr std::pair<std::string_view, WordKind> PREFIXES[] = {{"name:", WordKind::anyName},
                                                              {"alias:", WordKind::alias}};

void takePrefix(ConfigWord& word) {
    word.excluded = word.text.starts_with(EXCLUSION);
    word.text.erase(0, word.excluded ? 1 : 0);
    if (word.text.find_first_of("*?") != std::string::npos) word.kind = WordKind::glob;
    for (const auto& [prefix, kind] : PREFIXES) {
        if (!word.text.starts_with(prefix)) continue;
        word.kind = kind;
        word.text.erase(0, prefix.size());
        break;
    }
}

}  // namespace

bool mistake(Reader& reader, Place place, std::string text) {
    reader.file.mistakes.push_back({place, std::move(text)});
    return false;
}

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

bool readSelector(Reader& reader, ConfigWord& word) {
    const std::string given = word.text;
    takePrefix(word);
    return !word.text.empty() ||
           mistake(reader, word.place, "a name or a pattern is missing behind " + quoted(given));
}

bool takeMembers(Reader& reader, std::vector<ConfigWord>& members) {
    if (reader.words.empty()) return mistake(reader, reader.end, "an interface is missing here");
    members.assign(reader.words.begin(), reader.words.end());
    reader.words = {};
    const ConfigWord* excluded = nullptr;
    bool patterns = false;
    for (ConfigWord& word : members) {
        if (!readSelector(reader, word)) return false;
        if (word.excluded) excluded = &word;
        patterns = patterns || (!word.excluded && word.kind != WordKind::plain);
    }
    if (excluded == nullptr || patterns) return true;
    return mistake(reader, excluded->place, "this line has no pattern that something could be left out of");
}

bool isReadAsPattern(std::string_view name) {
    ConfigWord word{.place = {}, .text = std::string(name)};
    takePrefix(word);
    return word.excluded || word.kind != WordKind::plain;
}

std::string escapedName(std::string_view name) {
    std::string text(PREFIXES[0].first);
    for (const char letter : name) {
        if (letter == '*' || letter == '?' || letter == '\\') text += '\\';
        text += letter;
    }
    return text;
}
