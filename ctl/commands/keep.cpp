#include "ctl/commands/keep.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <climits>
#include <optional>

#include "common/files.h"
#include "common/manager.h"
#include "ctl/client/happening.h"
#include "ctl/client/interfaces.h"
#include "ctl/client/plane.h"
#include "ctl/commands/plan_run.h"
#include "ctl/configuration/saved.h"
#include "ctl/text/output.h"
#include "wire/operations.h"

namespace {

constexpr char KEEP_DETAILS[] =
    "  The file is /etc/portisolate/isolation.conf, as `portisolatectl save` writes it. What of it does not\n"
    "  run is asked for; nothing that runs is removed. A line that cannot be applied is named and stays\n"
    "  pending, and the others are applied. Once nothing is pending, what an earlier run of the daemon left\n"
    "  over in the plane is swept. A file that cannot be read changes nothing.\n"
    "\n"
    "  With --once the exit status is 0 when all is in force, and 1 when something is pending. Without it\n"
    "  the command stays, and tries again when a port or the daemon comes back; the service manager runs it\n"
    "  so.";

// Milliseconds.
constexpr int64_t QUIET = 100;         // without a line, before what has happened is looked at
constexpr int64_t LOOK_LATEST = 1000;  // after something has happened, however much goes on
constexpr int64_t RETRY_FIRST = 1000;
constexpr int64_t RETRY_LAST = 60000;
constexpr int64_t NEVER = INT64_MAX;

struct Keeper {
    Session& session;
    bool first = true;                // no look yet since the daemon started
    Configuration lacks{};            // at the last look
    Configuration released{};         // by an operator
    std::vector<std::string> told{};  // to be pending
    bool swept = false;
    int64_t pause = 0;  // before what was refused is tried again
    int64_t retry = NEVER;
};

Configuration sharedBy(const Configuration& left, const Configuration& right) {
    return without(left, without(left, right));
}

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

// What is to be asked for, once it is known what an operator has released since the last look.
Configuration wantedNow(Keeper& keeper, const Configuration& lacks, bool byEvent) {
    if (keeper.first) keeper.released = {};
    if (!keeper.first && !byEvent) {
        keeper.released = joined(keeper.released, without(lacks, keeper.lacks));
    }
    keeper.released = sharedBy(keeper.released, lacks);
    Configuration wanted = without(lacks, keeper.released);
    wanted.mode = lacks.mode;
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

void sweepOnce(Keeper& keeper) {
    if (keeper.swept) return;
    keeper.swept = true;
    const uint64_t removed = sweepPlane(keeper.session);
    if (removed != 0) complain(fmt::format("swept {} elements that an earlier run left over", removed));
}

void planRetry(Keeper& keeper, bool refused) {
    keeper.pause = refused ? std::clamp(2 * keeper.pause, RETRY_FIRST, RETRY_LAST) : 0;
    keeper.retry = refused ? deadlineAfter(keeper.pause) : NEVER;
}

// Looks once, and asks for what is lacking. True when nothing is pending.
bool look(Keeper& keeper, bool byEvent) {
    Session& session = keeper.session;
    askBoard(session, "saved");
    forgetInterfaces(session);
    const Saved saved = readSaved(session);
    Configuration running = readRunning(session);
    removeGone(session, running);
    const Configuration lacks = lacking(saved.wanted, running);
    const Plan plan = planChanges(running, joined(running, wantedNow(keeper, lacks, byEvent)));
    Progress progress;
    progress.quiet = !keeper.first && pendingLines(session, saved, running) == keeper.told;
    runPlan(session, plan, progress);
    if (stepCount(plan) != 0) running = readRunning(session);
    const std::vector<std::string> pending = pendingLines(session, saved, running);
    tellPending(keeper, saved, pending);
    if (saved.there && pending.empty()) sweepOnce(keeper);
    planRetry(keeper, progress.refused != 0);
    keeper.lacks = lacking(saved.wanted, running);
    keeper.first = false;
    return pending.empty();
}

// What a line of the monitor may have changed of the rows.
struct Change {
    bool event = false;
    bool request = false;
};

Change changeIn(Session& session, std::string_view line) {
    const std::optional<Happening> happening = readHappening(session, line);
    if (!happening) return {};
    if (happening->kind == "dropped") return {true, true};
    if (happening->kind != "request") return {happening->kind == "event", false};
    std::string frame;
    parseHex(happeningText(*happening, "frame"), frame);
    const uint32_t opcode = frame.size() < WORD_SIZE ? OP_COUNT : wordAt(frame, 0);
    return {false, opcode < OP_COUNT && PORT_ISOLATE_OP_SHAPES[opcode].kind == OpKind::set};
}

// Follows the daemon until it is gone.
void follow(Keeper& keeper, LineReader& lines) {
    keeper.first = true;
    keeper.swept = false;
    look(keeper, true);
    tellManager("READY=1");
    Change change;
    int64_t latest = NEVER;
    for (std::string line;;) {
        const bool changed = change.event || change.request;
        const int64_t due = changed ? std::min(latest, deadlineAfter(QUIET)) : keeper.retry;
        const int64_t wait = due == NEVER ? -1 : std::max<int64_t>(due - monotonicMs(), 0);
        const Taken taken = takeLine(lines, line, wait);
        if (taken == Taken::end) throw boardUnreachable(keeper.session, "the stream ended");
        if (taken == Taken::line) {
            const Change more = changeIn(keeper.session, line);
            change = {change.event || more.event, change.request || more.request};
            if (!changed && (change.event || change.request)) latest = deadlineAfter(LOOK_LATEST);
            if (monotonicMs() < latest) continue;
        }
        look(keeper, change.event);
        change = {};
        latest = NEVER;
    }
}

[[noreturn]] void stay(Keeper& keeper) {
    std::string told;
    for (;;) {
        LineReader lines;
        try {
            openLines(keeper.session, lines, "monitor");
            told.clear();
            follow(keeper, lines);
        } catch (const CommandEnds& end) {
            if (end.why != told) tellEnd(end);
            told = end.why;
        }
        streamClose(lines.stream);
        sessionClose(keeper.session);
        keeper.pause = std::clamp(2 * keeper.pause, RETRY_FIRST / 10, RETRY_LAST / 10);
        poll(nullptr, 0, static_cast<int>(keeper.pause));
    }
}

Exit runKeep(Session& session, const Invocation& invocation) {
    Keeper keeper{.session = session};
    if (fieldValue(invocation.options, "--once") == nullptr) stay(keeper);
    return look(keeper, true) ? Exit::done : Exit::refused;
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
