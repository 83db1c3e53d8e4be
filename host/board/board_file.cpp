#include "host/board/board_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "common/bytes.h"
#include "common/text.h"
#include "host/services/logging.h"

namespace {

using Words = std::vector<std::string>;

// What is read, and what of it is read on the way. Every reader of a statement returns what is wrong with it,
// empty for nothing.
struct Description {
    Board& board;
    PlaneKinds kinds;
};

constexpr char LONG_DEVICE[] = "the name of a device has at most 15 characters";

// Takes the words `KEY VALUE` out of the line; false when KEY stands at its end.
bool takeOption(Words& words, const char* key, std::optional<std::string>& value) {
    for (size_t i = 1; i < words.size(); ++i) {
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

std::string readRole(Words& words, Description& description) {
    const bool known = words.size() == 2 && parseRole(words[1], description.board.role);
    return known ? "" : "expected: role single|active|standby";
}

std::string readPeer(Words& words, Description& description) {
    uint32_t timeout = PEER_TIMEOUT_DEFAULT;
    if (!takeNumber(words, "timeout", timeout) || timeout == 0 || words.size() != 2) {
        return "expected: peer ROOT [timeout MILLISECONDS]";
    }
    description.board.peerRoot = words[1];
    description.board.peerTimeout = timeout;
    return {};
}

std::string planeNames(PlaneKinds kinds) {
    std::string names;
    for (const PlaneKind& kind : kinds) names += (names.empty() ? "" : "|") + std::string(kind.name);
    return names;
}

std::string readPlane(Words& words, Description& description) {
    Board& board = description.board;
    const PlaneKinds kinds = description.kinds;
    const auto kind = std::find_if(kinds.begin(), kinds.end(), [&](const PlaneKind& one) {
        return words.size() == 2 && words[1] == one.name;
    });
    if (kind == kinds.end()) return "expected: plane " + planeNames(kinds);
    if (words[1] == board.plane.name) return {};
    if (board.plane.name != std::string_view(kinds.front().name)) return "the plane is chosen already";
    if (kind->create == nullptr) return "this daemon was built without the plane " + words[1];
    board.plane.destroy(board.plane.state);
    board.plane = kind->create();
    board.follower = kind->follower;
    return {};
}

std::string readBridge(Words& words, Description& description) {
    if (words.size() != 2 || words[1].size() > DEVICE_NAME_MAX) return "expected: bridge DEVICE";
    description.board.bridge = words[1];
    return {};
}

// Marks devices, whether described or not: which ports a bridge has may turn out later.
std::string readAccess(Words& words, Description& description) {
    if (words.size() < 2) return "expected: access DEVICE...";
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i].size() > DEVICE_NAME_MAX) return LONG_DEVICE;
    }
    description.board.accessDevices.insert(words.begin() + 1, words.end());
    return {};
}

std::string readFrameMark(Words& words, Description& description) {
    uint32_t mask = 0;
    const bool read = words.size() == 2 && parseNumber(words[1], mask);
    if (!read || !isFrameMark(mask)) {
        return "expected: frame-mark MASK, 13 bits side by side, such as 0xfff80000";
    }
    description.board.frameMark = mask;
    return {};
}

std::string readHeal(Words& words, Description& description) {
    constexpr std::string_view MODES[] = {"on", "watch", "off"};
    const auto* const mode = std::find(std::begin(MODES), std::end(MODES), words.back());
    if (words.size() != 2 || mode == std::end(MODES)) return "expected: heal on|watch|off";
    description.board.healing = static_cast<Healing>(mode - std::begin(MODES));
    return {};
}

std::string readLaboratory(Words& words, Description& description) {
    description.board.laboratory = words.size() == 1;
    return words.size() == 1 ? "" : "expected: laboratory";
}

// The kernel compares names at every frame, so a pattern is what it can compare: a name or how names begin.
std::string readClosed(Words& words, Description& description) {
    if (words.size() < 2) return "expected: closed PATTERN...";
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& pattern = words[i];
        const size_t wild = pattern.find_first_of("*?[]\\");
        const bool prefix = wild == pattern.size() - 1 && pattern.ends_with('*');
        if (wild != std::string::npos && !prefix) {
            return pattern + ": the kernel compares whole names, or their beginnings as in vnet*";
        }
        if (pattern.size() > DEVICE_NAME_MAX + (prefix ? 1 : 0)) return LONG_DEVICE;
        description.board.closed.push_back(pattern);
    }
    return {};
}

std::string readSpan(Words& words, Description& description) {
    if (words.size() < 2) return "expected: span DEVICE...";
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i].find_first_of("*?") != std::string::npos) return words[i] + ": give whole names";
        if (words[i].size() > DEVICE_NAME_MAX) return LONG_DEVICE;
    }
    std::vector<std::string>& span = description.board.span;
    for (size_t i = 1; i < words.size(); ++i) {
        if (std::find(span.begin(), span.end(), words[i]) == span.end()) span.push_back(words[i]);
    }
    return {};
}

std::string readJournal(Words& words, Description& description) {
    if (words.size() != 2) return "expected: journal FILE";
    description.board.journalFile = words[1].starts_with('/') ? words[1] : "/" + words[1];
    return {};
}

std::string readInterface(Words& words, Description& description) {
    static constexpr char USAGE[] =
        "expected: interface NUMBER NAME slot S [kind ethernet|pon] [ability N] [device NAME]";
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
    if (interface.device.size() > DEVICE_NAME_MAX) return LONG_DEVICE;
    return addInterface(description.board, interface);
}

// The member list ends the line.
std::string readMembers(Words& words, Board& board, std::vector<Interface*>& members) {
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i] != "members") continue;
        for (size_t m = i + 1; m < words.size(); ++m) {
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
    return {};
}

std::string readTrunk(Words& words, Description& description) {
    static constexpr char USAGE[] = "expected: trunk NUMBER NAME [slot S] [members IF...]";
    Board& board = description.board;
    Interface trunk;
    trunk.kind = IfKind::trunk;
    std::vector<Interface*> members;
    std::string problem = readMembers(words, board, members);
    if (!problem.empty()) return problem;
    if (!takeNumber(words, "slot", trunk.slot)) return USAGE;
    if (words.size() != 3 || !parseNumber(words[1], trunk.number)) return USAGE;
    trunk.name = words[2];
    problem = addInterface(board, trunk);
    if (!problem.empty()) return problem;
    Interface& added = *findInterface(board, trunk.number);
    for (Interface* port : members) joinTrunk(added, *port);
    return {};
}

std::string readVlan(Words& words, Description& description) {
    Interface vlan;
    vlan.kind = IfKind::vlan;
    if (words.size() != 4 || !parseNumber(words[1], vlan.vid) || !parseNumber(words[2], vlan.number)) {
        return "expected: vlan VID NUMBER NAME";
    }
    vlan.name = words[3];
    return addInterface(description.board, vlan);
}

struct Statement {
    const char* word;
    std::string (*read)(Words& words, Description& description);
};

constexpr Statement STATEMENTS[] = {
    {"role", readRole},
    {"peer", readPeer},
    {"plane", readPlane},
    {"bridge", readBridge},
    {"access", readAccess},
    {"closed", readClosed},
    {"span", readSpan},
    {"journal", readJournal},
    {"laboratory", readLaboratory},
    {"frame-mark", readFrameMark},
    {"heal", readHeal},
    {"interface", readInterface},
    {"trunk", readTrunk},
    {"vlan", readVlan},
};

std::string readStatement(Words& words, Description& description) {
    std::string known;
    for (const Statement& statement : STATEMENTS) {
        if (words[0] == statement.word) return statement.read(words, description);
        known += (known.empty() ? "" : ", ") + std::string(statement.word);
    }
    return "expected one of " + known;
}

// What is wrong between lines: each of these takes back one of them and says why.

std::string checkClosed(const Description& description) {
    Board& board = description.board;
    if (board.follower != nullptr || board.closed.empty()) return {};
    board.closed.clear();
    return "doors begin closed on a Linux bridge only: `closed` needs a line `plane linux`";
}

std::string checkSpan(const Description& description) {
    Board& board = description.board;
    if (board.follower != nullptr || board.span.empty()) return {};
    board.span.clear();
    return "groups span machines on a Linux bridge only: `span` needs a line `plane linux`";
}

// The bits of the groups are those that the kernel's tunnels carry; the bits of the VLAN can be others.
std::string checkFrameMark(const Description& description) {
    Board& board = description.board;
    if (board.span.empty() || (board.frameMark & SPANNING_ALL) == 0) return {};
    board.frameMark = FRAME_MARK_DEFAULT;
    return fmt::format(
        "with `span` the bits {:#x} of a frame's mark carry its groups: give `frame-mark` 13 bits above them",
        SPANNING_ALL);
}

// A bridge and a plane whose ports are followed belong together.
std::string checkBridge(const Description& description) {
    Board& board = description.board;
    if ((board.follower == nullptr) == board.bridge.empty()) return {};
    if (board.follower != nullptr) {
        return fmt::format("no port can be isolated: `plane {}` needs a line `bridge DEVICE`",
                           board.plane.name);
    }
    board.bridge.clear();
    for (const PlaneKind& kind : description.kinds) {
        if (kind.follower == nullptr) continue;
        return fmt::format("a bridge needs a line `plane {}`", kind.name);
    }
    return "a bridge is of no use: this daemon was built without a plane for it";
}

}  // namespace

void readBoard(std::string_view text, const char* fileName, PlaneKinds kinds, Board& board) {
    Description description = {board, kinds};
    if (board.plane.state == nullptr) board.plane = kinds.front().create();
    forEachLine(text, [&](uint32_t number, std::string_view line) {
        Words words = splitWords(withoutComment(line));
        if (words.empty()) return;
        const std::string problem = readStatement(words, description);
        if (problem.empty()) return;
        hostReport("{}:{}: {}", fileName, number, problem);
        ++board.rejected;
    });
    for (const auto check : {checkClosed, checkSpan, checkFrameMark, checkBridge}) {
        const std::string problem = check(description);
        if (problem.empty()) continue;
        hostReport("{}: {}", fileName, problem);
        ++board.rejected;
    }
    for (auto& [number, interface] : board.interfaces) {
        interface.access = board.accessDevices.contains(deviceOf(interface));
    }
}
