// A recording fake of platform/: answers from a small picture of the device, writes down every call that
// reaches the hardware layer, keeps the isolations that the calls leave standing, and lets calls fail on
// demand. It also watches the daemon: a semaphore taken twice, an element freed twice or a pool out of
// balance is a test failure.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "wire/records.h"

struct FakeInterface {
    uint32_t flags = 0;
    uint32_t ability = 1;
    std::array<uint32_t, 8> location = {};
    std::vector<uint32_t> members;
};

struct Fake {
    std::map<std::string, std::string> options;
    std::map<uint32_t, FakeInterface> interfaces;  // any other number is a plain port of ability 1
    int32_t serialSender = 0;
    int32_t serialReceiver = 0;

    std::vector<std::string> calls;  // hardware calls, in words; reads of the picture are left out
    std::vector<std::string> texts;  // "debug LEVEL/CATEGORY TEXT" or "log LEVEL TEXT", line ends as they are
    std::vector<uint8_t> data;       // bytes of the last isolation, hardware or mirror command
    std::vector<uint8_t> control;    // and its control block

    // Status that a call answers instead of taking effect, 0: none. Sees every call that can fail, by name:
    // platform functions, and "pool NAME" for an element taken from a pool.
    std::function<int32_t(const std::string& call)> fault;

    std::set<std::pair<uint32_t, uint32_t>> bi;  // isolations that stand in the hardware
    std::set<std::pair<uint32_t, uint32_t>> uni;
    std::set<uint32_t> ponOff;
    std::map<std::string, int64_t> poolsInUse;
    bool semTaken = false;
    uint32_t semTakes = 0;
    void (*task)() = nullptr;                     // the event task, once created
    std::vector<std::vector<uint8_t>> datagrams;  // what the route socket still has to deliver
};

extern Fake fake;

// A fresh fake with these options and a daemon started on it; the calls and texts of the start are kept.
// Returns the status of the start.
int32_t startDaemon(const std::map<std::string, std::string>& options = {});

// Moves the calls written down so far out of the fake: all, or those that begin with one of these words.
std::vector<std::string> drainCalls(const std::vector<std::string>& words = {});

// Fails the nth call of this name (1: the next one) with a status.
void failNth(const std::string& call, uint32_t nth, int32_t status);

// Requests, as the command server makes them.
int32_t groupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp);
int32_t vlanGroupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp, uint32_t vlan);
int32_t pairSet(uint32_t rowStatus, uint32_t src, uint32_t dst);
int32_t ponSet(uint32_t vlan, uint32_t state);
int32_t groupJoin(uint32_t ifUnit, uint32_t grp);  // create and activate
int32_t vlanGroupJoin(uint32_t ifUnit, uint32_t grp, uint32_t vlan);
int32_t pairJoin(uint32_t src, uint32_t dst);

// Route messages, and their delivery to the daemon under the semaphore.
using Bytes = std::vector<uint8_t>;
Bytes linkMessage(uint16_t type, uint32_t ifUnit, uint32_t changeMask = 0, const Bytes& attributes = {});
Bytes attribute(uint16_t type, uint32_t value);
Bytes plainMessage(uint16_t type, const Bytes& payload = {});
Bytes operator+(Bytes a, const Bytes& b);  // each message padded to a multiple of 4
void deliver(const Bytes& datagram);
void runTask();  // the event task, until it has taken all of fake.datagrams

// The device of most tests: ports 1 to 9, trunk 100 of ports 21 and 22, trunk 200 of 31, 32 and 33, trunk 300
// of none, VLAN interface 1000 + v for VLANs 10, 20, 100 and 4095.
void standardDevice();
