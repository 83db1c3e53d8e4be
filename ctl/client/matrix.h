// Who may talk to whom, as the forwarding plane answers: read from the board, shown as a grid, as JSON or as
// a picture.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/client/session.h"
#include "ctl/text/output.h"

// What the board says about traffic from a row's interface to a column's.
inline constexpr char MATRIX_FORWARDS = 'o';
inline constexpr char MATRIX_BLOCKED = 'x';
inline constexpr char MATRIX_PARTLY = 'p';  // over some member ports only
inline constexpr char MATRIX_ITSELF = '-';
// What the grid shows besides, made of several answers.
inline constexpr char MATRIX_ONE_WAY = '>';  // blocked, while the other direction is not
inline constexpr char MATRIX_IN_VLAN = 'v';  // forwards in general, but not in some VLAN

struct Matrix {
    uint32_t vlan = 0;  // 0: traffic of no particular VLAN
    std::vector<std::string> names;
    std::vector<std::string> cells;  // a string per row, a character per column, of what the board says
    // For each cell the VLANs in which it does not forward, where it does so in general. Rows first.
    std::vector<std::vector<std::set<uint32_t>>> blockedIn;
};

// Reads the board's answer. False when it is no square of known cells.
bool parseMatrix(const std::vector<std::string>& lines, Matrix& matrix);
// Takes in what holds within a VLAN. Ports that `within` does not know are left as they are.
void mergeMatrix(Matrix& matrix, const Matrix& within);

// What the grid shows in a cell.
char matrixMark(const Matrix& matrix, size_t row, size_t column);
struct MatrixMeaning {
    char mark;
    const char* name;  // in a style sheet
    const char* text;
    Tone tone;
};
const std::vector<MatrixMeaning>& matrixMeanings();
// "VLAN 10", or what an answer without one is about.
std::string matrixScope(const Matrix& matrix);
// All VLANs of `blockedIn`.
std::set<uint32_t> matrixVlans(const Matrix& matrix);

std::vector<std::string> renderMatrix(const Matrix& matrix);
// A picture that stands on its own: light or dark as its reader's screen, with a legend.
std::string matrixSvg(const Matrix& matrix);

Exit runMatrix(Session& session, const Invocation& invocation);
