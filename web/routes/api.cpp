#include "web/routes/api.h"

#include <algorithm>

#include "common/scalar_names.h"
#include "lib/answers/board_answers.h"
#include "lib/answers/comparison_answer.h"
#include "lib/answers/explanation.h"
#include "lib/answers/matrix_answer.h"
#include "lib/answers/plane_answer.h"
#include "lib/answers/printout_answers.h"
#include "lib/answers/row_answers.h"
#include "lib/answers/scalar_answers.h"
#include "lib/answers/status_answer.h"
#include "lib/configuration/configuration.h"
#include "lib/link/interfaces.h"
#include "web/routes/parameters.h"

namespace {

template <const RowFamily& FAMILY>
Json rowsRoute(Session& session, const Parameters& parameters) {
    const uint32_t vlan = parameterVlan(parameters);
    const std::string source = parameterText(parameters, "source");
    const RowScope scope = {
        source.empty() ? parameterNumber(parameters, "group") : resolveInterface(session, source), vlan};
    std::vector<Row> rows = collectRows(session, FAMILY, scope.number != 0 ? &scope : nullptr);
    std::erase_if(rows, [=](const Row& row) { return vlan != 0 && row.scope.vlan != vlan; });
    return listingJson(rowListing(session, FAMILY, rows));
}

Json ponRoute(Session& session, const Parameters&) {
    return listingJson(ponOffListing(session));
}

Json configurationRoute(Session& session, const Parameters&) {
    return configLines(session, readRunning(session));
}

Json scalarsRoute(Session& session, const Parameters&) {
    return listingJson(scalarListing(session, scalarIds()));
}

Json statusRoute(Session& session, const Parameters&) {
    return statusAnswer(readStatus(session));
}

Json planeRoute(Session& session, const Parameters&) {
    return planeAnswer(readWholePlane(session));
}

Json interfacesRoute(Session& session, const Parameters&) {
    return listingJson(interfaceListing(listInterfaces(session)));
}

Json boardRoute(Session& session, const Parameters&) {
    return {{"role", readRole(session)}};
}

Json hardwareRoute(Session& session, const Parameters&) {
    return readHardware(session).json;
}

Json peerRoute(Session& session, const Parameters&) {
    return peerAnswer(readPeerLink(session));
}

Json comparisonRoute(Session& session, const Parameters&) {
    PeerSession peer;
    openPeer(session, peer);
    return comparisonAnswer(session, compareBoards(session, peer.session));
}

Json matrixRoute(Session& session, const Parameters& parameters) {
    return matrixAnswer(readMatrix(session, parameterVlan(parameters)), isSimulated(session));
}

// Of the two interfaces that `from` and `to` name.
struct Ends {
    uint32_t from, to, vlan;
};

Ends endsOf(Session& session, const Parameters& parameters) {
    const uint32_t from = resolveInterface(session, requiredText(parameters, "from"));
    return {from, resolveInterface(session, requiredText(parameters, "to")), parameterVlan(parameters)};
}

Json whyRoute(Session& session, const Parameters& parameters) {
    const Ends ends = endsOf(session, parameters);
    return explanationAnswer(explain(session, ends.from, ends.to, ends.vlan));
}

Json whyRemoteRoute(Session& session, const Parameters& parameters) {
    const uint32_t to = resolveInterface(session, requiredText(parameters, "to"));
    const SpanningGroups groups = groupsArgument(requiredText(parameters, "groups"));
    return remoteAnswer(explainRemote(session, to, groups, parameterVlan(parameters)));
}

Json forwardRoute(Session& session, const Parameters& parameters) {
    const Ends ends = endsOf(session, parameters);
    return forwardAnswer(session, ends.from, ends.to, ends.vlan,
                         askForward(session, ends.from, ends.to, ends.vlan));
}

constexpr char SHOW_GLOBAL[] = "global", SHOW_SERIAL[] = "serial", SHOW_GROUPS[] = "groups";
constexpr char SHOW_PAIRS[] = "pairs", SHOW_INNER[] = "inner", SHOW_PORTS[] = "ports";

template <const char* NAME>
Json showRoute(Session& session, const Parameters&) {
    const Printout& printout = *findPrintout(NAME);
    return printout.answer(session, readPrintout(session, printout));
}

const ApiRoute ROUTES[] = {
    {"groups", rowsRoute<GROUP_ROWS>, {"group"}},
    {"vlan-groups", rowsRoute<VLAN_GROUP_ROWS>, {"group", "vlan"}},
    {"pairs", rowsRoute<PAIR_ROWS>, {"source"}},
    {"pon", ponRoute},
    {"configuration", configurationRoute},
    {"scalars", scalarsRoute},
    {"status", statusRoute},
    {"plane", planeRoute},
    {"interfaces", interfacesRoute},
    {"board", boardRoute},
    {"hardware", hardwareRoute},
    {"peer", peerRoute},
    {"comparison", comparisonRoute},
    {"matrix", matrixRoute, {"vlan"}},
    {"why", whyRoute, {"from", "to", "vlan"}},
    {"why-remote", whyRemoteRoute, {"groups", "to", "vlan"}},
    {"forward", forwardRoute, {"from", "to", "vlan"}},
    {"show/global", showRoute<SHOW_GLOBAL>},
    {"show/serial", showRoute<SHOW_SERIAL>},
    {"show/groups", showRoute<SHOW_GROUPS>},
    {"show/pairs", showRoute<SHOW_PAIRS>},
    {"show/inner", showRoute<SHOW_INNER>},
    {"show/ports", showRoute<SHOW_PORTS>},
};

}  // namespace

std::span<const ApiRoute> apiRoutes() {
    return ROUTES;
}

const ApiRoute* findApiRoute(std::string_view path) {
    if (!path.starts_with(API_PREFIX)) return nullptr;
    const std::string_view name = path.substr(API_PREFIX.size());
    const auto* const found = std::find_if(std::begin(ROUTES), std::end(ROUTES),
                                           [=](const ApiRoute& route) { return route.name == name; });
    return found != std::end(ROUTES) ? found : nullptr;
}
