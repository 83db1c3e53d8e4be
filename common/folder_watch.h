// Tells when a file of a folder may have changed, been replaced or gone away.
#pragma once

#include <string>

struct FolderWatch {
    int fd = -1;  // readable when something has happened; none where the folder cannot be watched
    std::string folder{};
};

// The folder of this file. Where it cannot be watched yet, taking what has happened tries again.
FolderWatch watchFolderOf(const std::string& path);
// True when something has happened since the last time.
bool takeChanges(FolderWatch& watch);
