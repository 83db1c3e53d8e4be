#include "host/linux/linux_turn.h"

#include <cstring>

#include "host/linux/linux_reconcile.h"
#include "host/services/logging.h"

namespace {

constexpr size_t GATHERED_MAX = 4096;  // elements, some milliseconds of the kernel's time

// Those of the elements that the kernel refuses.
size_t refusedAlone(LinuxPlane& plane, bool add, const std::vector<FilterElement>& elements) {
    size_t refused = 0;
    for (const FilterElement& element : elements) {
        FilterChange change;
        (add ? change.add : change.del).push_back(element);
        if (commitOnce(plane, change) != 0) ++refused;
    }
    return refused;
}

}  // namespace

void beginTurn(LinuxPlane& plane) {
    plane.turn = PlaneTurn::begun;
}

void closeTurn(LinuxPlane& plane) {
    flushTurn(plane);
    plane.turn = PlaneTurn::none;
}

int32_t commitInTurn(LinuxPlane& plane, const FilterChange& change) {
    if (plane.turn != PlaneTurn::gathers) {
        const int problem = commitChange(plane, change);
        const bool said = !change.add.empty() || !change.del.empty();
        if (problem == 0 && said && plane.turn == PlaneTurn::begun) plane.turn = PlaneTurn::gathers;
        return problem;
    }
    plane.gathered.insert(change.add.begin(), change.add.end());
    plane.gathered.insert(change.del.begin(), change.del.end());
    if (plane.gathered.size() >= GATHERED_MAX) flushTurn(plane);
    return 0;
}

void flushTurn(LinuxPlane& plane) {
    if (plane.gathered.empty()) return;
    // What came and went in between is no news to the kernel.
    FilterChange change;
    for (const FilterElement& element : plane.gathered) {
        (plane.wanted.contains(element) ? change.add : change.del).push_back(element);
    }
    plane.gathered.clear();
    const int problem = commitChange(plane, change);
    if (problem == 0) return;
    if (plane.turn == PlaneTurn::gathers) plane.turn = PlaneTurn::none;
    const size_t missing = refusedAlone(plane, true, change.add);
    const size_t leftOver = refusedAlone(plane, false, change.del);
    if (missing + leftOver == 0) return;
    hostReport(
        "the kernel refused {} elements of its filter table {} after their commands were answered, {}: {} "
        "are "
        "missing until `portisolatectl plane restore`, {} are left over until `portisolatectl plane sweep`",
        missing + leftOver, FILTER_TABLE, std::strerror(problem), missing, leftOver);
}
