// What an operator does with the board itself, and the printouts of the daemon: requests to the line sockets,
// told as they come back or as tables.
#pragma once

#include "ctl/client/session.h"

Exit runBoardList(Session& session, const Invocation& invocation);
Exit runBoardEach(Session& session, const Invocation& invocation);     // VERB INTERFACE...
Exit runBoardMembers(Session& session, const Invocation& invocation);  // VERB TRUNK INTERFACE...
Exit runBoardForward(Session& session, const Invocation& invocation);
Exit runBoardHardware(Session& session, const Invocation& invocation);
Exit runBoardJournal(Session& session, const Invocation& invocation);
// Hands the lines that the board streams under `verb` to `print` until as many as --count says were printed.
// `print` answers whether it printed the line.
Exit streamBoard(Session& session, const Invocation& invocation, const std::string& verb,
                 const std::function<bool(std::string_view)>& print);
// Hands verb and arguments to the board as they are.
Exit runBoardPass(Session& session, const Invocation& invocation);

Exit runShow(Session& session, const Invocation& invocation);
