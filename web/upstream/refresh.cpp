#include "web/upstream/refresh.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>

#include "common/files.h"
#include "lib/answers/error_answer.h"
#include "lib/link/interfaces.h"

namespace {

constexpr size_t QUESTIONS_MAX = 64;  // of a lane
constexpr int64_t APART_MS = 500;     // between two times that the same is asked
constexpr int64_t REST_MS = 20;       // between two questions of a lane, at least
constexpr int STATUS_BAD_REQUEST = 400;
constexpr int STATUS_INTERNAL = 500;
constexpr int STATUS_BAD_GATEWAY = 502;  // the daemon refuses to tell
constexpr int STATUS_UNAVAILABLE = 503;  // the daemon cannot be reached

Answer makeAnswer(Session& session, const Question& question) {
    try {
        forgetInterfaces(session);
        return question.make(session);
    } catch (const CommandEnds& end) {
        if (end.exit == Exit::unreachable) sessionClose(session);
        return failureAnswer(end);
    } catch (const std::exception& failure) {
        sessionClose(session);
        Answer answer = failureAnswer({Exit::unreachable, failure.what()});
        answer.status = STATUS_INTERNAL;
        return answer;
    }
}

// The first question whose time has come, or when that of one does; the lane is locked.
std::list<Question>::iterator ripe(Lane& lane, int64_t now, int64_t& when) {
    when = now + APART_MS;
    for (auto question = lane.questions.begin(); question != lane.questions.end(); ++question) {
        const auto begun = lane.begun.find(question->key);
        if (begun == lane.begun.end() || begun->second + APART_MS <= now) return question;
        when = std::min(when, begun->second + APART_MS);
    }
    return lane.questions.end();
}

// Waits for a question to be asked; nothing when the lane stops.
std::optional<Question> nextQuestion(Lane& lane) {
    std::unique_lock guard(lane.lock);
    for (;;) {
        if (lane.stopped) return std::nullopt;
        const int64_t now = monotonicMs();
        int64_t when = 0;
        const auto found = ripe(lane, now, when);
        if (found != lane.questions.end()) {
            Question question = std::move(*found);
            lane.questions.erase(found);
            std::erase_if(lane.begun, [=](const auto& begun) { return begun.second + APART_MS <= now; });
            lane.begun[question.key] = now;
            return question;
        }
        if (lane.questions.empty()) {
            lane.asked.wait(guard);
        } else {
            lane.asked.wait_for(guard, std::chrono::milliseconds(when - now));
        }
    }
}

void runLane(Lane& lane, const DeliverAnswer& deliver) {
    Session session;
    sessionOpen(session);
    while (const std::optional<Question> question = nextQuestion(lane)) {
        const int64_t began = monotonicMs();
        deliver(question->waiting, makeAnswer(session, *question));
        // As long as it took: half of the daemon's time is left to others, whatever clients ask for.
        const int64_t rest = std::max(REST_MS, monotonicMs() - began);
        std::unique_lock guard(lane.lock);
        lane.asked.wait_for(guard, std::chrono::milliseconds(rest), [&lane] { return lane.stopped; });
    }
    sessionClose(session);
}

}  // namespace

void startLane(Lane& lane, const DeliverAnswer& deliver) {
    lane.thread = std::thread([&lane, deliver] { runLane(lane, deliver); });
}

void stopLane(Lane& lane) {
    {
        std::lock_guard guard(lane.lock);
        lane.stopped = true;
    }
    lane.asked.notify_all();
    if (lane.thread.joinable()) lane.thread.join();
}

bool askLane(Lane& lane, const std::string& key, const MakeAnswer& make, uint64_t connection) {
    {
        std::lock_guard guard(lane.lock);
        const auto same = std::find_if(lane.questions.begin(), lane.questions.end(),
                                       [&](const Question& question) { return question.key == key; });
        if (same != lane.questions.end()) {
            same->waiting.push_back(connection);
        } else if (lane.questions.size() >= QUESTIONS_MAX) {
            return false;
        } else {
            lane.questions.push_back({key, make, {connection}});
        }
    }
    lane.asked.notify_all();
    return true;
}

Answer failureAnswer(const CommandEnds& end) {
    const int status = end.exit == Exit::usage         ? STATUS_BAD_REQUEST
                       : end.exit == Exit::unreachable ? STATUS_UNAVAILABLE
                                                       : STATUS_BAD_GATEWAY;
    return textAnswer(status, TYPE_JSON, jsonText(errorAnswer(end)) + "\n");
}
