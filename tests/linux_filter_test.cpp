// The Linux plane by itself, without the daemon, and the kernel's devices as they are read: in a network of
// the test's own.
#include <dlfcn.h>
#include <libmnl/libmnl.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <random>
#include <utility>

#include "host/linux/kernel_links.h"
#include "host/linux/linux_plane.h"
#include "host/planes/sim_plane.h"
#include "linux_fixture.h"

thread_local uint32_t gPortIsolateTextCategory = 0;

// Done once, when the devices have been listed.
static std::function<void()> gAfterDump;

// Stands before the library's own: a dump has a socket of its own and closes it when it is complete.
int mnl_socket_close(mnl_socket* closed) {
    static const auto close =
        reinterpret_cast<decltype(&mnl_socket_close)>(dlsym(RTLD_NEXT, "mnl_socket_close"));
    if (gAfterDump) std::exchange(gAfterDump, nullptr)();
    return close(closed);
}

// What the kernel is said to have no memory for, and how much was sent to it.
static std::function<bool(std::string_view)> gRefused;
static uint32_t gSent = 0;

ssize_t mnl_socket_sendto(const mnl_socket* socket, const void* buffer, size_t length) {
    static const auto send =
        reinterpret_cast<decltype(&mnl_socket_sendto)>(dlsym(RTLD_NEXT, "mnl_socket_sendto"));
    ++gSent;
    if (!gRefused || !gRefused({static_cast<const char*>(buffer), length}))
        return send(socket, buffer, length);
    errno = ENOMEM;
    return -1;
}

namespace {

constexpr uint32_t PORTS = 6;
constexpr uint32_t TRUNK = 7;  // of the last two ports
std::string gDevices[] = {"", "a", "b", "c", "d", "m1", "m2", "lag"};

PlanePort portOf(uint32_t number) {
    const char* name = gDevices[number].c_str();
    const bool member = number == PORTS || number == PORTS - 1;
    return {number, 1, number >= 3 && number <= 4, member, name, name, member ? gDevices[TRUNK].c_str() : "",
            ""};
}

struct TwoPlanes {
    Plane sim = createSimPlane();
    Plane real = createLinuxPlane();
    ~TwoPlanes() {
        sim.destroy(sim.state);
        real.destroy(real.state);
    }
};

bool passes(const Plane& plane, uint32_t src, uint32_t dst, uint32_t vid) {
    std::string reason;
    return plane.forwards(plane.state, portOf(src), portOf(dst), vid, reason);
}

// One command, at random, to a plane.
int32_t command(const Plane& plane, uint32_t dice) {
    const auto draw = [&dice](uint32_t sides) {
        const uint32_t drawn = dice % sides;
        dice /= sides;
        return drawn;
    };
    const uint32_t kind = draw(6);
    const uint32_t src = 1 + draw(4);
    const uint32_t dst = 1 + draw(kind == 2 || kind == 3 ? PORTS : 4);
    const uint32_t vid = draw(3) * 10;
    switch (kind) {
        case 0:
            return plane.addTwoWay(plane.state, portOf(src), portOf(dst),
                                   {static_cast<uint16_t>(vid), 0, 0, 5});
        case 1:
            return plane.deleteTwoWay(plane.state, src, dst);
        case 2:
            return plane.addOneWay(plane.state, portOf(src), portOf(dst), {});
        case 3:
            return plane.deleteOneWay(plane.state, src, dst);
        default:
            return plane.setPon(plane.state, 10 + vid % 20, kind == 4, {1});
    }
}

// Where the planes do not agree.
std::string disagreement(const TwoPlanes& planes) {
    std::string text;
    for (const uint32_t vid : {0U, 10U, 20U, 30U}) {
        for (uint32_t src = 1; src <= 4; ++src) {
            for (uint32_t dst = 1; dst <= 4; ++dst) {
                if (src == dst) continue;
                if (passes(planes.sim, src, dst, vid) == passes(planes.real, src, dst, vid)) continue;
                text += gDevices[src] + ">" + gDevices[dst] + " in " + std::to_string(vid) + " ";
            }
            const bool open = passes(planes.sim, src, PORTS, vid) && passes(planes.sim, src, PORTS - 1, vid);
            if (open != passes(planes.real, src, TRUNK, vid)) text += gDevices[src] + ">lag ";
        }
    }
    return text;
}

std::string notHeld(const Plane& plane) {
    std::string text;
    plane.inspect(plane.state, text);
    return text.find("state=missing") == std::string::npos &&
                   text.find("state=left-over") == std::string::npos
               ? ""
               : text;
}

}  // namespace

TEST(LinuxFilter, IsolatesAsTheSimulatedPlaneDoes) {
    if (const std::string problem = enterNetwork(); !problem.empty()) SKIP_FOR(problem);
    TwoPlanes planes;
    ASSERT_EQ(startLinuxPlane(planes.real, {.access = {"c", "d"}}), "");
    std::mt19937 random(7);
    for (int step = 0; step < 400; ++step) {
        const uint32_t dice = static_cast<uint32_t>(random());
        if (step % 4 == 0) planes.real.begin(planes.real.state);
        command(planes.sim, dice);
        command(planes.real, dice);
        // A port without PON isolation takes another name now and then.
        if (step % 10 == 0) {
            const uint32_t port = 1 + static_cast<uint32_t>(step) % 20 / 10;
            std::string& name = gDevices[port];
            name = name.size() > 8 ? name.substr(0, 1) : name + "+";
            EXPECT_EQ(renameLinuxPort(planes.real, port, name), 0);
        }
        if (step % 4 != 3) continue;
        planes.real.end(planes.real.state);
        ASSERT_EQ(disagreement(planes), "") << step;
        ASSERT_EQ(notHeld(planes.real), "") << step;
    }
    const PlaneCounters counters = planes.real.counters(planes.real.state);
    EXPECT_EQ(counters.accepted + counters.refused, 400U);
    // A trunk and its member are one port of the bridge, whose reflected frames are not held.
    planes.real.addOneWay(planes.real.state, portOf(TRUNK), portOf(PORTS), {});
    EXPECT_TRUE(passes(planes.real, TRUNK, TRUNK, 0));
}

// Commands of a turn are answered before the kernel has heard of all of them.
TEST(LinuxFilter, TellsWhatTheKernelRefusesBehindTheAnswers) {
    if (const std::string problem = enterNetwork(); !problem.empty()) SKIP_FOR(problem);
    TwoPlanes planes;
    const Plane& plane = planes.real;
    ASSERT_EQ(startLinuxPlane(plane, {}), "");
    const auto names = [](std::string_view text, uint32_t port) {
        return text.find(gDevices[port] + std::string(8, '\0')) != std::string_view::npos;
    };
    const auto turn = [&](bool add) {
        plane.begin(plane.state);
        const uint32_t before = gSent;
        for (const uint32_t port : {2U, 3U, 4U}) {
            EXPECT_EQ(add ? plane.addTwoWay(plane.state, portOf(1), portOf(port), {})
                          : plane.deleteTwoWay(plane.state, 1, port),
                      0);
        }
        plane.end(plane.state);
        return gSent - before;
    };
    const auto entries = [&](const std::string& state) {
        std::string text;
        plane.inspect(plane.state, text);
        return std::ranges::count_if(split(text, '\n'), [&](const std::string& line) {
            return line.find(" state=" + state) != std::string::npos;
        });
    };
    turn(true);
    EXPECT_EQ(turn(false), 2U);
    EXPECT_EQ(turn(true), 2U);
    turn(false);
    plane.begin(plane.state);
    gRefused = [](auto) { return true; };
    EXPECT_EQ(plane.addTwoWay(plane.state, portOf(1), portOf(2), {}), ENOMEM);
    plane.end(plane.state);
    gRefused = [&](std::string_view text) { return names(text, 3) && names(text, 4); };
    turn(true);
    EXPECT_EQ(entries("held"), 6);
    gRefused = [&](std::string_view text) { return names(text, 4); };
    turn(false);
    EXPECT_EQ(entries("left-over"), 2);
    EXPECT_FALSE(passes(plane, 1, 4, 0));
    gRefused = nullptr;
    uint64_t changed = 0;
    EXPECT_EQ(plane.sweep(plane.state, changed), 0);
    EXPECT_EQ(changed, 2U);
    gRefused = [&](std::string_view text) { return names(text, 4); };
    turn(true);
    EXPECT_EQ(entries("missing"), 2);
    EXPECT_TRUE(passes(plane, 1, 4, 0));
    gRefused = nullptr;
    EXPECT_EQ(plane.restore(plane.state, changed), 0);
    EXPECT_EQ(entries("held"), 6);
}

// What happens right after the devices were listed waits in the subscription.
TEST(LinuxFilter, TakesAPictureWithoutAGap) {
    if (const std::string problem = enterNetwork(); !problem.empty()) SKIP_FOR(problem);
    ASSERT_EQ(sh("ip link add early type dummy || ip link add early type veth peer name peer"), "");
    const uint32_t index = if_nametoindex("early");
    KernelLinks links;
    LinkChanges changes;
    gAfterDump = [] { EXPECT_EQ(sh("ip link set early name late"), ""); };
    mnl_socket* events = pictureLinks(links);
    ASSERT_NE(events, nullptr);
    EXPECT_EQ(links.at(index).name, "early");
    EXPECT_TRUE(takeLinkEvents(events, changes));
    EXPECT_EQ(changes.at(index)->name, "late");
    closeLinkEvents(events);
}
