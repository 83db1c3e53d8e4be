// Frames of the command socket whose words say anything, all of them up to a length.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "common/bytes.h"
#include "host/sockets/command_request.h"
#include "platform/hardware.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/status.h"

namespace {

constexpr size_t TAIL_MAX = 20;  // bytes behind the four words: the longest index, and a word
constexpr uint8_t FILLING = 0xA5;

// What the handler of a frame was given, and what it leaves as the length of a buffer.
struct Seen {
    uint32_t calls = 0;
    bool isBuffer = false;
    uint32_t bufferLength = 0;
    std::string index;
};
Seen seen;

int32_t touch(void* index, void* value) {
    ++seen.calls;
    if (index != nullptr) seen.index.assign(static_cast<char*>(index), COMMAND_VALUE_MAX);
    if (value == nullptr) return 0;
    if (seen.isBuffer) {
        auto* buffer = static_cast<DataDesc*>(value);
        std::memset(buffer->data, FILLING, buffer->length);
        buffer->length = seen.bufferLength;
    } else {
        std::memset(value, FILLING, COMMAND_VALUE_MAX);
    }
    return 0;
}

int32_t access(void* index, uint32_t, void* value) {
    return touch(index, value);
}
int32_t accessNumber(uint32_t, uint32_t, void* value) {
    return touch(nullptr, value);
}
int32_t first(void* index) {
    return touch(index, nullptr);
}
int32_t next(void* current, void* result) {
    return touch(current, nullptr) + (std::memset(result, FILLING, COMMAND_VALUE_MAX) == nullptr);
}
int32_t nextNumber(uint32_t, void* result) {
    return next(nullptr, result);
}

IcmHandler handlerOf(const OpShape& shape) {
    if (shape.kind == OpKind::first) return {.first = first};
    if (shape.kind == OpKind::next) {
        return shape.indexIsNumber ? IcmHandler{.nextNumber = nextNumber} : IcmHandler{.next = next};
    }
    return shape.indexIsNumber ? IcmHandler{.accessNumber = accessNumber} : IcmHandler{.access = access};
}

// A handler sees whole frames alone, with zeros behind its index; each frame has one reply that adds up. The
// frame ends where its memory does, for sanitizers to see what is read behind it.
void check(const OperationTable& table, uint32_t opcode, uint32_t column, uint32_t indexLength,
           uint32_t valueLength, size_t tail) {
    const size_t length = COMMAND_WORDS_MIN + tail;
    const std::unique_ptr<uint8_t[]> frame(new uint8_t[length]);
    std::memset(frame.get(), FILLING, length);
    const uint32_t head[] = {opcode, column, indexLength};
    std::memcpy(frame.get(), head, sizeof(head));
    const bool fits = indexLength <= tail;
    if (fits) std::memcpy(frame.get() + sizeof(head) + indexLength, &valueLength, sizeof(valueLength));
    seen.calls = 0;
    seen.index.clear();
    std::string replies = "before";
    // Who may only read is refused before a handler, or anything behind the opcode, is looked at.
    const OpKind kind = opcode < OP_COUNT ? PORT_ISOLATE_OP_SHAPES[opcode].kind : OpKind::none;
    const bool reads = kind == OpKind::get || kind == OpKind::first || kind == OpKind::next;
    if (opcode != OP_NONE && opcode < OP_COUNT && !reads) {
        EXPECT_EQ(answerRequest(table, frame.get(), length, false, replies), STATUS_READ_ONLY);
        EXPECT_EQ(seen.calls, 0u);
        replies = "before";
    }
    answerRequest(table, frame.get(), length, true, replies);

    const std::string_view reply = std::string_view(replies).substr(6);
    ASSERT_GE(reply.size(), 4 * WORD_SIZE);
    const uint32_t replyIndex = wordAt(reply, 2);
    ASSERT_LE(replyIndex, COMMAND_VALUE_MAX);
    uint32_t replyValue = 0;
    std::memcpy(&replyValue, reply.data() + 3 * WORD_SIZE + replyIndex, sizeof(replyValue));
    EXPECT_EQ(wordAt(reply, 0), reply.size() - WORD_SIZE);
    EXPECT_EQ(reply.size(), 4 * WORD_SIZE + replyIndex + replyValue);
    const auto status = static_cast<int32_t>(wordAt(reply, 1));
    EXPECT_EQ(seen.calls, status == 0 ? 1u : 0u) << status;
    if (opcode == OP_NONE || opcode >= OP_COUNT) {
        EXPECT_EQ(seen.calls, 0u);
        return;
    }
    const OpShape& shape = PORT_ISOLATE_OP_SHAPES[opcode];
    const size_t sent = shape.kind == OpKind::set ? valueLength : 0;
    const bool addsUp = fits && tail == indexLength + sent;
    if (addsUp && indexLength == shape.indexLength && valueLength == WORD_SIZE) {
        EXPECT_EQ(status, 0);
    }
    if (seen.calls == 0) return;
    EXPECT_TRUE(addsUp);
    EXPECT_LE(replyValue, shape.kind == OpKind::get ? valueLength : 0);
    if (seen.index.empty()) return;
    EXPECT_EQ(indexLength, shape.indexLength);
    EXPECT_EQ(seen.index.find_first_not_of(static_cast<char>(FILLING)), indexLength);
    EXPECT_EQ(seen.index.find_first_not_of('\0', indexLength), std::string::npos);
}

TEST(Frames, WhoseWordsSayAnything) {
    std::vector<IcmFuncMapEntry> rows;
    for (const OpShape& shape : PORT_ISOLATE_OP_SHAPES) rows.push_back({shape.opcode, handlerOf(shape)});
    const OperationTable table = {rows.data(), static_cast<uint32_t>(rows.size())};
    for (uint32_t opcode = 0; opcode <= OP_COUNT && !HasFailure(); ++opcode) {
        for (const uint32_t column : {0u, 1u, 13u, UINT32_MAX}) {
            seen.isBuffer = opcode <= OP_SCALAR_GET && column == 13;
            seen.bufferLength = opcode % 2 == 0 ? 3 : UINT32_MAX;
            for (size_t tail = 0; tail <= TAIL_MAX; ++tail) {
                for (const uint32_t index :
                     {0u, 1u, 3u, 4u, 8u, 12u, 13u, 16u, 17u, 1u << 31, UINT32_MAX - 3, UINT32_MAX}) {
                    const auto rest = static_cast<uint32_t>(tail) - index;
                    for (const uint32_t value : {0u, 1u, 4u, 5u, rest, rest + 1, 2048u, 2049u, UINT32_MAX}) {
                        check(table, opcode, column, index, value, tail);
                    }
                }
            }
        }
    }
}

}  // namespace
