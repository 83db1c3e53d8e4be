#include "ctl/matrix.h"

#include <algorithm>

#include "ctl/output.h"

namespace {

// Names head the columns while the grid stays narrower than this; numbers do beyond it.
constexpr size_t NAMED_WIDTH_MAX = 100;

Tone cellTone(char cell) {
    switch (cell) {
        case MATRIX_FORWARDS:
            return Tone::good;
        case MATRIX_BLOCKED:
            return Tone::bad;
        case MATRIX_PARTLY:
            return Tone::warning;
        default:
            return Tone::faint;
    }
}

const char* cellWord(char cell) {
    switch (cell) {
        case MATRIX_FORWARDS:
            return "forwards";
        case MATRIX_BLOCKED:
            return "blocked";
        case MATRIX_PARTLY:
            return "partly";
        default:
            return "itself";
    }
}

void printJson(const Matrix& matrix, uint32_t vlan) {
    std::string text =
        formatText("{\"vlan\":%u,\n \"interfaces\":", vlan) + listCell(matrix.names).json + ",\n \"rows\":[";
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        text += (row == 0 ? "" : ",") + ("\n  {\"from\":" + jsonString(matrix.names[row])) + ",\"to\":{";
        const char* comma = "";
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            if (column != row) {
                text += comma + jsonString(matrix.names[column]) + ":" +
                        jsonString(cellWord(matrix.cells[row][column]));
                comma = ",";
            }
        }
        text += "}}";
    }
    printLine(text + "]}");
}

std::string cellText(char cell) {
    return toned(cellTone(cell), std::string(1, cell));
}

void printLegend(uint32_t vlan) {
    printLine("");
    printLine("from the row to the column, " +
              (vlan != 0 ? formatText("in VLAN %u", vlan) : "VLAN groups aside") + ":  " +
              cellText(MATRIX_FORWARDS) + " forwards  " + cellText(MATRIX_BLOCKED) + " blocked  " +
              cellText(MATRIX_PARTLY) + " some member ports only");
}

}  // namespace

bool parseMatrix(const std::vector<std::string>& lines, Matrix& matrix) {
    if (lines.empty()) {
        return false;
    }
    matrix.names = splitWords(lines[0]);
    if (lines.size() != matrix.names.size() + 1) {
        return false;
    }
    const char known[] = {MATRIX_FORWARDS, MATRIX_BLOCKED, MATRIX_PARTLY, MATRIX_ITSELF, '\0'};
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        const std::vector<std::string> words = splitWords(lines[row + 1]);
        if (words.size() != 2 || words[0] != matrix.names[row] || words[1].size() != matrix.names.size() ||
            words[1].find_first_not_of(known) != std::string::npos) {
            return false;
        }
        matrix.cells.push_back(words[1]);
    }
    return true;
}

std::vector<std::string> renderMatrix(const Matrix& matrix) {
    std::vector<std::string> names;
    size_t widest = 0, named = 0;
    for (const std::string& name : matrix.names) {
        names.push_back(safeText(name));
        widest = std::max(widest, textWidth(names.back()));
        named += textWidth(names.back()) + 2;
    }
    // Columns that have no room for their names have their row's number instead.
    const bool numbered = widest + named > NAMED_WIDTH_MAX;
    std::vector<std::string> headings = names;
    const size_t digits = numbered ? std::to_string(names.size()).size() : 0;
    for (size_t row = 0; numbered && row < names.size(); ++row) {
        headings[row] = std::to_string(row + 1);
        names[row] = std::string(digits - headings[row].size(), ' ') + headings[row] + " " + names[row];
    }
    const size_t left = widest + (numbered ? digits + 1 : 0);
    std::vector<std::string> lines = {std::string(left, ' ')};
    for (const std::string& heading : headings) {
        lines[0] += "  " + toned(Tone::heading, heading);
    }
    for (size_t row = 0; row < names.size(); ++row) {
        std::string line = toned(Tone::heading, names[row]);
        size_t blanks = left - textWidth(names[row]);
        for (size_t column = 0; column < headings.size(); ++column) {
            // A cell stands in the middle under its heading.
            const size_t width = textWidth(headings[column]);
            line += std::string(blanks + 2 + (width - 1) / 2, ' ') + cellText(matrix.cells[row][column]);
            blanks = width - 1 - (width - 1) / 2;
        }
        lines.push_back(line);
    }
    return lines;
}

Exit runMatrix(Session& session, const Invocation& invocation) {
    uint32_t vlan = 0;
    const std::string* given = optionValue(invocation.options, "--vlan");
    if (given != nullptr) {
        const Exit exit = numberArgument("VLAN", *given, vlan);
        if (exit != Exit::done) {
            return exit;
        }
    }
    std::vector<std::string> lines;
    const Exit exit = askBoard(session, vlan != 0 ? formatText("matrix %u", vlan) : "matrix", lines);
    if (exit != Exit::done) {
        return exit;
    }
    Matrix matrix;
    if (!parseMatrix(lines, matrix)) {
        return brokenProtocol("the matrix is no square of known cells");
    }
    if (session.json) {
        printJson(matrix, vlan);
        return Exit::done;
    }
    for (const std::string& line : renderMatrix(matrix)) {
        printLine(line);
    }
    printLegend(vlan);
    return Exit::done;
}
