// Any request of the command socket by number, for whoever tries the daemon out: indexes and values of any
// length go out as they are written.
#pragma once

#include "ctl/client/session.h"

Exit runRaw(Session& session, const Invocation& invocation);
