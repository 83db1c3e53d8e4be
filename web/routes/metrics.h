// What /metrics answers.
#pragma once

#include <string_view>

#include "lib/link/session.h"
#include "web/http/server.h"
#include "web/upstream/follower.h"

struct MetricsForm {
    bool openMetrics = false;
    bool pairs = false;  // what was dropped by pair of ports, and not by group alone
};

// By the Accept header of a request.
bool wantsOpenMetrics(std::string_view accept);
// Where the daemon does not answer this is said, and what is known without it.
Answer metricsAnswer(Session& session, const Happened& happened, const HttpCounts& counts,
                     const MetricsForm& form);
