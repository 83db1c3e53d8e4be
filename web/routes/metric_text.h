// Metrics as text: in the format that Prometheus has always read, and in that of OpenMetrics, which differ in
// how a family is announced and in the last line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

enum class MetricType : uint8_t { gauge, counter, info, stateSet };

struct MetricText {
    bool openMetrics = false;
    std::string text{};
    std::string sampled{};  // the name of the samples of the family that was announced last
};

using Labels = std::vector<std::pair<std::string, std::string>>;

// Announces a family; `name` comes without the ending of its type (_total, _info).
void addFamily(MetricText& metrics, const std::string& name, MetricType type, const std::string& help);
// A sample of the family that was announced last.
void addSample(MetricText& metrics, double value, const Labels& labels = {});
void addCount(MetricText& metrics, uint64_t value, const Labels& labels = {});
// A family of one sample, left out where there is no value.
void addGauge(MetricText& metrics, const std::string& name, const std::string& help,
              std::optional<double> value);
void addCounter(MetricText& metrics, const std::string& name, const std::string& help, uint64_t value);
// One sample for each of `states`, 1 for the present one, which is added where it is none of them.
void addStates(MetricText& metrics, const std::string& name, const std::string& help,
               std::vector<std::string> states, const std::string& present);
// The last line, where there is one.
void endMetrics(MetricText& metrics);
