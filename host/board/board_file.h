// The description of a board: one statement per line, words separated by blanks, `#` begins a comment.
#pragma once

#include <string_view>

#include "host/board/board.h"
#include "host/board/plane_kind.h"

// Adds what `text` describes to a fresh board, and creates its plane. Lines that cannot be read are reported
// with `fileName` and their number, counted in `board.rejected` and left out. The board's lock is held, or
// nobody else knows the board yet.
void readBoard(std::string_view text, const char* fileName, PlaneKinds kinds, Board& board);
