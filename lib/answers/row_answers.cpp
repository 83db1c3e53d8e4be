#include "lib/answers/row_answers.h"

#include "lib/link/interfaces.h"
#include "lib/link/scalars.h"
#include "wire/records.h"

namespace {

const char* stateWord(uint32_t state) {
    return state == ROW_STATE_PROGRAMMED ? "active" : state == ROW_STATE_CREATED ? "created" : "unknown";
}

}  // namespace

Listing rowListing(Session& session, const RowFamily& family, const std::vector<Row>& rows) {
    const bool pairs = &family == &PAIR_ROWS;
    Listing listing;
    listing.columns = pairs ? std::vector<ListingColumn>{{"SOURCE", "source"}, {nullptr, "sourceNumber"}}
                            : std::vector<ListingColumn>{{"GROUP", "group"}};
    if (familyHasVlans(family)) listing.columns.push_back({"VLAN", "vlan"});
    listing.columns.push_back(pairs ? ListingColumn{"TARGET", "target"}
                                    : ListingColumn{"INTERFACE", "interface"});
    listing.columns.push_back({nullptr, pairs ? "targetNumber" : "number"});
    listing.columns.push_back({"STATUS", "status"});
    for (const Row& row : rows) {
        std::vector<Cell> cells;
        if (pairs) cells.push_back(textCell(interfaceName(session, row.scope.number)));
        cells.push_back(numberCell(row.scope.number));
        if (familyHasVlans(family)) cells.push_back(numberCell(row.scope.vlan));
        cells.push_back(textCell(interfaceName(session, row.member)));
        cells.push_back(numberCell(row.member));
        const Tone tone = row.status == ROW_STATE_PROGRAMMED ? Tone::good : Tone::warning;
        cells.push_back(textCell(stateWord(row.status), tone));
        listing.rows.push_back(cells);
    }
    return listing;
}

Listing ponListing() {
    return {{{"VLAN", "vlan"}, {"PON ISOLATION", "ponIsolation"}}, {}};
}

void addPonRow(Listing& listing, uint32_t vlan, uint32_t state) {
    const bool on = state == PON_ISOLATION_ON;
    const char* word = on ? "on" : state == PON_ISOLATION_OFF ? "off" : "unknown";
    listing.rows.push_back({numberCell(vlan), textCell(word, on ? Tone::good : Tone::warning)});
}

Listing ponOffListing(Session& session) {
    Listing listing = ponListing();
    for (const uint32_t vlan : readPonOff(session)) addPonRow(listing, vlan, PON_ISOLATION_OFF);
    return listing;
}
