#include "host/board/board_views.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "common/bytes.h"

namespace {

constexpr char REMOTE_WORD[] = "remote";
constexpr char SPANNING_WORD[] = "spanning";

struct ForwardingText {
    const char* word;
    char mark;  // in the matrix
};

// Texts of any bytes as words of a line.
std::string codedText(const std::string& text) {
    return text.empty() ? "-" : hexText(text.data(), text.size());
}

std::string codedTexts(const std::vector<std::string>& texts) {
    std::string words;
    for (const std::string& text : texts) words += (words.empty() ? "" : ",") + codedText(text);
    return words.empty() ? "-" : words;
}

const ForwardingText& textOf(Forwarding forwarding) {
    static constexpr ForwardingText TEXTS[] = {{"yes", 'o'}, {"no", 'x'}, {"partly", 'p'}};
    return TEXTS[static_cast<size_t>(forwarding)];
}

std::string answerText(Forwarding forwarding, const std::string& reason) {
    return textOf(forwarding).word + (forwarding == Forwarding::yes ? "" : " " + reason) + "\n";
}

std::string nameOf(Board& board, uint32_t number) {
    const Interface* interface = findInterface(board, number);
    return interface == nullptr ? "-" : interface->name;
}

// "NUMBER" or "NUMBER=LIFE": by its number, since another may have come under the name of the one that was
// meant, and only while it lives that life, since it may have got another name, alias or bridge since. False
// for what is neither.
bool addPort(Board& board, const std::string& word, std::vector<PlanePort>& ports) {
    const size_t equals = std::min(word.find('='), word.size());
    uint32_t number = 0, life = 0;
    if (!parseNumber(word.substr(0, equals), number)) return false;
    if (equals < word.size() && !parseNumber(word.substr(equals + 1), life)) return false;
    const Interface* interface = findInterface(board, number);
    const bool meant = interface != nullptr && (equals == word.size() || interface->life == life);
    if (meant) ports.push_back(planePort(board, *interface));
    return true;
}

// Ports that are not there just now are passed over.
std::string setDoors(Board& board, const Words& words, std::string& result) {
    std::vector<PlanePort> ports;
    const bool all = words.size() == 3 && words[2] == "all";
    for (const auto& [number, interface] : board.interfaces) {
        if (all) ports.push_back(planePort(board, interface));
    }
    for (size_t i = 2; i < words.size() && !all; ++i) {
        if (!addPort(board, words[i], ports)) return WRONG_USE;
    }
    uint64_t changed = 0;
    const int32_t status = board.plane.setDoors(board.plane.state, ports, words[1] == "open", changed);
    if (status != 0) return fmt::format("the kernel refused it: {}", std::strerror(status));
    result = fmt::format("{}\n", changed);
    return {};
}

std::string setSpanning(Board& board, const Words& words) {
    SpanningGroups groups = 0;
    const bool none = words.size() == 3 && words[2] == SPANNING_NONE;
    for (size_t i = 2; i < words.size() && !none; ++i) {
        std::string problem = addSpanningWord(words[i], groups);
        if (!problem.empty()) return problem;
    }
    if (board.span.empty()) {
        return "no port of this board carries groups to other machines: board.conf has no line `span DEVICE`";
    }
    board.spanning = groups;  // asked for, whatever becomes of it
    const int32_t status = board.plane.setSpanning(board.plane.state, groups);
    return status == 0 ? "" : fmt::format("the kernel refused it: {}", std::strerror(status));
}

// Without a line where no port carries groups.
std::string spanningVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() > 2) return setSpanning(board, words);
    if (!board.span.empty()) result = fmt::format("{} {}\n", SPANNING_WORD, spanningText(board.spanning));
    return {};
}

bool parseVlan(const Words& words, size_t position, uint32_t& vid) {
    vid = 0;
    if (words.size() <= position) return true;
    return parseNumber(words[position], vid) && vid <= VLAN_ID_MAX;
}

// "5,7", "1-4"; false for what names no group that can span.
bool parseGroups(std::string_view text, SpanningGroups& groups) {
    while (!text.empty()) {
        const size_t comma = std::min(text.find(','), text.size());
        if (!addSpanningWord(std::string(text.substr(0, comma)), groups).empty()) return false;
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return groups != 0;
}

std::string remoteForward(Board& board, const Words& words, std::string& result) {
    uint32_t vid = 0;
    SpanningGroups groups = 0;
    const bool whole = words.size() == 4 || words.size() == 5;
    if (!whole || !parseGroups(words[3], groups) || !parseVlan(words, 4, vid)) return WRONG_USE;
    std::lock_guard guard(board.lock);
    const Interface* dst = findInterface(board, words[2]);
    if (dst == nullptr) return unknownInterface(words[2]);
    if (dst->kind == IfKind::vlan) return "a VLAN interface does not forward";
    std::string reason;
    const Forwarding forwarding = remoteForwards(board, groups, *dst, vid, reason);
    result = answerText(forwarding, reason);
    return {};
}

}  // namespace

std::string listVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() != 1) return WRONG_USE;
    std::lock_guard guard(board.lock);
    for (const auto& [number, interface] : board.interfaces) {
        std::string members;
        for (const uint32_t member : interface.members) {
            members += (members.empty() ? "" : ",") + nameOf(board, member);
        }
        const bool vlan = interface.kind == IfKind::vlan;
        const bool protocol = vlan ? board.protocolVlans.contains(interface.vid) : interface.protocol;
        result += fmt::format("number={} name={} kind={} slot={} present={} trunk={}", number, interface.name,
                              kindName(interface.kind), slotOf(board, interface),
                              interface.present ? "yes"
                              : interface.gone  ? "gone"
                                                : "no",
                              nameOf(board, interface.trunk));
        result += fmt::format(" ability={} protocol={} members={} vlan={}", interface.ability,
                              protocol ? "on" : "off", members.empty() ? "-" : members,
                              vlan ? std::to_string(interface.vid) : "-");
        result += fmt::format(" device={} access={}", board.bridge.empty() ? "-" : deviceOf(interface),
                              isAccess(interface) ? "yes" : "no");
        result += fmt::format(" alias={} names={} life={} span={}\n", codedText(interface.alias),
                              codedTexts(interface.otherNames), interface.life,
                              isSpan(board, interface) ? "yes" : "no");
    }
    return {};
}

// An interface called "remote" is asked about by its number.
std::string forwardVerb(Board& board, const Words& words, std::string& result) {
    uint32_t vid = 0;
    if (words.size() > 3 && words[1] == REMOTE_WORD) return remoteForward(board, words, result);
    if (words.size() < 3 || words.size() > 4 || !parseVlan(words, 3, vid)) return WRONG_USE;
    std::lock_guard guard(board.lock);
    const Interface* src = findInterface(board, words[1]);
    const Interface* dst = findInterface(board, words[2]);
    if (src == nullptr || dst == nullptr) return unknownInterface(words[src == nullptr ? 1 : 2]);
    if (src == dst) return "an interface does not forward to itself";
    if (src->kind == IfKind::vlan || dst->kind == IfKind::vlan) return "a VLAN interface does not forward";
    std::string reason;
    const Forwarding forwarding = boardForwards(board, *src, *dst, vid, reason);
    result = answerText(forwarding, reason);
    return {};
}

std::string matrixVerb(Board& board, const Words& words, std::string& result) {
    uint32_t vid = 0;
    if (words.size() > 2 || !parseVlan(words, 1, vid)) return WRONG_USE;
    std::lock_guard guard(board.lock);
    std::vector<const Interface*> shown;
    for (const auto& [number, interface] : board.interfaces) {
        const bool standsForItself =
            isPort(interface) ? interface.trunk == 0 : interface.kind == IfKind::trunk;
        if (standsForItself && interface.present) shown.push_back(&interface);
    }
    for (const Interface* column : shown) result += (column == shown.front() ? "" : " ") + column->name;
    result += '\n';
    for (const Interface* row : shown) {
        result += row->name + " ";
        for (const Interface* column : shown) {
            std::string reason;
            result += row == column ? '-' : textOf(boardForwards(board, *row, *column, vid, reason)).mark;
        }
        result += '\n';
    }
    return {};
}

std::string hardwareVerb(Board& board, const Words& words, std::string& result) {
    const bool vlans = words.size() == 2 && words[1] == "vlans";
    if (words.size() != 1 && !vlans) return WRONG_USE;
    std::lock_guard guard(board.lock);
    if (vlans) {
        board.plane.listWithinVlans(board.plane.state, result);
        return {};
    }
    board.plane.list(board.plane.state, result);
    result += fmt::format("mode {}\n", board.mode);
    const PlaneCounters counters = board.plane.counters(board.plane.state);
    result += fmt::format("counters bi={} uni={} pon-off={} accepted={} refused={}\n", counters.twoWay,
                          counters.oneWay, counters.ponOff, counters.accepted, counters.refused);
    return {};
}

std::string planeVerb(Board& board, const Words& words, std::string& result) {
    const bool doors = words.size() > 2 && (words[1] == "open" || words[1] == "close");
    const bool spanning = words.size() > 1 && words[1] == SPANNING_WORD;
    if (words.size() != 2 && !doors && !spanning) return WRONG_USE;
    std::lock_guard guard(board.lock);
    const Plane& plane = board.plane;
    if (spanning) return spanningVerb(board, words, result);
    if (doors) return setDoors(board, words, result);
    if (words[1] == "show") {
        plane.inspect(plane.state, result);
        for (const auto& [number, interface] : board.interfaces) {
            const bool shut = interface.present && plane.shutDoor(plane.state, planePort(board, interface));
            if (shut) result += fmt::format("door port={}\n", interface.name);
        }
        return {};
    }
    if (words[1] != "sweep" && words[1] != "restore") return WRONG_USE;
    uint64_t changed = 0;
    const int32_t status = (words[1] == "sweep" ? plane.sweep : plane.restore)(plane.state, changed);
    if (status != 0) return fmt::format("the kernel refused it: {}", std::strerror(status));
    result = fmt::format("{}\n", changed);
    return {};
}
