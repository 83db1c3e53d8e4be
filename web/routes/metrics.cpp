#include "web/routes/metrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <tuple>
#include <utility>

#include "common/files.h"
#include "lib/answers/board_answers.h"
#include "lib/answers/plane_answer.h"
#include "lib/answers/status_answer.h"
#include "lib/link/interfaces.h"
#include "web/routes/metric_text.h"

namespace {

constexpr char TYPE_PLAIN[] = "text/plain; version=0.0.4; charset=utf-8";
constexpr char TYPE_OPEN[] = "application/openmetrics-text; version=1.0.0; charset=utf-8";

void addRows(MetricText& metrics, const Configuration& running) {
    constexpr std::pair<ConfigKind, const char*> FAMILIES[] = {
        {ConfigKind::group, "group"}, {ConfigKind::vlanGroup, "vlan-group"}, {ConfigKind::pair, "pair"}};
    std::map<std::pair<ConfigKind, bool>, uint64_t> counts;
    for (const auto& [row, active] : running.rows) ++counts[{row.kind, active}];
    addFamily(metrics, "portisolate_rows", MetricType::gauge, "Rows of the daemon's tables.");
    for (const auto& [kind, name] : FAMILIES) {
        addCount(metrics, counts[{kind, true}], {{"family", name}, {"state", "active"}});
        addCount(metrics, counts[{kind, false}], {{"family", name}, {"state", "created"}});
    }
    addCount(metrics, running.ponOff.size(), {{"family", "pon-off"}, {"state", "active"}});
}

void addEntries(MetricText& metrics, const PlaneReport& plane) {
    constexpr PlaneEntryKind KINDS[] = {PlaneEntryKind::twoWay, PlaneEntryKind::oneWay, PlaneEntryKind::pon,
                                        PlaneEntryKind::ponOff, PlaneEntryKind::span};
    addFamily(metrics, "portisolate_plane_entries", MetricType::gauge,
              "Entries of the forwarding plane: held as asked for, left over by an earlier run, or missing.");
    for (const PlaneEntryKind kind : KINDS) {
        for (const PlaneEntryState state : PLANE_ENTRY_STATES) {
            const auto count = std::count_if(
                plane.entries.begin(), plane.entries.end(),
                [=](const PlaneEntry& entry) { return entry.kind == kind && entry.state == state; });
            addCount(metrics, static_cast<uint64_t>(count),
                     {{"kind", planeKindWord(kind).key}, {"state", planeStateWord(state).key}});
        }
    }
}

// Ports by the names that the plane has for them.
using Ports = std::pair<std::string, std::string>;

// The groups that two ports were claimed for, by the names that the plane has for them.
std::map<Ports, std::string> groupsOfPorts(Session& session, const Json& hardware) {
    std::map<std::string, std::string> devices;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        devices[interface.name] = interface.device.empty() ? interface.name : interface.device;
    }
    const auto deviceOf = [&devices](const Json& name) {
        const auto found = devices.find(name.get<std::string>());
        return found != devices.end() ? found->second : name.get<std::string>();
    };
    std::map<Ports, std::string> groups;
    for (const Json& entry : hardware) {
        if (!entry.contains("group") || !entry.contains("source") || !entry.contains("target")) continue;
        const std::string from = deviceOf(entry["source"]), to = deviceOf(entry["target"]);
        groups[{from, to}] = groups[{to, from}] = entry["group"].dump();
    }
    return groups;
}

void addDrops(MetricText& metrics, const PlaneReport& plane, const std::map<Ports, std::string>& groups,
              bool pairs) {
    struct Drops {
        uint64_t packets = 0, bytes = 0;
    };
    std::map<Labels, Drops> drops;
    for (const PlaneEntry& entry : plane.entries) {
        if (!entry.packets && !entry.bytes) continue;
        const auto group = groups.find({entry.from, entry.to});
        const bool grouped = entry.kind == PlaneEntryKind::twoWay && group != groups.end();
        const std::string spanning = entry.group != 0 ? std::to_string(entry.group) : "";
        Labels labels = {{"kind", planeKindWord(entry.kind).key},
                         {"group", grouped ? group->second : spanning}};
        if (pairs) {
            labels.emplace_back("from", entry.from);
            labels.emplace_back("to", entry.to);
            labels.emplace_back("vlan", entry.vlan != 0 ? std::to_string(entry.vlan) : "");
        }
        Drops& sum = drops[labels];
        sum.packets += entry.packets.value_or(0);
        sum.bytes += entry.bytes.value_or(0);
    }
    addFamily(metrics, "portisolate_dropped_packets", MetricType::counter,
              "Packets that the forwarding plane dropped, where it counts.");
    for (const auto& [labels, sum] : drops) addCount(metrics, sum.packets, labels);
    addFamily(metrics, "portisolate_dropped_bytes", MetricType::counter,
              "Bytes that the forwarding plane dropped, where it counts.");
    for (const auto& [labels, sum] : drops) addCount(metrics, sum.bytes, labels);
}

void addSpans(MetricText& metrics, const PlaneReport& plane) {
    addFamily(metrics, "portisolate_span_carries", MetricType::gauge,
              "Whether a port that leads to other machines takes groups along.");
    for (const SpanPort& span : plane.spans) {
        addCount(metrics, span.state == SPAN_CARRIES ? 1 : 0, {{"port", span.device}});
    }
    std::map<uint32_t, uint64_t> members;
    for (const uint32_t group : spanningNumbers(plane.spanning)) members[group] = 0;
    for (const PlaneEntry& entry : plane.entries) {
        const bool inForce = entry.kind == PlaneEntryKind::span && entry.state != PlaneEntryState::missing;
        if (inForce) ++members[entry.group];
    }
    addFamily(metrics, "portisolate_span_members", MetricType::gauge,
              "Ports that members of a group on other machines do not reach.");
    for (const auto& [group, count] : members) addCount(metrics, count, {{"group", std::to_string(group)}});
}

void addCommands(MetricText& metrics, const Json& hardware) {
    for (const Json& entry : hardware) {
        if (!entry.contains("accepted") || !entry.contains("refused")) continue;
        addFamily(metrics, "portisolate_plane_commands", MetricType::counter,
                  "Commands to the forwarding plane since the daemon started.");
        addCount(metrics, entry["accepted"].get<uint64_t>(), {{"result", "accepted"}});
        addCount(metrics, entry["refused"].get<uint64_t>(), {{"result", "refused"}});
    }
}

void addPlane(MetricText& metrics, const PlaneReport& plane, size_t shortfalls) {
    addStates(metrics, "portisolate_plane_state", "State of the forwarding plane.",
              {PLANE_READY, PLANE_GONE, PLANE_CHANGED, "failed"}, plane.state);
    addEntries(metrics, plane);
    addCounter(metrics, "portisolate_plane_healed",
               "Times that the plane was put right after others changed it.", plane.healed);
    addGauge(metrics, "portisolate_plane_shortfalls",
             "Pairs of ports that are isolated in fewer VLANs than asked for.",
             static_cast<double>(shortfalls));
    addGauge(metrics, "portisolate_closed_doors", "Ports behind closed doors.",
             static_cast<double>(plane.doors.size()));
    if (!plane.doorPackets) return;
    addCounter(metrics, "portisolate_closed_door_packets", "Packets that closed doors dropped.",
               *plane.doorPackets);
}

void addPeer(MetricText& metrics, const PeerLink& link) {
    addStates(metrics, "portisolate_peer_state",
              "State of the link to the peer board; none where there is no peer.",
              {"none", "unknown", "reached", "silent", "absent", "starved", "failed", "back"}, link.state);
    if (link.root.empty()) return;
    addFamily(metrics, "portisolate_peer_requests", MetricType::counter,
              "Requests handed to the peer board since the boards were last found equal.");
    addCount(metrics, link.answered, {{"result", "answered"}});
    addCount(metrics, link.differing, {{"result", "differing"}});
    addCount(metrics, link.missed, {{"result", "missed"}});
    addCount(metrics, link.lost, {{"result", "lost"}});
    addGauge(metrics, "portisolate_peer_waiting", "Requests that wait for the peer board's answer.",
             static_cast<double>(link.waiting));
}

std::optional<double> secondsOf(const std::string& since) {
    if (since.empty()) return std::nullopt;
    return std::strtod(since.c_str(), nullptr);
}

void addStatus(MetricText& metrics, const Status& status) {
    addFamily(metrics, "portisolate_daemon", MetricType::info, "What the daemon says of itself.");
    addCount(metrics, 1,
             {{"version", status.about.version}, {"plane", status.plane.name}, {"role", status.role}});
    addGauge(metrics, "portisolate_start_time_seconds", "When the daemon started, in seconds since 1970.",
             secondsOf(status.about.since));
    addGauge(metrics, "portisolate_clients", "Clients of the daemon's command socket.", status.about.clients);
    addGauge(metrics, "portisolate_saved", "Whether there is a saved configuration.", status.saved ? 1 : 0);
    addGauge(metrics, "portisolate_pending_lines", "Lines of the saved configuration that are not in force.",
             static_cast<double>(status.pending.size()));
    addGauge(metrics, "portisolate_problems", "Sentences that `portisolatectl status` has about problems.",
             static_cast<double>(status.problems.size()));
    addPeer(metrics, status.link);
}

void addDaemon(MetricText& metrics, Session& session, const MetricsForm& form) {
    const Status status = readStatus(session);
    const Json hardware = readHardware(session).json;
    addStatus(metrics, status);
    addRows(metrics, status.running);
    addPlane(metrics, status.plane, status.plane.shortfalls.size());
    addSpans(metrics, status.plane);
    addDrops(metrics, status.plane, groupsOfPorts(session, hardware), form.pairs);
    addCommands(metrics, hardware);
}

void addHappened(MetricText& metrics, const Happened& happened) {
    addGauge(metrics, "portisolate_monitor_connected", "Whether the daemon's monitor is followed.",
             happened.connected ? 1 : 0);
    addFamily(metrics, "portisolate_requests", MetricType::counter,
              "Requests to the daemon that were seen since this program started.");
    for (const auto& [words, count] : happened.requests) {
        addCount(metrics, count, {{"object", words[0]}, {"operation", words[1]}, {"result", words[2]}});
    }
    addFamily(metrics, "portisolate_events", MetricType::counter,
              "Events that the daemon took in since this program started.");
    for (const auto& [event, count] : happened.events) addCount(metrics, count, {{"event", event}});
    addFamily(metrics, "portisolate_hardware_calls", MetricType::counter,
              "Commands of the daemon to its hardware that were seen since this program started.");
    for (const auto& [result, count] : happened.commands) addCount(metrics, count, {{"result", result}});
    addCounter(metrics, "portisolate_monitor_dropped_lines", "Lines of the monitor that were lost.",
               happened.dropped);
    if (happened.changed <= 0) return;
    addFamily(metrics, "portisolate_last_change_timestamp_seconds", MetricType::gauge,
              "When a request last set something, in seconds since 1970.");
    metrics.text += fmt::format("{} {:.3f}\n", metrics.sampled, happened.changed);
}

void addOwn(MetricText& metrics, const HttpCounts& counts) {
    addFamily(metrics, "portisolate_build", MetricType::info, "The version of this program.");
    addCount(metrics, 1, {{"version", PORTISOLATE_VERSION}});
    addGauge(metrics, "portisolate_web_connections", "Connections to this program.",
             static_cast<double>(counts.connections));
    addGauge(metrics, "portisolate_web_followers", "Connections that follow events.",
             static_cast<double>(counts.followers));
    addCounter(metrics, "portisolate_web_requests", "Requests to this program.", counts.requests);
    addCounter(metrics, "portisolate_web_evicted_connections",
               "Slow connections that were closed for others.", counts.evicted);
    addCounter(metrics, "portisolate_web_cut_off_followers", "Followers that read too slowly.",
               counts.cutOff);
}

}  // namespace

bool wantsOpenMetrics(std::string_view accept) {
    return accept.find("application/openmetrics-text") != std::string_view::npos;
}

Answer metricsAnswer(Session& session, const Happened& happened, const HttpCounts& counts,
                     const MetricsForm& form) {
    const int64_t began = monotonicMs();
    MetricText daemon{.openMetrics = form.openMetrics};
    bool up = true;
    try {
        addDaemon(daemon, session, form);
    } catch (const CommandEnds&) {
        up = false;
        daemon.text.clear();
        sessionClose(session);
    }
    MetricText metrics{.openMetrics = form.openMetrics};
    addGauge(metrics, "portisolate_up", "Whether the daemon answered.", up ? 1 : 0);
    metrics.text += daemon.text;
    addHappened(metrics, happened);
    addOwn(metrics, counts);
    addGauge(metrics, "portisolate_scrape_duration_seconds", "How long the daemon was asked for this.",
             static_cast<double>(monotonicMs() - began) / 1000);
    endMetrics(metrics);
    return textAnswer(200, form.openMetrics ? TYPE_OPEN : TYPE_PLAIN, std::move(metrics.text));
}
