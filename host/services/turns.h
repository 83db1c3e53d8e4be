// A turn: what a task does while it holds the daemon's semaphore, be it one request or the events of one
// datagram.
#pragma once

// Whether the calling task is in one.
bool inTurn();
// `work` runs at the end of every turn, in its task, and the semaphore is given back behind it. It throws
// nothing. Called once, before there are other tasks.
void atTurnsEnd(void (*work)());
