// What the lines of a file come to on this board: names, numbers, patterns and policies as one configuration.
// `apply`, `save`, `keep`, `status` and the start of the daemon all resolve a file here.
//
// A pattern adds rows for what matches it at this moment, and none is no mistake. Where a name and a pattern
// speak of the same row or role, the name decides.
//
// Policies are given the numbers of groups that nothing else uses, and keep what stands of them. So what is
// in force belongs to what a file is resolved against, and so does whose it is: a number with rows in it that
// are neither of the policy nor may be given up is somebody else's.
#pragma once

#include <cstdint>
#include <string>

#include "lib/configuration/resolved.h"

// The limits of the daemon as far as the file needs them. Ends the command when the daemon does not answer.
DaemonLimits readLimits(Session& session, const ConfigFile& file);

// What is wrong with names and between lines is added to file.mistakes, in the order of the places. What
// could be resolved is there all the same.
Resolution resolveConfig(Session& session, ConfigFile& file, const Standing& standing);
// Adds the mistakes of a file against a daemon that knows `maxGroups` groups.
void checkGroupNumbers(ConfigFile& file, uint32_t maxGroups);

// "policy tenants: groups 20 to 24 and 26, pairs of 3 ports"
std::string policyUseText(const PolicyUse& use);
