#include "ctl/commands/why.h"

#include <fmt/format.h>

#include "common/text.h"
#include "lib/answers/explanation.h"
#include "lib/link/interfaces.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"

namespace {

// A verdict in a sentence about traffic.
struct VerdictWords {
    const char* text;
    Tone tone;
};
// In the order of Verdict.
constexpr VerdictWords VERDICTS[] = {
    {"passes", Tone::good}, {"is blocked", Tone::bad}, {"passes over some member ports only", Tone::warning}};

const VerdictWords& wordsOf(Verdict verdict) {
    return VERDICTS[static_cast<size_t>(verdict)];
}

void printAnswer(const Direction& answer) {
    const VerdictWords& hardware = wordsOf(answer.hardware);
    const std::string from =
        answer.groups == 0 ? answer.from : "members of " + groupsText(answer.groups) + " on other machines";
    printLine(toned(Tone::heading, safeText(from + " to " + answer.to)) +
              (answer.vlan != 0 ? fmt::format(" in VLAN {}", answer.vlan) : "") + ": " +
              toned(hardware.tone, hardware.text));
    std::string label = "  tables:    ";
    for (const std::string& reason : answer.reasons) {
        printLine(label + safeText(reason));
        label = "             ";
    }
    if (answer.reasons.empty()) printLine(label + "nothing blocks it");
    for (const std::string& note : answer.notes) {
        printLine("             " + toned(Tone::faint, "(" + safeText(note) + ")"));
    }
    label = "  saved:     ";
    for (const WantedBy& wanted : answer.saved) {
        printLine(label + safeText(wantedText(wanted)));
        label = "             ";
    }
    printLine("  hardware:  " + (answer.reason.empty() ? "nothing blocks it" : safeText(answer.reason)));
    if (answer.agrees) return;
    printLine(
        toned(Tone::bad, fmt::format("  They disagree: by the tables traffic {}, by the hardware it {}.",
                                     wordsOf(answer.tables).text, hardware.text)));
}

Exit runWhy(Session& session, const Invocation& invocation) {
    const uint32_t first = resolveInterface(session, invocation.arguments[0]);
    const uint32_t vlan = vlanOption(invocation.options);
    const std::string* groups = fieldValue(invocation.options, "--remote");
    if ((groups == nullptr) == (invocation.arguments.size() == 1)) {
        throw misuse("name two interfaces, or one and --remote GROUPS");
    }
    if (groups != nullptr) {
        const Direction answer = explainRemote(session, first, groupsArgument(*groups), vlan);
        if (!session.json) printAnswer(answer);
        if (session.json) printLine(jsonText(remoteAnswer(answer)));
        return Exit::done;
    }
    const uint32_t second = resolveInterface(session, invocation.arguments[1]);
    const Explanation explanation = explain(session, first, second, vlan);
    if (session.json) {
        printLine(jsonRows(explanationAnswer(explanation)));
    } else {
        for (const Direction& direction : explanation) printAnswer(direction);
    }
    return Exit::done;
}

constexpr Command WHY_COMMANDS[] = {
    {.object = "why",
     .signature = "INTERFACE [INTERFACE] [--remote GROUPS] [--vlan VLAN]",
     .help = "explain why two interfaces may or may not talk, by the tables and by the hardware",
     .example = "why ge1/1 lag1 --vlan 10",
     .run = runWhy,
     .details =
         "--remote: instead what a frame meets at the interface that a member of these groups (5,7 or 1-4) "
         "on\nanother machine sends.",
     .json = "an array of two directions {from, to, vlan, tables, reasons, notes, saved, hardware, "
             "hardwareReason, agree, packets, bytes}; tables and hardware are forwards, blocked or partly; "
             "saved holds "
             "{interface, policy, line} of the saved configuration; null stands for all VLANs, nothing "
             "counted and no policy; with --remote one such, with groups in the place of from"},
};

}  // namespace

Commands whyCommands() {
    return WHY_COMMANDS;
}
