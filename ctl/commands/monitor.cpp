#include "ctl/commands/monitor.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>

#include "common/text.h"
#include "lib/answers/happening_answer.h"
#include "lib/link/interfaces.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"

namespace {

constexpr char MONITOR_DETAILS[] =
    "  hardware is a command to the hardware, query a question to it. Without a kind, everything but\n"
    "  queries is shown. A line with a number of dropped lines marks where this reader was too slow;\n"
    "  the daemon never waits for it.";

constexpr size_t KIND_WIDTH = 8;

// The part of a line that says when, in local time.
std::string clockText(const Happening& happening) {
    const std::string time = happeningText(happening, "time");
    const size_t point = std::min(time.find('.'), time.size());
    uint32_t seconds = 0;
    parseGivenNumber(std::string_view(time).substr(0, point), seconds);
    const time_t when = seconds;
    tm local{};
    localtime_r(&when, &local);
    return fmt::format("{:02}:{:02}:{:02}", local.tm_hour, local.tm_min, local.tm_sec) + time.substr(point);
}

void printText(const Happening& happening) {
    if (happening.kind == "dropped") {
        printLine(
            toned(Tone::warning, "-- " + happeningText(happening, "count") + " lines were dropped here"));
        return;
    }
    std::string line = toned(Tone::faint, clockText(happening)) + "  " +
                       toned(Tone::heading, padded(happening.kind, KIND_WIDTH)) + "  " +
                       safeText(happening.sentence);
    if (fieldValue(happening.fields, "status") != nullptr) {
        const HappeningEnd outcome = happeningEnd(happening);
        line += " -> " + toned(outcome.good ? Tone::good : Tone::bad, outcome.text);
    }
    if (fieldValue(happening.fields, "program") != nullptr) {
        line +=
            toned(Tone::faint,
                  safeText(fmt::format("  by {}, pid {}, uid {}", happeningText(happening, "program"),
                                       happeningText(happening, "pid"), happeningText(happening, "uid"))));
    }
    printLine(line);
}

Exit runMonitor(Session& session, const Invocation& invocation) {
    const std::vector<std::string>& known = happeningKinds();
    std::vector<std::string> kinds;
    for (const std::string& text : invocation.arguments) {
        kinds.push_back(known[pickName(known, text, "kind")]);
    }
    const auto wanted = [&](const std::string& kind) {
        if (kind == "dropped") return true;
        return kinds.empty() ? kind != "query" : std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
    };
    const std::optional<uint32_t> count = countOption(invocation);
    boardInterfaces(session);
    followBoard(session, "monitor", count, [&](std::string_view line) {
        const std::optional<Happening> happening = readHappening(session, line);
        if (!happening || !wanted(happening->kind)) return false;
        session.json ? printLine(happeningAnswer(session, *happening)) : printText(*happening);
        return true;
    });
    return Exit::done;
}

constexpr Command MONITOR_COMMANDS[] = {
    {.object = "monitor",
     .signature = "[request|event|hardware|query|log...] [--count LINES]",
     .help = "show what happens in the daemon as it happens",
     .example = "monitor request hardware",
     .run = runMonitor,
     .details = MONITOR_DETAILS,
     .json = "an object a line: kind, time in seconds, status, result and what belongs to the kind, text; "
             "null stands for all VLANs and for what a kind has not"},
};

}  // namespace

Commands monitorCommands() {
    return MONITOR_COMMANDS;
}
