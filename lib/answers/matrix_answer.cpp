#include "lib/answers/matrix_answer.h"

namespace {

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

}  // namespace

Json matrixAnswer(const Matrix& matrix, bool simulated) {
    Json rows = Json::array(), inVlans = Json::array();
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        const std::string& from = matrix.names[row];
        // Appended without a look at those before: names are unique, and rows may be long.
        Json::object_t cells;
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            const std::string& to = matrix.names[column];
            const std::set<uint32_t>& vlans = matrix.blockedIn[row][column];
            if (column != row) cells.emplace_back(to, cellWord(matrix.cells[row][column]));
            if (!vlans.empty()) inVlans.push_back({{"from", from}, {"to", to}, {"vlans", vlans}});
        }
        rows.push_back({{"from", from}, {"to", std::move(cells)}});
    }
    Json spanning = Json::array();
    for (const auto& [place, groups] : matrix.spanning) {
        spanning.push_back({{"from", matrix.names[place.first]},
                            {"to", matrix.names[place.second]},
                            {"groups", spanningNumbers(groups)}});
    }
    Json answer = {{"vlan", vlanJson(matrix.vlan)},
                   {"interfaces", matrix.names},
                   {"rows", std::move(rows)},
                   {"blockedInVlans", std::move(inVlans)},
                   {"spanning", std::move(spanning)}};
    for (size_t row = 0; row < matrix.members.size(); ++row) {
        answer["classes"].push_back({{"first", matrix.names[row]},
                                     {"interfaces", matrix.members[row]},
                                     {"among", cellWord(matrix.cells[row][row])}});
    }
    answer["simulated"] = simulated;
    return answer;
}
