#include "ctl/commands/matrix_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/text.h"

namespace {

// Names head the columns while the grid stays narrower than this; numbers do beyond it.
constexpr size_t NAMED_WIDTH_MAX = 100;

// As many names of what a row stands for are shown.
constexpr size_t NAMED_MEMBERS = 2;

// The headings of the columns that are shown, and of the rows.
struct Headings {
    std::vector<std::string> columns;
    std::vector<std::string> rows;
    size_t left = 0;  // the width of the widest of the rows
};

size_t widestOf(const std::vector<std::string>& texts) {
    size_t widest = 0;
    for (const std::string& text : texts) widest = std::max(widest, textWidth(text));
    return widest;
}

// Columns that have no room for their names have their row's number instead. Of those, too, some may have no
// room.
Headings headingsOf(const Matrix& matrix, size_t width) {
    Headings headings;
    size_t named = 0;
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        headings.rows.push_back(matrixLabel(matrix, row));
        named += textWidth(headings.rows.back()) + 2;
    }
    headings.columns = headings.rows;
    headings.left = widestOf(headings.rows);
    const size_t room = width == 0 ? NAMED_WIDTH_MAX : std::min(width, NAMED_WIDTH_MAX);
    if (matrix.members.empty() && headings.left + named <= room) return headings;
    const size_t digits = std::to_string(headings.rows.size()).size();
    size_t used = headings.left += digits + 1;
    headings.columns.clear();
    for (size_t row = 0; row < headings.rows.size(); ++row) {
        headings.rows[row] = fmt::format("{:>{}} {}", row + 1, digits, headings.rows[row]);
        const std::string number = std::to_string(row + 1);
        used += number.size() + 2;
        if (width == 0 || used <= width) headings.columns.push_back(number);
    }
    return headings;
}

std::string rowLine(const Matrix& matrix, const Headings& headings, size_t row) {
    std::string line = toned(Tone::heading, headings.rows[row]);
    size_t blanks = headings.left - textWidth(headings.rows[row]);
    for (size_t column = 0; column < headings.columns.size(); ++column) {
        // A cell stands in the middle under its heading.
        const size_t width = textWidth(headings.columns[column]);
        line += std::string(blanks + 2 + (width - 1) / 2, ' ') + markText(matrixMark(matrix, row, column));
        blanks = width - 1 - (width - 1) / 2;
    }
    return line;
}

}  // namespace

const std::vector<MatrixMeaning>& matrixMeanings() {
    static const std::vector<MatrixMeaning> meanings = {
        {MATRIX_FORWARDS, "open", "forwards", Tone::good},
        {MATRIX_BLOCKED, "both", "blocked both ways", Tone::bad},
        {MATRIX_ONE_WAY, "oneway", "blocked in this direction only", Tone::bad},
        {MATRIX_IN_VLAN, "vlan", "blocked within a VLAN only", Tone::warning},
        {MATRIX_SPANS, "spans", "forwards, but not within a group", Tone::warning},
        {MATRIX_PARTLY, "partly", "passes over some member ports only", Tone::warning},
    };
    return meanings;
}

const MatrixMeaning* findMeaning(char mark) {
    for (const MatrixMeaning& meaning : matrixMeanings()) {
        if (meaning.mark == mark) return &meaning;
    }
    return nullptr;
}

std::string markText(char mark) {
    const MatrixMeaning* meaning = findMeaning(mark);
    return toned(meaning != nullptr ? meaning->tone : Tone::faint, std::string(1, mark));
}

std::string matrixScope(const Matrix& matrix) {
    return matrix.vlan != 0 ? fmt::format("in VLAN {}", matrix.vlan) : "whatever the VLAN";
}

std::string matrixLabel(const Matrix& matrix, size_t row) {
    if (matrix.members.empty()) return safeText(matrix.names[row]);
    const std::vector<std::string>& members = matrix.members[row];
    const size_t shown =
        std::min(members.size(), members.size() == NAMED_MEMBERS + 1 ? members.size() : NAMED_MEMBERS);
    std::string label;
    for (size_t at = 0; at < shown; ++at) label += (at == 0 ? "" : ", ") + safeText(members[at]);
    return shown == members.size() ? label : fmt::format("{} and {} more", label, members.size() - shown);
}

RenderedMatrix renderMatrix(const Matrix& matrix, size_t width) {
    const Headings headings = headingsOf(matrix, width);
    std::vector<std::string> lines = {std::string(headings.left, ' ')};
    for (const std::string& heading : headings.columns) lines[0] += "  " + toned(Tone::heading, heading);
    for (size_t row = 0; row < headings.rows.size(); ++row) lines.push_back(rowLine(matrix, headings, row));
    return {lines, headings.rows.size() - headings.columns.size()};
}
