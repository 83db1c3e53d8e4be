#include "host/sockets/command_request.h"

#include <algorithm>
#include <cstring>

#include "common/bytes.h"
#include "host/services/answers.h"
#include "platform/hardware.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/scalars.h"
#include "wire/status.h"

namespace {

constexpr uint32_t WORD = WORD_SIZE;

void (*gAfterSet)(const OperationTable& table, uint32_t opcode, const void* index) = nullptr;

struct Request {
    uint32_t opcode;
    uint32_t column;
    uint32_t indexLength;
    const uint8_t* index;
    uint32_t valueLength;  // of the value sent, or the capacity offered
    const uint8_t* value;
    uint32_t valueSent;  // bytes that follow the last word
};

// What a handler gets and fills. It may trust a record's nominal size: what was not sent is zero.
struct Cells {
    alignas(8) uint8_t index[COMMAND_VALUE_MAX];
    alignas(8) uint8_t result[COMMAND_VALUE_MAX];
    alignas(8) uint8_t value[COMMAND_VALUE_MAX];
    DataDesc buffer;
};

void appendReply(std::string& replies, int32_t status, const void* index, uint32_t indexLength,
                 const void* value, uint32_t valueLength) {
    appendWord(replies, 3 * WORD + indexLength + valueLength);
    appendWord(replies, static_cast<uint32_t>(status));
    appendWord(replies, indexLength);
    replies.append(static_cast<const char*>(index), indexLength);
    appendWord(replies, valueLength);
    replies.append(static_cast<const char*>(value), valueLength);
}

void appendStatus(std::string& replies, int32_t status) {
    appendReply(replies, status, "", 0, "", 0);
}

// The frame holds at least four words. False when the index does not fit it.
bool takeApart(const uint8_t* bytes, size_t length, Request& request) {
    request.opcode = wordAt(bytes);
    request.column = wordAt(bytes + WORD);
    request.indexLength = wordAt(bytes + 2 * WORD);
    if (request.indexLength > length - COMMAND_WORDS_MIN) return false;
    request.index = bytes + 3 * WORD;
    request.valueLength = wordAt(request.index + request.indexLength);
    request.value = request.index + request.indexLength + WORD;
    request.valueSent = static_cast<uint32_t>(length) - COMMAND_WORDS_MIN - request.indexLength;
    return true;
}

bool isBufferRequest(const Request& request) {
    const bool scalar = request.opcode == OP_SCALAR_SET || request.opcode == OP_SCALAR_SYNC ||
                        request.opcode == OP_SCALAR_GET;
    return scalar && portIsolateScalarIsBuffer(request.column);
}

// 0, or the status of a request that no handler gets to see.
int32_t checkLengths(const Request& request, const OpShape& shape) {
    const uint32_t announced = shape.kind == OpKind::set ? request.valueLength : 0;
    if (request.valueSent != announced) return STATUS_BAD_FRAME;
    if (request.indexLength != 0 && request.indexLength != shape.indexLength) {
        return STATUS_BAD_LENGTH;
    }
    const uint32_t length = request.valueLength;
    if (shape.kind == OpKind::set && isBufferRequest(request)) {
        return length <= COMMAND_VALUE_MAX ? 0 : STATUS_BAD_LENGTH;
    }
    if (shape.kind == OpKind::set) return length == 0 || length == WORD ? 0 : STATUS_BAD_LENGTH;
    if (shape.kind == OpKind::get && !isBufferRequest(request)) {
        return length == 0 || length >= WORD ? 0 : STATUS_BAD_LENGTH;
    }
    return 0;
}

// The value cell of a set or get; null when nothing was sent or offered.
void* valueCell(const Request& request, Cells& cells) {
    const uint32_t length = std::min(request.valueLength, COMMAND_VALUE_MAX);
    if (length == 0) return nullptr;
    std::memcpy(cells.value, request.value, request.valueSent);
    if (!isBufferRequest(request)) return cells.value;
    cells.buffer = {cells.value, length};
    return &cells.buffer;
}

int32_t access(const IcmHandler& handler, const OpShape& shape, const Request& request, Cells& cells,
               void* value) {
    if (shape.indexIsNumber) return handler.accessNumber(wordAt(cells.index), request.column, value);
    return handler.access(request.indexLength == 0 ? nullptr : cells.index, request.column, value);
}

void answerGet(const IcmHandler& handler, const OpShape& shape, const Request& request, Cells& cells,
               std::string& replies) {
    void* value = valueCell(request, cells);
    const int32_t status = access(handler, shape, request, cells, value);
    if (status != 0 || value == nullptr) return appendStatus(replies, status);
    const uint32_t capacity = std::min(request.valueLength, COMMAND_VALUE_MAX);
    const uint32_t filled = isBufferRequest(request) ? std::min(cells.buffer.length, capacity) : WORD;
    appendReply(replies, status, "", 0, cells.value, filled);
}

// Without memory for the reply the row has changed all the same: what follows comes before it.
void answerSet(const OperationTable& table, const IcmHandler& handler, const OpShape& shape,
               const Request& request, Cells& cells, std::string& replies) {
    const int32_t status = access(handler, shape, request, cells, valueCell(request, cells));
    const bool record = request.indexLength != 0 && !shape.indexIsNumber;
    if (gAfterSet != nullptr) gAfterSet(table, request.opcode, record ? cells.index : nullptr);
    appendStatus(replies, status);
}

void answerFirst(const IcmHandler& handler, const OpShape& shape, const Request& request, Cells& cells,
                 std::string& replies) {
    void* index = request.indexLength == 0 ? nullptr : cells.index;
    const int32_t status = handler.first(index);
    if (status != 0 || index == nullptr) return appendStatus(replies, status);
    appendReply(replies, status, cells.index, shape.indexLength, "", 0);
}

void answerNext(const IcmHandler& handler, const OpShape& shape, const Request& request, Cells& cells,
                std::string& replies) {
    const int32_t status = shape.indexIsNumber
                               ? handler.nextNumber(wordAt(cells.index), cells.result)
                               : handler.next(request.indexLength == 0 ? nullptr : cells.index, cells.result);
    if (status != 0) return appendStatus(replies, status);
    appendReply(replies, status, cells.result, shape.indexLength, "", 0);
}

bool onlyReads(OpKind kind) {
    return kind == OpKind::get || kind == OpKind::first || kind == OpKind::next;
}

void carryOut(const OperationTable& table, const uint8_t* bytes, size_t length, bool mayChange,
              std::string& replies) {
    Request request = {};
    const bool whole = takeApart(bytes, length, request);
    const IcmHandler* handler = findHandler(table, request.opcode);
    if (request.opcode >= OP_COUNT || handler == nullptr) {
        return appendStatus(replies, STATUS_NO_HANDLER);
    }
    const OpShape& shape = PORT_ISOLATE_OP_SHAPES[request.opcode];
    if (!mayChange && !onlyReads(shape.kind)) return appendStatus(replies, STATUS_READ_ONLY);
    if (!whole) return appendStatus(replies, STATUS_BAD_FRAME);
    const int32_t refused = checkLengths(request, shape);
    if (refused != 0) return appendStatus(replies, refused);

    Cells cells = {};
    std::memcpy(cells.index, request.index, request.indexLength);
    switch (shape.kind) {
        case OpKind::none:
            return appendStatus(replies, STATUS_NO_HANDLER);
        case OpKind::set:
            return answerSet(table, *handler, shape, request, cells, replies);
        case OpKind::get:
            return answerGet(*handler, shape, request, cells, replies);
        case OpKind::first:
            return answerFirst(*handler, shape, request, cells, replies);
        case OpKind::next:
            return answerNext(*handler, shape, request, cells, replies);
    }
}

}  // namespace

const IcmHandler* findHandler(const OperationTable& table, uint32_t opcode) {
    for (uint32_t row = 0; row < table.count; ++row) {
        if (table.rows[row].opcode == opcode) {
            return table.rows[row].handler.access == nullptr ? nullptr : &table.rows[row].handler;
        }
    }
    return nullptr;
}

void afterEachSet(void (*work)(const OperationTable& table, uint32_t opcode, const void* index)) {
    gAfterSet = work;
}

std::string statusReply(int32_t status) {
    std::string reply;
    appendStatus(reply, status);
    return reply;
}

bool isFrameLength(uint32_t length) {
    return length >= COMMAND_WORDS_MIN && length <= COMMAND_FRAME_MAX;
}

int32_t answerRequest(const OperationTable& table, const uint8_t* bytes, size_t length, bool mayChange,
                      std::string& replies) {
    const size_t before = replies.size();
    carryOut(table, bytes, length, mayChange, replies);
    int32_t status = 0;
    std::memcpy(&status, replies.data() + before + WORD, sizeof(status));
    tellAnswer(status);
    return status;
}
