// Who may talk to whom, as the forwarding plane answers: read from the board, shown as a grid.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/session.h"

// What a cell of the grid says about traffic from its row's interface to its column's.
inline constexpr char MATRIX_FORWARDS = 'o';
inline constexpr char MATRIX_BLOCKED = 'x';
inline constexpr char MATRIX_PARTLY = 'p';
inline constexpr char MATRIX_ITSELF = '-';

struct Matrix {
    std::vector<std::string> names;
    std::vector<std::string> cells;  // a string per row, a character per column
};

// Reads the board's answer. False when it is no square of known cells.
bool parseMatrix(const std::vector<std::string>& lines, Matrix& matrix);
std::vector<std::string> renderMatrix(const Matrix& matrix);

Exit runMatrix(Session& session, const Invocation& invocation);
