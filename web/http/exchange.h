// One request and its answer as HTTP. The library parses the one and writes the other; the bytes come from
// memory and go there, so that nothing here ever waits.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "web/http/message.h"

// What goes out: `head`, and behind it `body` unless that is null.
struct Written {
    std::string head{};
    std::shared_ptr<const std::string> body{};
    bool keeps = false;  // the connection may be used again
    // In place of all this: what is to be waited for, or followed.
    std::optional<Reaction> pending{};
};

// `head` is a whole request up to its empty line.
Written runExchange(std::string_view head, const React& react);
// The same with the answer that was waited for.
Written runExchange(std::string_view head, const Answer& answer);
// The head of an answer that never ends: events.
std::string streamHead();
