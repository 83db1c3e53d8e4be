// What the marks of a matrix mean, in words and colours, and the matrix as a grid of text.
#pragma once

#include <string>
#include <vector>

#include "lib/link/matrix.h"
#include "lib/text/output.h"

struct MatrixMeaning {
    char mark;
    const char* name;  // in a style sheet
    const char* text;
    Tone tone;
};
// In the order of a legend. MATRIX_ITSELF needs none.
const std::vector<MatrixMeaning>& matrixMeanings();
const MatrixMeaning* findMeaning(char mark);  // null for a mark that needs none

// A mark in its colour.
std::string markText(char mark);
// "in VLAN 10", or what an answer without one is about.
std::string matrixScope(const Matrix& matrix);

// What stands in front of a row: its name, or the first names of the interfaces that it stands for and how
// many there are.
std::string matrixLabel(const Matrix& matrix, size_t row);

struct RenderedMatrix {
    std::vector<std::string> lines;
    size_t leftOut = 0;  // columns, for want of room
};
// No wider than `width` (0: of any width).
RenderedMatrix renderMatrix(const Matrix& matrix, size_t width);
