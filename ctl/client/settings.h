// The daemon's single values: the PON isolation of VLANs, the scalars, and the two of them with a command of
// their own, the mode and the debug mask.
#pragma once

#include "ctl/client/session.h"

Exit runPonSwitch(Session& session, const Invocation& invocation);  // on and off
Exit runPonGet(Session& session, const Invocation& invocation);
Exit runPonList(Session& session, const Invocation& invocation);

Exit runModeGet(Session& session, const Invocation& invocation);
Exit runModeSet(Session& session, const Invocation& invocation);
Exit runScalarGet(Session& session, const Invocation& invocation);
Exit runScalarList(Session& session, const Invocation& invocation);
Exit runDebug(Session& session, const Invocation& invocation);

// For whoever reads or sets the configuration as a whole. `status` is the daemon's; a refused read is told.
Exit readMode(Session& session, uint32_t& mode);
Exit readPonOff(Session& session, std::vector<uint32_t>& vlans);
Exit readMaxGroups(Session& session, uint32_t& groups);
Exit sendMode(Session& session, uint32_t mode, int32_t& status);
Exit sendPon(Session& session, uint32_t vlan, bool on, int32_t& status);

// The name of a scalar, its number where it has none.
std::string scalarName(uint32_t id);
std::vector<std::string> scalarNames();

// VLAN ids of a bit list: VLAN v is bit 0x80 >> (v % 8) of byte v / 8.
std::vector<uint32_t> vlansOfBitList(std::string_view bytes);
