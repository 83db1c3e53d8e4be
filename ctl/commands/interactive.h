// Commands one after the other, as they are typed at a terminal or stand in a file.
//
// A line is a command without the program's name. What follows a word that begins with # is a comment. A line
// that ends in the word ? asks for the help of the words before it. `quit` and `exit` end the input.
#pragma once

#include <istream>

#include "lib/text/exit.h"

// Whether there is a terminal to be interactive with, or a file or a pipe on the standard input.
bool canInteract();
bool canReadLines();
// Until the end of the input or `quit`; answers the last command's exit status.
Exit interact();
// The same for lines that nobody types: the first one that fails ends it, and is told with its number.
// Answers its exit status.
Exit runLines(std::istream& input);
