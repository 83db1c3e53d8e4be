#include "ctl/text/args.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

#include "ctl/text/output.h"

namespace {

constexpr int64_t TIMEOUT_MAX_MS = 24 * 3600 * 1000LL;
constexpr size_t NEAR_NAMES_MAX = 3;

// A signature taken apart.
struct Signature {
    size_t least = 0;
    size_t most = 0;
    std::vector<std::string> positional;
    std::vector<std::string> options;
    std::vector<std::string> required;  // options
};

// The options without a value.
bool isFlag(std::string_view name) {
    return name == "--dry-run";
}

Signature readSignature(std::string_view text) {
    Signature signature;
    const std::vector<std::string> words = splitWords(text);
    for (size_t at = 0; at < words.size(); ++at) {
        const bool optional = words[at].front() == '[';
        std::string name = words[at].substr(optional ? 1 : 0);
        if (name.starts_with("--")) {
            name.resize(std::min(name.find(']'), name.size()));
            signature.options.push_back(name);
            if (!optional) {
                signature.required.push_back(name);
            }
            at += isFlag(name) ? 0 : 1;  // the name of the option's value
            continue;
        }
        signature.positional.push_back(words[at]);
        signature.least += optional ? 0 : 1;
        if (words[at].find("...") != std::string::npos) {
            signature.most = SIZE_MAX;
        } else if (signature.most != SIZE_MAX) {
            ++signature.most;
        }
    }
    return signature;
}

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

template <typename Number>
bool parseWhole(std::string_view text, int base, Number& number) {
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && rest == end;
}

// Letters to insert, remove, change, or swap with their neighbour to make one of the other.
size_t editDistance(std::string_view left, std::string_view right) {
    std::vector<std::vector<size_t>> cost(left.size() + 1, std::vector<size_t>(right.size() + 1));
    for (size_t i = 0; i <= left.size(); ++i) {
        for (size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const size_t change = cost[i - 1][j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, change});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[left.size()][right.size()];
}

// Moves the time-out from the options of the command to the line's own.
std::string takeTimeout(CommandLine& line) {
    const std::string* text = optionValue(line.options, "--timeout");
    if (text == nullptr) {
        return {};
    }
    if (!parseSeconds(*text, line.timeoutMs)) {
        return "--timeout " + *text + ": give seconds above 0, such as 2 or 0.5";
    }
    std::erase_if(line.options, [](const GivenOption& option) { return option.name == "--timeout"; });
    return {};
}

}  // namespace

std::string parseCommandLine(const std::vector<std::string>& given, CommandLine& line) {
    for (size_t at = 0; at < given.size(); ++at) {
        const std::string& word = given[at];
        if (word == "--") {
            line.words.insert(line.words.end(), given.begin() + static_cast<ptrdiff_t>(at) + 1, given.end());
            break;
        }
        if (word == "--help" || word == "-h") {
            line.help = true;
        } else if (word == "--json") {
            line.json = true;
        } else if (!word.starts_with("--")) {
            line.words.push_back(word);
        } else {
            const size_t equals = word.find('=');
            if (isFlag(word)) {
                line.options.push_back({word, {}});
                continue;
            }
            if (equals == std::string::npos && at + 1 == given.size()) {
                return "option " + word + " lacks its value";
            }
            const std::string value = equals != std::string::npos ? word.substr(equals + 1) : given[++at];
            line.options.push_back({word.substr(0, equals), value});
        }
    }
    return takeTimeout(line);
}

std::vector<std::string> splitWords(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const size_t end = std::min(text.find(' '), text.size());
        if (end > 0) {
            words.emplace_back(text.substr(0, end));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

std::string checkSignature(std::string_view text, const std::vector<std::string>& arguments,
                           const std::vector<GivenOption>& options) {
    const Signature signature = readSignature(text);
    if (arguments.size() < signature.least) {
        return signature.positional[arguments.size()] + " is missing";
    }
    if (arguments.size() > signature.most) {
        return "\"" + arguments[signature.most] + "\" is one argument too many";
    }
    for (size_t at = 0; at < options.size(); ++at) {
        const std::string& name = options[at].name;
        if (std::find(signature.options.begin(), signature.options.end(), name) == signature.options.end()) {
            return "there is no option " + name + " here";
        }
        for (size_t before = 0; before < at; ++before) {
            if (options[before].name == name) {
                return "option " + name + " is given twice";
            }
        }
    }
    for (const std::string& name : signature.required) {
        if (optionValue(options, name) == nullptr) {
            return "option " + name + " is missing";
        }
    }
    return {};
}

const std::string* optionValue(const std::vector<GivenOption>& options, std::string_view name) {
    for (const GivenOption& option : options) {
        if (option.name == name) {
            return &option.value;
        }
    }
    return nullptr;
}

bool parseNumber(std::string_view text, uint32_t& number) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
        return parseWhole(text.substr(2), 16, number);
    }
    const bool leadingZero = text.size() > 1 && text[0] == '0';
    return isDigits(text) && !leadingZero && parseWhole(text, 10, number);
}

bool parseSeconds(std::string_view text, int64_t& milliseconds) {
    const size_t point = std::min(text.find('.'), text.size());
    uint32_t seconds = 0;
    if (!isDigits(text.substr(0, point)) || !parseWhole(text.substr(0, point), 10, seconds)) {
        return false;
    }
    uint32_t thousandths = 0;
    if (point < text.size()) {
        std::string fraction(text.substr(point + 1));
        if (!isDigits(fraction)) {
            return false;
        }
        fraction.resize(3, '0');
        parseWhole(std::string_view(fraction), 10, thousandths);
    }
    milliseconds = seconds * int64_t{1000} + thousandths;
    return milliseconds > 0 && milliseconds <= TIMEOUT_MAX_MS;
}

bool parseWords(std::string_view text, std::vector<uint32_t>& words) {
    for (;;) {
        const size_t comma = std::min(text.find(','), text.size());
        uint32_t word = 0;
        if (!parseNumber(text.substr(0, comma), word)) {
            return false;
        }
        words.push_back(word);
        if (comma == text.size()) {
            return true;
        }
        text.remove_prefix(comma + 1);
    }
}

bool parseHex(std::string_view text, std::string& bytes) {
    if (text.size() % 2 != 0) {
        return false;
    }
    for (size_t at = 0; at < text.size(); at += 2) {
        unsigned char byte = 0;
        if (!parseWhole(text.substr(at, 2), 16, byte)) {
            return false;
        }
        bytes += static_cast<char>(byte);
    }
    return true;
}

std::vector<std::string> expandRange(std::string_view text) {
    const size_t dash = text.rfind('-');
    if (dash == std::string_view::npos) {
        return {};
    }
    const std::string_view front = text.substr(0, dash);
    const size_t letters = front.find_last_not_of("0123456789");
    const size_t start = letters == std::string_view::npos ? 0 : letters + 1;
    const std::string_view low = front.substr(start);
    const std::string_view high = text.substr(dash + 1);
    uint32_t first = 0, last = 0;
    if (!isDigits(low) || !isDigits(high) || !parseWhole(low, 10, first) || !parseWhole(high, 10, last) ||
        first > last || last - first >= RANGE_MAX) {
        return {};
    }
    std::vector<std::string> texts;
    for (uint32_t count = 0; count <= last - first; ++count) {
        std::string digits = std::to_string(first + count);
        if (low[0] == '0' && digits.size() < low.size()) {
            digits.insert(0, low.size() - digits.size(), '0');
        }
        texts.push_back(std::string(front.substr(0, start)) + digits);
    }
    return texts;
}

size_t pickName(const std::vector<std::string>& names, std::string_view text, const char* what,
                std::string& error) {
    std::vector<std::string> candidates;
    size_t found = 0;
    for (size_t at = 0; at < names.size(); ++at) {
        if (names[at] == text) {
            return at;
        }
        if (!text.empty() && names[at].starts_with(text)) {
            candidates.push_back(names[at]);
            found = at;
        }
    }
    if (candidates.size() == 1) {
        return found;
    }
    const std::string quoted = "\"" + std::string(text) + "\"";
    if (candidates.size() > 1) {
        error = quoted + " is ambiguous: " + joinChoices(candidates, "or");
        return 0;
    }
    const std::vector<std::string> near = nearNames(names, text);
    error = "no " + std::string(what) + " " + quoted;
    error += near.empty() ? "; there are " + joinChoices(names, "and")
                          : "; did you mean " + joinChoices(near, "or") + "?";
    return 0;
}

std::vector<std::string> nearNames(const std::vector<std::string>& names, std::string_view text) {
    const size_t far = text.size() < 5 ? 1 : 2;  // letters that may be wrong
    std::vector<std::pair<size_t, std::string>> near;
    for (const std::string& name : names) {
        if (std::max(name.size(), text.size()) - std::min(name.size(), text.size()) > far) {
            continue;
        }
        const size_t distance = editDistance(name, text);
        if (distance <= far && distance < text.size()) {
            near.emplace_back(distance, name);
        }
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<std::string> best;
    for (size_t at = 0; at < std::min(near.size(), NEAR_NAMES_MAX); ++at) {
        best.push_back(near[at].second);
    }
    return best;
}
