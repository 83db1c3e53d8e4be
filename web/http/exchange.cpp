#include "web/http/exchange.h"

#include <httplib.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "lib/answers/error_answer.h"

namespace {

constexpr char TYPE_EVENTS[] = "text/event-stream";

// Of every answer: nothing from elsewhere is loaded, nothing is guessed, kept or told to others.
const httplib::Headers STRICT_HEADERS = {
    {"Content-Security-Policy",
     "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; object-src 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

// The bytes of one request, and of its answer. A body that is shared is not copied.
struct Memory : httplib::Stream {
    std::string_view in;
    std::string out;
    std::shared_ptr<const std::string> body;
    bool bodyWritten = false;

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* bytes, size_t size) override {
        const size_t length = std::min(size, in.size());
        std::memcpy(bytes, in.data(), length);
        in.remove_prefix(length);
        return static_cast<ssize_t>(length);
    }
    ssize_t write(const char* bytes, size_t size) override {
        bodyWritten = bodyWritten || (body && bytes == body->data());
        if (!body || bytes != body->data()) out.append(bytes, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string&, int&) const override {}
    void get_local_ip_and_port(std::string&, int&) const override {}
    socket_t socket() const override { return 0; }
};

// What becomes of the request that the library works on.
struct Turn {
    const React* react = nullptr;
    const Answer* answer = nullptr;  // the one that was waited for
    Memory memory{};
    std::optional<Reaction> pending{};
    bool sound = false;  // what was sent was a request, so what follows may be one, too
};

Asked askedOf(const httplib::Request& request) {
    return {.method = request.method,
            .path = request.path,
            .parameters = {request.params.begin(), request.params.end()},
            .host = request.get_header_value("Host"),
            .authorization = request.get_header_value("Authorization"),
            .accept = request.get_header_value("Accept"),
            .hosts = request.get_header_value_count("Host"),
            .carriesBody =
                request.has_header("Transfer-Encoding") ||
                (request.has_header("Content-Length") && request.get_header_value("Content-Length") != "0")};
}

void fill(httplib::Response& response, const Answer& answer, Turn& turn) {
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) {
        response.headers.erase(name);
        response.set_header(name, value);
    }
    if (!answer.body || answer.body->empty()) return response.set_content("", answer.type);
    turn.memory.body = answer.body;
    response.set_content_provider(answer.body->size(), answer.type,
                                  [&turn](size_t, size_t, httplib::DataSink& sink) {
                                      sink.write(turn.memory.body->data(), turn.memory.body->size());
                                      return true;
                                  });
}

// The library's server without its sockets and threads. Its own routing is never reached.
struct Library : httplib::Server {
    Turn* turn = nullptr;

    Library() {
        svr_sock_ = 0;  // none, but the library takes a server without for one that is shutting down
        set_default_headers(STRICT_HEADERS);
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
            const Asked asked = askedOf(request);
            turn->sound = !asked.carriesBody;
            if (turn->answer != nullptr) {
                fill(response, *turn->answer, *turn);
                return HandlerResponse::Handled;
            }
            Reaction reaction = (*turn->react)(asked);
            if (reaction.later || !reaction.kinds.empty()) {
                turn->pending = std::move(reaction);
            } else {
                fill(response, reaction.answer, *turn);
            }
            return HandlerResponse::Handled;
        });
        // Of what the library itself refuses.
        set_error_handler(HandlerWithResponse([](const httplib::Request&, httplib::Response& response) {
            if (response.content_length_ != 0 || !response.body.empty()) return HandlerResponse::Unhandled;
            const Json error =
                errorAnswer({Exit::usage, response.status == 414 ? "the address is too long"
                                                                 : "no request that can be read"});
            response.set_content(jsonText(error), TYPE_JSON);
            return HandlerResponse::Handled;
        }));
    }

    Written run(std::string_view head, Turn& now) {
        turn = &now;
        now.memory.in = head;
        bool closed = false;
        // A part of the body, many parts of it or a packed one: nothing of this is offered.
        const auto plain = [](httplib::Request& request) {
            request.ranges.clear();
            request.headers.erase("Accept-Encoding");
            request.headers.erase("Expect");
        };
        const bool went = process_request(now.memory, false, closed, plain);
        turn = nullptr;
        if (now.pending) return {.pending = std::move(now.pending)};
        return {.head = std::move(now.memory.out),
                .body = now.memory.bodyWritten ? now.memory.body : nullptr,
                .keeps = went && now.sound && !closed};
    }
};

Written run(std::string_view head, Turn turn) {
    static Library library;
    return library.run(head, turn);
}

}  // namespace

Answer textAnswer(int status, std::string type, std::string body) {
    return {.status = status,
            .type = std::move(type),
            .body = std::make_shared<const std::string>(std::move(body))};
}

Written runExchange(std::string_view head, const React& react) {
    return run(head, {.react = &react});
}

Written runExchange(std::string_view head, const Answer& answer) {
    return run(head, {.answer = &answer});
}

std::string streamHead() {
    std::string head = "HTTP/1.1 200 OK\r\n";
    for (const auto& [name, value] : STRICT_HEADERS) {
        head.append(name).append(": ").append(value).append("\r\n");
    }
    return head + "Content-Type: " + TYPE_EVENTS + "\r\nConnection: close\r\n\r\n";
}
