// What `save` writes. Rows that come of patterns and policies must not be written out one by one: the file
// would say for ever what they came to once. So the lines of the former file that have patterns, and its
// policies, stay as they are, and what else runs is stated beside them.
#pragma once

#include <string>
#include <vector>

#include "lib/configuration/saved.h"

struct Rewritten {
    std::vector<std::string> lines{};
    // Why the lines that stay would not give what runs: one refusal a line, empty where they do.
    std::vector<std::string> contradictions{};
};

// Whether a line says which groups span stays as it was: all of them need none, and a board that carries no
// groups has nothing to say.
void keepSpanning(const Saved& saved, Configuration& running);
bool hasPatterns(const ConfigFile& file);
// Lines of a file without either do not stay.
Rewritten rewriteSaved(Session& session, const Saved& saved, const Configuration& running);
