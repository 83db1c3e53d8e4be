// Every route, and who may ask for it. Nothing here changes anything: no route sets, and the program links no
// way to do so that a route could reach.
#pragma once

#include <string>
#include <string_view>

#include "web/http/server.h"
#include "web/upstream/follower.h"
#include "web/upstream/refresh.h"

struct Site {
    HttpServer server{};
    Follower follower{};
    Lane common{}, chosen{};  // for questions without parameters, and with them
    std::string token{};      // empty: none is asked for
    bool checksHost = false;  // names of this machine alone, so that no foreign page can reach it by its own
};

Reaction react(Site& site, const Asked& asked);

// Whether it names this machine by itself: "localhost", "127.0.0.1" or "[::1]", with a port or without.
bool isOwnHost(std::string_view host);
// Takes as long whatever the place of the first difference.
bool sameSecret(std::string_view given, std::string_view secret);
