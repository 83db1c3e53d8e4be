#include "common/files.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "wire/framing.h"

std::string rootPrefix() {
    const char* root = std::getenv(ROOT_VARIABLE);
    return root == nullptr ? "" : root;
}

std::string rootedPath(const char* path) {
    return rootPrefix() + path;
}

bool readText(std::FILE* file, std::string& text) {
    text.clear();
    char chunk[4096];
    size_t got = 0;
    while (text.size() <= TEXT_FILE_MAX && (got = std::fread(chunk, 1, sizeof(chunk), file)) > 0) {
        text.append(chunk, got);
    }
    int problem = std::ferror(file) != 0 ? errno : 0;
    if (text.size() > TEXT_FILE_MAX) problem = EFBIG;
    errno = problem;
    return problem == 0;
}

bool readTextFile(const std::string& path, std::string& text) {
    std::FILE* file = std::fopen(path.c_str(), "re");
    if (file == nullptr) return false;
    const bool whole = readText(file, text);
    const int problem = errno;
    std::fclose(file);
    errno = problem;
    return whole;
}

int64_t monotonicMs() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
