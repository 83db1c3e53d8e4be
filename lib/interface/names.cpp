// How numbers are called: interfaces by the board, scalars and statuses by the project's own tables.
#include <algorithm>
#include <string>

#include "common/fields.h"
#include "common/scalar_names.h"
#include "common/statuses.h"
#include "common/text.h"
#include "common/words.h"
#include "lib/interface/connection.h"
#include "wire/framing.h"

namespace {

void keepName(portisolate_connection& connection, const std::string& line) {
    std::vector<Field> fields;
    for (const std::string& word : splitWords(line)) fields.push_back(splitField(word));
    const std::string* digits = fieldValue(fields, "number");
    const std::string* name = fieldValue(fields, "name");
    uint32_t number = 0;
    if (digits == nullptr || name == nullptr || !parseGivenNumber(*digits, number)) return;
    connection.names[number] = *name;
}

// Asks the board once; what went wrong then holds until the names are forgotten.
int askNames(portisolate_connection& connection) {
    if (!connection.namesAsked) {
        connection.namesAsked = true;
        connection.namesFailure.clear();
        connection.names.clear();
        portisolate_lines lines;
        int result = checkVersion(connection);
        if (result != PORTISOLATE_OK) connection.namesFailure = connection.reason;
        if (result == PORTISOLATE_OK) result = askBoard(lines, connection, "list", connection.namesFailure);
        while (result == PORTISOLATE_OK) {
            result = takeLine(lines, connection.timeoutMs);
            if (result == PORTISOLATE_OK) keepName(connection, lines.line);
        }
        streamClose(lines.stream);
        if (result != PORTISOLATE_END && connection.namesFailure.empty()) {
            connection.namesFailure = "the answer was not whole in time";
        }
    }
    if (connection.namesFailure.empty()) return PORTISOLATE_OK;
    return fail(connection, PORTISOLATE_UNREACHABLE, BOARD_SOCKET_PATH, connection.namesFailure);
}

}  // namespace

const char* portisolate_interface_name(void* connection, uint32_t number) {
    auto* asked = static_cast<portisolate_connection*>(connection);
    const char* name = asked == nullptr ? nullptr : madeBy([&] {
        askNames(*asked);
        const auto known = asked->names.find(number);
        asked->text = known == asked->names.end() ? std::to_string(number) : known->second;
        return asked->text.c_str();
    });
    return name == nullptr ? "" : name;
}

int portisolate_interface_number(portisolate_connection* connection, const char* name, uint32_t* number) {
    if (connection == nullptr || name == nullptr || number == nullptr) return PORTISOLATE_MISUSE;
    return guarded([&] {
        const int asked = askNames(*connection);
        if (asked != PORTISOLATE_OK) return asked;
        const auto& names = connection->names;
        const auto known =
            std::find_if(names.begin(), names.end(), [&](const auto& one) { return one.second == name; });
        if (known == names.end()) {
            return fail(*connection, PORTISOLATE_UNKNOWN, nullptr,
                        std::string("no interface \"") + safeText(name) + "\"");
        }
        *number = known->first;
        return int{PORTISOLATE_OK};
    });
}

void portisolate_forget_names(portisolate_connection* connection) {
    if (connection != nullptr) connection->namesAsked = false;
}

const char* portisolate_scalar_name(uint32_t id) {
    return knownScalarName(id);
}

int portisolate_scalar_number(const char* name, uint32_t* id) {
    if (name == nullptr || id == nullptr) return PORTISOLATE_MISUSE;
    return guarded([&] {
        for (const uint32_t known : scalarIds()) {
            if (scalarName(known) != name) continue;
            *id = known;
            return int{PORTISOLATE_OK};
        }
        return int{PORTISOLATE_UNKNOWN};
    });
}

const char* portisolate_status_text(int32_t status) {
    return statusText(status);
}
