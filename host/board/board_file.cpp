// Reads the description of the board.
#include <optional>

#include "common/text.h"
#include "host/board/board.h"
#include "host/linux/linux_plane.h"
#include "host/planes/sim_plane.h"
#include "host/services/logging.h"

namespace {
using Words = std::vector<std::string>;

// Takes the words `KEY VALUE` out of the line; false when KEY stands at its end.
bool takeOption(Words& words, const char* key, std::optional<std::string>& value) {
    for (size_t i = 1; i < words.size(); i++) {
        if (words[i] != key) continue;
        if (i + 1 >= words.size()) return false;
        value = words[i + 1];
        words.erase(words.begin() + static_cast<std::ptrdiff_t>(i),
                    words.begin() + static_cast<std::ptrdiff_t>(i + 2));
        return true;
    }
    return true;
}

// As takeOption, for a number; leaves `value` alone when the key is absent.
bool takeNumber(Words& words, const char* key, uint32_t& value) {
    std::optional<std::string> text;
    return takeOption(words, key, text) && (!text || parseNumber(*text, value));
}

const char* readRole(Words& words, Board& board) {
    if (words.size() != 2) return "expected: role single|active|standby";
    if (words[1] == "single")
        board.role = Role::single;
    else if (words[1] == "active")
        board.role = Role::active;
    else if (words[1] == "standby")
        board.role = Role::standby;
    else
        return "a role is single, active or standby";
    return nullptr;
}

const char* readPeer(Words& words, Board& board) {
    uint32_t timeout = PEER_TIMEOUT_DEFAULT;
    if (!takeNumber(words, "timeout", timeout) || timeout == 0 || words.size() != 2)
        return "expected: peer ROOT [timeout MILLISECONDS]";
    board.peerRoot = words[1];
    board.peerTimeout = timeout;
    return nullptr;
}

const char* readPlane(Words& words, Board& board) {
    if (words.size() != 2 || (words[1] != "sim" && words[1] != "linux")) return "expected: plane sim|linux";
    if (words[1] == board.plane.name) return nullptr;
    if (words[1] == "sim") return "the plane is chosen already";
    const Plane plane = createLinuxPlane();
    if (plane.state == nullptr) return "this daemon was built without the Linux plane";
    board.plane.destroy(board.plane.state);
    board.plane = plane;
    return nullptr;
}

const char* readBridge(Words& words, Board& board) {
    if (words.size() != 2 || words[1].size() > DEVICE_NAME_MAX) return "expected: bridge DEVICE";
    board.bridge = words[1];
    return nullptr;
}

// Marks devices, whether described or not: which ports a bridge has may turn out later.
const char* readAccess(Words& words, Board& board) {
    if (words.size() < 2) return "expected: access DEVICE...";
    for (size_t i = 1; i < words.size(); i++) {
        if (words[i].size() > DEVICE_NAME_MAX) return "the name of a device has at most 15 characters";
    }
    board.accessDevices.insert(words.begin() + 1, words.end());
    return nullptr;
}

const char* readJournal(Words& words, Board& board) {
    if (words.size() != 2) return "expected: journal FILE";
    board.journalFile = words[1].starts_with('/') ? words[1] : "/" + words[1];
    return nullptr;
}

const char* readInterface(Words& words, Board& board) {
    static const char USAGE[] =
        "expected: interface NUMBER NAME slot S [kind ethernet|pon] [ability N] "
        "[device NAME]";
    Interface interface;
    std::optional<std::string> device;
    std::optional<std::string> slot;
    std::optional<std::string> kind;
    if (!takeOption(words, "slot", slot) || !slot || !parseNumber(*slot, interface.slot)) return USAGE;
    if (!takeOption(words, "kind", kind) || !takeNumber(words, "ability", interface.ability)) return USAGE;
    if (kind && *kind != "ethernet" && *kind != "pon") return "a kind is ethernet or pon";
    if (kind && *kind == "pon") interface.kind = IfKind::pon;
    if (!takeOption(words, "device", device)) return USAGE;
    if (words.size() != 3 || !parseNumber(words[1], interface.number)) return USAGE;
    interface.name = words[2];
    interface.device = device.value_or("");
    if (interface.device.size() > DEVICE_NAME_MAX) return "the name of a device has at most 15 characters";
    return addInterface(board, interface);
}

// The member list ends the line.
const char* readMembers(Words& words, Board& board, std::vector<Interface*>& members) {
    for (size_t i = 1; i < words.size(); i++) {
        if (words[i] != "members") continue;
        for (size_t m = i + 1; m < words.size(); m++) {
            Interface* port = findInterface(board, words[m]);
            if (port == nullptr) return "a member is not described above";
            if (!isPort(*port)) return "only ports can be members";
            for (const Interface* other : members) {
                if (other == port) return "a member is named twice";
            }
            if (port->trunk != 0) return "a member is in another trunk";
            members.push_back(port);
        }
        words.resize(i);
    }
    return nullptr;
}

const char* readTrunk(Words& words, Board& board) {
    static const char USAGE[] = "expected: trunk NUMBER NAME [slot S] [members IF...]";
    Interface trunk;
    trunk.kind = IfKind::trunk;
    std::vector<Interface*> members;
    const char* problem = readMembers(words, board, members);
    if (problem != nullptr) return problem;
    if (!takeNumber(words, "slot", trunk.slot)) return USAGE;
    if (words.size() != 3 || !parseNumber(words[1], trunk.number)) return USAGE;
    trunk.name = words[2];
    problem = addInterface(board, trunk);
    if (problem != nullptr) return problem;
    Interface& added = *findInterface(board, trunk.number);
    for (Interface* port : members) joinTrunk(added, *port);
    return nullptr;
}

const char* readVlan(Words& words, Board& board) {
    Interface vlan;
    vlan.kind = IfKind::vlan;
    if (words.size() != 4 || !parseNumber(words[1], vlan.vid) || !parseNumber(words[2], vlan.number))
        return "expected: vlan VID NUMBER NAME";
    vlan.name = words[3];
    return addInterface(board, vlan);
}

struct Statement {
    const char* word;
    const char* (*read)(Words& words, Board& board);
};

constexpr Statement STATEMENTS[] = {
    {"role", readRole},           {"peer", readPeer},     {"plane", readPlane},
    {"bridge", readBridge},       {"access", readAccess}, {"journal", readJournal},
    {"interface", readInterface}, {"trunk", readTrunk},   {"vlan", readVlan},
};

const char* readStatement(Words& words, Board& board) {
    for (const Statement& statement : STATEMENTS) {
        if (words[0] == statement.word) return statement.read(words, board);
    }
    return "expected role, peer, plane, bridge, access, journal, interface, trunk or vlan";
}

// The plane of the kernel's bridges and the bridge belong together.
const char* checkBridge(Board& board) {
    const bool simulated = std::string_view(board.plane.name) == "sim";
    if (simulated == board.bridge.empty()) return nullptr;
    if (!simulated) return "no port can be isolated: `plane linux` needs a line `bridge DEVICE`";
    board.bridge.clear();
    return "the bridge is left out: it needs a line `plane linux`";
}
}  // namespace

void readBoard(std::string_view text, const char* fileName, Board& board) {
    if (board.plane.state == nullptr) board.plane = createSimPlane();
    forEachLine(text, [&](uint32_t number, std::string_view line) {
        Words words = splitWords(line);
        if (words.empty()) return;
        const char* problem = readStatement(words, board);
        if (problem == nullptr) return;
        hostReport("%s:%u: line left out: %s", fileName, number, problem);
        board.rejected++;
    });
    const char* problem = checkBridge(board);
    if (problem != nullptr) {
        hostReport("%s: %s", fileName, problem);
        board.rejected++;
    }
    for (auto& [number, interface] : board.interfaces)
        interface.access = board.accessDevices.contains(deviceOf(interface));
}
