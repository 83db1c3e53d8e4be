// What others have done to the table: found by comparing what stands with what was laid, in words, and told.
// Nothing here changes the kernel's table; host/linux/linux_reconcile.h does.
#pragma once

#include <cstddef>
#include <string>

#include "host/linux/linux_state.h"

// Notes the elements that are gone without a command of ours, and those that have come and open something.
// `former`: what was held before.
void compareElements(LinuxPlane& plane, const FilterElements& former);
// How far the table is damaged.
void judgeTable(LinuxPlane& plane);

// Reports when the damage comes or goes, once.
void tellDamage(LinuxPlane& plane);

struct Damage {
    std::string text;
    size_t parts = 0;  // and elements
};
Damage damageOf(const LinuxPlane& plane);
// Counts one more healing, of what was damaged before it, and reports it. What is damaged again and again is
// not told each time.
void tellHealed(LinuxPlane& plane, const Damage& before);
