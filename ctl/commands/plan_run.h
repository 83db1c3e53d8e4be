// Carries out a plan (lib/configuration/config_plan.h), and says what it changes.
//
// A refusal is printed, unless the progress is quiet, and the rest is done. The early steps are tried in
// silence and again after the removals. Losing the daemon ends the command; what was done stays, and both are
// said.
#pragma once

#include <functional>
#include <string>

#include "lib/configuration/config_plan.h"
#include "lib/link/session.h"

// What carrying out a plan has come to.
struct Progress {
    size_t changed = 0;
    size_t refused = 0;
    bool quiet = false;  // refusals are not printed
};

// Whether a step is to be carried out after all, asked right before it. Not asked for the early ones.
using StepFilter = std::function<bool(const Step&)>;

size_t stepCount(const Plan& plan);
void runPlan(Session& session, const Plan& plan, Progress& progress, const StepFilter& isWanted = {});

// "3 changes", and "3 changes, 2 made, 1 refused".
std::string changesText(size_t changes);
std::string outcomeText(size_t steps, const Progress& progress);
// Prints the lines that go and those that come between one configuration and another.
void printDifference(Session& session, const Configuration& running, const Configuration& wanted);
