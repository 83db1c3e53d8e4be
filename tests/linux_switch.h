// A switch of the kernel with a host on every port, to see with real frames who reaches whom. It lives in a
// network namespace of its own, which ends with the programs and sockets in it: the bridge br0, for each host
// a pair of virtual Ethernet devices, one end a port of the bridge (or a member of a bond that is one), the
// other end the host, which is nothing but a packet socket.
//
// That a frame does not arrive is never a matter of time: the host `w`, which must reach everybody and be
// reached by everybody, sends a frame after it through the same queues, and where that has arrived, nothing
// older is on its way.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

inline constexpr char BRIDGE[] = "br0";
inline constexpr char WITNESS[] = "w";

struct SwitchHost {
    std::vector<int> sockets;  // one on each of its ends; what it sends leaves by all of them
    uint16_t access = 0;       // the VLAN that its port takes the tag off; 0: it sends and hears tags itself
    uint32_t streams = 0;      // frames of streams that came and were not asked for yet
    std::set<uint8_t> senders{};  // of these, by the end of their address
};

struct LinuxSwitch {
    std::map<std::string, SwitchHost> hosts;  // by the name of their port
};

// Runs a shell command. Nothing, or what a failed one printed.
std::string sh(const std::string& command);

// Leaves this thread, and what it starts, alone in a new network. Nothing, or what is in the way of that.
std::string enterNetwork();

// Nothing, or what failed.
std::string buildSwitch(LinuxSwitch& network, const std::vector<std::string>& ports,
                        const std::string& bridgeOptions = "");
// Makes a virtual cable from PORT, which is not in the bridge yet, to hPORT, an end of the host.
std::string addEnd(LinuxSwitch& network, const std::string& host, const std::string& port);
std::string addHost(LinuxSwitch& network, const std::string& port);
int openEnd(const std::string& device);  // a packet socket, or -1
void deleteHost(LinuxSwitch& network, const std::string& port);
void dropSwitch(LinuxSwitch& network);  // what the process holds of it

// The pairs of hosts where nothing arrives, as "p1>p2 p2>p1", in frames of this VLAN (0: untagged). A pair
// that differs in unicast and broadcast bears the kind that does not arrive, as "p1>p2(unicast)".
std::string blocked(LinuxSwitch& network, uint16_t vid = 0);

// Whether a host whose port reflects frames hears its own.
bool hearsItself(LinuxSwitch& network, const std::string& host, uint16_t vid);

// Tags of a frame, the outer one first.
struct FrameTag {
    uint16_t protocol, vid;
    auto operator<=>(const FrameTag&) const = default;
};
using TagStack = std::vector<FrameTag>;
// Which frames to everybody, each with the tags of one stack, get from one host to another. The witness
// reaches the latter with untagged frames.
std::set<TagStack> passing(LinuxSwitch& network, const std::string& from, const std::string& to,
                           const std::set<TagStack>& stacks);

// Frames of a stream from one host to all others, to each and to all at once, and how many of streams have
// come to a host since it was last asked.
void sendStream(const LinuxSwitch& network, const std::string& from);
uint32_t heardOfStreams(LinuxSwitch& network, const std::string& host);
// Who has sent these since it was last asked, as "p1 p2".
std::string streamsFrom(LinuxSwitch& network, const std::string& host);
std::string streamFrame(const LinuxSwitch& network, const std::string& from, const std::string& to);
