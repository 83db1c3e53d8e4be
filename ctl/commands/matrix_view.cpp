#include "ctl/commands/matrix_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/text.h"

namespace {

// Names head the columns while the grid stays narrower than this; numbers do beyond it.
constexpr size_t NAMED_WIDTH_MAX = 100;

// The headings of the columns and of the rows.
struct Headings {
    std::vector<std::string> columns;
    std::vector<std::string> rows;
    size_t left = 0;  // the width of the widest of the rows
};

// Columns that have no room for their names have their row's number instead.
Headings headingsOf(const Matrix& matrix) {
    Headings headings;
    size_t widest = 0, named = 0;
    for (const std::string& name : matrix.names) {
        headings.rows.push_back(safeText(name));
        widest = std::max(widest, textWidth(headings.rows.back()));
        named += textWidth(headings.rows.back()) + 2;
    }
    headings.columns = headings.rows;
    headings.left = widest;
    if (widest + named <= NAMED_WIDTH_MAX) return headings;
    const size_t digits = std::to_string(headings.rows.size()).size();
    headings.left += digits + 1;
    for (size_t row = 0; row < headings.rows.size(); ++row) {
        headings.columns[row] = std::to_string(row + 1);
        headings.rows[row] = fmt::format("{:>{}} {}", row + 1, digits, headings.rows[row]);
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

std::vector<std::string> renderMatrix(const Matrix& matrix) {
    const Headings headings = headingsOf(matrix);
    std::vector<std::string> lines = {std::string(headings.left, ' ')};
    for (const std::string& heading : headings.columns) lines[0] += "  " + toned(Tone::heading, heading);
    for (size_t row = 0; row < headings.rows.size(); ++row) lines.push_back(rowLine(matrix, headings, row));
    return lines;
}
