#include "ctl/commands/raw.h"

#include "ctl/client/statuses.h"
#include "ctl/text/output.h"
#include "wire/framing.h"
#include "wire/records.h"

namespace {

constexpr size_t WORD = sizeof(uint32_t);

// Bytes that `words` or `hex` describes, whichever option was given.
Exit bytesOption(const Invocation& invocation, const std::string& wordsName, const std::string& hexName,
                 std::string& bytes) {
    const std::string* words = optionValue(invocation.options, wordsName);
    const std::string* hex = optionValue(invocation.options, hexName);
    if (words != nullptr && hex != nullptr) {
        return misuse("give " + wordsName + " or " + hexName + ", not both");
    }
    if (hex != nullptr && !parseHex(*hex, bytes)) {
        return misuse(hexName + " \"" + *hex +
                      "\": write two hexadecimal digits for each byte, such as 05000000");
    }
    if (words != nullptr) {
        std::vector<uint32_t> numbers;
        if (!parseWords(*words, numbers)) {
            return misuse(wordsName + " \"" + *words + "\": write words such as 5,1,0 or use " + hexName);
        }
        for (const uint32_t number : numbers) {
            appendWord(bytes, number);
        }
    }
    return Exit::done;
}

std::string hexText(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += formatText("%02x", static_cast<unsigned char>(byte));
    }
    return text;
}

// As words where the bytes make whole ones.
std::vector<uint32_t> wordsOf(std::string_view bytes) {
    std::vector<uint32_t> words;
    for (size_t word = 0; bytes.size() % WORD == 0 && word < bytes.size() / WORD; ++word) {
        words.push_back(wordAt(bytes, word));
    }
    return words;
}

void printBlock(const char* name, std::string_view bytes) {
    if (bytes.empty()) {
        return;
    }
    const std::vector<uint32_t> words = wordsOf(bytes);
    printLine(formatText("%s: %s", name, hexText(bytes).c_str()) +
              (words.empty() ? "" : " (words " + numberListCell(words).text + ")"));
}

bool answersValue(uint32_t opcode) {
    return opcode < OP_COUNT && PORT_ISOLATE_OP_SHAPES[opcode].kind == OpKind::get;
}

Exit readRequest(const Invocation& invocation, Request& request) {
    const std::string* capacity = optionValue(invocation.options, "--capacity");
    const std::string* column = optionValue(invocation.options, "--column");
    Exit exit = numberArgument("opcode", invocation.arguments[0], request.opcode);
    if (exit == Exit::done && column != nullptr) {
        exit = numberArgument("column", *column, request.column);
    }
    if (exit == Exit::done) {
        exit = bytesOption(invocation, "--index", "--index-hex", request.index);
    }
    if (exit == Exit::done) {
        exit = bytesOption(invocation, "--value", "--value-hex", request.value);
    }
    if (exit != Exit::done) {
        return exit;
    }
    if (capacity == nullptr) {
        request.capacity = answersValue(request.opcode) ? COMMAND_VALUE_MAX : 0;
        return Exit::done;
    }
    if (!request.value.empty()) {
        return misuse("give a value to send or a --capacity for the answer, not both");
    }
    return numberArgument("capacity", *capacity, request.capacity);
}

}  // namespace

Exit runRaw(Session& session, const Invocation& invocation) {
    Request request;
    Exit exit = readRequest(invocation, request);
    if (exit != Exit::done) {
        return exit;
    }
    Reply reply;
    exit = ask(session, request, reply);
    if (exit != Exit::done) {
        return exit;
    }
    if (session.json) {
        printLine(
            jsonObject({{nullptr, "status"},
                        {nullptr, "statusText"},
                        {nullptr, "index"},
                        {nullptr, "indexHex"},
                        {nullptr, "value"},
                        {nullptr, "valueHex"}},
                       {numberCell(static_cast<uint32_t>(reply.status)), textCell(statusText(reply.status)),
                        numberListCell(wordsOf(reply.index)), textCell(hexText(reply.index)),
                        numberListCell(wordsOf(reply.value)), textCell(hexText(reply.value))}));
    } else {
        printLine("status: " + describeStatus(reply.status));
        printBlock("index", reply.index);
        printBlock("value", reply.value);
    }
    return reply.status == 0 ? Exit::done : Exit::refused;
}
