// The service manager that started the process.
#pragma once

#include <string_view>

// Tells the manager such as "READY=1", by a datagram to the socket that it named in the environment
// (NOTIFY_SOCKET). False with errno set; true where there is nobody to be told.
bool tellManager(std::string_view words);
