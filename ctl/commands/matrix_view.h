// What the marks of a matrix mean, in words and colours, and the matrix as a grid of text.
#pragma once

#include <string>
#include <vector>

#include "client/link/matrix.h"
#include "client/text/output.h"

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

std::vector<std::string> renderMatrix(const Matrix& matrix);
