// What the service manager that started the process is told, as datagrams to the socket which that manager
// named in the environment (NOTIFY_SOCKET): that the process is ready, and, where it watches the process
// (WATCHDOG_USEC), that its tasks are alive. Without a service manager nothing happens.
//
// The two tasks that the daemon is made of, the event task and that of the command server, give a sign of
// life several times within the manager's patience, also when there is nothing to do. The manager is told by
// the command server's, and only while the event task's sign is fresh; so either that hangs is restarted.
//
// Thread-safety
// -------------
// The signs may be given by any task.
#pragma once

// To be called once requests are served. A failure is reported and has no other consequence.
void reportReady();

// Milliseconds within which each task gives its sign; -1 where nobody watches, as poll takes it.
int signInterval();
void eventTaskLives();
void commandServerLives();
