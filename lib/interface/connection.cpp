#include "lib/interface/connection.h"

#include <fmt/format.h>

#include <new>

#include "common/files.h"
#include "common/statuses.h"
#include "common/text.h"
#include "common/words.h"
#include "lib/interface/exchange.h"
#include "wire/framing.h"
#include "wire/operations.h"

namespace {

constexpr std::string_view VERSION_FIELD = "protocol=";
static_assert(PORTISOLATE_PROTOCOL_MAJOR == PROTOCOL_MAJOR && PORTISOLATE_PROTOCOL_MINOR == PROTOCOL_MINOR);

// "1.0"; false for anything else.
bool readVersion(std::string_view text, uint32_t& major, uint32_t& minor) {
    const size_t point = text.find('.');
    return point != std::string_view::npos && parseGivenNumber(text.substr(0, point), major) &&
           parseGivenNumber(text.substr(point + 1), minor);
}

}  // namespace

int fail(portisolate_connection& connection, int result, const char* socket, const std::string& reason) {
    connection.reason = reason;
    connection.error = reason;
    if (socket == nullptr) return result;
    const char* what = result == PORTISOLATE_REFUSED ? "refused at" : "cannot talk to the daemon at";
    connection.error = fmt::format("{} {}{}: {}", what, connection.root, socket, reason);
    return result;
}

int checkVersion(portisolate_connection& connection) {
    if (!connection.versionKnown) {
        portisolate_lines about;
        std::string reason;
        connection.major = PORTISOLATE_PROTOCOL_MAJOR;
        connection.minor = 0;
        const int asked = askBoard(about, connection, "about", reason);
        const bool told = asked == PORTISOLATE_OK && takeLine(about, connection.timeoutMs) == PORTISOLATE_OK;
        streamClose(about.stream);
        connection.versionKnown = told;
        for (const std::string& word : splitWords(about.line)) {
            if (!word.starts_with(VERSION_FIELD)) continue;
            if (!readVersion(word.substr(VERSION_FIELD.size()), connection.major, connection.minor)) {
                connection.major = 0;
            }
        }
    }
    if (connection.major == PORTISOLATE_PROTOCOL_MAJOR) return PORTISOLATE_OK;
    return fail(
        connection, PORTISOLATE_OTHER_VERSION, nullptr,
        fmt::format("the daemon speaks version {}.{} of the protocol, and libportisolate {} speaks {}.{}: "
                    "install the library of the daemon's version",
                    connection.major, connection.minor, PORTISOLATE_VERSION, PORTISOLATE_PROTOCOL_MAJOR,
                    PORTISOLATE_PROTOCOL_MINOR));
}

int connectCommands(portisolate_connection& connection) {
    if (connection.commands.fd >= 0) return PORTISOLATE_OK;
    if (!connectToDaemon(connection.commands, connection.root, connection.timeoutMs)) {
        return fail(connection, PORTISOLATE_UNREACHABLE, COMMAND_SOCKET_PATH, connection.commands.failure);
    }
    connection.versionKnown = false;  // it may be another daemon than before
    const int version = checkVersion(connection);
    if (version != PORTISOLATE_OK) streamClose(connection.commands);
    return version;
}

int carryOut(portisolate_connection& connection, const Request& request) {
    connection.reply = {};
    const int connected = connectCommands(connection);
    if (connected != PORTISOLATE_OK) return connected;
    std::optional<Reply> reply = commandExchange(connection.commands, request, connection.timeoutMs);
    if (!reply) {
        return fail(connection, PORTISOLATE_UNREACHABLE, COMMAND_SOCKET_PATH, connection.commands.failure);
    }
    connection.reply = std::move(*reply);
    return PORTISOLATE_OK;
}

const char* portisolate_version(void) {
    return PORTISOLATE_VERSION;
}

portisolate_connection* portisolate_new(const char* root, int timeout) {
    return madeBy([&]() -> portisolate_connection* {
        if (timeout < 1) return nullptr;
        return new portisolate_connection{.root = root != nullptr ? root : rootPrefix(),
                                          .timeoutMs = timeout};
    });
}

void portisolate_free(portisolate_connection* connection) {
    if (connection == nullptr) return;
    streamClose(connection->commands);
    delete connection;
}

const char* portisolate_error(const portisolate_connection* connection) {
    return connection == nullptr ? "" : connection->error.c_str();
}

const char* portisolate_reason(const portisolate_connection* connection) {
    return connection == nullptr ? "" : connection->reason.c_str();
}

int portisolate_connect(portisolate_connection* connection) {
    if (connection == nullptr) return PORTISOLATE_MISUSE;
    return guarded([&] { return connectCommands(*connection); });
}

void portisolate_disconnect(portisolate_connection* connection) {
    if (connection == nullptr) return;
    streamClose(connection->commands);
    connection->versionKnown = false;
}

int portisolate_protocol(portisolate_connection* connection, uint32_t* major, uint32_t* minor) {
    if (connection == nullptr || major == nullptr || minor == nullptr) return PORTISOLATE_MISUSE;
    const int result = guarded([&] {
        const int connected = connectCommands(*connection);
        return connected == PORTISOLATE_OK ? checkVersion(*connection) : connected;
    });
    *major = connection->major;
    *minor = connection->minor;
    return result;
}

int portisolate_request(portisolate_connection* connection, uint32_t opcode, uint32_t column,
                        const void* index, size_t index_size, const void* value, size_t value_size,
                        size_t capacity, int32_t* status) {
    if (connection == nullptr || status == nullptr || (index == nullptr && index_size > 0) ||
        (value == nullptr && value_size > 0)) {
        return PORTISOLATE_MISUSE;
    }
    const int result = guarded([&] {
        constexpr size_t MOST = COMMAND_FRAME_MAX - COMMAND_WORDS_MIN;
        if (index_size > MOST || value_size > MOST - index_size || capacity > UINT32_MAX) {
            return fail(*connection, PORTISOLATE_MISUSE, nullptr,
                        fmt::format("index and value have {} bytes at most", MOST));
        }
        Request request = {.opcode = opcode, .column = column, .capacity = static_cast<uint32_t>(capacity)};
        if (index_size > 0) request.index.assign(static_cast<const char*>(index), index_size);
        if (value_size > 0) request.value.assign(static_cast<const char*>(value), value_size);
        return carryOut(*connection, request);
    });
    *status = connection->reply.status;
    return result;
}

const void* portisolate_reply_index(const portisolate_connection* connection, size_t* size) {
    if (size != nullptr) *size = connection == nullptr ? 0 : connection->reply.index.size();
    return connection == nullptr ? nullptr : connection->reply.index.data();
}

const void* portisolate_reply_value(const portisolate_connection* connection, size_t* size) {
    if (size != nullptr) *size = connection == nullptr ? 0 : connection->reply.value.size();
    return connection == nullptr ? nullptr : connection->reply.value.data();
}

int portisolate_scalar(portisolate_connection* connection, uint32_t id, uint32_t* value) {
    if (connection == nullptr || value == nullptr) return PORTISOLATE_MISUSE;
    return guarded([&] {
        const int result =
            carryOut(*connection, {.opcode = OP_SCALAR_GET, .column = id, .capacity = uint32_t{WORD_SIZE}});
        if (result != PORTISOLATE_OK) return result;
        const Reply& reply = connection->reply;
        if (reply.status != 0) {
            return fail(*connection, PORTISOLATE_REFUSED, COMMAND_SOCKET_PATH, describeStatus(reply.status));
        }
        if (reply.value.size() != WORD_SIZE) {
            return fail(*connection, PORTISOLATE_BROKEN, COMMAND_SOCKET_PATH,
                        fmt::format("a value of {} bytes in place of a word", reply.value.size()));
        }
        *value = wordAt(reply.value, 0);
        return int{PORTISOLATE_OK};
    });
}
