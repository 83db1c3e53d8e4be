#include "ctl/commands/plan_run.h"

#include <fmt/format.h>

#include "common/text.h"
#include "lib/link/rows.h"
#include "lib/link/scalars.h"
#include "lib/link/spanning.h"
#include "lib/text/listing.h"
#include "wire/scalars.h"
#include "wire/status.h"

namespace {

std::string stepText(Session& session, const Step& step) {
    switch (step.action) {
        case StepAction::setMode:
            return fmt::format("mode: set to {}", step.number);
        case StepAction::setPon:
            return fmt::format("pon, VLAN {}: {}", step.number, step.on ? "on" : "off");
        case StepAction::setSpanning:
            return "spanning " + spanningText(static_cast<SpanningGroups>(step.number));
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

// Carries out a step that sets a value. Answers the daemon's status; a refusal is printed when `tell` says
// so.
int32_t runValueStep(Session& session, const Step& step, bool tell) {
    const int32_t status = step.action == StepAction::setMode ? sendScalar(session, SCALAR_MODE, step.number)
                                                              : sendPon(session, step.number, step.on);
    if (status != 0 && tell) tellEnd(refusal(stepText(session, step), status));
    return status;
}

// The same for a step that changes a row.
int32_t runRowStep(Session& session, const Step& step, bool tell) {
    const RowFamily& family = rowFamily(step.row.kind);
    const auto& [kind, scope, member] = step.row;
    for (const RowRequest& request : rowRequests(step.action)) {
        const int32_t status = sendRowStatus(session, family, scope, member, request.value);
        if (status == 0) continue;
        if (tell) {
            tellRowRefusal(session, family, scope, member, request.name, status);
            // The row is there all the same.
            const bool created = request.value == ROW_ACTIVATE;
            if (created) complain(stepText(session, step) + ": stays created, without isolating");
        }
        return status;
    }
    return 0;
}

int32_t runSpanningStep(Session& session, const Step& step, bool tell) {
    const std::string refused = sendSpanning(session, static_cast<SpanningGroups>(step.number));
    if (!refused.empty() && tell) complain(stepText(session, step) + ": refused: " + refused);
    return refused.empty() ? STATUS_OK : STATUS_FAILED;
}

int32_t runStep(Session& session, const Step& step, bool tell) {
    if (step.action == StepAction::setSpanning) return runSpanningStep(session, step, tell);
    const bool value = step.action == StepAction::setMode || step.action == StepAction::setPon;
    return value ? runValueStep(session, step, tell) : runRowStep(session, step, tell);
}

void runSteps(Session& session, const std::vector<Step>& steps, const StepFilter& isWanted,
              Progress& progress) {
    for (const Step& step : steps) {
        if (isWanted && !isWanted(step)) continue;
        try {
            ++(runStep(session, step, !progress.quiet) == 0 ? progress.changed : progress.refused);
        } catch (const CommandEnds& end) {
            tellEnd(end);
            throw CommandEnds{end.exit, "the daemon was lost at " + stepText(session, step)};
        }
    }
}

// Answers the steps that were refused for now. When it is the mode that has to wait for empty tables, no
// claim may come in before it.
std::vector<Step> trySteps(Session& session, const std::vector<Step>& steps, Progress& progress) {
    std::vector<Step> again;
    for (const Step& step : steps) {
        const bool waits = !again.empty() && again.front().action == StepAction::setMode;
        if (!waits && runStep(session, step, false) == 0) {
            ++progress.changed;
        } else {
            again.push_back(step);
        }
    }
    return again;
}

}  // namespace

size_t stepCount(const Plan& plan) {
    return plan.before.size() + plan.early.size() + plan.release.size() + plan.after.size();
}

void runPlan(Session& session, const Plan& plan, Progress& progress, const StepFilter& isWanted) {
    runSteps(session, plan.before, isWanted, progress);
    const std::vector<Step> again = trySteps(session, plan.early, progress);
    for (const std::vector<Step>& steps : {plan.release, again, plan.after}) {
        runSteps(session, steps, isWanted, progress);
    }
}

std::string changesText(size_t changes) {
    return fmt::format("{} change{}", changes, changes == 1 ? "" : "s");
}

std::string outcomeText(size_t steps, const Progress& progress) {
    return fmt::format("{}, {} made, {} refused", changesText(steps), progress.changed, progress.refused);
}

void printDifference(Session& session, const Configuration& running, const Configuration& wanted) {
    const std::vector<std::string> gone = configLines(session, without(running, wanted));
    const std::vector<std::string> come = configLines(session, without(wanted, running));
    if (session.json) {
        Json rows = Json::array();
        for (const std::string& line : gone) rows.push_back({{"change", "remove"}, {"line", line}});
        for (const std::string& line : come) rows.push_back({{"change", "add"}, {"line", line}});
        return printLine(jsonRows(rows));
    }
    for (const std::string& line : gone) printLine(toned(Tone::bad, "- " + safeText(line)));
    for (const std::string& line : come) printLine(toned(Tone::good, "+ " + safeText(line)));
}
