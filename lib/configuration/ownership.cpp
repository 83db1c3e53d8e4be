#include "lib/configuration/ownership.h"

#include <fmt/format.h>

#include "common/bytes.h"
#include "common/files.h"
#include "common/text.h"
#include "lib/link/about.h"
#include "wire/framing.h"

namespace {

constexpr char OWNERSHIP_FILE[] = "/keeper";  // in the run folder
constexpr char DAEMON_WORD[] = "daemon";
constexpr char ROW_WORD[] = "row";
constexpr char PON_WORD[] = "pon-off";
constexpr size_t ROW_WORDS = 5;

std::string ownershipPath(const Session& session) {
    return session.root + RUN_FOLDER + OWNERSHIP_FILE;
}

bool readRow(const std::vector<std::string>& words, ConfigRow& row) {
    uint32_t kind = 0;
    const bool read = words.size() == ROW_WORDS && parseNumber(words[1], kind) &&
                      kind <= static_cast<uint32_t>(ConfigKind::pair) &&
                      parseNumber(words[2], row.scope.number) && parseNumber(words[3], row.scope.vlan) &&
                      parseNumber(words[4], row.member);
    row.kind = static_cast<ConfigKind>(kind);
    return read && row.kind != ConfigKind::mode;
}

}  // namespace

Ownership readOwnership(Session& session) {
    Ownership none = {.daemon = readAbout(session).since};
    Ownership ownership;
    std::string text, problem;
    if (!readRegularFile(ownershipPath(session), text, problem)) return none;
    forEachLine(text, [&](uint32_t, std::string_view line) {
        const std::vector<std::string> words = splitWords(line);
        ConfigRow row;
        uint32_t vlan = 0;
        if (words.size() == 2 && words[0] == DAEMON_WORD) ownership.daemon = words[1];
        if (!words.empty() && words[0] == ROW_WORD && readRow(words, row)) ownership.rows.insert(row);
        if (words.size() == 2 && words[0] == PON_WORD && parseNumber(words[1], vlan)) {
            ownership.ponOff.insert(vlan);
        }
    });
    return ownership.daemon == none.daemon ? ownership : none;
}

bool writeOwnership(const Session& session, const Ownership& ownership) {
    std::string text = fmt::format("{} {}\n", DAEMON_WORD, ownership.daemon);
    for (const ConfigRow& row : ownership.rows) {
        text += fmt::format("{} {} {} {} {}\n", ROW_WORD, static_cast<uint32_t>(row.kind), row.scope.number,
                            row.scope.vlan, row.member);
    }
    for (const uint32_t vlan : ownership.ponOff) text += fmt::format("{} {}\n", PON_WORD, vlan);
    return replaceTextFile(ownershipPath(session), text, false);
}

Configuration unwanted(const Ownership& ownership, const Configuration& wanted,
                       const Configuration& running) {
    Configuration gone;
    for (const ConfigRow& row : ownership.rows) {
        const auto runs = running.rows.find(row);
        if (runs != running.rows.end() && !wanted.rows.contains(row)) gone.rows.insert(*runs);
    }
    for (const uint32_t vlan : ownership.ponOff) {
        if (running.ponOff.contains(vlan) && !wanted.ponOff.contains(vlan)) gone.ponOff.insert(vlan);
    }
    return gone;
}

void takeOwnership(Ownership& ownership, const Configuration& wanted, const Configuration& running) {
    std::erase_if(ownership.rows, [&](const ConfigRow& row) { return !running.rows.contains(row); });
    std::erase_if(ownership.ponOff, [&](uint32_t vlan) { return !running.ponOff.contains(vlan); });
    for (const auto& [row, active] : wanted.rows) ownership.rows.insert(row);
    ownership.ponOff.insert(wanted.ponOff.begin(), wanted.ponOff.end());
}
