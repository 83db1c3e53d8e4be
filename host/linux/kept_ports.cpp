#include "host/linux/kept_ports.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <mutex>

#include "common/config_file.h"
#include "common/files.h"
#include "host/services/logging.h"

namespace {

constexpr uint32_t ONLY_SLOT = 1;

// Tells one content of the file from another without reading it; empty where there is none.
std::string versionOf(const std::string& path) {
    struct stat there = {};
    if (stat(path.c_str(), &there) != 0) return {};
    return fmt::format("{} {} {} {}", there.st_ino, there.st_size, there.st_mtim.tv_sec,
                       there.st_mtim.tv_nsec);
}

uint32_t freeNumber(const Board& board) {
    uint32_t number = KEPT_NUMBER_FIRST;
    const auto last = board.interfaces.empty() ? 0 : board.interfaces.rbegin()->first;
    if (last >= number && last < UINT32_MAX - 1) number = last + 1;
    return number;
}

}  // namespace

void readSavedNames(LinuxBoard& linuxBoard) {
    const std::string path = rootedPath(SAVED_FILE);
    const std::string version = versionOf(path);
    if (linuxBoard.listed || version == linuxBoard.savedVersion) return;
    std::string text;
    std::string problem;
    if (!readRegularFile(path, text, problem)) {
        if (problem.empty()) return;
        hostReport("{}: {}: its ports are not known while they are absent", path, problem);
        return;
    }
    linuxBoard.savedVersion = version;
    linuxBoard.saved = namesIn(parseConfig(text));
    std::erase_if(linuxBoard.saved, [](const std::string& name) { return name.size() > DEVICE_NAME_MAX; });
}

bool isKept(const LinuxBoard& linuxBoard, const Interface& interface) {
    const auto kept = linuxBoard.kept.find(interface.name);
    return kept != linuxBoard.kept.end() && kept->second == interface.number;
}

void enterSavedNames(LinuxBoard& linuxBoard) {
    Board& board = linuxBoard.board;
    std::lock_guard guard(board.lock);
    for (const std::string& name : linuxBoard.saved) {
        if (board.numbers.contains(name)) continue;
        Interface interface;
        interface.number = freeNumber(board);
        interface.name = name;
        interface.slot = ONLY_SLOT;
        interface.access = board.accessDevices.contains(name);
        interface.present = false;
        if (addInterface(board, interface).empty()) linuxBoard.kept.emplace(name, interface.number);
    }
}

std::vector<uint32_t> dropUnsavedNames(LinuxBoard& linuxBoard) {
    std::vector<uint32_t> dropped;
    std::erase_if(linuxBoard.kept, [&](const auto& kept) {
        if (linuxBoard.saved.contains(kept.first)) return false;
        dropped.push_back(kept.second);
        return true;
    });
    return dropped;
}

Interface* takeKept(LinuxBoard& linuxBoard, uint32_t index, const BridgePort& port) {
    const auto kept = linuxBoard.kept.find(port.device);
    if (kept == linuxBoard.kept.end() || kept->second != port.number) return nullptr;
    linuxBoard.kept.erase(kept);
    linuxBoard.returned[index] = port.number;
    Interface* interface = findInterface(linuxBoard.board, port.number);
    interface->kind = port.kind;
    return interface;
}
