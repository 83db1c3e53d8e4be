// What the daemon was called with. Its entry is the same on every board and takes no arguments; a Linux host
// reads them from the system instead.
#pragma once

struct Arguments {
    bool lenient = false;  // lines of a configuration file that cannot be read are left out
    bool check = false;    // read the configuration files, and end
};

// Ends the process after --help and --version, and with exit status 2 over an argument that there is not.
Arguments readArguments();
