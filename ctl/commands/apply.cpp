#include "ctl/commands/apply.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/client/interfaces.h"
#include "ctl/client/plane.h"
#include "ctl/client/settings.h"
#include "ctl/configuration/config_plan.h"
#include "ctl/text/output.h"
#include "wire/status.h"

namespace {

const char* const EXPORT_HEADING =
    "# Configuration of the port-isolation daemon. `portisolatectl apply FILE` makes it run again;\n"
    "# `portisolatectl apply --help` explains the lines.";
constexpr char STANDARD_INPUT[] = "-";

// Empty, or why the file cannot be read. What is longer than a configuration may be is not read to its end.
std::string readFile(const std::string& path, std::string& text) {
    std::FILE* file = path == STANDARD_INPUT ? stdin : std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        return std::strerror(errno);
    }
    char buffer[65536];
    size_t got;
    while (text.size() <= CONFIG_TEXT_MAX && (got = std::fread(buffer, 1, sizeof(buffer), file)) > 0) {
        text.append(buffer, got);
    }
    std::string failure = std::ferror(file) != 0 ? std::strerror(errno) : "";
    if (file != stdin) {
        std::fclose(file);
    }
    return failure;
}

Exit tellMistakes(const Session& session, const std::string& path, const ConfigFile& file) {
    if (file.mistakes.empty()) {
        return Exit::done;
    }
    const std::string name = path == STANDARD_INPUT ? "standard input" : path;
    for (const Mistake& mistake : file.mistakes) {
        complain(formatText("%s:%u:%u: ", name.c_str(), mistake.place.line, mistake.place.column) +
                 mistake.text);
    }
    complain(name + ": nothing was applied");
    return session.interfacesFailure.empty() ? Exit::usage : Exit::unreachable;
}

// Reads a file into `wanted` and the daemon's configuration into `running`.
Exit readBoth(Session& session, const std::string& path, Configuration& wanted, Configuration& running) {
    std::string text;
    const std::string failure = readFile(path, text);
    if (!failure.empty()) {
        return misuse("cannot read " + path + ": " + failure);
    }
    ConfigFile file = parseConfig(text);
    settleConfig(session, file, wanted);
    Exit exit = tellMistakes(session, path, file);
    uint32_t maxGroups = 0;
    if (exit == Exit::done) {
        exit = readMaxGroups(session, maxGroups);
    }
    if (exit == Exit::done) {
        checkGroupNumbers(file, maxGroups);
        exit = tellMistakes(session, path, file);
    }
    return exit == Exit::done ? readRunning(session, running) : exit;
}

// What one configuration has and another has not, as a configuration of its own.
Configuration without(const Configuration& whole, const Configuration& other) {
    Configuration rest;
    if (whole.mode && other.mode && whole.mode != other.mode) {
        rest.mode = whole.mode;
    }
    for (const auto& [row, active] : whole.rows) {
        const auto same = other.rows.find(row);
        if (same == other.rows.end() || same->second != active) {
            rest.rows[row] = active;
        }
    }
    std::set_difference(whole.ponOff.begin(), whole.ponOff.end(), other.ponOff.begin(), other.ponOff.end(),
                        std::inserter(rest.ponOff, rest.ponOff.end()));
    return rest;
}

void printDifference(Session& session, const Configuration& running, const Configuration& wanted) {
    Listing listing{{{nullptr, "change"}, {nullptr, "line"}}, {}};
    const std::vector<std::string> gone = configLines(session, without(running, wanted));
    const std::vector<std::string> come = configLines(session, without(wanted, running));
    for (const std::string& line : gone) {
        listing.rows.push_back({textCell("remove"), textCell(line, Tone::bad)});
    }
    for (const std::string& line : come) {
        listing.rows.push_back({textCell("add"), textCell(line, Tone::good)});
    }
    if (session.json) {
        printListing(listing, true);
        return;
    }
    for (const std::vector<Cell>& row : listing.rows) {
        const bool removed = row[1].tone == Tone::bad;
        printLine(toned(row[1].tone, (removed ? "- " : "+ ") + row[1].text));
    }
}

std::string stepText(Session& session, const Step& step) {
    switch (step.action) {
        case StepAction::setMode:
            return formatText("mode: set to %u", step.number);
        case StepAction::setPon:
            return formatText("pon, VLAN %u: %s", step.number, step.on ? "on" : "off");
        default:
            return rowText(session, rowFamily(step.row.kind), step.row.scope, step.row.member);
    }
}

// One request of a step that changes a row.
struct RowRequest {
    uint32_t value;
    const char* name;
};

std::vector<RowRequest> rowRequests(StepAction action) {
    switch (action) {
        case StepAction::remove:
            return {{ROW_DESTROY, "delete"}};
        case StepAction::create:
            return {{ROW_CREATE, "create"}};
        case StepAction::activate:
            return {{ROW_ACTIVATE, "activate"}};
        default:
            return {{ROW_CREATE, "create"}, {ROW_ACTIVATE, "activate"}};
    }
}

std::string changesText(size_t changes) {
    return formatText("%zu change%s", changes, changes == 1 ? "" : "s");
}

// What carrying out a plan has come to.
struct Progress {
    size_t changed = 0;
    size_t refused = 0;
};

// A row whose activation was refused is there all the same.
void tellCreated(Session& session, const Step& step, uint32_t refused) {
    if (refused == ROW_ACTIVATE) {
        complain(stepText(session, step) + ": stays created, without isolating");
    }
}

// Carries out one step; a refusal is left in `status` and told when `tell` says so.
Exit runStep(Session& session, const Step& step, bool tell, int32_t& status) {
    if (step.action == StepAction::setMode || step.action == StepAction::setPon) {
        const Exit exit = step.action == StepAction::setMode ? sendMode(session, step.number, status)
                                                             : sendPon(session, step.number, step.on, status);
        if (exit == Exit::done && status != 0 && tell) {
            refuse(stepText(session, step), status);
        }
        return exit;
    }
    const RowFamily& family = rowFamily(step.row.kind);
    for (const RowRequest& request : rowRequests(step.action)) {
        const Exit exit =
            sendRowStatus(session, family, step.row.scope, step.row.member, request.value, status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status != 0) {
            if (tell) {
                refuseRow(session, family, step.row.scope, step.row.member, request.name, status);
                tellCreated(session, step, request.value);
            }
            return Exit::done;
        }
    }
    return Exit::done;
}

Exit runSteps(Session& session, const std::vector<Step>& steps, Progress& progress) {
    for (const Step& step : steps) {
        int32_t status = 0;
        const Exit exit = runStep(session, step, true, status);
        if (exit != Exit::done) {
            complain("the daemon was lost at " + stepText(session, step));
            return exit;
        }
        ++(status == 0 ? progress.changed : progress.refused);
    }
    return Exit::done;
}

// Steps that may be refused for now are kept in `again`. When it is the mode that has to wait for empty
// tables, no claim may come in before it.
Exit trySteps(Session& session, const std::vector<Step>& steps, std::vector<Step>& again,
              Progress& progress) {
    for (const Step& step : steps) {
        const bool waits = !again.empty() && again.front().action == StepAction::setMode;
        int32_t status = STATUS_MODE_IN_USE;
        const Exit exit = waits ? Exit::done : runStep(session, step, false, status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status == 0) {
            ++progress.changed;
        } else {
            again.push_back(step);
        }
    }
    return Exit::done;
}

Exit runPlan(Session& session, const Plan& plan, Progress& progress) {
    std::vector<Step> again;
    Exit exit = runSteps(session, plan.before, progress);
    if (exit == Exit::done) {
        exit = trySteps(session, plan.early, again, progress);
    }
    for (const std::vector<Step>& steps : {plan.release, again, plan.after}) {
        if (exit == Exit::done) {
            exit = runSteps(session, steps, progress);
        }
    }
    return exit;
}

// What an earlier run of the daemon left over has to make way once all that is wanted stands.
Exit sweepAfter(Session& session) {
    uint64_t removed = 0;
    const Exit exit = sweepPlane(session, removed);
    if (exit == Exit::done && removed != 0 && !session.json) {
        printLine("swept " + elementsText(removed) + " that an earlier run left over");
    }
    return exit;
}

void tellUnswept(Session& session) {
    size_t entries = 0;
    if (countLeftOver(session, entries) == Exit::done && entries != 0) {
        complain(
            "what an earlier run left over stays, for it may isolate what was refused now; `plane show` "
            "lists it, `plane sweep` removes it");
    }
}

}  // namespace

Exit runExport(Session& session, const Invocation&) {
    Configuration running;
    const Exit exit = readRunning(session, running);
    if (exit != Exit::done) {
        return exit;
    }
    const std::vector<std::string> lines = configLines(session, running);
    if (session.json) {
        printLine(listCell(lines).json);
        return Exit::done;
    }
    printLine(EXPORT_HEADING);
    for (const std::string& line : lines) {
        printLine(safeText(line));
    }
    return Exit::done;
}

Exit runApply(Session& session, const Invocation& invocation) {
    const std::string& path = invocation.arguments.front();
    Configuration wanted, running;
    Exit exit = readBoth(session, path, wanted, running);
    if (exit != Exit::done) {
        return exit;
    }
    const Plan plan = planChanges(running, wanted);
    printDifference(session, running, wanted);
    const size_t steps = plan.before.size() + plan.early.size() + plan.release.size() + plan.after.size();
    const bool dryRun = optionValue(invocation.options, "--dry-run") != nullptr;
    if (steps == 0 || dryRun) {
        if (!session.json) {
            printLine(steps == 0 ? "nothing to change" : changesText(steps) + ", none made");
        }
        return dryRun ? Exit::done : sweepAfter(session);
    }
    std::fflush(stdout);
    Progress progress;
    exit = runPlan(session, plan, progress);
    if (exit != Exit::done || progress.refused > 0) {
        complain(changesText(steps) +
                 formatText(", %zu made, %zu refused", progress.changed, progress.refused));
        if (exit != Exit::done) {
            return exit;
        }
        tellUnswept(session);
        return Exit::refused;
    }
    if (!session.json) {
        printLine(changesText(progress.changed) + " made");
    }
    return sweepAfter(session);
}
