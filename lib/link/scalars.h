// The daemon's single values: the scalars, the mode and the debug mask among them, and the PON isolation of
// VLANs, which is on in every VLAN where it was not switched off.
//
// Every function ends the command when the daemon does not answer, or answers what makes no sense. Those that
// answer a status leave a refusal to their caller; the others end the command over one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/scalar_names.h"
#include "lib/link/session.h"

// The id that a number, a name or its beginning stands for; any other text ends the command.
uint32_t scalarId(const std::string& text);

// The bytes of a scalar: one word, unless portIsolateScalarIsBuffer says otherwise.
std::string readScalar(Session& session, uint32_t id);
// A scalar that is one word.
uint32_t readNumber(Session& session, uint32_t id);
int32_t sendScalar(Session& session, uint32_t id, uint32_t value);

// The word is PON_ISOLATION_ON or PON_ISOLATION_OFF.
WordReply readPon(Session& session, uint32_t vlan);
int32_t sendPon(Session& session, uint32_t vlan, bool on);

// VLAN ids of a bit list: VLAN v is bit 0x80 >> (v % 8) of byte v / 8.
std::vector<uint32_t> vlansOfBitList(std::string_view bytes);
