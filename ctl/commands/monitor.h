// What happens in the daemon, told as it happens: requests, events, commands to the hardware and its texts.
// The board streams them as words with the bytes as they were; here they become sentences.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ctl/client/session.h"

// One line of the board's `monitor`.
struct Happening {
    std::string kind;  // request, event, hardware, query, log; dropped where lines are missing
    std::vector<GivenOption> fields;
    std::string sentence;
};

// False for a line that does not keep to the form.
bool readHappening(Session& session, std::string_view line, Happening& happening);

Exit runMonitor(Session& session, const Invocation& invocation);
