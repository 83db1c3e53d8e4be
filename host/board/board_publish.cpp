#include "host/board/board_publish.h"

#include "common/bytes.h"
#include "host/board/board_events.h"
#include "platform/route_messages.h"

namespace {

std::string publishLink(Board& board, const Words& words) {
    Interface interface;
    if (words.size() < 3) return WRONG_USE;
    if (!findPublished(board, words[2], interface)) return unknownInterface(words[2]);
    uint32_t mask = 0;
    std::vector<LinkAttribute> attributes;
    for (size_t i = 3; i < words.size(); ++i) {
        const bool memberAdd = words[i] == "member-add";
        if (words[i] == "register") {
            mask = RT_CHANGE_REGISTER;
        } else if (words[i] == "join") {
            attributes.push_back({DAX_RTA_TRUNK_JOIN, 0});
        } else if ((memberAdd || words[i] == "member-del") && i + 1 < words.size()) {
            Interface member;
            if (!findPublished(board, words[++i], member)) return unknownInterface(words[i]);
            attributes.push_back({memberAdd ? DAX_RTA_MEMBER_ADD : DAX_RTA_MEMBER_DEL, member.number});
        } else {
            return WRONG_USE;
        }
    }
    return publishNewLink(interface, mask, attributes);
}

std::string publishOther(Board& board, const Words& words) {
    const std::string& event = words[1];
    Interface interface;
    uint32_t number = 0;
    if (words.size() == 2 && event == "reset") return publishPlain(DAX_RTGRP_SYSTEM_GROUP, DAX_RTM_RESET);
    if (words.size() == 2 && event == "mode-refresh") {
        return publishPlain(DAX_RTGRP_SYSTEM, DAX_RTM_MODE_REFRESH);
    }
    if (words.size() == 2 && event == "serial-sync") {
        return publishPlain(DAX_RTGRP_SYSTEM, DAX_RTM_SERIAL_SYNC);
    }
    if (words.size() == 4 && event == "raw") {
        std::string messages;
        if (!parseNumber(words[2], number) || !parseHex(words[3], messages)) return WRONG_USE;
        return publishRaw(number, {messages.begin(), messages.end()});
    }
    if (words.size() != 3) return WRONG_USE;
    if (event == "card-up") return parseNumber(words[2], number) ? publishCardUp(number) : WRONG_USE;
    if (event != "dellink" && event != "if-reset") return WRONG_USE;
    if (!findPublished(board, words[2], interface)) return unknownInterface(words[2]);
    return event == "dellink" ? publishDelLink(interface) : publishInterfaceReset(interface);
}

}  // namespace

bool findPublished(Board& board, const std::string& name, Interface& interface) {
    std::lock_guard guard(board.lock);
    const Interface* found = findInterface(board, name);
    if (found != nullptr) interface = *found;
    return found != nullptr || parseNumber(name, interface.number);
}

std::string publishVerb(Board& board, const Words& words, std::string&) {
    if (words.size() < 2) return WRONG_USE;
    return words[1] == "newlink" ? publishLink(board, words) : publishOther(board, words);
}
