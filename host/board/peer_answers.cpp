#include "host/board/peer_answers.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "common/bytes.h"
#include "common/statuses.h"
#include "common/text.h"
#include "host/board/this_board.h"
#include "host/services/logging.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/scalars.h"
#include "wire/status.h"

namespace {

constexpr uint32_t REPLY_WORDS_MIN = 3 * WORD_SIZE;
constexpr uint32_t TOLD_MAX = 20;  // differences that the log names before it only counts

bool holdsRows(uint32_t opcode) {
    return opcode == OP_GROUP_SYNC || opcode == OP_PAIR_SYNC || opcode == OP_VLAN_GROUP_SYNC;
}

std::string interfaceText(uint32_t number) {
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    const Interface* interface = findInterface(board, number);
    return interface == nullptr ? fmt::format("interface {}", number) : safeText(interface->name);
}

std::string objectText(const SentRequest& sent) {
    const auto& index = sent.index;
    switch (sent.opcode) {
        case OP_GROUP_SYNC:
            return fmt::format("group {}, {}", index[1], interfaceText(index[0]));
        case OP_VLAN_GROUP_SYNC:
            return fmt::format("vlan-group {} in VLAN {}, {}", index[1], index[2], interfaceText(index[0]));
        case OP_PAIR_SYNC:
            return fmt::format("pair {} to {}", interfaceText(index[0]), interfaceText(index[1]));
        case OP_VLAN_SYNC:
            return fmt::format("pon, VLAN {}", index[0]);
        default:
            return sent.column == SCALAR_MODE ? "mode" : fmt::format("scalar {}", sent.column);
    }
}

std::string actionText(const SentRequest& sent) {
    if (sent.opcode == OP_VLAN_SYNC && sent.value == PON_ISOLATION_ON) return "on";
    if (sent.opcode == OP_VLAN_SYNC && sent.value == PON_ISOLATION_OFF) return "off";
    if (holdsRows(sent.opcode)) {
        constexpr const char* ACTIONS[] = {"", "activate", "create", "probe", "destroy"};
        if (sent.value >= ROW_ACTIVATE && sent.value <= ROW_DESTROY) return ACTIONS[sent.value];
    }
    return fmt::format("set to {}", sent.value);
}

void tellDifference(PeerLedger& ledger, const SentRequest& sent) {
    ++ledger.counts.differing;
    if (ledger.told == TOLD_MAX) return;
    hostReport("the boards differ: {}: {}: here {}, on the peer board {}", objectText(sent), actionText(sent),
               describeStatus(*sent.here), describeStatus(*sent.there));
    if (++ledger.told == TOLD_MAX) hostReport("further differences of the boards are only counted");
}

void dropSettled(PeerLedger& ledger) {
    while (!ledger.sent.empty() && ledger.sent.front().here && ledger.sent.front().there) {
        const SentRequest& sent = ledger.sent.front();
        if ((*sent.here == 0) != (*sent.there == 0)) tellDifference(ledger, sent);
        ledger.sent.pop_front();
        ++ledger.first;
        --ledger.answered;
    }
}

}  // namespace

uint64_t enterSent(PeerLedger& ledger, const PeerRequest& request) {
    SentRequest sent;
    sent.opcode = request.opcode;
    sent.column = request.column;
    sent.probe = isProbe(request);
    const size_t length = std::min<size_t>(request.indexLength, sizeof(sent.index));
    if (length != 0) std::memcpy(sent.index.data(), request.index, length);
    if (request.valueLength == WORD_SIZE) sent.value = wordAt(request.value);
    ledger.sent.push_back(sent);
    return ledger.first + ledger.sent.size() - 1;
}

void settleHere(PeerLedger& ledger, uint64_t number, int32_t status) {
    if (number < ledger.first) return;
    ledger.sent[static_cast<size_t>(number - ledger.first)].here = status;
    dropSettled(ledger);
}

bool takeAnswers(PeerLedger& ledger, const void* bytes, size_t length) {
    ledger.input.append(static_cast<const char*>(bytes), length);
    size_t taken = 0;
    while (ledger.input.size() - taken >= WORD_SIZE) {
        const uint32_t answer = wordAt(ledger.input.data() + taken);
        if (answer < REPLY_WORDS_MIN || answer > COMMAND_FRAME_MAX || unanswered(ledger) == 0) return false;
        if (ledger.input.size() - taken - WORD_SIZE < answer) break;
        const auto status = static_cast<int32_t>(wordAt(ledger.input.data() + taken + WORD_SIZE));
        if (status == STATUS_TOO_MANY_CLIENTS) return false;
        SentRequest& sent = ledger.sent[ledger.answered++];
        sent.there = status;
        ++ledger.counts.answered;
        taken += WORD_SIZE + answer;
        dropSettled(ledger);
    }
    ledger.input.erase(0, taken);
    return true;
}

void loseUnanswered(PeerLedger& ledger) {
    for (const SentRequest& sent : ledger.sent) {
        if (!sent.there && !sent.probe && sent.here.value_or(0) == 0) ++ledger.counts.lost;
    }
    ledger.first += ledger.sent.size();
    ledger.sent.clear();
    ledger.input.clear();
    ledger.answered = 0;
}

size_t unanswered(const PeerLedger& ledger) {
    return ledger.sent.size() - ledger.answered;
}
