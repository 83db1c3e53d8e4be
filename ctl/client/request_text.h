// A request of the command socket in words, for the monitor.
#pragma once

#include <string>
#include <string_view>

#include "ctl/client/session.h"

// "group 5, ge1/1: create" for the bytes of a request behind its length word.
std::string requestText(Session& session, std::string_view frame);
