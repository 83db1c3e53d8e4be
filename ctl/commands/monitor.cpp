#include "ctl/commands/monitor.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <iterator>

#include "client/link/happening.h"
#include "client/link/interfaces.h"
#include "client/text/args.h"
#include "client/text/listing.h"
#include "common/statuses.h"
#include "common/text.h"
#include "wire/status.h"

namespace {

constexpr char MONITOR_DETAILS[] =
    "  hardware is a command to the hardware, query a question to it. Without a kind, everything but\n"
    "  queries is shown. A line with a number of dropped lines marks where this reader was too slow;\n"
    "  the daemon never waits for it.";

constexpr size_t KIND_WIDTH = 8;

int32_t statusOf(const Happening& happening) {
    const std::string text = happeningText(happening, "status");
    uint32_t number = 0;
    const bool negative = text.starts_with('-');
    parseGivenNumber(std::string_view(text).substr(negative ? 1 : 0), number);
    return static_cast<int32_t>(negative ? 0u - number : number);
}

std::string resultText(const Happening& happening, bool& good) {
    const int32_t status = statusOf(happening);
    const bool walk = happening.sentence.ends_with("get first") || happening.sentence.ends_with("get next");
    good = status == STATUS_OK || (walk && status == STATUS_NOT_FOUND);
    return status == STATUS_OK ? "ok" : good ? "none" : describeStatus(status);
}

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
        bool good = true;
        const std::string result = resultText(happening, good);
        line += " -> " + toned(good ? Tone::good : Tone::bad, result);
    }
    if (fieldValue(happening.fields, "program") != nullptr) {
        line +=
            toned(Tone::faint,
                  safeText(fmt::format("  by {}, pid {}, uid {}", happeningText(happening, "program"),
                                       happeningText(happening, "pid"), happeningText(happening, "uid"))));
    }
    printLine(line);
}

// Numbers go out as the board wrote them, with all their digits, so the object is put together field by
// field.
void printJson(const Happening& happening) {
    std::vector<std::string> fields = {jsonField("kind", jsonText(happening.kind))};
    for (const Field& field : happening.fields) {
        const char* const texts[] = {"call",     "program", "channel", "frame",
                                     "messages", "index",   "data",    "text"};
        const bool text = std::any_of(std::begin(texts), std::end(texts),
                                      [&](const char* name) { return field.name == name; });
        const bool bare = !text && isBoardNumber(field.value);
        fields.push_back(jsonField(field.name, bare ? field.value : jsonText(field.value)));
    }
    if (happening.kind != "log" && happening.kind != "dropped") {
        fields.push_back(jsonField("text", jsonText(happening.sentence)));
    }
    printLine("{" + joinWords(fields, ",") + "}");
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
        session.json ? printJson(*happening) : printText(*happening);
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
     .json = "an object a line: kind, time in seconds, status, the bytes in hexadecimal, text"},
};

}  // namespace

Commands monitorCommands() {
    return MONITOR_COMMANDS;
}
