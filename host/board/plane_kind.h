// The kinds of forwarding planes that a description can choose by name, and where the ports of a board with
// such a plane come from. host/start/ hands the list of those that this program was built with down to the
// board; a plane of another kind is one more row there.
#pragma once

#include <cstdint>
#include <span>

#include "host/planes/plane.h"

struct Board;

// What follows the ports of a board whose description does not say which of them are there.
struct PortFollower {
    // Starts the board's plane and takes the first picture of the ports; called once, before there are other
    // tasks, without the board's lock.
    void (*start)(Board& board);
    // Starts the task that follows the ports from then on.
    void (*watch)();
    // Takes over which ports the saved configuration names; without the board's lock.
    void (*readSaved)();
    // True once every change of the ports up to now has been published; false after `timeout` milliseconds.
    bool (*settle)(uint32_t timeout);
};

struct PlaneKind {
    const char* name;              // NAME in the description's line `plane NAME`
    Plane (*create)();             // null: this program was built without it
    const PortFollower* follower;  // null: the description says which ports there are; else it names a bridge
};

// The first kind is that of a board whose description chooses none; it can always be created.
using PlaneKinds = std::span<const PlaneKind>;
