#include "ctl/commands/why.h"

#include <fmt/format.h>

#include <algorithm>

#include "client/configuration/judgement_text.h"
#include "client/link/forward.h"
#include "client/link/interfaces.h"
#include "client/link/printouts.h"
#include "client/text/args.h"
#include "client/text/listing.h"
#include "common/text.h"

namespace {

// A verdict in JSON, and in a sentence about traffic.
struct VerdictWords {
    const char* key;
    const char* text;
    Tone tone;
};
// In the order of Verdict.
constexpr VerdictWords VERDICTS[] = {{"forwards", "passes", Tone::good},
                                     {"blocked", "is blocked", Tone::bad},
                                     {"partly", "passes over some member ports only", Tone::warning}};

const VerdictWords& wordsOf(Verdict verdict) {
    return VERDICTS[static_cast<size_t>(verdict)];
}

// What the daemon runs with; its switches and claims are from its printouts.
Tables readTables(Session& session) {
    Tables tables;
    tables.interfaces = boardInterfaces(session);
    tables.configuration = readRunning(session);
    const std::string global = askShell(session, "portIsolateGlobalShow", "printouts");
    const std::string inner = askShell(session, "portIsolateIfInnerShow", "printouts");
    for (const auto& [name, value] : readSettings(global)) {
        if (name == "isSrcTrunkToPort") tables.sourceTrunkToPort = value != "0";
        if (name == "isDstTrunkToPort") tables.targetTrunkToPort = value != "0";
    }
    for (const PrintedPair& pair : readPairs(inner)) {
        tables.claims[std::minmax(pair.source, pair.target)].insert(pair.groups.begin(), pair.groups.end());
    }
    return tables;
}

// The answer for one direction.
struct Answer {
    std::string from, to;
    uint32_t vlan = 0;
    Verdict tables = Verdict::forwards;
    std::vector<std::string> reasons{};
    std::vector<std::string> notes{};
    Verdict hardware = Verdict::forwards;
    std::string reason{};  // of the hardware
    bool agrees = true;
};

// An interface that is not plugged forwards nothing, whatever the tables say.
Answer answerOne(Session& session, const Tables& tables, const BoardInterface& from, const BoardInterface& to,
                 uint32_t vlan) {
    Answer answer = {.from = from.name, .to = to.name, .vlan = vlan};
    const Judgement judgement = judgeTables(tables, from.number, to.number, vlan);
    answer.tables = judgement.verdict;
    answer.reasons = reasonTexts(tables, judgement);
    answer.notes = noteTexts(tables, judgement);
    const ForwardAnswer plane = askForward(session, from.number, to.number, vlan);
    answer.hardware = plane.word == "yes"  ? Verdict::forwards
                      : plane.word == "no" ? Verdict::blocked
                                           : Verdict::partly;
    answer.reason = plane.reason;
    answer.agrees = !from.present || !to.present || answer.tables == answer.hardware;
    if (!answer.agrees && judgement.claim) answer.notes.push_back(claimText(tables, *judgement.claim));
    return answer;
}

void printAnswer(const Answer& answer) {
    const VerdictWords& hardware = wordsOf(answer.hardware);
    printLine(toned(Tone::heading, safeText(answer.from + " to " + answer.to)) +
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
    printLine("  hardware:  " + (answer.reason.empty() ? "nothing blocks it" : safeText(answer.reason)));
    if (answer.agrees) return;
    printLine(
        toned(Tone::bad, fmt::format("  They disagree: by the tables traffic {}, by the hardware it {}.",
                                     wordsOf(answer.tables).text, hardware.text)));
}

Json answerJson(const Answer& answer) {
    return {{"from", answer.from},
            {"to", answer.to},
            {"vlan", answer.vlan},
            {"tables", wordsOf(answer.tables).key},
            {"reasons", answer.reasons},
            {"notes", answer.notes},
            {"hardware", wordsOf(answer.hardware).key},
            {"hardwareReason", answer.reason},
            {"agree", answer.agrees}};
}

const BoardInterface& requireInterface(Session& session, uint32_t number) {
    const BoardInterface* interface = findInterface(session, number);
    if (interface != nullptr) return *interface;
    if (!session.interfacesFailure.empty()) throw boardUnreachable(session, session.interfacesFailure);
    throw misuse(fmt::format("no interface has the number {}", number));
}

Exit runWhy(Session& session, const Invocation& invocation) {
    const uint32_t first = resolveInterface(session, invocation.arguments[0]);
    const uint32_t second = resolveInterface(session, invocation.arguments[1]);
    const uint32_t vlan = vlanOption(invocation.options);
    const BoardInterface& from = requireInterface(session, first);
    const BoardInterface& to = requireInterface(session, second);
    if (first == second) throw misuse("name two different interfaces");
    const Tables tables = readTables(session);
    const Answer forth = answerOne(session, tables, from, to, vlan);
    const Answer back = answerOne(session, tables, to, from, vlan);
    if (session.json) {
        printLine(jsonRows({answerJson(forth), answerJson(back)}));
    } else {
        printAnswer(forth);
        printAnswer(back);
    }
    return Exit::done;
}

constexpr Command WHY_COMMANDS[] = {
    {.object = "why",
     .signature = "INTERFACE INTERFACE [--vlan VLAN]",
     .help = "explain why two interfaces may or may not talk, by the tables and by the hardware",
     .example = "why ge1/1 lag1 --vlan 10",
     .run = runWhy,
     .json = "an array of two directions {from, to, vlan, tables, reasons, notes, hardware, hardwareReason, "
             "agree}; tables and hardware are forwards, blocked or partly"},
};

}  // namespace

Commands whyCommands() {
    return WHY_COMMANDS;
}
