// What of a Linux plane is about other machines: which ports are members of groups that span machines, and
// which ports lead there and tell the groups.
//
// A port that leads to other machines tells the groups when route netlink says that it is a vxlan device with
// the group policy extension; the kernel knows it by index and name from then on, so that one which is made
// anew under the name tells nothing until it was looked at. What a member sends to a port that does not tell
// its groups is dropped.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/linux/linux_state.h"
#include "host/linux/span_devices.h"

// The functions `setMember`, `setSpanning` and `remoteForwards` of the plane's record.
int32_t linuxSetMember(void* state, const PlanePort& port, uint32_t group, uint16_t vid, bool member);
int32_t linuxSetSpanning(void* state, SpanningGroups groups);
bool linuxRemoteForwards(void* state, const PlanePort& dst, SpanningGroups groups, uint32_t vid,
                         std::string& reason);

// Before the table is laid.
void beginSpan(LinuxPlane& plane, const std::vector<std::string>& devices);
// Takes over, before anything is asked for, which ports carried groups for an earlier run.
void adoptCarriers(LinuxPlane& plane);
// What has become of the devices; what the kernel refuses of it is reported.
void followSpan(LinuxPlane& plane, const SpanDevices& devices);
// Says once that such an isolation holds on this machine only.
void noteOwnMachine(LinuxPlane& plane, bool twoWay, uint32_t group);

// Why a frame that has come in by `src` does not leave by `dst` for want of a carrier; empty when it does.
std::string spanCause(const LinuxPlane& plane, const PlanePort& src, const PlanePort& dst);
// Appends the lines `spanning` and `span` of an inspection.
void inspectSpan(const LinuxPlane& plane, std::string& text);
