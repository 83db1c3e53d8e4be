// The rows of the daemon (common/row_families.h), asked for and written.
//
// Every function ends the command when the daemon does not answer, or answers what makes no sense. Those that
// answer a status leave a refusal to their caller.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/row_families.h"
#include "lib/link/session.h"
#include "wire/records.h"

struct Row {
    RowScope scope;
    uint32_t member = 0;
    uint32_t status = 0;
};

// In the words of common/row_families.h, with the names of the board.
std::string scopeText(Session& session, const RowFamily& family, RowScope scope);
std::string rowText(Session& session, const RowFamily& family, RowScope scope, uint32_t member);

// Writes one row's status (ROW_CREATE, ...). Answers the daemon's status.
int32_t sendRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                      uint32_t value);
// Prints that `step`, such as "create", was refused.
void tellRowRefusal(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                    const char* step, int32_t status);

// The word is one of ROW_STATE_...; the status STATUS_NOT_FOUND for a row that is not there.
WordReply readRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member);
// Unlike readRowStatus, asking for a missing row is not a failure to the daemon. Ends the command when the
// look-up is refused.
bool rowExists(Session& session, const RowFamily& family, RowScope scope, uint32_t member);

// The rows of a scope, or of the whole table for null, in the table's order, without their status.
std::vector<Row> walkRows(Session& session, const RowFamily& family, const RowScope* scope);
// The same with the status of each row; one that is gone by then is left out.
std::vector<Row> collectRows(Session& session, const RowFamily& family, const RowScope* scope);

// The VLANs in which PON isolation is off.
std::vector<uint32_t> readPonOff(Session& session);
