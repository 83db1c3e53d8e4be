#include "ctl/text/output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

// Bytes of the well-formed UTF-8 sequence at the front of `text`, 0 when there is none.
size_t utf8Length(std::string_view text) {
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    for (size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool outside = (lead == 0xED && byte(1) >= 0xA0) || (lead == 0xF4 && byte(1) >= 0x90);
    return overlong || outside ? 0 : length;
}

// C0 and C1 control characters; both steer terminals.
bool isControl(std::string_view character) {
    const unsigned char lead = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) {
        return lead < 0x20 || lead == 0x7F;
    }
    return lead == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

bool takesColour() {
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

const char* toneSequence(Tone tone) {
    switch (tone) {
        case Tone::heading:
            return "\033[1m";
        case Tone::good:
            return "\033[32m";
        case Tone::warning:
            return "\033[33m";
        case Tone::bad:
            return "\033[31m";
        case Tone::faint:
            return "\033[2m";
        case Tone::plain:
            break;
    }
    return "";
}

void printTable(const Listing& listing) {
    std::vector<size_t> widths;
    for (size_t column = 0; column < listing.columns.size(); ++column) {
        const char* heading = listing.columns[column].heading;
        size_t width = heading != nullptr ? textWidth(heading) : 0;
        for (const std::vector<Cell>& row : listing.rows) {
            width = std::max(width, textWidth(row[column].text));
        }
        widths.push_back(width);
    }
    // Nothing but the end of the line follows the last column, so it is not filled up.
    const auto printRow = [&](const auto& cellAt) {
        std::string line, gap;
        for (size_t column = 0; column < listing.columns.size(); ++column) {
            if (listing.columns[column].heading == nullptr) {
                continue;
            }
            const Cell cell = cellAt(column);
            line += gap + toned(cell.tone, cell.text);
            gap.assign(widths[column] - textWidth(cell.text) + 2, ' ');
        }
        printLine(line);
    };
    printRow([&](size_t column) { return textCell(listing.columns[column].heading, Tone::heading); });
    for (const std::vector<Cell>& row : listing.rows) {
        printRow([&](size_t column) { return row[column]; });
    }
}

}  // namespace

std::string formatText(const char* format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

std::string safeText(std::string_view text) {
    std::string safe;
    while (!text.empty()) {
        const size_t length = utf8Length(text);
        const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
        if (length == 0 || isControl(character)) {
            for (const char byte : character) {
                safe += formatText("\\x%02x", static_cast<unsigned char>(byte));
            }
        } else {
            safe += character;
        }
        text.remove_prefix(character.size());
    }
    return safe;
}

std::string jsonString(std::string_view text) {
    std::string quoted = "\"";
    while (!text.empty()) {
        const size_t length = utf8Length(text);
        const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
        if (length == 0) {
            quoted += "\\ufffd";
        } else if (character == "\"" || character == "\\") {
            quoted += '\\';
            quoted += character;
        } else if (length == 1 && isControl(character)) {
            quoted += formatText("\\u%04x", static_cast<unsigned char>(character[0]));
        } else {
            quoted += character;
        }
        text.remove_prefix(character.size());
    }
    return quoted + "\"";
}

void complain(const std::string& sentence) {
    std::fflush(stdout);
    std::fprintf(stderr, "portisolatectl: %s\n", safeText(sentence).c_str());
}

void printLine(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

std::string toned(Tone tone, std::string_view text) {
    static const bool colour = takesColour();
    if (!colour || tone == Tone::plain || text.empty()) {
        return std::string(text);
    }
    return toneSequence(tone) + std::string(text) + "\033[0m";
}

Cell textCell(std::string_view text, Tone tone) {
    return {safeText(text), jsonString(text), tone};
}

Cell numberCell(uint64_t number) {
    const std::string text = std::to_string(number);
    return {text, text, Tone::plain};
}

Cell flagCell(bool flag, const char* yes, const char* no) {
    return {flag ? yes : no, flag ? "true" : "false", flag ? Tone::plain : Tone::faint};
}

Cell noCell() {
    return {"-", "null", Tone::faint};
}

Cell listCell(const std::vector<std::string>& texts) {
    std::vector<std::string> shown, quoted;
    for (const std::string& text : texts) {
        shown.push_back(safeText(text));
        quoted.push_back(jsonString(text));
    }
    return {texts.empty() ? "-" : joinWords(shown, ","), "[" + joinWords(quoted, ",") + "]", Tone::plain};
}

Cell numberListCell(const std::vector<uint32_t>& numbers) {
    std::vector<std::string> texts;
    for (const uint32_t number : numbers) {
        texts.push_back(std::to_string(number));
    }
    return {texts.empty() ? "-" : joinWords(texts, ","), "[" + joinWords(texts, ",") + "]", Tone::plain};
}

std::string jsonObject(const std::vector<ListingColumn>& columns, const std::vector<Cell>& cells) {
    std::vector<std::string> fields;
    for (size_t column = 0; column < columns.size(); ++column) {
        fields.push_back(jsonString(columns[column].key) + ":" + cells[column].json);
    }
    return "{" + joinWords(fields, ",") + "}";
}

std::string listingJson(const Listing& listing) {
    std::vector<std::string> objects;
    for (const std::vector<Cell>& row : listing.rows) {
        objects.push_back(jsonObject(listing.columns, row));
    }
    return "[" + joinWords(objects, ",\n ") + "]";
}

void printListing(const Listing& listing, bool json) {
    if (json) {
        printLine(listingJson(listing));
    } else {
        printTable(listing);
    }
}

size_t textWidth(std::string_view text) {
    const auto starts = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; };
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), starts));
}

std::string padded(std::string_view text, size_t width) {
    std::string filled(text);
    filled.append(width - std::min(width, textWidth(text)), ' ');
    return filled;
}

std::string joinWords(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (size_t at = 0; at < words.size(); ++at) {
        text += (at == 0 ? "" : between) + words[at];
    }
    return text;
}

std::string joinChoices(const std::vector<std::string>& words, const char* conjunction) {
    if (words.size() < 2) {
        return joinWords(words, "");
    }
    const std::vector<std::string> front(words.begin(), words.end() - 1);
    return joinWords(front, ", ") + " " + conjunction + " " + words.back();
}
