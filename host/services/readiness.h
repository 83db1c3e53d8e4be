// Tells the service manager that started the process how it is doing, as a datagram to the socket that it
// named in the environment. Without a service manager nothing happens.
#pragma once

// To be called once requests are served.
void tellServiceReady();
