// The findings of a judgement in words.
#pragma once

#include <string>
#include <vector>

#include "lib/configuration/judgement.h"

// What blocks, and what comes close, each a sentence without a point.
std::vector<std::string> reasonTexts(const Tables& tables, const Judgement& judgement);
std::vector<std::string> noteTexts(const Tables& tables, const Judgement& judgement);
// Why hardware may say otherwise.
std::string claimText(const Tables& tables, const Claim& claim);
