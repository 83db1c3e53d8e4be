#include "lib/text/exit.h"

#include <utility>

#include "lib/text/output.h"

CommandEnds misuse(std::string sentence) {
    return {Exit::usage, std::move(sentence)};
}

Exit tellEnd(const CommandEnds& end) {
    if (!end.why.empty()) complain(end.why);
    return end.exit;
}
