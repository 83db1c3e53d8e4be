// Process entry of the daemon. All work is done by the event task and the command server's task; this thread
// only starts them.
#include <chrono>
#include <csignal>
#include <thread>

#include "daemon/start/options.h"
#include "platform/services.h"

int main() {
    silCatchSegFault();
    std::signal(SIGPIPE, SIG_IGN);
    patchSignalHandler();
    procShellInit("portisolate", 0, 0);
    if (portIsolateOptInit() != 0) return -1;
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(10));
}
