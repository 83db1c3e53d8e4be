// The two files that people write: the board's description and the options. The first byte chooses.
#include <string_view>

#include "fuzz/fuzz.h"
#include "host/board/board.h"
#include "host/board/board_file.h"
#include "host/services/options.h"
#include "host/start/planes.h"

thread_local uint32_t gPortIsolateTextCategory = 0;

namespace {

void checkBoard(Board& board) {
    for (const auto& [number, interface] : board.interfaces) {
        EXPECT_NE(number, 0u);
        EXPECT_LE(interface.name.size(), INTERFACE_NAME_MAX);
        EXPECT_EQ(board.numbers.at(interface.name), number);
        EXPECT_LE(interface.vid, VLAN_ID_MAX);
        for (const uint32_t member : interface.members) {
            EXPECT_EQ(board.interfaces.at(member).trunk, number);
        }
        std::string reason;
        const Interface& first = board.interfaces.begin()->second;
        EXPECT_NE(boardForwards(board, first, interface, 0, reason), Forwarding::partly)
            << "on a fresh plane";
    }
    EXPECT_EQ(board.numbers.size(), board.interfaces.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    stopAtFailedExpectations();
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    if (bytes[0] == 'o') {
        Options options;
        readOptions(text, "options", options);
        for (const auto& [key, value] : options.values) EXPECT_LE(value.size(), OPTION_VALUE_MAX) << key;
        return 0;
    }
    Board board;
    readBoard(text, "board", planeKinds(), board);
    checkBoard(board);
    board.plane.destroy(board.plane.state);
    return 0;
}
