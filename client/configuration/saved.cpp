#include "client/configuration/saved.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "common/files.h"
#include "common/text.h"

namespace {

constexpr char UNTOUCHED[] = ": nothing is changed, and nothing swept";

bool holds(const Configuration& running, const ConfigRow& row, bool active) {
    const auto found = running.rows.find(row);
    return found != running.rows.end() && (found->second || !active);
}

}  // namespace

Saved readSaved(Session& session) {
    const std::string path = session.root + SAVED_FILE;
    std::string text, problem;
    if (!readRegularFile(path, text, problem)) {
        if (problem.empty()) return {};
        throw CommandEnds{Exit::refused, path + ": " + problem + UNTOUCHED};
    }
    ConfigFile file = parseConfig(text);
    if (file.lines.empty()) {
        throw CommandEnds{Exit::refused, path + " has no line that can be read" + UNTOUCHED};
    }
    Saved saved = {.there = true, .wanted = resolveConfig(session, file), .mistakes = {}};
    for (const Mistake& mistake : file.mistakes) {
        saved.mistakes.push_back(
            fmt::format("{}:{}:{}: {}", path, mistake.place.line, mistake.place.column, mistake.text));
    }
    return saved;
}

Saved lookAtSaved(Session& session) {
    try {
        return readSaved(session);
    } catch (const CommandEnds& end) {
        return {.there = true, .wanted = {}, .mistakes = {end.why}};
    }
}

Configuration lacking(const Configuration& wanted, const Configuration& running) {
    Configuration lacks;
    if (wanted.mode && wanted.mode != running.mode) lacks.mode = wanted.mode;
    for (const auto& [row, active] : wanted.rows) {
        if (!holds(running, row, active)) lacks.rows[row] = active;
    }
    std::set_difference(wanted.ponOff.begin(), wanted.ponOff.end(), running.ponOff.begin(),
                        running.ponOff.end(), std::inserter(lacks.ponOff, lacks.ponOff.end()));
    return lacks;
}

Configuration joined(const Configuration& running, const Configuration& lacks) {
    Configuration whole = running;
    if (lacks.mode) whole.mode = lacks.mode;
    for (const auto& [row, active] : lacks.rows) whole.rows[row] = active;
    whole.ponOff.insert(lacks.ponOff.begin(), lacks.ponOff.end());
    return whole;
}

std::vector<std::string> pendingLines(Session& session, const Saved& saved, const Configuration& running) {
    std::vector<std::string> lines = saved.mistakes;
    for (const std::string& line : configLines(session, lacking(saved.wanted, running))) {
        lines.push_back(line + ": does not run");
    }
    return lines;
}
