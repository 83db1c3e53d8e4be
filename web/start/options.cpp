#include "web/start/options.h"

#include <sys/stat.h>

#include "common/files.h"
#include "common/text.h"

namespace {

constexpr size_t TOKEN_MIN = 16;  // characters
constexpr size_t TOKEN_MAX = 512;

// The first word of a file that nobody else may read.
bool readToken(const std::string& path, std::string& token, std::string& problem) {
    std::string text;
    struct stat status {};
    if (!readRegularFile(path, text, problem)) {
        problem = path + ": " + (problem.empty() ? "there is no such file" : problem);
        return false;
    }
    if (stat(path.c_str(), &status) != 0 || (status.st_mode & S_IRWXO) != 0) {
        problem = path + ": everybody may read it: chmod o= " + path;
        return false;
    }
    token = std::string(trimmed(text.substr(0, text.find('\n'))));
    if (token.size() >= TOKEN_MIN && token.size() <= TOKEN_MAX && safeText(token) == token) return true;
    problem = path + ": its first line has to be a token of 16 to 512 characters";
    return false;
}

}  // namespace

std::optional<WebOptions> readOptions(const std::vector<std::string>& words, std::string& problem) {
    WebOptions options;
    for (size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        if (word == "--help" || word == "-h") {
            options.help = true;
            continue;
        }
        if (word == "--version") {
            options.version = true;
            continue;
        }
        const bool known = word == "--listen" || word == "--socket" || word == "--token-file";
        if (!known || at + 1 == words.size()) {
            problem = known ? word + " needs a word behind it" : "unknown option \"" + word + "\"";
            return std::nullopt;
        }
        const std::string& value = words[++at];
        if (word == "--token-file") {
            if (!readToken(value, options.token, problem)) return std::nullopt;
        } else if ((word == "--socket") != value.starts_with('/')) {
            problem = word == "--socket" ? "--socket takes a path that begins with /"
                                         : "--listen takes ADDRESS:PORT";
            return std::nullopt;
        } else {
            options.address = value;
        }
    }
    return options;
}
