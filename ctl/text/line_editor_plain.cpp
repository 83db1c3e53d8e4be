// Without the line-editing library: whole lines, as the terminal hands them over.
#include "ctl/text/line_editor.h"

#include <iostream>

void openLineEditor(const LineCompletion&) {}

bool editLine(const char* prompt, std::string& line) {
    std::cout << prompt << std::flush;
    if (std::getline(std::cin, line)) return true;
    std::cout << std::endl;
    return false;
}

void closeLineEditor() {}
