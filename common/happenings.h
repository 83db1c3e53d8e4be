// What happens in the daemon, read from the board's `monitor`: requests, events, commands to the hardware and
// texts. The board streams them as words with the bytes as they were; here they become sentences.
//
// Nothing in a line is trusted: records are read to the end of the bytes and no further, and what lacks bytes
// counts as zero.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/fields.h"
#include "common/row_families.h"

// One line of the stream.
struct Happening {
    std::string kind;  // one of the kinds, or "dropped" where lines are missing
    std::vector<Field> fields;
    std::string sentence;  // empty where lines are missing
};

// request, event, hardware, query and log, in this order.
const std::vector<std::string>& happeningKinds();

// A field's text, empty when there is none, and as a number, 0 when it is not one.
std::string happeningText(const Happening& happening, std::string_view name);
uint32_t happeningNumber(const Happening& happening, std::string_view name);
// Decimal digits and points behind an optional sign, as the board writes a status or a time.
bool isBoardNumber(std::string_view text);

// The bytes of a field that the board wrote as digits.
std::string happeningBytes(const Happening& happening, std::string_view name);

// One message of an event.
struct EventMessage {
    const char* event = "other";  // link, gone, reset, card-up, mode-refresh, serial-sync, reset-all, other
    uint32_t interface = 0;       // 0: of none
    std::string sentence;
};
std::vector<EventMessage> eventMessages(const InterfaceNamer& nameOf, const Happening& happening);

// A command to the hardware that isolates two ports, or releases them.
struct IsolationCommand {
    bool add = false;
    bool oneWay = false;
    uint32_t from = 0, to = 0, group = 0, vlan = 0;
};
std::optional<IsolationCommand> isolationCommand(const Happening& happening);

// Nothing for a line that does not keep to the form.
std::optional<Happening> readHappening(const InterfaceNamer& nameOf, std::string_view line);
