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

// A member of a group is shown at the ports that carry groups, and at no other; within a VLAN without what
// holds in others.
TEST_F(Ctl, MatrixMarksWhatReachesOtherMachinesWithoutItsGroup) {
    session.interfaces = {{.number = 1, .name = "a", .device = "a"},
                          {.number = 2, .name = "b", .device = "b"},
                          {.number = 3, .name = "x", .device = "x", .span = true},
                          {.number = 4, .name = "y", .device = "y", .span = true}};
    const Words cells = {"a b x y", "a -xox", "b x-oo", "x oo-o", "y ooo-"};
    daemon.boardLines = {
        {"matrix", cells},
        {"matrix 9", cells},
        {"hardware", {"mode 2"}},
        {"plane show",
         {"plane name=linux state=ready", "spanning 5", "span device=x state=carries",
          "span device=y state=plain",
          "entry kind=span src=- dst=a vlan=- group=5 state=held packets=0 bytes=0",
          "entry kind=span src=- dst=b vlan=7 group=6 state=held packets=0 bytes=0", "door port=b"}}};
    const struct {
        const char* command;
        const char* grid;
        const char* legend;
    } cases[] = {
        {"matrix", "a  -  x  s  >\nb  x  -  s  o\nx  s  s  -  o\ny  o  o  o  -\n", "within a group (5 6)\n"},
        {"matrix --vlan 9", "a  -  x  s  >\nb  x  -  s  o\nx  s  s  -  o\ny  o  o  o  -\n",
         "within a group (5)\n"},
        {"matrix b x", "b  -  s\nx  s  -\n", "within a group (5 6)\n"},
        {"matrix a b x --alike", "1 a  -  x  s\n2 b  x  -  s\n3 x  s  s  -\n", ""},
        {"matrix b x y --alike", "1 b, x  s  o\n2 y     o  -\n", ""},
    };
    for (const auto& [command, grid, legend] : cases) {
        const std::string told = printedBy([&, line = command] { EXPECT_EQ(run(line), Exit::done); });
        EXPECT_NE(told.find(grid), std::string::npos) << command << "\n" << told;
        EXPECT_NE(told.find(legend), std::string::npos) << command << "\n" << told;
    }
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
