#include "web/upstream/follower.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "common/files.h"
#include "common/request_text.h"
#include "lib/answers/happening_answer.h"
#include "lib/link/interfaces.h"

namespace {

constexpr int64_t LOOK_MS = 200;       // between two looks whether to stop
constexpr int64_t COME_BACK_MS = 500;  // between two tries to reach the daemon
constexpr int64_t NAMES_MS = 500;      // between two questions for the names of the interfaces

bool setsSomething(const Happening& happening) {
    return happening.kind == "request" && requestSets(happeningBytes(happening, "frame"));
}

void countRequest(Happened& happened, const Happening& happening, const HappeningEnd& outcome) {
    const RequestParts parts = requestParts(happeningBytes(happening, "frame"));
    ++happened.requests[{parts.object, parts.operation, outcome.result}];
    if (outcome.text == "ok" && setsSomething(happening)) {
        happened.changed = std::strtod(happeningText(happening, "time").c_str(), nullptr);
    }
}

void count(Follower& follower, Session& session, const Happening& happening) {
    const HappeningEnd outcome = happeningEnd(happening);
    const auto messages =
        happening.kind == "event" ? eventMessages(session, happening) : std::vector<EventMessage>();
    std::lock_guard guard(follower.lock);
    Happened& happened = follower.happened;
    if (happening.kind == "request") countRequest(happened, happening, outcome);
    if (happening.kind == "hardware") ++happened.commands[outcome.result];
    if (happening.kind == "dropped") happened.dropped += happeningNumber(happening, "count");
    for (const EventMessage& message : messages) ++happened.events[message.event];
}

// The names that a session knows may be others after an event.
struct Names {
    bool stale = false;
    int64_t asked = 0;
};

void renewNames(Session& session, Names& names, const std::string& line) {
    names.stale = names.stale || line.starts_with("event ");
    if (!names.stale || monotonicMs() - names.asked < NAMES_MS) return;
    forgetInterfaces(session);
    names = {.stale = false, .asked = monotonicMs()};
}

// One line of the monitor; `own` marks those that this process is the reason of.
void take(Follower& follower, Session& session, Names& names, const std::string& line,
          const std::string& own) {
    if (line.starts_with("request ") && line.find(own) != std::string::npos) return;
    renewNames(session, names, line);
    const std::optional<Happening> happening = readHappening(session, line);
    if (!happening) return;
    count(follower, session, *happening);
    const std::string json = happeningAnswer(session, *happening);
    follower.publish(happening->kind, json);
    const bool sets = setsSomething(*happening);
    if (sets) follower.publish(KIND_CHANGE, json);
    if (sets || (happening->kind != "request" && happening->kind != "query")) follower.publishChange();
}

void setConnected(Follower& follower, bool connected) {
    {
        std::lock_guard guard(follower.lock);
        if (follower.happened.connected == connected) return;
        follower.happened.connected = connected;
    }
    follower.publishChange();
}

// Until the stream ends, or this is to stop.
void followOnce(Follower& follower) {
    Session session;
    sessionOpen(session);
    LineReader reader;
    try {
        openLines(session, reader, "monitor");
        setConnected(follower, true);
        const std::string own = fmt::format(" pid={} ", getpid());
        std::string line;
        Names names;
        while (!follower.stopped) {
            const Taken taken = takeLine(reader, line, LOOK_MS);
            if (taken == Taken::end) break;
            if (taken == Taken::line) take(follower, session, names, line, own);
        }
    } catch (const CommandEnds&) {
        // Tried again soon; meanwhile the answers say what is wrong.
    }
    sessionClose(session);
    setConnected(follower, false);
}

}  // namespace

void startFollower(Follower& follower) {
    follower.thread = std::thread([&follower] {
        while (!follower.stopped) {
            followOnce(follower);
            for (int64_t waited = 0; waited < COME_BACK_MS && !follower.stopped; waited += LOOK_MS) {
                std::this_thread::sleep_for(std::chrono::milliseconds(LOOK_MS));
            }
        }
    });
}

void stopFollower(Follower& follower) {
    follower.stopped = true;
    if (follower.thread.joinable()) follower.thread.join();
}

Happened whatHappened(Follower& follower) {
    std::lock_guard guard(follower.lock);
    return follower.happened;
}
