// Who may talk to whom, as the forwarding plane answers.
//
// What the board says
//   The board answers a square: for each pair of interfaces whether traffic from the row's to the column's is
//   forwarded, within one VLAN or within none in particular. A trunk forwards partly when some of its member
//   ports are blocked.
//
// Merging
//   A question about no particular VLAN finds what blocks all traffic and nothing else. So the answers within
//   those VLANs that may block something are merged into it: a cell that forwards in general collects the
//   VLANs in which it does not, or does in part. A cell that is blocked already stays as it is, since a VLAN
//   adds nothing there. The board may have changed between two answers; an interface that only one of them
//   knows is left as it is.
//
// Marks
//   What is shown is made of several answers: a blocked cell whose opposite direction forwards is marked as
//   one way, a forwarding one with VLANs as blocked within a VLAN. All other marks are the board's.
//
// Other machines
//   Traffic between a port and one that leads to other machines is forwarded, but not between members of one
//   group. So a cell of two such ports that forwards has the groups for which it does not.
//
// Folding
//   Interfaces are alike when each may talk to the same others in the same ways, and any two of them to one
//   another in the same way in both directions. That is transitive, so they fall into classes; those of a
//   matrix of policies are its roles and communities. A folded matrix has a row for each class, and tells on
//   its diagonal how the members of a class stand to one another.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/spanning_groups.h"
#include "lib/link/session.h"

// What the board says about traffic from a row's interface to a column's.
inline constexpr char MATRIX_FORWARDS = 'o';
inline constexpr char MATRIX_BLOCKED = 'x';
inline constexpr char MATRIX_PARTLY = 'p';  // over some member ports only
inline constexpr char MATRIX_ITSELF = '-';
// The other marks.
inline constexpr char MATRIX_ONE_WAY = '>';  // blocked, while the other direction is not
inline constexpr char MATRIX_IN_VLAN = 'v';  // forwards in general, but not in some VLAN
inline constexpr char MATRIX_SPANS = 's';    // forwards, but not between members of a group on two machines

struct Matrix {
    uint32_t vlan = 0;  // 0: traffic of no particular VLAN
    std::vector<std::string> names;
    std::vector<std::string> cells;  // a string per row, a character per column, of what the board says
    // For each cell the VLANs in which it does not forward, where it does so in general. Rows first.
    std::vector<std::vector<std::set<uint32_t>>> blockedIn;
    // For the places of some cells, row and column, the groups whose members on other machines are kept apart
    // from those here.
    std::map<std::pair<size_t, size_t>, SpanningGroups> spanning;
    // For each row the names of what it stands for, where the matrix is folded; `names` has the first of
    // each.
    std::vector<std::vector<std::string>> members;
};

// Reads the board's answer. Nothing when it is not a square of known cells.
std::optional<Matrix> parseMatrix(const std::vector<std::string>& lines);
// Merges the answer for `within.vlan`.
void mergeMatrix(Matrix& matrix, const Matrix& within);
// Notes the groups of the ports here at the ports that lead to other machines. Both are given by their names
// in the matrix.
void spanMatrix(Matrix& matrix, const std::map<std::string, SpanningGroups>& groups,
                const std::set<std::string>& spans);
// Asks the board; without a VLAN (0) the answers of all VLANs are merged. Ends the command when the board
// cannot be reached or answers what cannot be read.
Matrix readMatrix(Session& session, uint32_t vlan);

char matrixMark(const Matrix& matrix, size_t row, size_t column);
// All VLANs of `blockedIn`.
std::vector<uint32_t> matrixVlans(const Matrix& matrix);
// All groups of `spanning`; those of one cell.
SpanningGroups matrixGroups(const Matrix& matrix);
SpanningGroups spanningAt(const Matrix& matrix, size_t row, size_t column);

// The same for some of the interfaces, which their places name.
Matrix pickMatrix(const Matrix& matrix, const std::vector<size_t>& places);
// Those that do not reach all others always, or are not reached by all.
std::vector<size_t> blockedPlaces(const Matrix& matrix);
Matrix foldMatrix(const Matrix& matrix);
