#include "host/start/arguments.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/files.h"

namespace {

constexpr int WRONG_USE = 2;
constexpr char ARGUMENTS_FILE[] = "/proc/self/cmdline";

constexpr char USAGE[] =
    "usage: portisolate [--lenient | --check]\n"
    "\n"
    "Serves the port-isolation daemon in the foreground; `portisolatectl` configures it.\n"
    "\n"
    "  --lenient  start although lines of board.conf or portisolate.conf cannot be read, without them\n"
    "  --check    read both files and the saved configuration, report what is wrong with them, and end: "
    "with\n"
    "             status 0 if nothing is\n"
    "  --version  print the version, and end\n"
    "  --help     print this, and end\n";

[[noreturn]] void leave(std::FILE* stream, const std::string& text, int status) {
    std::fputs(text.c_str(), stream);
    std::exit(std::fflush(stream) == 0 ? status : EXIT_FAILURE);
}

void take(const std::string& word, Arguments& arguments) {
    if (word == "--help" || word == "-h") leave(stdout, USAGE, 0);
    if (word == "--version") leave(stdout, "portisolate " PORTISOLATE_VERSION "\n", 0);
    if (word == "--lenient") {
        arguments.lenient = true;
    } else if (word == "--check") {
        arguments.check = true;
    } else {
        leave(stderr, fmt::format("portisolate: no argument \"{}\"\n{}", word, USAGE), WRONG_USE);
    }
}

}  // namespace

Arguments readArguments() {
    std::string text;
    readTextFile(ARGUMENTS_FILE, text);
    Arguments arguments;
    // Each word ends with a zero; the first is the program's name.
    for (size_t at = text.find('\0'); at != std::string::npos && at + 1 < text.size();) {
        const size_t end = text.find('\0', at + 1);
        take(text.substr(at + 1, end - at - 1), arguments);
        at = end;
    }
    return arguments;
}
