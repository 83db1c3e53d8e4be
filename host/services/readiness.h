// Reports to the service manager that started the process that it is ready, as a datagram to the socket which
// that manager named in the environment (NOTIFY_SOCKET). Without a service manager nothing happens.
#pragma once

// To be called once requests are served. A failure is reported and has no other consequence.
void reportReady();
