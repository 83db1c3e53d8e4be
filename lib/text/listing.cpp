#include "lib/text/listing.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "common/text.h"

namespace {

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
            if (listing.columns[column].heading == nullptr) continue;
            const Cell cell = cellAt(column);
            line += gap + toned(cell.tone, cell.text);
            gap.assign(widths[column] - textWidth(cell.text) + 2, ' ');
        }
        printLine(line);
    };
    printRow([&](size_t column) { return textCell(listing.columns[column].heading, Tone::heading); });
    for (const std::vector<Cell>& row : listing.rows) printRow([&](size_t column) { return row[column]; });
}

}  // namespace

std::string jsonText(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string jsonLines(const char* opened, const std::vector<std::string>& parts, const char* closed) {
    return opened + joinWords(parts, ",\n ") + closed;
}

std::string jsonRows(const Json& array) {
    std::vector<std::string> rows;
    for (const Json& row : array) rows.push_back(jsonText(row));
    return jsonLines("[", rows, "]");
}

std::string jsonFields(const Json& object, std::string_view spread) {
    std::vector<std::string> fields;
    for (const auto& [name, value] : object.items()) {
        fields.push_back(jsonField(name, name == spread ? jsonRows(value) : jsonText(value)));
    }
    return jsonLines("{", fields, "}");
}

std::string jsonField(std::string_view name, const std::string& text) {
    return jsonText(name) + ":" + text;
}

Cell textCell(std::string_view text, Tone tone) {
    return {safeText(text), text, tone};
}

Cell numberCell(uint64_t number) {
    return {std::to_string(number), number};
}

Cell flagCell(bool flag, const char* yes, const char* no) {
    return {flag ? yes : no, flag, flag ? Tone::plain : Tone::faint};
}

Cell noCell() {
    return {"-", nullptr, Tone::faint};
}

Json vlanJson(uint32_t vlan) {
    return vlan != 0 ? Json(vlan) : Json();
}

Cell listCell(const std::vector<std::string>& texts) {
    std::vector<std::string> shown;
    for (const std::string& text : texts) shown.push_back(safeText(text));
    return {texts.empty() ? "-" : joinWords(shown, ","), texts};
}

Cell numberListCell(const std::vector<uint32_t>& numbers) {
    return {numberList(numbers), numbers};
}

std::string numberList(const std::vector<uint32_t>& numbers) {
    return numbers.empty() ? "-" : fmt::format("{}", fmt::join(numbers, ","));
}

Json listingJson(const Listing& listing) {
    Json rows = Json::array();
    for (const std::vector<Cell>& cells : listing.rows) {
        Json row = Json::object();
        for (size_t column = 0; column < listing.columns.size(); ++column) {
            row[listing.columns[column].key] = cells[column].json;
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

void printListing(const Listing& listing, bool json) {
    if (json) {
        printLine(jsonRows(listingJson(listing)));
    } else {
        printTable(listing);
    }
}
