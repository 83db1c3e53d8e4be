#include "ctl/commands/keep.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <optional>
#include <set>

#include "common/files.h"
#include "common/folder_watch.h"
#include "common/manager.h"
#include "common/request_text.h"
#include "ctl/commands/plan_run.h"
#include "lib/configuration/ownership.h"
#include "lib/configuration/saved.h"
#include "lib/link/happening.h"
#include "lib/link/interfaces.h"
#include "lib/link/plane.h"
#include "lib/text/output.h"

namespace {

constexpr char KEEP_DETAILS[] =
    "  The file is /etc/portisolate/isolation.conf, as `portisolatectl save` writes it; patterns and "
    "policies\n"
    "  are for editors. What of it does not run is asked for, and what it wanted before and wants no more "
    "is\n"
    "  removed; rows that others have made stay. A line that cannot be applied is named and stays pending,\n"
    "  and the others are applied. Once nothing is pending, what an earlier run of the daemon left over in\n"
    "  the plane is swept. A file that cannot be read changes nothing; while one of its lines cannot be\n"
    "  read, nothing is removed. The doors of all ports that no pending row is about are opened; while a "
    "line\n"
    "  cannot be read, none.\n"
    "\n"
    "  With --once the exit status is 0 when all is in force, and 1 when something is pending. Without it\n"
    "  the command stays, and tries again when a port or the daemon comes back, or the file changes; the\n"
    "  service manager runs it so.";

// Milliseconds.
constexpr int64_t QUIET = 100;         // without a line, before what has happened is looked at
constexpr int64_t LOOK_LATEST = 1000;  // after something has happened, however much goes on
constexpr int64_t RETRY_FIRST = 1000;
constexpr int64_t RETRY_LAST = 60000;
constexpr int64_t NEVER = INT64_MAX;

struct Keeper {
    Session& session;
    bool first = true;   // no look yet since the daemon started
    std::string text{};  // of the file when it was looked at last
    Ownership owned{};
    Configuration withdrawn{};        // by an operator, of what is saved
    std::vector<std::string> told{};  // to be pending
    std::vector<std::string> uses{};  // of policies, as told
    bool swept = false;
    FolderWatch watch{};
    int64_t pause = 0;  // before what was refused is tried again
    int64_t retry = NEVER;
};

// Rows of ports that have gone for good would fall on the next port of that name.
void removeGone(Session& session, Configuration& running) {
    std::erase_if(running.rows, [&](const auto& entry) {
        const ConfigRow& row = entry.first;
        const BoardInterface* member = findInterface(session, row.member);
        const BoardInterface* source =
            row.kind == ConfigKind::pair ? findInterface(session, row.scope.number) : nullptr;
        const bool gone = (member != nullptr && member->gone) || (source != nullptr && source->gone);
        if (!gone || sendRowStatus(session, rowFamily(row.kind), row.scope, row.member, ROW_DESTROY) != 0) {
            return false;
        }
        complain(rowText(session, rowFamily(row.kind), row.scope, row.member) +
                 ": removed, since the port has gone for good");
        return true;
    });
}

// An operator's will holds until the daemon starts again, or what was withdrawn runs again.
Configuration wantedNow(Keeper& keeper, const Configuration& lacks) {
    Configuration& withdrawn = keeper.withdrawn;
    std::erase_if(withdrawn.rows, [&](const auto& entry) { return !lacks.rows.contains(entry.first); });
    std::erase_if(withdrawn.ponOff, [&](uint32_t vlan) { return !lacks.ponOff.contains(vlan); });
    Configuration wanted = lacks;
    std::erase_if(wanted.rows, [&](const auto& entry) { return withdrawn.rows.contains(entry.first); });
    std::erase_if(wanted.ponOff, [&](uint32_t vlan) { return withdrawn.ponOff.contains(vlan); });
    return wanted;
}

void tellPending(Keeper& keeper, const Saved& saved, const std::vector<std::string>& pending) {
    if (!keeper.first && pending == keeper.told) return;
    for (const std::string& line : pending) complain("pending: " + line);
    if (saved.there && pending.empty() && !keeper.told.empty()) {
        complain("all of the saved configuration is in force");
    }
    keeper.told = pending;
    tellManager(pending.empty() ? "STATUS=all in force" : fmt::format("STATUS=pending: {}", pending.front()));
}

// The numbers that policies use, when they have changed.
void tellUses(Keeper& keeper, const Saved& saved) {
    std::vector<std::string> uses;
    for (const PolicyUse& use : saved.resolution.policies) uses.push_back(policyUseText(use));
    uses.insert(uses.end(), saved.resolution.notes.begin(), saved.resolution.notes.end());
    for (const std::string& use : uses) {
        if (std::find(keeper.uses.begin(), keeper.uses.end(), use) == keeper.uses.end()) complain(use);
    }
    keeper.uses = uses;
}

void sweepOnce(Keeper& keeper) {
    if (keeper.swept) return;
    keeper.swept = true;
    const uint64_t removed = sweepPlane(keeper.session);
    if (removed != 0) complain(fmt::format("swept {} elements that an earlier run left over", removed));
}

// Whom a pending row names has to wait behind the door, and so has whom that row would isolate from it: its
// own door may have been opened before the row was wanted. While groups do not span as they should, all wait.
void openSettled(Session& session, const Configuration& wanted, const Configuration& lacks) {
    if (lacks.spanning) return;
    std::set<uint32_t> waiting;
    std::set<std::pair<ConfigKind, RowScope>> incomplete;
    for (const auto& [row, state] : lacks.rows) {
        waiting.insert(row.member);
        if (row.kind == ConfigKind::pair) waiting.insert(row.scope.number);
        if (row.kind != ConfigKind::pair) incomplete.emplace(row.kind, row.scope);
    }
    for (const auto& [row, state] : wanted.rows) {
        if (incomplete.contains({row.kind, row.scope})) waiting.insert(row.member);
    }
    openDoors(session, waiting);
}

void planRetry(Keeper& keeper, bool refused) {
    keeper.pause = refused ? std::clamp(2 * keeper.pause, RETRY_FIRST, RETRY_LAST) : 0;
    keeper.retry = refused ? monotonicMs() + keeper.pause : NEVER;
}

// What the file wants of a daemon that runs with this. Policies keep what stands of them, withdrawn or not.
Saved readWanted(Keeper& keeper, const Configuration& running) {
    Standing standing{.running = running, .owned = keeper.owned.rows};
    for (const auto& [row, active] : keeper.withdrawn.rows) standing.owned.insert(row);
    Saved saved = readSaved(keeper.session, std::move(standing));
    if (saved.text != keeper.text) keeper.withdrawn = {};
    keeper.text = saved.text;
    return saved;
}

// What runs once the file is in force as far as it can be read. Whom a line means that cannot be read, nobody
// knows: then nothing is removed.
Configuration targetOf(Keeper& keeper, const Saved& saved, const Configuration& running) {
    const Configuration& wanted = saved.resolution.wanted;
    Configuration target = joined(running, wantedNow(keeper, lacking(wanted, running)));
    if (target.spanning && !saved.mistakes.empty()) *target.spanning |= *running.spanning;
    if (!saved.there || !saved.mistakes.empty()) return target;
    const Configuration gone = unwanted(keeper.owned, wanted, running);
    for (const auto& [row, active] : gone.rows) target.rows.erase(row);
    for (const uint32_t vlan : gone.ponOff) target.ponOff.erase(vlan);
    return target;
}

// It is only needed once the file wants less.
void noteOwnership(Keeper& keeper, const Saved& saved, const Configuration& running) {
    const Ownership before = keeper.owned;
    takeOwnership(keeper.owned, saved.resolution.wanted, running);
    if (keeper.owned == before || writeOwnership(keeper.session, keeper.owned)) return;
    complain(
        fmt::format("cannot note what is kept, a later keeper will not remove it: {}", std::strerror(errno)));
}

// Looks once, and asks for the difference. True when nothing is pending.
bool look(Keeper& keeper) {
    Session& session = keeper.session;
    askBoard(session, "saved");
    forgetInterfaces(session);
    if (keeper.first) keeper.owned = readOwnership(session);
    Configuration running = readRunning(session);
    const Saved saved = readWanted(keeper, running);
    removeGone(session, running);
    const Plan plan = planChanges(running, targetOf(keeper, saved, running));
    Progress progress;
    progress.quiet = !keeper.first && pendingLines(session, saved, running) == keeper.told;
    // Noted before it is asked for: who is ended on the way has done it all the same.
    noteOwnership(keeper, saved, running);
    runPlan(session, plan, progress);
    if (stepCount(plan) != 0) running = readRunning(session);
    const std::vector<std::string> pending = pendingLines(session, saved, running);
    noteOwnership(keeper, saved, running);
    tellUses(keeper, saved);
    tellPending(keeper, saved, pending);
    if (saved.there && pending.empty()) sweepOnce(keeper);
    planRetry(keeper, progress.refused != 0);
    if (saved.there && saved.mistakes.empty()) {
        const Configuration& wanted = saved.resolution.wanted;
        openSettled(session, wanted, wantedNow(keeper, lacking(wanted, running)));
    }
    keeper.first = false;
    return pending.empty();
}

void noteWithdrawal(Keeper& keeper, const Happening& request) {
    std::string frame;
    parseHex(happeningText(request, "frame"), frame);
    const std::optional<Withdrawal> withdrawn = withdrawnBy(frame);
    const bool own = happeningNumber(request, "pid") == static_cast<uint32_t>(getpid());
    if (own || !withdrawn || happeningText(request, "status") != "0") return;
    if (withdrawn->family == nullptr) {
        keeper.withdrawn.ponOff.insert(withdrawn->vlan);
        return;
    }
    for (const ConfigKind kind : {ConfigKind::group, ConfigKind::vlanGroup, ConfigKind::pair}) {
        if (&rowFamily(kind) != withdrawn->family) continue;
        const ConfigRow row{kind, withdrawn->scope, withdrawn->member};
        keeper.withdrawn.rows[row] = true;
    }
}

// Whether the board may have changed by what the line tells.
bool tellsChange(Keeper& keeper, std::string_view line) {
    const std::optional<Happening> happening = readHappening(keeper.session, line);
    if (happening && happening->kind == "request") noteWithdrawal(keeper, *happening);
    return happening && (happening->kind == "event" || happening->kind == "dropped");
}

enum class Woken : uint8_t { time, line, file };

// Waits so many milliseconds, or for ever when that is negative.
Woken awaitChange(Keeper& keeper, LineReader& lines, std::string& line, int64_t wait) {
    Taken taken = takeLine(lines, line, 0);
    if (taken == Taken::none) {
        pollfd polled[] = {{descriptorOf(lines), POLLIN, 0}, {keeper.watch.fd, POLLIN, 0}};
        poll(polled, std::size(polled), static_cast<int>(std::min<int64_t>(wait, INT_MAX)));
        if (takeChanges(keeper.watch)) return Woken::file;
        taken = takeLine(lines, line, 0);
    }
    if (taken == Taken::end) throw boardUnreachable(keeper.session, "the stream ended");
    return taken == Taken::line ? Woken::line : Woken::time;
}

// Follows the daemon until it is gone.
void follow(Keeper& keeper, LineReader& lines) {
    keeper.first = true;
    keeper.swept = false;
    keeper.withdrawn = {};
    look(keeper);
    tellManager("READY=1");
    int64_t latest = NEVER;  // for the next look; a change is waiting for it, unless it is never
    for (std::string line;;) {
        const int64_t due = latest == NEVER ? keeper.retry : std::min(latest, monotonicMs() + QUIET);
        const int64_t wait = due == NEVER ? -1 : std::max<int64_t>(due - monotonicMs(), 0);
        const Woken woken = awaitChange(keeper, lines, line, wait);
        const bool changed = woken == Woken::file || (woken == Woken::line && tellsChange(keeper, line));
        if (changed && latest == NEVER) latest = monotonicMs() + LOOK_LATEST;
        if (woken != Woken::time && monotonicMs() < std::min(latest, keeper.retry)) continue;
        if (woken == Woken::time && monotonicMs() < due) continue;
        look(keeper);
        latest = NEVER;
    }
}

[[noreturn]] void stay(Keeper& keeper) {
    std::string told;
    keeper.watch = watchFolderOf(keeper.session.root + SAVED_FILE);
    for (;;) {
        LineReader lines;
        try {
            openLines(keeper.session, lines, "monitor changes");
            told.clear();
            follow(keeper, lines);
        } catch (const CommandEnds& end) {
            if (end.why != told) tellEnd(end);
            told = end.why;
        }
        sessionClose(keeper.session);
        keeper.pause = std::clamp(2 * keeper.pause, RETRY_FIRST / 10, RETRY_LAST / 10);
        poll(nullptr, 0, static_cast<int>(keeper.pause));
    }
}

Exit runKeep(Session& session, const Invocation& invocation) {
    Keeper keeper{.session = session};
    if (fieldValue(invocation.options, "--once") == nullptr) stay(keeper);
    return look(keeper) ? Exit::done : Exit::refused;
}

constexpr Command KEEP_COMMANDS[] = {
    {.object = "keep",
     .signature = "[--once]",
     .help = "bring the saved configuration into force, and keep it so",
     .example = "keep --once",
     .run = runKeep,
     .details = KEEP_DETAILS},
};

}  // namespace

Commands keepCommands() {
    return KEEP_COMMANDS;
}
