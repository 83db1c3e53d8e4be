// The configuration as a file: `export` writes the running one, `apply` makes the running one equal to a
// file. A file is checked as a whole before anything is asked of the daemon.
#pragma once

#include "ctl/client/session.h"

Exit runExport(Session& session, const Invocation& invocation);
Exit runApply(Session& session, const Invocation& invocation);
