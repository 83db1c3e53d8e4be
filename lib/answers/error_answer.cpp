#include "lib/answers/error_answer.h"

#include "common/statuses.h"

Json errorAnswer(const CommandEnds& end) {
    return {{"error",
             {{"status", end.status ? Json(statusCode(*end.status)) : Json()},
              {"number", end.status ? Json(*end.status) : Json()},
              {"words", end.why.empty() && end.status ? describeStatus(*end.status) : end.why}}}};
}
