// What the forwarding plane holds, as a listing and as JSON.
#pragma once

#include "lib/link/plane.h"
#include "lib/text/listing.h"

// How a kind or a state is shown and what it is called in JSON.
struct PlaneWord {
    const char* text;
    const char* key;
    Tone tone = Tone::plain;
};

inline constexpr PlaneEntryState PLANE_ENTRY_STATES[] = {PlaneEntryState::held, PlaneEntryState::leftOver,
                                                         PlaneEntryState::missing};
PlaneWord planeStateWord(PlaneEntryState state);
PlaneWord planeKindWord(PlaneEntryKind kind);

// With what is isolated in fewer VLANs than was asked for.
PlaneReport readWholePlane(Session& session);
Listing entryListing(const PlaneReport& report);
Json planeAnswer(const PlaneReport& report);
