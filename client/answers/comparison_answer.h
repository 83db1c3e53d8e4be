// What differs between two boards, as JSON.
#pragma once

#include "client/configuration/comparison.h"
#include "client/text/listing.h"

Json comparisonAnswer(Session& session, const Comparison& comparison);
