// A fake of platform/ that records what the daemon asks of it, in three parts: the calls written down and
// which of them are to fail (fake_calls.cpp), a small picture of the device (fake_device.cpp), the services
// (fake_services.cpp). It watches the daemon: a semaphore taken twice, an element freed twice or a pool out
// of balance is a test failure.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

using Bytes = std::vector<uint8_t>;
using Calls = std::vector<std::string>;
using Options = std::map<std::string, std::string>;
using UnitPairs = std::set<std::pair<uint32_t, uint32_t>>;

struct FakeCalls {
    Calls calls;  // of the hardware layer, in words; reads of the picture are left out
    Calls texts;  // "debug LEVEL/CATEGORY TEXT" or "log LEVEL TEXT", line ends as they are
    Bytes data;   // of the last mirror command
    // Status that a call answers instead of taking effect, 0: none. Sees every call that can fail, by name:
    // platform functions, and "pool NAME" for an element taken from a pool.
    std::function<int32_t(const std::string& call)> fault;
};

struct FakeInterface {
    uint32_t flags = 0;
    uint32_t ability = 1;
    std::array<uint32_t, 8> location = {};
    std::vector<uint32_t> members;
};

struct FakeDevice {
    std::map<uint32_t, FakeInterface> interfaces;  // any other number is a plain port of ability 1
    int32_t serialSender = 0;
    int32_t serialReceiver = 0;
    UnitPairs bi, uni;  // isolations that the calls leave standing
    std::set<uint32_t> ponOff;
};

struct FakeServices {
    Options options;  // their keys without "portisolate."
    std::map<std::string, int64_t> poolsInUse;
    bool semTaken = false;
    uint32_t semTakes = 0;
    void (*task)() = nullptr;      // the event task, once created
    std::vector<Bytes> datagrams;  // what the route socket still has to deliver
};

struct Fake : FakeCalls, FakeDevice, FakeServices {};
inline Fake fake;

// Moves the calls written down so far out of the fake: all, or those that begin with one of these words.
Calls drainCalls(const Calls& words = {});
// Fails the nth call of this name (1: the next one; 0: none) with a status.
void failNth(const std::string& call, uint32_t nth, int32_t status);
// For the other parts. A call that is written down bears the status that it answers.
std::string words(const char* format, ...) __attribute__((format(printf, 1, 2)));
int32_t faultOf(const std::string& call);
int32_t record(std::string call, int32_t status = 0);

// The device of most tests: ports 1 to 9, trunk 100 of ports 21 and 22, trunk 200 of 31, 32 and 33, trunk 300
// of none, VLAN interface 1000 + v for VLANs 10, 20, 100 and 4095.
FakeDevice standardDevice();

void runTask();      // the event task, until it has taken all datagrams
void forgetPools();  // what a daemon that is no more has left in them
