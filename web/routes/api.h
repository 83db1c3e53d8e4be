// What /api/v1 answers: the shapes of `portisolatectl --json`.
#pragma once

#include <initializer_list>
#include <span>
#include <string_view>

#include "lib/text/listing.h"
#include "web/http/message.h"

struct Session;

inline constexpr std::string_view API_PREFIX = "/api/v1/";

struct ApiRoute {
    const char* name;  // behind the prefix
    // Ends the command where there is no answer.
    Json (*answer)(Session& session, const Parameters& parameters);
    std::initializer_list<std::string_view> parameters{};
};

std::span<const ApiRoute> apiRoutes();
// Null where there is none of that name.
const ApiRoute* findApiRoute(std::string_view path);
