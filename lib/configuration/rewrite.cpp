#include "lib/configuration/rewrite.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "common/text.h"

namespace {

bool isPattern(const ConfigWord& word) {
    return word.kind != WordKind::plain;
}

bool hasPatterns(const ConfigLine& line) {
    return line.kind == ConfigKind::policy || isPattern(line.source) ||
           std::any_of(line.members.begin(), line.members.end(), isPattern);
}

// The numbers of the text's lines that stay.
std::set<uint32_t> linesThatStay(const ConfigFile& file) {
    std::set<uint32_t> lines;
    for (const ConfigLine& line : file.lines) {
        if (!hasPatterns(line)) continue;
        uint32_t last = line.place.line;
        for (const ConfigRole& role : line.roles) last = std::max(last, role.place.line);
        for (uint32_t number = line.place.line; number <= last; ++number) lines.insert(number);
    }
    return lines;
}

}  // namespace

void keepSpanning(const Saved& saved, Configuration& running) {
    const std::vector<ConfigLine>& lines = saved.file.lines;
    const bool said = std::any_of(lines.begin(), lines.end(),
                                  [](const ConfigLine& line) { return line.kind == ConfigKind::spanning; });
    if (said && !running.spanning) running.spanning = saved.resolution.wanted.spanning;
    if (!said && running.spanning == SPANNING_ALL) running.spanning.reset();
}

bool hasPatterns(const ConfigFile& file) {
    return std::any_of(file.lines.begin(), file.lines.end(),
                       [](const ConfigLine& line) { return hasPatterns(line); });
}

Rewritten rewriteSaved(Session& session, const Saved& saved, const Configuration& running) {
    Rewritten rewritten;
    const std::set<uint32_t> staying = linesThatStay(saved.file);
    Configuration rest = running;
    Configuration lacks;
    for (const auto& [row, origin] : saved.resolution.origins) {
        if (!staying.contains(origin.place.line)) continue;
        const auto runs = rest.rows.find(row);
        const bool active = saved.resolution.wanted.rows.at(row);
        if (runs == rest.rows.end() || runs->second != active) lacks.rows[row] = active;
        rest.rows.erase(row);
    }
    rewritten.contradictions = saved.mistakes;
    for (const std::string& line : configLines(session, lacks)) {
        rewritten.contradictions.push_back(line +
                                           ": does not run, and a pattern or a policy of the file wants it");
    }
    for (const std::string& line : configLines(session, rest)) rewritten.lines.push_back(safeText(line));
    forEachLine(saved.text, [&](uint32_t number, std::string_view line) {
        if (staying.contains(number)) rewritten.lines.emplace_back(line);
    });
    return rewritten;
}
