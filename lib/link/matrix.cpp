#include "lib/link/matrix.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "common/fields.h"
#include "common/text.h"
#include "lib/link/interfaces.h"
#include "lib/link/plane.h"
#include "lib/text/args.h"

namespace {

Matrix askMatrix(Session& session, uint32_t vlan) {
    const std::string request = vlan != 0 ? fmt::format("matrix {}", vlan) : "matrix";
    std::optional<Matrix> matrix = parseMatrix(askBoard(session, request));
    if (!matrix) throw brokenProtocol("the matrix is not a square of known cells");
    matrix->vlan = vlan;
    return *matrix;
}

// VLANs in which something may be blocked: those that hardware entries name, and those of the board, where
// PON isolation holds.
std::set<uint32_t> askVlans(Session& session) {
    std::set<uint32_t> vlans;
    for (const std::string& line : askBoard(session, "hardware")) {
        for (const std::string& word : splitWords(line)) {
            const Field field = splitField(word);
            uint32_t vlan = 0;
            if (field.name == "vlan" && parseGivenNumber(field.value, vlan) && vlan != 0) vlans.insert(vlan);
        }
    }
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.vlan != 0) vlans.insert(interface.vlan);
    }
    return vlans;
}

// The groups of the ports, where some port leads to other machines, from what the plane holds.
void askSpanning(Session& session, Matrix& matrix) {
    std::set<std::string> spans;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.span) spans.insert(interface.name);
    }
    if (spans.empty()) return;
    const PlaneReport plane = readPlane(session);
    std::erase_if(spans, [&](const std::string& name) {
        const SpanPort* span = findSpan(plane, name);
        return span == nullptr || span->state != SPAN_CARRIES;
    });
    std::map<std::string, SpanningGroups> groups;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        SpanningGroups carried = carriedGroups(plane, interface.device, matrix.vlan);
        if (hasShutDoor(plane, interface.name)) carried |= plane.spanning;
        if (carried != 0) groups[interface.name] = carried;
    }
    spanMatrix(matrix, groups, spans);
}

bool sameCells(const Matrix& matrix, size_t row, size_t column, size_t otherRow, size_t otherColumn) {
    if (matrix.cells[row][column] != matrix.cells[otherRow][otherColumn] ||
        matrix.blockedIn[row][column] != matrix.blockedIn[otherRow][otherColumn]) {
        return false;
    }
    return spanningAt(matrix, row, column) == spanningAt(matrix, otherRow, otherColumn);
}

bool alike(const Matrix& matrix, size_t one, size_t other) {
    if (!sameCells(matrix, one, other, other, one)) return false;
    for (size_t third = 0; third < matrix.names.size(); ++third) {
        if (third == one || third == other) continue;
        if (!sameCells(matrix, one, third, other, third) || !sameCells(matrix, third, one, third, other)) {
            return false;
        }
    }
    return true;
}

// The places of each class, in the order of its first.
std::vector<std::vector<size_t>> classesOf(const Matrix& matrix) {
    std::vector<std::vector<size_t>> classes;
    for (size_t place = 0; place < matrix.names.size(); ++place) {
        const auto found = std::find_if(
            classes.begin(), classes.end(),
            [&](const std::vector<size_t>& members) { return alike(matrix, members.front(), place); });
        if (found != classes.end()) {
            found->push_back(place);
        } else {
            classes.push_back({place});
        }
    }
    return classes;
}

}  // namespace

std::optional<Matrix> parseMatrix(const std::vector<std::string>& lines) {
    if (lines.empty()) return std::nullopt;
    Matrix matrix;
    matrix.names = splitWords(lines[0]);
    const size_t size = matrix.names.size();
    if (lines.size() != size + 1) return std::nullopt;
    const char known[] = {MATRIX_FORWARDS, MATRIX_BLOCKED, MATRIX_PARTLY, MATRIX_ITSELF, '\0'};
    for (size_t row = 0; row < size; ++row) {
        const std::vector<std::string> words = splitWords(lines[row + 1]);
        if (words.size() != 2 || words[0] != matrix.names[row] || words[1].size() != size ||
            words[1].find_first_not_of(known) != std::string::npos) {
            return std::nullopt;
        }
        matrix.cells.push_back(words[1]);
    }
    matrix.blockedIn.assign(size, std::vector<std::set<uint32_t>>(size));
    return matrix;
}

void mergeMatrix(Matrix& matrix, const Matrix& within) {
    std::map<std::string, size_t> places;
    for (size_t at = 0; at < within.names.size(); ++at) places[within.names[at]] = at;
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

void spanMatrix(Matrix& matrix, const std::map<std::string, SpanningGroups>& groups,
                const std::set<std::string>& spans) {
    std::vector<size_t> columns;
    for (size_t place = 0; place < matrix.names.size(); ++place) {
        if (spans.contains(matrix.names[place])) columns.push_back(place);
    }
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        const auto carried = groups.find(matrix.names[row]);
        if (carried == groups.end()) continue;
        for (const size_t column : columns) {
            for (const auto& [from, to] : {std::pair(row, column), std::pair(column, row)}) {
                if (matrix.cells[from][to] != MATRIX_FORWARDS) continue;
                matrix.spanning[{from, to}] = carried->second;
            }
        }
    }
}

Matrix readMatrix(Session& session, uint32_t vlan) {
    Matrix matrix = askMatrix(session, vlan);
    askSpanning(session, matrix);
    if (vlan != 0) return matrix;
    for (const uint32_t one : askVlans(session)) mergeMatrix(matrix, askMatrix(session, one));
    return matrix;
}

char matrixMark(const Matrix& matrix, size_t row, size_t column) {
    const char cell = matrix.cells[row][column];
    if (cell == MATRIX_BLOCKED && matrix.cells[column][row] != MATRIX_BLOCKED) return MATRIX_ONE_WAY;
    if (!matrix.blockedIn[row][column].empty()) return MATRIX_IN_VLAN;
    return spanningAt(matrix, row, column) != 0 ? MATRIX_SPANS : cell;
}

std::vector<uint32_t> matrixVlans(const Matrix& matrix) {
    std::set<uint32_t> all;
    for (const std::vector<std::set<uint32_t>>& row : matrix.blockedIn) {
        for (const std::set<uint32_t>& vlans : row) all.insert(vlans.begin(), vlans.end());
    }
    return {all.begin(), all.end()};
}

SpanningGroups matrixGroups(const Matrix& matrix) {
    SpanningGroups all = 0;
    for (const auto& [place, groups] : matrix.spanning) all |= groups;
    return all;
}

SpanningGroups spanningAt(const Matrix& matrix, size_t row, size_t column) {
    const auto found = matrix.spanning.find({row, column});
    return found != matrix.spanning.end() ? found->second : SpanningGroups{0};
}

Matrix pickMatrix(const Matrix& matrix, const std::vector<size_t>& places) {
    Matrix picked;
    picked.vlan = matrix.vlan;
    for (const size_t row : places) {
        picked.names.push_back(matrix.names[row]);
        std::string& cells = picked.cells.emplace_back();
        std::vector<std::set<uint32_t>>& blockedIn = picked.blockedIn.emplace_back();
        for (const size_t column : places) {
            cells += matrix.cells[row][column];
            blockedIn.push_back(matrix.blockedIn[row][column]);
            const SpanningGroups groups = spanningAt(matrix, row, column);
            if (groups != 0) picked.spanning[{picked.names.size() - 1, cells.size() - 1}] = groups;
        }
    }
    return picked;
}

std::vector<size_t> blockedPlaces(const Matrix& matrix) {
    std::vector<size_t> places;
    const auto open = [&matrix](size_t row, size_t column) {
        return row == column || matrixMark(matrix, row, column) == MATRIX_FORWARDS;
    };
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            if (open(row, column) && open(column, row)) continue;
            places.push_back(row);
            break;
        }
    }
    return places;
}

Matrix foldMatrix(const Matrix& matrix) {
    const std::vector<std::vector<size_t>> classes = classesOf(matrix);
    std::vector<size_t> firsts;
    for (const std::vector<size_t>& places : classes) firsts.push_back(places.front());
    Matrix folded = pickMatrix(matrix, firsts);
    for (size_t row = 0; row < classes.size(); ++row) {
        const std::vector<size_t>& places = classes[row];
        std::vector<std::string>& members = folded.members.emplace_back();
        for (const size_t place : places) members.push_back(matrix.names[place]);
        if (places.size() == 1) continue;
        folded.cells[row][row] = matrix.cells[places[0]][places[1]];
        folded.blockedIn[row][row] = matrix.blockedIn[places[0]][places[1]];
        const SpanningGroups groups = spanningAt(matrix, places[0], places[1]);
        if (groups != 0) folded.spanning[{row, row}] = groups;
    }
    return folded;
}
