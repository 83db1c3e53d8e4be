#include "host/board/faults.h"

#include <fmt/format.h>

#include <atomic>
#include <mutex>
#include <vector>

namespace {

constexpr size_t RULES_MAX = 256;

std::mutex gLock;  // guards gRules
std::vector<FaultRule> gRules;
std::atomic<bool> gAnyRule = false;

bool matches(const FaultRule& rule, const HardwareCall& call) {
    if (rule.call != call.name) return false;
    if (rule.key && *rule.key != call.key) return false;
    return !rule.command || *rule.command == call.command ||
           (call.record != nullptr && *rule.command == call.record->attrId);
}

}  // namespace

std::string addFaultRule(const FaultRule& rule) {
    if (!isHardwareCall(rule.call)) return "no such call of the interface and hardware layer";
    if (!rule.every && rule.nth == 0) return "calls are counted from 1";
    std::lock_guard guard(gLock);
    if (gRules.size() >= RULES_MAX) return "too many fault rules";
    gRules.push_back(rule);
    gAnyRule = true;
    return {};
}

void clearFaultRules() {
    std::lock_guard guard(gLock);
    gRules.clear();
    gAnyRule = false;
}

std::string listFaultRules() {
    std::lock_guard guard(gLock);
    std::string text;
    for (const FaultRule& rule : gRules) {
        const std::string when = rule.every ? "every" : std::to_string(rule.nth);
        text += fmt::format("{} {} status=0x{:08x}", rule.call, when, static_cast<uint32_t>(rule.status));
        if (rule.key) text += fmt::format(" if={}", *rule.key);
        if (rule.command) text += fmt::format(" command=0x{:x}", *rule.command);
        text += fmt::format(" seen={}\n", rule.seen);
    }
    return text;
}

std::optional<int32_t> faultFor(const HardwareCall& call) {
    if (!gAnyRule) return std::nullopt;
    std::lock_guard guard(gLock);
    std::optional<int32_t> answer;
    // Every matching rule counts the call; the first that fires answers it.
    std::erase_if(gRules, [&](FaultRule& rule) {
        if (!matches(rule, call)) return false;
        ++rule.seen;
        if (!rule.every && rule.seen != rule.nth) return false;
        if (!answer) answer = rule.status;
        return !rule.every;
    });
    gAnyRule = !gRules.empty();
    return answer;
}
