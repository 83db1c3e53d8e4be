// What differs between two boards, as JSON.
#pragma once

#include "lib/configuration/comparison.h"
#include "lib/text/listing.h"

Json comparisonAnswer(Session& session, const Comparison& comparison);
