#include "ctl/commands/matrix_svg.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "client/text/listing.h"
#include "common/text.h"
#include "ctl/commands/matrix_view.h"

namespace {

// All in pixels. Letters are drawn about 7 wide at the size of 13.
constexpr size_t CELL = 30;
constexpr size_t MARGIN = 24;
constexpr size_t LETTER = 8;
constexpr size_t TITLE_HEIGHT = 52;
constexpr size_t LEGEND_ROW = 28;
constexpr size_t LEGEND_WIDTH = 330;

// Marks differ in shape as well as in colour. Colours that a dark screen needs come last, so they win there.
const char* const STYLE =
    "<style>\n"
    "text{font:13px system-ui,sans-serif;fill:#1f2933}\n"
    ".title{font-size:18px;font-weight:600}.note{fill:#5b6875}\n"
    ".page{fill:#ffffff}.cell{stroke:#ffffff;stroke-width:2}\n"
    ".self .cell{fill:#eceff2}.open .cell{fill:#d7efdf}.both .cell{fill:#c22f3a}\n"
    ".oneway .cell{fill:#e9a13b}.vlan .cell{fill:#5c7fd0}.partly .cell{fill:#f3d9a4}\n"
    ".mark{fill:none;stroke:#ffffff;stroke-width:2.5;stroke-linecap:round;stroke-linejoin:round}\n"
    ".open .mark{stroke:#5fae7d;stroke-width:2}.partly .mark{stroke:#8a5a00}.oneway .mark{stroke:#3a2500}\n"
    "g:hover>.cell{stroke:#1f2933}\n"
    "@media (prefers-color-scheme:dark){\n"
    "text{fill:#e4e9ee}.note{fill:#9aa7b4}.page{fill:#14191f}.cell{stroke:#14191f}\n"
    ".self .cell{fill:#232b34}.open .cell{fill:#1d3a2a}.both .cell{fill:#d2434d}\n"
    ".oneway .cell{fill:#d08a24}.vlan .cell{fill:#5478cc}.partly .cell{fill:#5c4a22}\n"
    ".open .mark{stroke:#58a877}.partly .mark{stroke:#f0cf8c}\n"
    "g:hover>.cell{stroke:#e4e9ee}}\n"
    "</style>\n";

struct MarkShape {
    char mark;
    const char* path;  // within a cell
};

constexpr MarkShape SHAPES[] = {
    {MATRIX_FORWARDS, "M13 15h4"},
    {MATRIX_BLOCKED, "M10 10l10 10M20 10l-10 10"},
    {MATRIX_ONE_WAY, "M7 15h11M14 11l4 4l-4 4M23 9v12"},
    {MATRIX_IN_VLAN, "M10 10l5 10l5 -10"},
    {MATRIX_PARTLY, "M9 15q3 -5 6 0t6 0"},
};

std::string escaped(std::string_view text) {
    std::string safe;
    for (const char letter : safeText(text)) {
        safe += letter == '&'   ? "&amp;"
                : letter == '<' ? "&lt;"
                : letter == '>' ? "&gt;"
                : letter == '"' ? "&quot;"
                                : std::string(1, letter);
    }
    return safe;
}

std::string textAt(size_t x, size_t y, const char* attributes, std::string_view text) {
    return fmt::format("<text x=\"{}\" y=\"{}\"{}>{}</text>\n", x, y, attributes, escaped(text));
}

// A cell; `title` shows while the pointer is over it.
std::string cellAt(size_t x, size_t y, char mark, const std::string& title) {
    const MatrixMeaning* meaning = findMeaning(mark);
    const auto* shape = std::find_if(std::begin(SHAPES), std::end(SHAPES),
                                     [=](const MarkShape& known) { return known.mark == mark; });
    return fmt::format("<g class=\"{}\" transform=\"translate({} {})\">",
                       meaning != nullptr ? meaning->name : "self", x, y) +
           (title.empty() ? "" : "<title>" + escaped(title) + "</title>") +
           fmt::format("<rect class=\"cell\" width=\"{0}\" height=\"{0}\" rx=\"4\"/>", CELL) +
           (shape != std::end(SHAPES) ? fmt::format("<path class=\"mark\" d=\"{}\"/>", shape->path) : "") +
           "</g>\n";
}

std::string cellTitle(const Matrix& matrix, size_t row, size_t column) {
    const MatrixMeaning* meaning = findMeaning(matrixMark(matrix, row, column));
    if (meaning == nullptr) return {};
    const std::set<uint32_t>& vlans = matrix.blockedIn[row][column];
    const std::string within =
        vlans.empty() ? "" : " (VLAN " + numberList({vlans.begin(), vlans.end()}) + ")";
    return matrix.names[row] + " to " + matrix.names[column] + ": " + meaning->text + within;
}

std::string grid(const Matrix& matrix, size_t left, size_t top) {
    std::string text;
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        const size_t y = top + row * CELL;
        const size_t x = left + row * CELL;
        text += textAt(left - 10, y + CELL / 2 + 5, " text-anchor=\"end\"", matrix.names[row]);
        text += fmt::format("<g transform=\"translate({} {}) rotate(-50)\">{}</g>\n", x + CELL / 2 + 4,
                            top - 10, textAt(0, 0, "", matrix.names[row]));
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            text += cellAt(left + column * CELL, y, matrixMark(matrix, row, column),
                           cellTitle(matrix, row, column));
        }
    }
    return text;
}

std::string legend(const Matrix& matrix, size_t top) {
    const std::vector<uint32_t> vlans = matrixVlans(matrix);
    std::string text;
    for (const MatrixMeaning& meaning : matrixMeanings()) {
        const bool within = meaning.mark == MATRIX_IN_VLAN && !vlans.empty();
        text +=
            fmt::format("<g transform=\"translate({} {}) scale(.75)\">{}</g>\n", MARGIN, top,
                        cellAt(0, 0, meaning.mark, "")) +
            textAt(MARGIN + CELL + 4, top + 16, "", meaning.text + (within ? ": " + numberList(vlans) : ""));
        top += LEGEND_ROW;
    }
    return text;
}

}  // namespace

std::string matrixSvg(const Matrix& matrix) {
    size_t widest = 0;
    for (const std::string& name : matrix.names) {
        widest = std::max(widest, textWidth(safeText(name)) * LETTER);
    }
    const size_t left = MARGIN + widest + 10;
    const size_t top = MARGIN + TITLE_HEIGHT + widest * 4 / 5 + 16;  // the headings lean
    const size_t edge = CELL * matrix.names.size();
    const size_t width = std::max(left + edge + widest * 2 / 3, MARGIN + LEGEND_WIDTH) + MARGIN;
    const size_t foot = top + edge + MARGIN;
    const size_t height = foot + matrixMeanings().size() * LEGEND_ROW + MARGIN;
    return fmt::format(
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
               "viewBox=\"0 0 {0} {1}\" role=\"img\">\n",
               width, height) +
           "<title>Who may talk to whom</title>\n" + STYLE +
           fmt::format("<rect class=\"page\" width=\"{}\" height=\"{}\"/>\n", width, height) +
           textAt(MARGIN, MARGIN + 16, " class=\"title\"", "Who may talk to whom") +
           textAt(MARGIN, MARGIN + 38, " class=\"note\"",
                  "from the row to the column, " + matrixScope(matrix)) +
           grid(matrix, left, top) + legend(matrix, foot) + "</svg>\n";
}
