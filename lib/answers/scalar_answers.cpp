#include "lib/answers/scalar_answers.h"

#include "lib/link/scalars.h"
#include "wire/records.h"
#include "wire/scalars.h"

namespace {

struct DebugCategory {
    uint32_t bit;
    const char* name;
};

constexpr DebugCategory DEBUG_CATEGORIES[] = {{CATEGORY_INIT, "initialisation"},
                                              {CATEGORY_WORK, "management and hardware"},
                                              {CATEGORY_EVENT, "events"},
                                              {CATEGORY_SERIAL, "serial table"}};

}  // namespace

Cell scalarCell(uint32_t id, const std::string& value) {
    std::vector<uint32_t> numbers;
    switch (id) {
        case SCALAR_VERSION:
            return textCell(value);
        case SCALAR_P2P_ENABLE_VLAN:
            return numberListCell(vlansOfBitList(value));
        case SCALAR_MODE_ABILITY:
            for (const char byte : value) numbers.push_back(static_cast<unsigned char>(byte));
            return numberListCell(numbers);
        case SCALAR_CAPABILITY:
            for (size_t word = 0; word < value.size() / WORD_SIZE; ++word) {
                numbers.push_back(wordAt(value, word));
            }
            return numberListCell(numbers);
        default:
            return numberCell(wordAt(value, 0));
    }
}

Listing scalarListing(Session& session, const std::vector<uint32_t>& ids) {
    Listing listing{{{"ID", "id"}, {"SCALAR", "name"}, {"VALUE", "value"}}, {}};
    for (const uint32_t id : ids) {
        listing.rows.push_back(
            {numberCell(id), textCell(scalarName(id)), scalarCell(id, readScalar(session, id))});
    }
    return listing;
}

std::vector<std::string> debugCategories(uint32_t mask) {
    std::vector<std::string> names;
    for (const DebugCategory& category : DEBUG_CATEGORIES) {
        if ((mask & category.bit) != 0) names.emplace_back(category.name);
    }
    return names;
}

Json debugAnswer(uint32_t mask) {
    return {{"debugMask", mask}, {"categories", debugCategories(mask)}};
}
