#include "common/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "wire/framing.h"

namespace {

constexpr mode_t FILE_MODE = 0644;

bool writeWhole(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// Where a link leads, so that the link stays.
std::string followed(const std::string& path) {
    char* real = realpath(path.c_str(), nullptr);
    std::string found = real != nullptr ? real : path;
    std::free(real);
    return found;
}

bool writeInto(const std::string& path, std::string_view text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool written = writeWhole(fd, text);
    const int problem = errno;
    close(fd);
    errno = problem;
    return written;
}

// A second name for what stands there; never a moment without the first. Answers what failed, 0 for nothing.
int keepFormer(const std::string& path) {
    const std::string former = path + FORMER_SUFFIX;
    if (unlink(former.c_str()) != 0 && errno != ENOENT) return errno;
    if (link(path.c_str(), former.c_str()) != 0 && errno != ENOENT) return errno;
    return 0;
}

// The new name outlasts a loss of power from here on. What cannot be synced stands all the same.
void syncFolder(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

}  // namespace

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

bool replaceTextFile(const std::string& name, std::string_view text, bool keepsFormer) {
    const std::string path = followed(name);
    struct stat there = {};
    if (stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) return writeInto(path, text);
    std::string fresh = path + ".XXXXXX";
    const int fd = mkostemp(fresh.data(), O_CLOEXEC);
    if (fd < 0) return false;
    const bool stands = writeWhole(fd, text) && fchmod(fd, FILE_MODE) == 0 && fsync(fd) == 0;
    int problem = stands ? 0 : errno;
    if (close(fd) != 0 && problem == 0) problem = errno;
    if (problem == 0 && keepsFormer) problem = keepFormer(path);
    if (problem == 0 && std::rename(fresh.c_str(), path.c_str()) != 0) problem = errno;
    if (problem == 0) {
        syncFolder(path);
    } else {
        unlink(fresh.c_str());
    }
    errno = problem;
    return problem == 0;
}

bool readRegularFile(const std::string& path, std::string& text, std::string& problem) {
    problem.clear();
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat present = {};
    std::FILE* file = fd < 0 || fstat(fd, &present) != 0 ? nullptr : fdopen(fd, "r");
    const bool whole = file != nullptr && S_ISREG(present.st_mode) && readText(file, text);
    if (!whole && (fd >= 0 || errno != ENOENT)) {
        problem = file != nullptr && !S_ISREG(present.st_mode) ? "not a regular file" : std::strerror(errno);
    }
    if (file != nullptr) std::fclose(file);
    if (file == nullptr && fd >= 0) close(fd);
    return whole;
}

int64_t monotonicMs() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
