// A policy of a file as rows: the roles that its lines give to ports, and the group numbers that it may use.
#pragma once

#include "lib/configuration/resolver.h"

// Adds the rows of a policy, for which the lines of rows are there already.
void resolvePolicy(Resolver& resolver, const ConfigLine& line);
