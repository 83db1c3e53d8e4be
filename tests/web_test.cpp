// The real portisolate-web over a real daemon: what it answers, to whom, and what it costs others.
#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>

#include <nlohmann/json.hpp>
#include <set>

#include "ctl/commands/commands.h"
#include "e2e.h"
#include "web/routes/api.h"
#include "web/routes/embedded.h"
#include "web/routes/site.h"

namespace {

using Value = nlohmann::json;

constexpr int FOLLOWERS_MAX = 64;
constexpr int CONNECTIONS_MAX = 512;

// The part of JSON Schema that the description of the interface keeps to. A field that it does not describe
// is a mistake, for it has to be described.
struct Schemas {
    Value document;

    const Value& resolve(const Value& schema) const {
        if (!schema.contains("$ref")) return schema;
        return document.at(Value::json_pointer(schema["$ref"].get<std::string>().substr(1)));
    }

    bool hasType(const Value& value, const Value& types) const {
        for (const Value& type : types.is_array() ? types : Value::array({types})) {
            const bool number = type == "number" && value.is_number();
            const bool integer = type == "integer" && value.is_number_integer();
            if (number || integer || type == value.type_name()) return true;
        }
        return false;
    }

    // Where the value does not keep to the schema; empty where it does.
    std::string misfit(const Value& value, const Value& given, const std::string& where = "") {
        const Value& schema = resolve(given);
        if (schema.contains("oneOf")) {
            const auto fits = [&](const Value& one) { return misfit(value, one).empty(); };
            const auto count = std::count_if(schema["oneOf"].begin(), schema["oneOf"].end(), fits);
            return count == 1 ? ""
                              : where + " fits " + std::to_string(count) + " of " + schema["oneOf"].dump();
        }
        if (!hasType(value, schema.at("type"))) return where + " is " + value.dump();
        if (schema.contains("enum") && std::count(schema["enum"].begin(), schema["enum"].end(), value) == 0) {
            return where + " is " + value.dump();
        }
        for (size_t at = 0; value.is_array() && at < value.size(); ++at) {
            const std::string wrong = misfit(value[at], schema.at("items"), where + "/" + std::to_string(at));
            if (!wrong.empty()) return wrong;
        }
        return value.is_object() ? misfitOfObject(value, schema, where) : "";
    }

    std::string misfitOfObject(const Value& value, const Value& schema, const std::string& where) {
        for (const Value& name : schema.value("required", Value::array())) {
            if (!value.contains(name)) return where + " lacks " + name.dump();
        }
        for (const auto& [name, field] : value.items()) {
            const Value properties = schema.value("properties", Value::object());
            const bool described = properties.contains(name);
            if (!described && !schema.contains("additionalProperties")) return where + " has " + name;
            const std::string wrong = misfit(
                field, described ? properties[name] : schema["additionalProperties"], where + "/" + name);
            if (!wrong.empty()) return wrong;
        }
        return "";
    }
};

struct Web : EndToEnd {
    pid_t web = 0;
    int port = 0;

    // Starts portisolate-web and waits for what it prints.
    void startWeb(Texts options = {}) {
        options.insert(options.begin(), {"--listen", "127.0.0.1:0"});
        web = spawn(WEB_PROGRAM, options, "web");
        const auto told = [this] { return split(readText(root + "/web.out"), '\n'); };
        ASSERT_TRUE(eventually([&] { return !told().empty() || endsWithin(web, 0); }));
        ASSERT_FALSE(told().empty()) << readText(root + "/web.err");
        port = std::stoi(told()[0].substr(told()[0].rfind(':') + 1));
    }
    void TearDown() override {
        if (web != 0) {
            kill(web, SIGTERM);
            const Outcome outcome = outcomeOf(web, "web");
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            EXPECT_EQ(outcome.err, "");
        }
        EndToEnd::TearDown();
    }

    httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) const {
        httplib::Client client("127.0.0.1", port);
        client.set_read_timeout(20);
        return client.Get(path.c_str(), headers);
    }
    std::string text(const std::string& path, int status = 200) const {
        const httplib::Result result = get(path);
        EXPECT_TRUE(result) << path;
        if (!result) return {};
        EXPECT_EQ(result->status, status) << path << ": " << result->body;
        return result->body;
    }
    Value json(const std::string& path, int status = 200) const {
        return Value::parse(text(path, status), nullptr, false);
    }

    // A connection with these bytes sent.
    int say(const std::string& bytes) const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int little = 4096;  // that the kernel takes in for us
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &little, sizeof(little));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        [[maybe_unused]] const ssize_t put = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        return fd;
    }
    // Reads until this text has come; false at the end of the connection, and when it never comes.
    static bool await(int fd, std::string& so, const std::string& text) {
        bool ended = false;
        return eventually([&] {
                   if (so.find(text) != std::string::npos) return true;
                   const std::string byte = receive(fd, 1);
                   ended = byte.empty();
                   so += byte;
                   return ended;
               }) &&
               !ended;
    }
};

std::string asked(const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

Schemas readSchemas() {
    for (const EmbeddedFile& file : embeddedFiles()) {
        if (std::string_view(file.path).ends_with("openapi.json")) return {Value::parse(file.bytes)};
    }
    return {};
}

// Calls of each command that has --json, and the schema of what it prints.
constexpr char PRINTED[] =
    "group list: Groups|vlan-group list: VlanGroups|pair list: Pairs|pon list: Pon|pon get 10 20: Pon|"
    "mode get: Mode|scalar get pon-off-vlans: Scalar|scalar list: Scalars|debug: Debug|"
    "show global: Settings|show serial: Serials|show groups: PrintedGroups|show pairs: PrintedPairs|"
    "show inner: PrintedPairs|show ports: PrintedPorts|status: Status|matrix: Matrix|"
    "why ge1/1 pon2/1 --vlan 10: Why|why ge1/1 --remote 5-7: WhyRemote|export: Configuration|"
    "apply /dev/null --empty --dry-run: Changes|monitor request --count 1: Event|plane show: Plane|"
    "plane sweep: Count|plane restore: Count|plane open --all: Count|plane close --all: Count|"
    "board list: Interfaces|board fault list: Faults|board forward ge1/1 ge1/2 --vlan 20: Forward|"
    "board matrix --vlan 10: Matrix|board hardware: Hardware|board role: Board|board compare: Comparison|"
    "board resync --dry-run: Changes|board journal --count 1: Call|raw 3 --column 1: Reply|"
    "pair add ge1/1 ge1/1: Error";

struct Peer : EndToEnd {
    void TestBody() override {}
    // The standby board beside `active`, with a row that only it has.
    void start(EndToEnd& active) {
        SetUp();
        board += "\nrole standby\npeer " + active.root + "\n";
        EndToEnd::start();
        ctlOutput("group add 3 ge1/1 ge1/2");
        active.board += "\nrole active\npeer " + root + "\n";
    }
};

TEST_F(Web, EveryAnswerAndPrintoutKeepsToItsSchema) {
    Peer standby;
    ASSERT_NO_FATAL_FAILURE(standby.start(*this));
    start();
    ASSERT_NO_FATAL_FAILURE(startWeb());
    Schemas schemas = readSchemas();
    for (const char* line : {"group add 5 ge1/1 lag1 pon2/1", "vlan-group create 7 ge1/2 --vlan 10",
                             "pair add pon2/2 ge1/2", "pon off 20", "board fault daxIfSyncApi 9 5"}) {
        ctlOutput(line);
    }
    const std::string changes = log();
    for (const ApiRoute& route : apiRoutes()) {
        const std::string path = std::string(API_PREFIX) + route.name;
        const std::string_view called = route.name;
        const bool ends = called == "why" || called == "forward";
        const Value answer = json(path + (ends                     ? "?from=ge1/1&to=lag1&vlan=10"
                                          : called == "why-remote" ? "?groups=5,7&to=ge1/1"
                                                                   : ""));
        const Value& described = schemas.document["paths"].at(path)["get"];
        const Value& schema = described["responses"]["200"]["content"]["application/json"]["schema"];
        EXPECT_EQ(schemas.misfit(answer, schema), "") << path;
        std::set<std::string> known, told;
        for (const std::string_view name : route.parameters) known.emplace(name);
        for (const Value& one : described.value("parameters", Value::array())) told.insert(one["name"]);
        EXPECT_EQ(known, told) << path;
    }
    EXPECT_EQ(log(), changes) << "reading has changed something";
    std::set<std::string> commands;
    for (const std::string& printed : split(PRINTED, '|')) {
        const Texts parts = split(printed, ':');
        const std::string& command = parts[0];
        const pid_t program = startCtl("--json " + command, "printed");
        // What follows has something to tell once it listens.
        const bool follows = command.find("--count") != std::string::npos;
        while (follows && !endsWithin(program, 10)) ctl("mode set 2");
        const Outcome outcome = outcomeOf(program, "printed");
        EXPECT_EQ(schemas.misfit(Value::parse(outcome.out, nullptr, false),
                                 {{"$ref", "#/components/schemas/" + parts[1].substr(1)}}),
                  "")
            << command << ": " << outcome.out;
        const Texts words = split(command, ' ');
        commands.insert(words[0]);
        if (words.size() > 1) commands.insert(words[0] + " " + words[1]);
    }
    for (const Command& command : commandTable()) {
        const std::string name =
            command.object + (*command.verb != '\0' ? std::string(" ") + command.verb : "");
        EXPECT_TRUE(command.json == nullptr || commands.contains(name)) << name;
    }
}

TEST_F(Web, EventsTellWhatHappensInWords) {
    start();
    ASSERT_NO_FATAL_FAILURE(startWeb());
    Schemas schemas = readSchemas();
    const int fd = say(asked("/api/v1/events"));
    std::string stream;
    ASSERT_TRUE(await(fd, stream, "text/event-stream\r\n"));
    ASSERT_TRUE(
        eventually([&] { return text("/metrics").find("monitor_connected 1") != std::string::npos; }));
    ctlOutput("group add 5 ge1/1 ge1/2");
    ctlOutput("board unplug ge1/2");
    ASSERT_TRUE(await(fd, stream, "link ge1/2 is gone"));
    std::string rest;
    ASSERT_TRUE(await(fd, rest, "event: changed"));
    stream += rest;
    std::set<std::string> kinds;
    for (const std::string& line : split(stream, '\n')) {
        if (!line.starts_with("data: {\"")) continue;
        const Value event = Value::parse(line.substr(6));
        EXPECT_EQ(schemas.misfit(event, {{"$ref", "#/components/schemas/Event"}}), "") << line;
        kinds.insert(event["kind"].get<std::string>() + " " + event.value("operation", ""));
    }
    EXPECT_TRUE(kinds.contains("request activate") && kinds.contains("hardware ") && kinds.contains("event "))
        << stream;
    EXPECT_NE(
        stream.find(R"("operation":"create","object":"group","group":5,"source":null,"interface":"ge1/2")"),
        std::string::npos);
    // The daemon goes, and comes back.
    const size_t before = stream.size();
    stop();
    EXPECT_EQ(schemas.misfit(json("/api/v1/groups", 503), {{"$ref", "#/components/schemas/Error"}}), "");
    EXPECT_NE(text("/metrics").find("\nportisolate_up 0\n"), std::string::npos);
    EXPECT_EQ(text("/healthz"), "ok\n");
    stream.erase(0, before);
    ASSERT_TRUE(await(fd, stream, "event: changed\n"));
    start();
    EXPECT_TRUE(eventually([&] { return get("/api/v1/groups")->status == 200; }));
    close(fd);
}

// Whatever is sent: the status that answers it, 0 where the connection ends without one.
TEST_F(Web, HostileRequestsAreRefused) {
    start();
    ASSERT_NO_FATAL_FAILURE(startWeb());
    const std::string host = "Host: localhost\r\n", end = "\r\n", groups = "GET /api/v1/groups";
    std::vector<std::pair<std::string, int>> cases = {
        {asked("/api/v1/groups"), 200},
        {"HEAD /api/v1/groups HTTP/1.1\r\n" + host + end, 200},
        {groups + "?group=5 HTTP/1.1\r\nhOsT: 127.0.0.1:99\r\n" + end, 200},
        {groups + " HTTP/1.1\r\nHost: [::1]\r\n" + end, 200},
        {groups + " HTTP/1.1\r\nHost: localhost.evil.example\r\n" + end, 403},
        {groups + " HTTP/1.1\r\nHost: 127.0.0.1.evil.example:80\r\n" + end, 403},
        {groups + " HTTP/1.1\r\n" + end, 403},
        {groups + " HTTP/1.1\r\n" + host + host + end, 403},
        {"POST /api/v1/groups HTTP/1.1\r\n" + host + end, 405},
        {"OPTIONS * HTTP/1.1\r\n" + host + end, 405},
        {groups + " HTTP/1.1\r\n" + host + "Content-Length: 5\r\n" + end + "hello", 413},
        {groups + " HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\n" + end + "0\r\n\r\n", 413},
        {asked("/api/v1/why?from=" + std::string(200, 'a') + "&to=b"), 400},
        {asked("/../../etc/passwd"), 404},
        {asked("//api/v1/groups"), 404},
        {"GET / HTTP/9.9\r\n" + host + end, 400},
        {"nonsense" + end + end, 400},
        {end + end, 400},
        {std::string("GET /\0 HTTP/1.1\r\n", 17) + host + end, 400},
        {"GET /" + std::string(9000, 'a'), 400},
        {"GET / HTTP/1.1\r\n" + std::string(9000, 'a'), 400},
    };
    for (const char* wrong :
         {"groups?group=5&group=6", "groups?group=", "groups?group=99999999999", "groups?group=5%0a",
          "groups?group=%zz", "groups?frob=1", "matrix?vlan=10-20", "why?from=ge1/1", "events?kinds=all"}) {
        cases.emplace_back(asked(std::string("/api/v1/") + wrong), 400);
    }
    for (const auto& [bytes, status] : cases) {
        const int fd = say(bytes);
        std::string answer;
        EXPECT_TRUE(await(fd, answer, " ")) << bytes.substr(0, 80);
        EXPECT_EQ(receive(fd, 3), std::to_string(status)) << bytes.substr(0, 80);
        close(fd);
    }
    // Parts and packed forms of an answer are not offered; what a browser needs to be strict is.
    const httplib::Result page =
        get("/", {{"Range", "bytes=0-,0-,0-"}, {"Accept-Encoding", "gzip, br"}, {"Expect", "100-continue"}});
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Encoding"), "");
    EXPECT_EQ(page->body, embeddedFiles().front().bytes);
    EXPECT_NE(page->get_header_value("Content-Security-Policy").find("default-src 'self';"),
              std::string::npos);
    for (const char* name : {"X-Content-Type-Options", "Referrer-Policy", "Cache-Control"}) {
        EXPECT_TRUE(page->has_header(name)) << name;
    }
    for (const EmbeddedFile& file : embeddedFiles()) {
        for (const char* foreign :
             {"src=\"http", "href=\"http", "url(http", "@import", " style=\"", "<script>"}) {
            const bool html = std::string_view(file.type).starts_with("text/");
            EXPECT_TRUE(!html || file.bytes.find(foreign) == std::string_view::npos) << file.path << foreign;
        }
    }
}

TEST_F(Web, SlowAndManyHoldUpNobody) {
    start();
    ASSERT_NO_FATAL_FAILURE(startWeb());
    const size_t bare = descriptors();
    std::vector<int> held;
    // Followers that never read, while more happens than waits for one.
    for (int count = 0; count < FOLLOWERS_MAX; ++count) {
        held.push_back(say(asked("/api/v1/events?kinds=request")));
        std::string head;
        ASSERT_TRUE(await(held.back(), head, "\r\n\r\n")) << count;
    }
    const int more = say(asked("/api/v1/events"));
    std::string answer;
    EXPECT_TRUE(await(more, answer, " 503 "));
    close(more);
    // Four times as many as are served: silent, half a request, and readers of nothing.
    const std::string asks[] = {"", "GET /metrics HTTP/1.1\r\nHos", asked("/api/v1/matrix"),
                                asked("/metrics"), "\x16\x03\x01 nonsense\r\n\r\n"};
    for (int count = 0; count < 2000; ++count) {
        const int fd = say(asks[static_cast<size_t>(count) % std::size(asks)]);
        held.size() < 900 ? held.push_back(fd) : static_cast<void>(close(fd));
        if (count % 200 != 0) continue;
        const std::string metrics = text("/metrics");
        EXPECT_NE(metrics.find("portisolate_up 1"), std::string::npos) << count;
        const std::string name = "\nportisolate_web_connections ";
        EXPECT_LE(std::stoi(metrics.substr(metrics.find(name) + name.size())), CONNECTIONS_MAX) << count;
        EXPECT_EQ(ctlOutput("mode get"), "2\n") << count;
    }
    EXPECT_LE(descriptors(), bare + 8) << "of the daemon";
    // A daemon that stands still holds up those who ask it, and nobody else.
    tell(SIGSTOP);
    const int waiting = say(asked("/api/v1/status"));
    EXPECT_EQ(text("/healthz"), "ok\n");
    tell(SIGCONT);
    answer.clear();
    EXPECT_TRUE(await(waiting, answer, " 200 "));
    close(waiting);
    // A follower's bytes that wait are bounded; whoever reads stays.
    const auto cutOff = [this] {
        return text("/metrics").find("cut_off_followers_total 64\n") != std::string::npos;
    };
    const int fd = connectTo(COMMAND_SOCKET_PATH);
    const std::string look = request(OP_SCALAR_GET, SCALAR_MODE, {}, {});
    EXPECT_TRUE(eventually([&] {
        for (int count = 0; count < 2000; ++count) statusOf(fd, look);
        return cutOff();
    }));
    close(fd);
    for (const int one : held) close(one);
}

TEST_F(Web, OthersNeedAToken) {
    start();
    const std::string file = root + "/token";
    const auto vain = [this](const Texts& options) {
        const Outcome outcome = outcomeOf(spawn(WEB_PROGRAM, options, "vain"), "vain");
        return outcome.status;
    };
    std::ofstream(file) << "0123456789abcdef\n";
    std::filesystem::permissions(file, std::filesystem::perms(0644));
    EXPECT_EQ(vain({"--token-file", file}), 2);
    std::filesystem::permissions(file, std::filesystem::perms(0640));
    EXPECT_EQ(vain({"--token-file", root}), 2);
    EXPECT_EQ(vain({"--listen"}), 2);
    EXPECT_EQ(vain({"--frob"}), 2);
    EXPECT_EQ(vain({"--socket", "relative"}), 2);
    for (const char* others : {"0.0.0.0:0", "[::]:0", "localhost:0", "9757", ":0"}) {
        EXPECT_EQ(vain({"--listen", others}), 1) << others;
    }
    ASSERT_NO_FATAL_FAILURE(startWeb({"--token-file", file, "--listen", "0.0.0.0:0"}));
    EXPECT_EQ(get("/api/v1/groups")->status, 401);
    EXPECT_EQ(get("/metrics", {{"Authorization", "Bearer 0123456789abcdeX"}})->status, 401);
    EXPECT_EQ(get("/api/v1/events", {{"Authorization", "Basic 0123456789abcdef"}})->status, 401);
    EXPECT_EQ(get("/api/v1/groups", {{"Authorization", "Bearer 0123456789abcdef"}})->status, 200);
    EXPECT_EQ(get("/healthz")->status, 200);
}

TEST(WebParts, SecretsAndHosts) {
    EXPECT_TRUE(sameSecret("0123456789abcdef", "0123456789abcdef"));
    for (const char* given :
         {"", "0", "0123456789abcdeF", "0123456789abcdef0", "0123456789abcdef0123456789abcdef"}) {
        EXPECT_FALSE(sameSecret(given, "0123456789abcdef")) << given;
    }
    for (const char* host : {"", "[::1", "[::1]x", "localhost:x", "a:127.0.0.1", "127.0.0.1@evil", "[::2]"}) {
        EXPECT_FALSE(isOwnHost(host)) << host;
    }
}

}  // namespace
