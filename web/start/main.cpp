// portisolate-web: metrics, an interface for programs and a page of what the daemon holds. It reads, through
// the daemon's sockets, and changes nothing.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>

#include "common/text.h"
#include "web/routes/site.h"
#include "web/start/options.h"

namespace {

constexpr int EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2;

constexpr char USAGE[] =
    "usage: portisolate-web [--listen ADDRESS:PORT | --socket PATH] [--token-file FILE]\n"
    "\n"
    "Serves metrics, JSON and a page of what the port-isolation daemon holds. It only reads.\n"
    "\n"
    "  --listen ADDRESS:PORT  where to listen, 127.0.0.1:9757 by default; an address that others\n"
    "                         reach needs --token-file\n"
    "  --socket PATH          listen at a local socket instead, such as behind a reverse proxy\n"
    "  --token-file FILE      whoever asks has to show the token that the file's first line is\n"
    "  --help, --version\n";

HttpServer* gServer = nullptr;  // that a signal stops

void complain(const std::string& sentence) {
    std::fprintf(stderr, "portisolate-web: %s\n", safeText(sentence).c_str());
}

// Ends the server on a request to end.
void heedSignals(HttpServer& server) {
    gServer = &server;
    struct sigaction action {};
    action.sa_handler = [](int) { stopServer(*gServer); };
    for (const int signal : {SIGTERM, SIGINT}) sigaction(signal, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

bool startListening(Site& site, const WebOptions& options) {
    std::string problem;
    site.server.listener = listenAt(options.address, problem);
    if (site.server.listener < 0) {
        complain("cannot listen at " + options.address + ": " + problem);
        return false;
    }
    if (!isLoopback(site.server.listener) && options.token.empty()) {
        complain("others reach " + options.address +
                 ": give a --token-file, or listen at 127.0.0.1 behind a reverse proxy");
        return false;
    }
    site.token = options.token;
    site.checksHost = isLoopback(site.server.listener) && !options.address.starts_with('/');
    return openServer(site.server);
}

int run(const WebOptions& options) {
    const auto site = std::make_unique<Site>();
    HttpServer& server = site->server;
    if (!startListening(*site, options)) return EXIT_FAILED;
    heedSignals(server);
    site->follower.publish = [&server](const std::string& kind, const std::string& json) {
        publish(server, kind, json);
    };
    site->follower.publishChange = [&server] { publishChange(server); };
    const DeliverAnswer hand = [&server](const std::vector<uint64_t>& connections, const Answer& answer) {
        deliver(server, connections, answer);
    };
    startFollower(site->follower);
    startLane(site->common, hand);
    startLane(site->chosen, hand);
    const std::string bound = boundAddress(server.listener);
    std::printf("listening at %s\n", bound.c_str());
    std::fflush(stdout);
    serve(server, [&site](const Asked& asked) { return react(*site, asked); });
    stopLane(site->common);
    stopLane(site->chosen);
    stopFollower(site->follower);
    if (bound.starts_with('/')) unlink(bound.c_str());
    return EXIT_DONE;
}

}  // namespace

int main(int argc, char** argv) {
    std::string problem;
    const auto options = readOptions({argv + (argc > 0 ? 1 : 0), argv + argc}, problem);
    if (!options) {
        complain(problem + "; `portisolate-web --help` tells more");
        return EXIT_USAGE;
    }
    if (options->help) std::fputs(USAGE, stdout);
    if (options->version) std::puts("portisolate-web " PORTISOLATE_VERSION);
    return options->help || options->version ? EXIT_DONE : run(*options);
}
