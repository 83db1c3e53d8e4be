#include "lib/configuration/saved.h"

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

Saved readSaved(Session& session, Standing standing) {
    const std::string path = session.root + SAVED_FILE;
    Saved saved = {.there = true};
    std::string problem;
    if (!readRegularFile(path, saved.text, problem)) {
        if (problem.empty()) return {};
        throw CommandEnds{Exit::refused, path + ": " + problem + UNTOUCHED};
    }
    saved.file = parseConfig(saved.text);
    if (saved.file.lines.empty()) {
        throw CommandEnds{Exit::refused, path + " has no line that can be read" + UNTOUCHED};
    }
    standing.limits = readLimits(session, saved.file);
    saved.resolution = resolveConfig(session, saved.file, standing);
    for (const Mistake& mistake : saved.file.mistakes) {
        saved.mistakes.push_back(
            fmt::format("{}:{}:{}: {}", path, mistake.place.line, mistake.place.column, mistake.text));
    }
    return saved;
}

Saved lookAtSaved(Session& session, const Standing& standing) {
    try {
        return readSaved(session, standing);
    } catch (const CommandEnds& end) {
        return {.there = true, .mistakes = {end.why}};
    }
}

Configuration lacking(const Configuration& wanted, const Configuration& running) {
    Configuration lacks;
    if (wanted.mode && wanted.mode != running.mode) lacks.mode = wanted.mode;
    if (spanDifferently(wanted, running)) lacks.spanning = wanted.spanning;
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
    if (lacks.spanning) whole.spanning = lacks.spanning;
    for (const auto& [row, active] : lacks.rows) whole.rows[row] = active;
    whole.ponOff.insert(lacks.ponOff.begin(), lacks.ponOff.end());
    return whole;
}

std::vector<std::string> pendingLines(Session& session, const Saved& saved, const Configuration& running) {
    std::vector<std::string> lines = saved.mistakes;
    for (const std::string& line : configLines(session, lacking(saved.resolution.wanted, running))) {
        lines.push_back(line + ": does not run");
    }
    return lines;
}
