// What happens to the tables and the hardware when the device changes: interfaces register and go away,
// trunks gain and lose member ports, VLANs are deleted, cards come up, configuration is reset.
//
//   an event            group rows      one-way pairs            port entry    PON isolation
//                                                                and serial
//   interface registers -               those that target it     -             -
//                                       are programmed again
//   interface goes away removed         removed                  removed       -
//   ... joins a trunk   removed         removed                  removed       -
//   ... is reset        removed         those from it removed    removed       -
//   trunk gains a port  port isolated   port isolated like       -             -
//                       from fellows    its trunk
//   trunk loses a port  port released   port released            -             -
//   VLAN is deleted     -               -                        -             on in the VLAN
//   card comes up       -               -                        -             off again where it is off
//   all is reset        removed         removed                  -             on everywhere
//
// Rows of VLAN groups are left alone by all of them. A registration ends at the first pair that is refused. A
// trunk's change of members means nothing while both trunk-to-port switches are off.
//
// Rows are always removed together with their hardware. A group row whose release is refused stays in its
// table, and so does a pair; the handler goes on with the next.
//
// Thread-safety
//
// The handlers run on the event task, once for each message, with the semaphore held. Each walk takes the
// next row before it handles the one at hand; a handler removes rows of the table that it walks only through
// the row at hand.
#pragma once

#include <cstdint>

// Link messages. `message` is the message's start, `bytes` runs from the end of its header to the end of the
// datagram. Messages too short are dropped.
void portIsolateAddLinkProcess(const uint8_t* message, int32_t bytes);
int32_t portIsolateDelLinkProcess(const uint8_t* message, int32_t bytes);

int32_t portIsolateIfResetConfig(uint32_t ifUnit);
void portIsolateResetConfig();
void portIsolateCardUpProcess();
