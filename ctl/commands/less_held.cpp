#include "ctl/commands/less_held.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>

#include "lib/configuration/shortfall.h"
#include "lib/link/forward.h"
#include "lib/link/interfaces.h"
#include "lib/text/output.h"

namespace {

constexpr size_t TOLD_MAX = 4;
constexpr char REMEDY[] =
    "two ports are held in one VLAN or in all: for all, delete them from every group that they share, then "
    "add a group "
    "without a VLAN";

using ShortfallFilter = std::function<bool(const Shortfall&)>;

void tell(const std::vector<Shortfall>& shortfalls) {
    for (size_t at = 0; at < std::min(shortfalls.size(), TOLD_MAX); ++at) {
        complain(shortfallText(shortfalls[at]));
    }
    if (shortfalls.size() > TOLD_MAX) {
        complain(fmt::format("so are {} more pairs of ports: `plane show` lists them",
                             shortfalls.size() - TOLD_MAX));
    }
    if (!shortfalls.empty()) complain(REMEDY);
}

// Two ports are claimed in another VLAN than is asked for only where they share more than one group.
bool sharesMore(const GroupScopes& scopes, uint32_t member) {
    return std::any_of(scopes.begin(), scopes.end(), [&](const auto& other) {
        return other.first != member && sharedScopes(scopes, member, other.first).size() > 1;
    });
}

void tellGroups(Session& session, RowScope scope, const std::vector<uint32_t>& members) {
    const std::vector<BoardInterface>& interfaces = boardInterfaces(session);
    const Configuration running = readRunning(session);
    const GroupScopes scopes = groupScopes(interfaces, running);
    const bool possible = std::any_of(members.begin(), members.end(),
                                      [&](uint32_t member) { return sharesMore(scopes, member); });
    if (!possible) return;
    std::vector<Shortfall> found = findShortfalls(interfaces, running, readVlanEntries(session));
    std::erase_if(found, [&](const Shortfall& one) { return !one.wanted.contains(scope); });
    tell(found);
}

// The daemon ends a one-way isolation that the hardware refuses with 0.
void tellPairs(Session& session, uint32_t source, const std::vector<uint32_t>& targets) {
    for (const uint32_t target : targets) {
        const BoardInterface* from = findInterface(session, source);
        const BoardInterface* to = findInterface(session, target);
        if (from == nullptr || to == nullptr || !from->present || !to->present) continue;
        if (askForward(session, source, target, 0).word == "no") continue;
        complain(
            fmt::format("pair {} to {}: was answered as done, and the hardware does not hold all of it: "
                        "`why {} {}` tells more; delete it and add it again",
                        from->name, to->name, from->name, to->name));
    }
}

template <typename Look>
void unlessUnreachable(Look&& look) {
    try {
        look();
    } catch (const CommandEnds&) {
    }
}

}  // namespace

void tellLessHeld(Session& session, const RowFamily& family, RowScope scope,
                  const std::vector<uint32_t>& members) {
    unlessUnreachable([&] {
        &family == &PAIR_ROWS ? tellPairs(session, scope.number, members)
                              : tellGroups(session, scope, members);
    });
}

void tellShortfalls(Session& session) {
    unlessUnreachable([&] {
        tell(findShortfalls(boardInterfaces(session), readRunning(session), readVlanEntries(session)));
    });
}
