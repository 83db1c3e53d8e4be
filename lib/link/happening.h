// What happens in the daemon (common/happenings.h), with the names of the board.
#pragma once

#include "common/happenings.h"
#include "lib/link/session.h"

std::vector<EventMessage> eventMessages(Session& session, const Happening& happening);
// Nothing for a line of the board's `monitor` that does not keep to the form.
std::optional<Happening> readHappening(Session& session, std::string_view line);
