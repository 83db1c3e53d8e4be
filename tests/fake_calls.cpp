#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "platform/services.h"
#include "tests/fake_platform.h"

std::string words(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

int32_t faultOf(const std::string& call) {
    return fake.fault ? fake.fault(call) : 0;
}

int32_t record(std::string call, int32_t status) {
    if (status != 0) call += words(" = %d", status);
    fake.calls.push_back(std::move(call));
    return status;
}

Calls drainCalls(const Calls& words) {
    Calls calls = std::exchange(fake.calls, {});
    std::erase_if(calls, [&](const std::string& call) {
        const auto begins = [&](const std::string& word) { return call.starts_with(word); };
        return !words.empty() && std::none_of(words.begin(), words.end(), begins);
    });
    return calls;
}

void failNth(const std::string& call, uint32_t nth, int32_t status) {
    fake.fault = [=, left = nth](const std::string& name) mutable {
        return name != call || left == 0 || --left != 0 ? 0 : status;
    };
}

namespace {

void keepText(const char* channel, uint32_t source, const char* format, const char* text) {
    EXPECT_STREQ(format, "%s");
    EXPECT_EQ(source >> 16, 1003u);
    const std::string category = gPortIsolateTextCategory == 0 ? "" : words("/%u", gPortIsolateTextCategory);
    fake.texts.push_back(words("%s %u%s ", channel, source & 0xFFFF, category.c_str()) + text);
}

}  // namespace

void loggingDebugOutput(uint32_t source, uint32_t, uint32_t, const char* format, ...) {
    va_list args;
    va_start(args, format);
    keepText("debug", source, format, va_arg(args, const char*));
    va_end(args);
}

void loggingLogOutput(uint32_t source, uint32_t, uint32_t, const char* format, ...) {
    va_list args;
    va_start(args, format);
    keepText("log", source, format, va_arg(args, const char*));
    va_end(args);
}
