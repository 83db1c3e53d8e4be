#include "lib/answers/board_answers.h"

#include <algorithm>
#include <optional>

#include "common/fields.h"
#include "common/text.h"
#include "lib/link/interfaces.h"
#include "lib/text/args.h"

namespace {

bool isIsolation(std::string_view kind) {
    return kind == "bi" || kind == "uni";
}

// Words of a line of `hardware`, with names in place of the interface numbers of an isolation.
std::vector<std::string> hardwareWords(Session& session, const std::string& line) {
    std::vector<std::string> words = splitWords(line);
    uint32_t number = 0;
    for (size_t at = 1; at < std::min<size_t>(words.size(), 3) && isIsolation(words[0]); ++at) {
        if (parseGivenNumber(words[at], number)) words[at] = interfaceName(session, number);
    }
    return words;
}

// "bi ge1/1 ge1/2 vlan=0" as an object. A value that is a number is one in JSON, except the name of a port.
Json hardwareJson(const std::vector<std::string>& words) {
    const std::string& kind = words[0];
    Json object = {{"kind", kind}};
    for (size_t at = 1; at < words.size(); ++at) {
        const Field field = splitField(words[at]);
        const bool named = words[at].find('=') != std::string::npos;
        const bool end = isIsolation(kind) && at <= 2;
        const std::string& value = named ? field.value : words[at];
        uint32_t number = 0;
        const bool bare = !end && parseGivenNumber(value, number);
        const char* place = end ? (at == 1 ? "source" : "target") : kind == "pon-off" ? "vlan" : "value";
        const std::string key = named ? field.name : place;
        object[key] = !bare ? Json(value) : key == "vlan" ? vlanJson(number) : Json(number);
    }
    return object;
}

}  // namespace

std::vector<BoardInterface> listInterfaces(Session& session) {
    std::vector<BoardInterface> interfaces;
    for (const std::string& line : askBoard(session, "list")) {
        const std::optional<BoardInterface> interface = parseBoardInterface(line);
        if (!interface) throw brokenProtocol("an interface without number or name");
        interfaces.push_back(*interface);
    }
    return interfaces;
}

Listing interfaceListing(const std::vector<BoardInterface>& interfaces) {
    const bool devices = std::any_of(interfaces.begin(), interfaces.end(), [](const BoardInterface& board) {
        return !board.device.empty() && board.device != board.name;
    });
    const bool aliases = std::any_of(interfaces.begin(), interfaces.end(),
                                     [](const BoardInterface& board) { return !board.alias.empty(); });
    Listing listing{{{"NUMBER", "number"},
                     {"NAME", "name"},
                     {"KIND", "kind"},
                     {"SLOT", "slot"},
                     {"PRESENT", "present"},
                     {"TRUNK", "trunk"},
                     {"MEMBERS", "members"},
                     {"VLAN", "vlan"},
                     {"ABILITY", "ability"},
                     {"PROTOCOL", "protocol"},
                     {devices ? "DEVICE" : nullptr, "device"},
                     {nullptr, "access"},
                     {aliases ? "ALIAS" : nullptr, "alias"},
                     {nullptr, "otherNames"}},
                    {}};
    for (const BoardInterface& board : interfaces) {
        listing.rows.push_back(
            {numberCell(board.number), textCell(board.name), textCell(board.kind), numberCell(board.slot),
             flagCell(board.present, "yes", "no"), board.trunk.empty() ? noCell() : textCell(board.trunk),
             listCell(board.members), board.vlan == 0 ? noCell() : numberCell(board.vlan),
             numberCell(board.ability), flagCell(board.protocol, "on", "off"),
             board.device.empty() ? noCell() : textCell(board.device), flagCell(board.access, "yes", "no"),
             board.alias.empty() ? noCell() : textCell(board.alias), listCell(board.otherNames)});
    }
    return listing;
}

Json forwardAnswer(Session& session, uint32_t from, uint32_t to, uint32_t vlan, const ForwardAnswer& answer) {
    return {{"from", interfaceName(session, from)},
            {"to", interfaceName(session, to)},
            {"vlan", vlanJson(vlan)},
            {"forwards", answer.word},
            {"reason", answer.reason}};
}

HardwareEntries readHardware(Session& session) {
    HardwareEntries entries;
    for (const std::string& line : askBoard(session, "hardware")) {
        const std::vector<std::string> words = hardwareWords(session, line);
        if (!words.empty()) entries.json.push_back(hardwareJson(words));
        entries.lines.push_back(words.empty() ? line : joinWords(words, " "));
    }
    return entries;
}

Json peerAnswer(const PeerLink& link) {
    if (link.root.empty()) return {};
    return {{"root", link.root},           {"state", link.state},    {"answered", link.answered},
            {"differing", link.differing}, {"missed", link.missed},  {"lost", link.lost},
            {"ended", link.ended},         {"waiting", link.waiting}};
}
