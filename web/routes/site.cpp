#include "web/routes/site.h"

#include <algorithm>

#include "common/text.h"
#include "lib/answers/error_answer.h"
#include "lib/link/happening.h"
#include "web/routes/api.h"
#include "web/routes/embedded.h"
#include "web/routes/metrics.h"
#include "web/routes/parameters.h"

namespace {

constexpr char EVENTS_PATH[] = "/api/v1/events";
constexpr char METRICS_PATH[] = "/metrics";
constexpr char HEALTH_PATH[] = "/healthz";
constexpr char BEARER[] = "Bearer ";
constexpr int STATUS_UNAUTHORIZED = 401;
constexpr int STATUS_FORBIDDEN = 403;
constexpr int STATUS_NOT_FOUND_HERE = 404;
constexpr int STATUS_WRONG_METHOD = 405;
constexpr int STATUS_BODY = 413;

Answer refused(int status, const std::string& words) {
    Answer answer = failureAnswer(misuse(words));
    answer.status = status;
    return answer;
}

// What keeps a client from being answered at all. The files of the page are no secret.
std::optional<Answer> turnedAway(const Site& site, const Asked& asked, bool isOpen) {
    if (asked.carriesBody) return refused(STATUS_BODY, "a request has no body here");
    if (site.checksHost && (asked.hosts != 1 || !isOwnHost(asked.host))) {
        return refused(STATUS_FORBIDDEN, "this host is not served: ask by 127.0.0.1, [::1] or localhost");
    }
    if (asked.method != "GET" && asked.method != "HEAD") {
        Answer answer = refused(STATUS_WRONG_METHOD, "only GET and HEAD are served");
        answer.headers["Allow"] = "GET, HEAD";
        return answer;
    }
    if (site.token.empty() || isOpen) return std::nullopt;
    const bool bears = asked.authorization.starts_with(BEARER);
    if (bears && sameSecret(std::string_view(asked.authorization).substr(sizeof(BEARER) - 1), site.token)) {
        return std::nullopt;
    }
    Answer answer = refused(STATUS_UNAUTHORIZED, "a token is needed: Authorization: Bearer TOKEN");
    answer.headers["WWW-Authenticate"] = "Bearer";
    return answer;
}

// The kinds that were asked for; without a word those that `portisolatectl monitor` shows.
std::set<std::string> kindsOf(const Asked& asked) {
    checkParameters(asked.parameters, {"kinds"});
    std::set<std::string> known(happeningKinds().begin(), happeningKinds().end());
    known.insert({KIND_CHANGE, EVENT_CHANGED});
    std::set<std::string> kinds = {EVENT_CHANGED, "dropped"};
    std::string given = parameterText(asked.parameters, "kinds");
    if (given.empty()) given = "request event hardware log";
    std::replace(given.begin(), given.end(), ',', ' ');
    for (const std::string& kind : splitWords(given)) {
        if (!known.contains(kind)) throw misuse("no kind of events \"" + kind + "\"");
        kinds.insert(kind);
    }
    return kinds;
}

std::string keyOf(const Asked& asked) {
    std::string key = asked.path;
    for (const auto& [name, value] : asked.parameters) {
        key.append("\n").append(name).append("=").append(value);
    }
    return key;
}

Reaction later(Site& site, const Asked& asked, const std::string& key, MakeAnswer make) {
    Lane& lane = asked.parameters.empty() ? site.common : site.chosen;
    return {.later = [&lane, key, make = std::move(make)](uint64_t connection) {
        return askLane(lane, key, make, connection);
    }};
}

Reaction reactToApi(Site& site, const Asked& asked, const ApiRoute& route) {
    checkParameters(asked.parameters, route.parameters);
    return later(site, asked, keyOf(asked), [&route, parameters = asked.parameters](Session& session) {
        return textAnswer(200, TYPE_JSON, jsonText(route.answer(session, parameters)) + "\n");
    });
}

Reaction reactToMetrics(Site& site, const Asked& asked) {
    checkParameters(asked.parameters, {"pairs"});
    const MetricsForm form = {.openMetrics = wantsOpenMetrics(asked.accept),
                              .pairs = parameterNumber(asked.parameters, "pairs") != 0};
    const std::string key = keyOf(asked) + (form.openMetrics ? "\nopen" : "");
    return later(site, asked, key, [&site, form](Session& session) {
        return metricsAnswer(session, whatHappened(site.follower), site.server.counts, form);
    });
}

const EmbeddedFile* findFile(const std::string& path) {
    for (const EmbeddedFile& file : embeddedFiles()) {
        if (path == file.path) return &file;
    }
    return nullptr;
}

Reaction route(Site& site, const Asked& asked, const EmbeddedFile* file) {
    if (file != nullptr) return {.answer = textAnswer(200, file->type, std::string(file->bytes))};
    if (asked.path == HEALTH_PATH) return {.answer = textAnswer(200, "text/plain; charset=utf-8", "ok\n")};
    if (asked.path == METRICS_PATH) return reactToMetrics(site, asked);
    if (asked.path == EVENTS_PATH && asked.method == "GET") {
        // Read before the record is begun: this compiler destroys the parts of one that is left by an
        // exception twice.
        std::set<std::string> kinds = kindsOf(asked);
        return {.kinds = std::move(kinds)};
    }
    if (asked.path == EVENTS_PATH) return {.answer = textAnswer(200, "text/event-stream", "")};
    const ApiRoute* api = findApiRoute(asked.path);
    if (api != nullptr) return reactToApi(site, asked, *api);
    return {.answer = refused(STATUS_NOT_FOUND_HERE, "nothing is served here")};
}

}  // namespace

Reaction react(Site& site, const Asked& asked) {
    const EmbeddedFile* file = findFile(asked.path);
    if (const auto answer = turnedAway(site, asked, file != nullptr || asked.path == HEALTH_PATH)) {
        return {.answer = *answer};
    }
    try {
        return route(site, asked, file);
    } catch (const CommandEnds& end) {
        return {.answer = failureAnswer(end)};
    }
}

bool isOwnHost(std::string_view host) {
    const size_t end = host.starts_with('[') ? host.find(']') : std::string_view::npos;
    const size_t colon = host.find(':', end == std::string_view::npos ? 0 : end);
    const std::string_view port = colon == std::string_view::npos ? "" : host.substr(colon + 1);
    const std::string_view name = host.substr(0, colon);
    const bool digits = port.find_first_not_of("0123456789") == std::string_view::npos;
    return digits && (name == "localhost" || name == "127.0.0.1" || name == "[::1]");
}

bool sameSecret(std::string_view given, std::string_view secret) {
    unsigned char differs = given.size() == secret.size() ? 0 : 1;
    for (size_t at = 0; at < given.size(); ++at) {
        const auto other = static_cast<unsigned char>(secret.empty() ? 0 : secret[at % secret.size()]);
        differs = static_cast<unsigned char>(differs | (static_cast<unsigned char>(given[at]) ^ other));
    }
    return differs == 0;
}
