#include "lib/answers/comparison_answer.h"

#include "common/scalar_names.h"

namespace {

void addLines(Json& rows, const char* board, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) rows.push_back({{"only", board}, {"line", line}});
}

}  // namespace

Json comparisonAnswer(Session& session, const Comparison& comparison) {
    Json rows = Json::array();
    addLines(rows, "here", configLines(session, without(comparison.here, comparison.there)));
    addLines(rows, "peer", configLines(session, without(comparison.there, comparison.here)));
    for (const SettingDifference& setting : comparison.settings) {
        rows.push_back(
            {{"setting", scalarName(setting.scalar)}, {"here", setting.here}, {"peer", setting.there}});
    }
    return rows;
}
