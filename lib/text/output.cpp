#include "lib/text/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "common/text.h"

namespace {

bool takesColour() {
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

const char* toneSequence(Tone tone) {
    switch (tone) {
        case Tone::heading:
            return "\033[1m";
        case Tone::good:
            return "\033[32m";
        case Tone::warning:
            return "\033[33m";
        case Tone::bad:
            return "\033[31m";
        case Tone::faint:
            return "\033[2m";
        case Tone::plain:
            break;
    }
    return "";
}

}  // namespace

void complain(const std::string& sentence) {
    std::fflush(stdout);
    std::fprintf(stderr, "portisolatectl: %s\n", safeText(sentence).c_str());
}

void printLine(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

std::string toned(Tone tone, std::string_view text) {
    static const bool colour = takesColour();
    if (!colour || tone == Tone::plain || text.empty()) return std::string(text);
    return toneSequence(tone) + std::string(text) + "\033[0m";
}

size_t terminalWidth() {
    if (isatty(STDOUT_FILENO) == 0) return 0;
    const char* said = std::getenv("COLUMNS");
    uint32_t columns = 0;
    if (said != nullptr && parseGivenNumber(said, columns)) return columns;
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::string padded(std::string_view text, size_t width) {
    std::string filled(text);
    filled.append(width - std::min(width, textWidth(text)), ' ');
    return filled;
}
