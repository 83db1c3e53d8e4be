#include "ctl/client/matrix.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>

#include "ctl/client/interfaces.h"

namespace {

// Names head the columns while the grid stays narrower than this; numbers do beyond it.
constexpr size_t NAMED_WIDTH_MAX = 100;

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

std::string vlanList(const std::set<uint32_t>& vlans) {
    return numberListCell({vlans.begin(), vlans.end()}).json;
}

void printJson(const Matrix& matrix) {
    const size_t size = matrix.names.size();
    std::vector<std::string> rows, inVlans;
    for (size_t row = 0; row < size; ++row) {
        std::vector<std::string> cells;
        for (size_t column = 0; column < size; ++column) {
            const std::set<uint32_t>& vlans = matrix.blockedIn[row][column];
            if (column != row) {
                cells.push_back(jsonString(matrix.names[column]) + ":" +
                                jsonString(cellWord(matrix.cells[row][column])));
            }
            if (!vlans.empty()) {
                inVlans.push_back("{\"from\":" + jsonString(matrix.names[row]) + ",\"to\":" +
                                  jsonString(matrix.names[column]) + ",\"vlans\":" + vlanList(vlans) + "}");
            }
        }
        rows.push_back("{\"from\":" + jsonString(matrix.names[row]) + ",\"to\":{" + joinWords(cells, ",") +
                       "}}");
    }
    printLine(formatText("{\"vlan\":%u,\n \"interfaces\":", matrix.vlan) + listCell(matrix.names).json +
              ",\n \"rows\":[\n  " + joinWords(rows, ",\n  ") + "],\n \"blockedInVlans\":[" +
              joinWords(inVlans, ",\n  ") + "]}");
}

Tone markTone(char mark) {
    for (const MatrixMeaning& meaning : matrixMeanings()) {
        if (meaning.mark == mark) {
            return meaning.tone;
        }
    }
    return Tone::faint;
}

std::string markText(char mark) {
    return toned(markTone(mark), std::string(1, mark));
}

// The marks that occur, with their meaning.
void printLegend(const Matrix& matrix) {
    std::string seen;
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            seen += matrixMark(matrix, row, column);
        }
    }
    printLine("");
    printLine("From the row to the column, " + matrixScope(matrix) + ":");
    for (const MatrixMeaning& meaning : matrixMeanings()) {
        if (seen.find(meaning.mark) == std::string::npos) {
            continue;
        }
        std::string text = meaning.text;
        if (meaning.mark == MATRIX_IN_VLAN) {
            const std::set<uint32_t> vlans = matrixVlans(matrix);
            text += " (" + numberListCell({vlans.begin(), vlans.end()}).text + "; --vlan shows one)";
        }
        printLine("  " + markText(meaning.mark) + "  " + text);
    }
}

Exit askMatrix(Session& session, uint32_t vlan, Matrix& matrix) {
    std::vector<std::string> lines;
    const Exit exit = askBoard(session, vlan != 0 ? formatText("matrix %u", vlan) : "matrix", lines);
    if (exit != Exit::done) {
        return exit;
    }
    matrix.vlan = vlan;
    return parseMatrix(lines, matrix) ? Exit::done : brokenProtocol("the matrix is no square of known cells");
}

// VLANs in which something may be blocked: those that hardware entries name, and those of the board, where
// PON isolation holds.
Exit askVlans(Session& session, std::set<uint32_t>& vlans) {
    std::vector<std::string> lines;
    const Exit exit = askBoard(session, "hardware", lines);
    for (const std::string& line : lines) {
        const size_t at = line.find(" vlan=");
        uint32_t vlan = 0;
        if (at != std::string::npos &&
            parseNumber(splitWords(std::string_view(line).substr(at + 6))[0], vlan) && vlan != 0) {
            vlans.insert(vlan);
        }
    }
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.vlan != 0) {
            vlans.insert(interface.vlan);
        }
    }
    return exit;
}

Exit readMatrix(Session& session, uint32_t vlan, Matrix& matrix) {
    std::set<uint32_t> vlans;
    Exit exit = askMatrix(session, vlan, matrix);
    if (exit == Exit::done && vlan == 0) {
        exit = askVlans(session, vlans);
    }
    for (const uint32_t one : vlans) {
        Matrix within;
        exit = askMatrix(session, one, within);
        if (exit != Exit::done) {
            return exit;
        }
        mergeMatrix(matrix, within);
    }
    return exit;
}

Exit writeFile(const std::string& path, const std::string& text) {
    std::FILE* file = std::fopen(path.c_str(), "we");
    const bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    // The buffer goes out with the close, so both may fail.
    if ((file != nullptr && std::fclose(file) != 0) || !written) {
        return misuse("cannot write " + path + ": " + std::strerror(errno));
    }
    return Exit::done;
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
    matrix.blockedIn.assign(matrix.names.size(), std::vector<std::set<uint32_t>>(matrix.names.size()));
    return true;
}

void mergeMatrix(Matrix& matrix, const Matrix& within) {
    std::map<std::string, size_t> places;
    for (size_t at = 0; at < within.names.size(); ++at) {
        places[within.names[at]] = at;
    }
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            const auto from = places.find(matrix.names[row]);
            const auto to = places.find(matrix.names[column]);
            if (from == places.end() || to == places.end() || matrix.cells[row][column] != MATRIX_FORWARDS) {
                continue;
            }
            const char cell = within.cells[from->second][to->second];
            if (cell == MATRIX_BLOCKED || cell == MATRIX_PARTLY) {
                matrix.blockedIn[row][column].insert(within.vlan);
            }
        }
    }
}

char matrixMark(const Matrix& matrix, size_t row, size_t column) {
    const char cell = matrix.cells[row][column];
    if (cell == MATRIX_BLOCKED && matrix.cells[column][row] != MATRIX_BLOCKED) {
        return MATRIX_ONE_WAY;
    }
    return matrix.blockedIn[row][column].empty() ? cell : MATRIX_IN_VLAN;
}

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

std::string matrixScope(const Matrix& matrix) {
    return matrix.vlan != 0 ? formatText("in VLAN %u", matrix.vlan) : "whatever the VLAN";
}

std::set<uint32_t> matrixVlans(const Matrix& matrix) {
    std::set<uint32_t> all;
    for (const std::vector<std::set<uint32_t>>& row : matrix.blockedIn) {
        for (const std::set<uint32_t>& vlans : row) {
            all.insert(vlans.begin(), vlans.end());
        }
    }
    return all;
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
            line +=
                std::string(blanks + 2 + (width - 1) / 2, ' ') + markText(matrixMark(matrix, row, column));
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
    Matrix matrix;
    const Exit exit = readMatrix(session, vlan, matrix);
    const std::string* path = optionValue(invocation.options, "--svg");
    if (exit != Exit::done || path != nullptr) {
        return exit == Exit::done ? writeFile(*path, matrixSvg(matrix)) : exit;
    }
    if (session.json) {
        printJson(matrix);
        return Exit::done;
    }
    for (const std::string& line : renderMatrix(matrix)) {
        printLine(line);
    }
    printLegend(matrix);
    return Exit::done;
}
