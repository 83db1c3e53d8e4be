// Who may talk to whom, as text and as a picture, of a few ports and of hundreds.
#include "ctl/commands/matrix_svg.h"
#include "ctl/commands/matrix_view.h"
#include "tests/ctl_fake.h"
#include "tests/dice.h"

namespace {

TEST_F(Ctl, MatrixMarksDirectionsAndVlans) {
    daemon.boardLines = {{"matrix", {"a b c d", "a -xoo", "b x-xo", "c oo-p", "d oxo-"}},
                         {"matrix 7", {"b a c", "b -xo", "a x-p", "c oo-"}},
                         {"hardware", {"bi src=1 dst=2 vlan=7", "mode 2"}}};
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(run("matrix"), Exit::done); }),
              "   a  b  c  d\n"
              "a  -  x  v  o\n"
              "b  x  -  >  o\n"
              "c  o  o  -  p\n"
              "d  o  >  o  -\n"
              "\nFrom the row to the column, whatever the VLAN:\n"
              "  o  forwards\n"
              "  x  blocked both ways\n"
              "  >  blocked in this direction only\n"
              "  v  blocked within a VLAN only (7; --vlan shows one)\n"
              "  p  passes over some member ports only\n"
              "The plane is simulated: it isolates no real port.\n");
}

// What the picture's strips paint, a string per row.
Words paintedBy(const std::string& svg, size_t size) {
    Words rows(size, std::string(size, ' '));
    for (size_t at = svg.find("<path stroke="); at != std::string::npos;
         at = svg.find("<path stroke=", at + 1)) {
        const std::string path = svg.substr(at, svg.find("><title>", at) - at);
        size_t row = 0, column = 0, length = 0;
        char name[16];
        int used = 0;
        std::sscanf(path.c_str(), "<path stroke=\"url(#%15[a-z])\" d=\"M%zu %zu.5%n", name, &column, &row,
                    &used);
        const char* rest = path.c_str() + used;
        const auto meaning =
            std::find_if(matrixMeanings().begin(), matrixMeanings().end(),
                         [&](const MatrixMeaning& one) { return std::string(one.name) == name; });
        const char mark = meaning != matrixMeanings().end() ? meaning->mark : MATRIX_ITSELF;
        for (; *rest != '"'; rest += used) {
            if (std::sscanf(rest, "h%zu%n", &length, &used) == 1) {
                rows.at(row).replace(column, length, length, mark);
            } else if (std::sscanf(rest, "m%zu 0%n", &length, &used) != 1) {
                ADD_FAILURE() << rest;
                break;
            }
            column += length;
        }
    }
    return rows;
}

TEST(CtlMatrix, HundredsOfPortsAreAPictureBelowAMegabyteAndFitATerminal) {
    constexpr size_t SIZE = 374;
    dice.seed(7);
    struct Pattern {
        size_t classes;
        char (*cell)(size_t row, size_t column);
    };
    const Pattern patterns[] = {{1, [](size_t, size_t) { return 'o'; }},
                                {2, [](size_t row, size_t column) { return "ox"[(row + column) % 2]; }},
                                {SIZE, [](size_t row, size_t column) { return row < column ? 'o' : 'x'; }},
                                {SIZE, [](size_t, size_t) { return "oxp"[roll(3)]; }}};
    for (const auto& [classes, cell] : patterns) {
        Matrix matrix;
        matrix.blockedIn.assign(SIZE, std::vector<std::set<uint32_t>>(SIZE));
        Words expected(SIZE);
        for (size_t row = 0; row < SIZE; ++row) {
            matrix.names.push_back(fmt::format("vnet{}", row));
            std::string& cells = matrix.cells.emplace_back();
            for (size_t to = 0; to < SIZE; ++to) cells += row == to ? MATRIX_ITSELF : cell(row, to);
        }
        for (size_t at = 0; at < SIZE * SIZE; ++at) {
            expected[at / SIZE] += matrixMark(matrix, at / SIZE, at % SIZE);
        }
        const std::string svg = matrixSvg(matrix);
        EXPECT_LT(svg.size(), 1000000U) << classes;
        EXPECT_TRUE(paintedBy(svg, SIZE) == expected) << classes;
        EXPECT_EQ(foldMatrix(matrix).names.size(), classes);
        EXPECT_EQ(renderMatrix(matrix, 0).leftOut, 0U);
        if (classes != 1) continue;
        for (size_t width = 15; width < 30; ++width) {
            const RenderedMatrix shown = renderMatrix(matrix, width);
            for (const std::string& line : shown.lines) EXPECT_LE(textWidth(line), width);
            EXPECT_EQ(shown.leftOut, SIZE - (width - 11) / 3);
        }
    }
}

}  // namespace
