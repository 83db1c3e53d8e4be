#include "host/services/options.h"

#include <cstring>
#include <mutex>

#include "common/files.h"
#include "common/text.h"
#include "host/services/logging.h"
#include "platform/services.h"

namespace {

constexpr char OPTION_FILE[] = "/etc/portisolate/portisolate.conf";

// What is wrong with the line, or null. Comments and blank lines are fine and have no key.
const char* readLine(std::string_view line, std::string& key, std::string& value) {
    line = trimmed(withoutComment(line));
    if (line.empty()) return nullptr;
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) return "expected KEY = VALUE";
    key = trimmed(line.substr(0, equals));
    value = trimmed(line.substr(equals + 1));
    if (key.empty() || key.find_first_of(" \t") != std::string::npos) return "expected one word before the =";
    if (value.size() > OPTION_VALUE_MAX) return "a value has at most 31 characters";
    return nullptr;
}

const Options& optionStore() {
    static const Options store = [] {
        Options options;
        const std::string path = rootedPath(OPTION_FILE);
        std::string text;
        std::string problem;
        if (readRegularFile(path, text, problem)) {
            readOptions(text, path.c_str(), options);
        } else if (!problem.empty()) {
            hostReport("the daemon does not start: {}: {}", path, problem);
            refuseStart();
        }
        return options;
    }();
    return store;
}

}  // namespace

void readOptions(std::string_view text, const char* fileName, Options& options) {
    forEachLine(text, [&](uint32_t number, std::string_view line) {
        std::string key;
        std::string value;
        const char* problem = readLine(line, key, value);
        if (problem != nullptr) {
            hostReport("{}:{}: {}", fileName, number, problem);
            ++options.rejected;
            return;
        }
        if (key.empty()) return;
        if (options.values.contains(key)) {
            hostReport("{}:{}: {} was set before; this line holds", fileName, number, key);
        }
        options.values[key] = value;
    });
}

uint32_t rejectedOptions() {
    return optionStore().rejected;
}

int32_t silOptRead(uint32_t, const char* key, uint32_t, uint32_t, uint32_t, char* buffer, uint32_t capacity) {
    const Options& store = optionStore();
    const auto found = store.values.find(key);
    if (found == store.values.end()) return 0;
    const size_t length = std::min<size_t>(found->second.size(), capacity);
    std::memcpy(buffer, found->second.data(), length);
    buffer[length] = '\0';
    return static_cast<int32_t>(length);
}
