#include "ctl/commands/raw.h"

#include <fmt/format.h>

#include "common/bytes.h"
#include "common/statuses.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"
#include "wire/framing.h"
#include "wire/operations.h"

namespace {

constexpr char RAW_DETAILS[] =
    "  Index and value are words (5,1,0) or bytes in hexadecimal, of any length. --capacity offers room\n"
    "  for the value of an answer; by default all that an operation can answer.";

// The bytes that the option for words or the one for hexadecimal gives, whichever was given.
std::string bytesOption(const Invocation& invocation, const std::string& wordsName,
                        const std::string& hexName) {
    const std::string* words = fieldValue(invocation.options, wordsName);
    const std::string* hex = fieldValue(invocation.options, hexName);
    std::string bytes;
    if (words != nullptr && hex != nullptr) {
        throw misuse("give " + wordsName + " or " + hexName + ", not both");
    }
    if (hex != nullptr && !parseHex(*hex, bytes)) {
        throw misuse(hexName + " \"" + *hex +
                     "\": write two hexadecimal digits for each byte, such as 05000000");
    }
    std::vector<uint32_t> numbers;
    if (words != nullptr && !parseWords(*words, numbers)) {
        throw misuse(wordsName + " \"" + *words + "\": write words such as 5,1,0 or use " + hexName);
    }
    for (const uint32_t number : numbers) appendWord(bytes, number);
    return bytes;
}

std::string hexOf(std::string_view bytes) {
    return hexText(bytes.data(), bytes.size());
}

// As words where the bytes make whole ones.
std::vector<uint32_t> wordsOf(std::string_view bytes) {
    std::vector<uint32_t> words;
    for (size_t word = 0; bytes.size() % WORD_SIZE == 0 && word < bytes.size() / WORD_SIZE; ++word) {
        words.push_back(wordAt(bytes, word));
    }
    return words;
}

void printBlock(const char* name, std::string_view bytes) {
    if (bytes.empty()) return;
    const std::vector<uint32_t> words = wordsOf(bytes);
    printLine(fmt::format("{}: {}", name, hexOf(bytes)) +
              (words.empty() ? "" : " (words " + numberList(words) + ")"));
}

bool answersValue(uint32_t opcode) {
    return opcode < OP_COUNT && PORT_ISOLATE_OP_SHAPES[opcode].kind == OpKind::get;
}

Request readRequest(const Invocation& invocation) {
    Request request = {.opcode = numberArgument("opcode", invocation.arguments[0]),
                       .column = numberOption(invocation.options, "--column", "column"),
                       .index = bytesOption(invocation, "--index", "--index-hex"),
                       .value = bytesOption(invocation, "--value", "--value-hex")};
    if (!request.value.empty() && fieldValue(invocation.options, "--capacity") != nullptr) {
        throw misuse("give a value to send or a --capacity for the answer, not both");
    }
    const uint32_t offered = answersValue(request.opcode) ? COMMAND_VALUE_MAX : 0;
    request.capacity = numberOption(invocation.options, "--capacity", "capacity", offered);
    return request;
}

Exit runRaw(Session& session, const Invocation& invocation) {
    const Reply reply = ask(session, readRequest(invocation));
    if (session.json) {
        printLine(jsonText({{"status", static_cast<uint32_t>(reply.status)},
                            {"statusText", statusText(reply.status)},
                            {"index", wordsOf(reply.index)},
                            {"indexHex", hexOf(reply.index)},
                            {"value", wordsOf(reply.value)},
                            {"valueHex", hexOf(reply.value)}}));
    } else {
        printLine("status: " + describeStatus(reply.status));
        printBlock("index", reply.index);
        printBlock("value", reply.value);
    }
    return reply.status == 0 ? Exit::done : Exit::refused;
}

constexpr Command RAW_COMMANDS[] = {
    {.object = "raw",
     .signature = "OPCODE [--column COLUMN] [--index WORDS] [--index-hex BYTES] [--value WORDS] [--value-hex "
                  "BYTES] [--capacity LENGTH]",
     .help = "send any request by number",
     .example = "raw 6 --column 1 --index 1,5,0",
     .run = runRaw,
     .details = RAW_DETAILS,
     .json = "{status, statusText, index, indexHex, value, valueHex}"},
};

}  // namespace

Commands rawCommands() {
    return RAW_COMMANDS;
}
