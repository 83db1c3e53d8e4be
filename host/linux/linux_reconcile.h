// Brings the kernel to what was asked of the Linux plane, and keeps up with what it holds.
//
// What the kernel holds is read once, and changed here along with every transaction. The filter numbers the
// transactions of all processes: as long as the number is the one expected, nobody else has changed the
// filter, and what was read still holds.
//
// Everything returns 0 or an errno value, the kernel's own where it answered.
#pragma once

#include <cstdint>
#include <vector>

#include "host/linux/linux_state.h"

// Counts an element as needed once more, or once less, and puts into `change` what that takes. An element
// that is there already is added again, too: that changes nothing, and holds where somebody else has taken it
// away unseen.
void want(LinuxPlane& plane, const FilterElement& element, FilterChange& change);
void unwant(LinuxPlane& plane, const FilterElement& element, FilterChange& change);

// Reads anew what the kernel holds, always or when somebody else has changed the filter, compares it with
// what was laid, and reports when that is no longer, or again, the same.
int refresh(LinuxPlane& plane);
int refreshIfChanged(LinuxPlane& plane);

// One transaction: all of it or nothing.
int commitOnce(LinuxPlane& plane, const FilterChange& change);
// The same, tried again when it was refused for what others have done meanwhile.
int commitChange(LinuxPlane& plane, const FilterChange& change);
// Adds, or deletes, any number of elements in transactions of a size that a socket takes; `changed` counts
// those that were committed.
int32_t commitElements(LinuxPlane& plane, bool add, const std::vector<FilterElement>& elements,
                       uint64_t& changed);

// Lays the table for the first time: what an earlier run has left in it stays in force all the while, under
// whatever frame mark and in whatever layout it stands there.
int layFirst(LinuxPlane& plane);
// Lays the table for this layout, with what stands in its sets.
int layLayout(LinuxPlane& plane, const FilterLayout& layout);
// Takes away the rules of kinds that are not in use any more.
void trimTable(LinuxPlane& plane);

// Brings the kernel to what the records say, additions first. What is left over stays, except for what the
// ports are: that is for the description and the bridge to say, whatever an earlier run has left.
int32_t reconcile(LinuxPlane& plane);
