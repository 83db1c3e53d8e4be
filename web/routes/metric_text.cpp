#include "web/routes/metric_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "common/text.h"

namespace {

// In the order of MetricType.
constexpr const char* TYPES[] = {"gauge", "counter", "info", "stateset"};
constexpr const char* PLAIN_TYPES[] = {"gauge", "counter", "gauge", "gauge"};
constexpr const char* ENDINGS[] = {"", "_total", "_info", ""};

std::string escaped(const std::string& value) {
    std::string text;
    for (const char letter : safeText(value)) {
        if (letter == '\\' || letter == '"') text += '\\';
        text += letter;
    }
    return text;
}

std::string labelsText(const Labels& labels) {
    std::vector<std::string> parts;
    for (const auto& [name, value] : labels) parts.push_back(name + "=\"" + escaped(value) + "\"");
    return parts.empty() ? "" : fmt::format("{{{}}}", fmt::join(parts, ","));
}

}  // namespace

void addFamily(MetricText& metrics, const std::string& name, MetricType type, const std::string& help) {
    const auto at = static_cast<size_t>(type);
    metrics.sampled = name + ENDINGS[at];
    const std::string& announced = metrics.openMetrics ? name : metrics.sampled;
    fmt::format_to(std::back_inserter(metrics.text), "# HELP {} {}\n# TYPE {} {}\n", announced, help,
                   announced, metrics.openMetrics ? TYPES[at] : PLAIN_TYPES[at]);
}

void addSample(MetricText& metrics, double value, const Labels& labels) {
    metrics.text += fmt::format("{}{} {}\n", metrics.sampled, labelsText(labels), value);
}

void addCount(MetricText& metrics, uint64_t value, const Labels& labels) {
    metrics.text += fmt::format("{}{} {}\n", metrics.sampled, labelsText(labels), value);
}

void addGauge(MetricText& metrics, const std::string& name, const std::string& help,
              std::optional<double> value) {
    if (!value) return;
    addFamily(metrics, name, MetricType::gauge, help);
    addSample(metrics, *value);
}

void addCounter(MetricText& metrics, const std::string& name, const std::string& help, uint64_t value) {
    addFamily(metrics, name, MetricType::counter, help);
    addCount(metrics, value);
}

void addStates(MetricText& metrics, const std::string& name, const std::string& help,
               std::vector<std::string> states, const std::string& present) {
    if (std::find(states.begin(), states.end(), present) == states.end()) states.push_back(present);
    addFamily(metrics, name, MetricType::stateSet, help);
    for (const std::string& state : states) addCount(metrics, state == present ? 1 : 0, {{name, state}});
}

void endMetrics(MetricText& metrics) {
    if (metrics.openMetrics) metrics.text += "# EOF\n";
}
