#include "ctl/commands/matrix_svg.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "common/text.h"
#include "ctl/commands/matrix_view.h"
#include "lib/text/listing.h"

namespace {

// All in pixels. Letters are drawn about 7 wide at the size of 13.
constexpr size_t CELL = 30;
constexpr size_t MARGIN = 24;
constexpr size_t LETTER = 8;  // with room to spare
constexpr size_t TITLE_HEIGHT = 52;
constexpr size_t LEGEND_ROW = 28;
constexpr size_t LEGEND_WIDTH = 330;

// Cells of a matrix of more interfaces are small and drawn in strips: a row's cells of one mark are one path,
// which says in its title what it is about. A matrix of hundreds stays below a megabyte so, whatever its
// pattern.
constexpr size_t NAMED_CELLS_MAX = 32;
constexpr size_t SMALL_CELL = 16;
constexpr size_t SMALL_LETTER = 7;
constexpr size_t TITLE_NAMES = 12;

// Marks differ in shape as well as in colour. Colours that a dark screen needs come last, so they win there.
const char* const STYLE =
    "<style>\n"
    "text{font:13px system-ui,sans-serif;fill:#1f2933}\n"
    ".title{font-size:18px;font-weight:600}.note{fill:#5b6875}\n"
    ".page{fill:#ffffff}.cell{stroke:#ffffff;stroke-width:2}\n"
    ".self .cell{fill:#eceff2}.open .cell{fill:#d7efdf}.both .cell{fill:#c22f3a}\n"
    ".oneway .cell{fill:#e9a13b}.vlan .cell{fill:#5c7fd0}.partly .cell{fill:#f3d9a4}"
    ".spans .cell{fill:#bfe3e6}\n"
    ".mark{fill:none;stroke:#ffffff;stroke-width:2.5;stroke-linecap:round;stroke-linejoin:round}\n"
    ".open .mark{stroke:#5fae7d;stroke-width:2}.partly .mark{stroke:#8a5a00}"
    ".spans .mark{stroke:#0b6a72}.oneway .mark{stroke:#3a2500}\n"
    "g:hover>.cell{stroke:#1f2933}\n"
    "@media (prefers-color-scheme:dark){\n"
    "text{fill:#e4e9ee}.note{fill:#9aa7b4}.page{fill:#14191f}.cell{stroke:#14191f}\n"
    ".self .cell{fill:#232b34}.open .cell{fill:#1d3a2a}.both .cell{fill:#d2434d}\n"
    ".oneway .cell{fill:#d08a24}.vlan .cell{fill:#5478cc}.partly .cell{fill:#5c4a22}"
    ".spans .cell{fill:#17454a}\n"
    ".open .mark{stroke:#58a877}.partly .mark{stroke:#f0cf8c}"
    ".spans .mark{stroke:#7fd3da}\n"
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
    {MATRIX_SPANS, "M9 15h3M15 15h0M18 15h3"},
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
    const SpanningGroups groups = spanningAt(matrix, row, column);
    const std::string apart = groups == 0 ? "" : " (group " + spanningText(groups) + ")";
    return matrixLabel(matrix, row) + " to " + matrixLabel(matrix, column) + ": " + meaning->text + within +
           apart;
}

// Where the grid is, and what it is made of.
struct Layout {
    size_t cell, left, top, widest;  // of the labels
};

std::string cells(const Matrix& matrix, const Layout& layout) {
    std::string text;
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            text += cellAt(layout.left + column * layout.cell, layout.top + row * layout.cell,
                           matrixMark(matrix, row, column), cellTitle(matrix, row, column));
        }
    }
    return text;
}

const char* markName(char mark) {
    const MatrixMeaning* meaning = findMeaning(mark);
    return meaning != nullptr ? meaning->name : "self";
}

std::string stripTitle(const Matrix& matrix, size_t row, const std::string& marks, char mark) {
    const MatrixMeaning* meaning = findMeaning(mark);
    if (meaning == nullptr) return matrixLabel(matrix, row);
    std::string title = matrixLabel(matrix, row) + ": " + meaning->text + ": ";
    size_t named = 0;
    for (size_t column = 0; column < marks.size(); ++column) {
        if (marks[column] != mark) continue;
        if (++named <= TITLE_NAMES) title += (named > 1 ? ", " : "") + matrix.names[column];
    }
    return named <= TITLE_NAMES ? title : title + fmt::format(" and {} more", named - TITLE_NAMES);
}

// The cells of one mark in a row, in units of a cell. Those of `ground` are drawn through, under all others.
std::string stripOf(const Matrix& matrix, size_t row, const std::string& marks, char mark, char ground) {
    std::string path;
    size_t drawn = 0;
    for (size_t begin = marks.find(mark); begin != std::string::npos;) {
        const size_t end =
            mark == ground ? marks.size() : std::min(marks.find_first_not_of(mark, begin), marks.size());
        if (mark == ground) begin = 0;
        path += path.empty() ? fmt::format("M{} {}.5", begin, row) : fmt::format("m{} 0", begin - drawn);
        path += fmt::format("h{}", end - begin);
        drawn = end;
        begin = marks.find(mark, end);
    }
    return fmt::format("<path stroke=\"url(#{})\" d=\"{}\"><title>{}</title></path>\n", markName(mark), path,
                       escaped(stripTitle(matrix, row, marks, mark)));
}

std::string strips(const Matrix& matrix, const Layout& layout) {
    std::string text = fmt::format("<g class=\"strips\" transform=\"translate({} {}) scale({})\">\n",
                                   layout.left, layout.top, layout.cell);
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        std::string marks;
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            marks += matrixMark(matrix, row, column);
        }
        const auto often = [&marks](char one, char other) {
            return std::count(marks.begin(), marks.end(), one) <
                   std::count(marks.begin(), marks.end(), other);
        };
        const char ground = *std::max_element(marks.begin(), marks.end(), often);
        std::string others = marks;
        std::sort(others.begin(), others.end());
        others.erase(std::unique(others.begin(), others.end()), others.end());
        std::erase(others, ground);
        text += stripOf(matrix, row, marks, ground, ground);
        for (const char mark : others) text += stripOf(matrix, row, marks, mark, ground);
    }
    return text + "</g>\n";
}

// A cell of each mark, for the strips.
std::string patterns() {
    const auto pattern = [](char mark) {
        return fmt::format(
            "<pattern id=\"{}\" width=\"1\" height=\"1\" viewBox=\"0 0 {} {}\" "
            "patternUnits=\"userSpaceOnUse\">{}</pattern>\n",
            markName(mark), CELL, CELL, cellAt(0, 0, mark, ""));
    };
    std::string text =
        "<style>.strips{fill:none}.strips :hover{stroke-opacity:.6}.small "
        "text{font-size:11px}</style>\n<defs>\n" +
        pattern(MATRIX_ITSELF);
    for (const MarkShape& shape : SHAPES) text += pattern(shape.mark);
    return text + "</defs>\n";
}

// Names before the rows and above the columns; once more at the other sides, where those are far away.
std::string labels(const Matrix& matrix, const Layout& layout, bool small) {
    std::string before, above;
    const size_t lowered = layout.cell / 2 + (small ? 4 : 5);
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        const std::string label = matrixLabel(matrix, row);
        before +=
            textAt(layout.left - 10, layout.top + row * layout.cell + lowered, " text-anchor=\"end\"", label);
        above += fmt::format("<g transform=\"translate({} {}) rotate({})\">{}</g>\n",
                             layout.left + row * layout.cell + lowered - 1, layout.top - 10,
                             small ? -90 : -50, textAt(0, 0, "", label));
    }
    if (!small) return before + above;
    const size_t edge = matrix.names.size() * layout.cell;
    const size_t away = edge + layout.widest + 20;
    return fmt::format(
        "<g class=\"small\"><g id=\"rows\">{}</g><g id=\"columns\">{}</g><use href=\"#rows\" x=\"{}\"/>"
        "<use href=\"#columns\" y=\"{}\"/></g>\n",
        before, above, away, away);
}

// The marks of a legend; that of other machines only where there are some.
std::vector<MatrixMeaning> legendMeanings(const Matrix& matrix) {
    std::vector<MatrixMeaning> meanings = matrixMeanings();
    std::erase_if(meanings, [&](const MatrixMeaning& meaning) {
        return meaning.mark == MATRIX_SPANS && matrix.spanning.empty();
    });
    return meanings;
}

std::string legend(const Matrix& matrix, size_t top) {
    const std::vector<uint32_t> vlans = matrixVlans(matrix);
    std::string text;
    for (const MatrixMeaning& meaning : legendMeanings(matrix)) {
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
    const size_t size = matrix.names.size();
    const bool small = size > NAMED_CELLS_MAX;
    size_t widest = 0;
    for (size_t row = 0; row < size; ++row) widest = std::max(widest, textWidth(matrixLabel(matrix, row)));
    widest *= small ? SMALL_LETTER : LETTER;
    const size_t heading = small ? widest : widest * 4 / 5;  // the headings lean or stand
    const Layout layout = {.cell = small ? SMALL_CELL : CELL,
                           .left = MARGIN + widest + 10,
                           .top = MARGIN + TITLE_HEIGHT + heading + 16,
                           .widest = widest};
    const size_t edge = layout.cell * size;
    const size_t beyond = small ? widest + 20 : 0;
    const size_t width =
        std::max(layout.left + edge + std::max(beyond, widest * 2 / 3), MARGIN + LEGEND_WIDTH) + MARGIN;
    const size_t foot = layout.top + edge + beyond + MARGIN;
    const size_t height = foot + legendMeanings(matrix).size() * LEGEND_ROW + MARGIN;
    return fmt::format(
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
               "viewBox=\"0 0 {0} {1}\" role=\"img\">\n",
               width, height) +
           "<title>Who may talk to whom</title>\n" + STYLE + (small ? patterns() : "") +
           fmt::format("<rect class=\"page\" width=\"{}\" height=\"{}\"/>\n", width, height) +
           textAt(MARGIN, MARGIN + 16, " class=\"title\"", "Who may talk to whom") +
           textAt(MARGIN, MARGIN + 38, " class=\"note\"",
                  "from the row to the column, " + matrixScope(matrix)) +
           labels(matrix, layout, small) + (small ? strips(matrix, layout) : cells(matrix, layout)) +
           legend(matrix, foot) + "</svg>\n";
}
