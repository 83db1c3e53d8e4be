#include "daemon/base/index.h"

#include <algorithm>

namespace {

bool isBelow(const TableKey& a, const TableKey& b) {
    const uint64_t highA = uint64_t{a[0]} << 32 | a[1];
    const uint64_t highB = uint64_t{b[0]} << 32 | b[1];
    return highA != highB ? highA < highB : a[2] < b[2];
}

uint16_t levelsOf(const IndexNode* node) {
    return static_cast<uint16_t>(1 + std::max(node->lowerLevels, node->upperLevels));
}

// Puts `child` (or nothing) where `node` hangs.
void replaceAtParent(const IndexNode* node, IndexNode* child) {
    IndexNode* parent = node->parent;
    (parent->lower == node ? parent->lower : parent->upper) = child;
    if (child != nullptr) child->parent = parent;
}

// Exchanges a node with its parent, keeping the order by key.
void rotateUp(IndexNode* node) {
    IndexNode* parent = node->parent;
    replaceAtParent(parent, node);
    const bool isLower = parent->lower == node;
    IndexNode* given = isLower ? node->upper : node->lower;
    if (isLower) {
        parent->lower = given;
        parent->lowerLevels = node->upperLevels;
        node->upper = parent;
        node->upperLevels = levelsOf(parent);
    } else {
        parent->upper = given;
        parent->upperLevels = node->lowerLevels;
        node->lower = parent;
        node->lowerLevels = levelsOf(parent);
    }
    if (given != nullptr) given->parent = parent;
    parent->parent = node;
}

// Rotates until the halves below a node differ by one level at most; returns the node that is then on top.
IndexNode* level(IndexNode* node) {
    if (node->lowerLevels > node->upperLevels + 1) {
        IndexNode* top = node->lower;
        if (top->upperLevels > top->lowerLevels) rotateUp(top = top->upper);
        rotateUp(top);
        return top;
    }
    if (node->upperLevels > node->lowerLevels + 1) {
        IndexNode* top = node->upper;
        if (top->lowerLevels > top->upperLevels) rotateUp(top = top->lower);
        rotateUp(top);
        return top;
    }
    return node;
}

// Records that a half below a node now has so many levels, and rebalances upwards until a level is unchanged.
// The other halves are not touched: they are seldom in a near cache.
void carryUp(IndexNode* node, bool lowerHalf, uint16_t levels) {
    while (node->parent != nullptr) {
        const uint16_t before = levelsOf(node);
        (lowerHalf ? node->lowerLevels : node->upperLevels) = levels;
        const IndexNode* top = level(node);
        levels = levelsOf(top);
        if (levels == before) return;
        node = top->parent;
        lowerHalf = node->lower == top;
    }
}

IndexNode* lowest(IndexNode* node) {
    while (node->lower != nullptr) node = node->lower;
    return node;
}

}  // namespace

void indexInit(IndexNode* head) {
    *head = {};
}

void indexInsert(IndexNode* head, IndexNode* node, const TableKey& key) {
    IndexNode* parent = head;
    IndexNode** place = &head->lower;
    while (*place != nullptr) {
        parent = *place;
        place = isBelow(key, parent->key) ? &parent->lower : &parent->upper;
    }
    *place = node;
    *node = {parent, nullptr, nullptr, key, 0, 0};
    carryUp(parent, parent->lower == node, 1);
}

void indexRemove(IndexNode* node) {
    IndexNode* changed = node->parent;
    bool lowerHalf = changed->lower == node;
    uint16_t levels = std::max(node->lowerLevels, node->upperLevels);
    if (node->lower == nullptr || node->upper == nullptr) {
        replaceAtParent(node, node->lower != nullptr ? node->lower : node->upper);
    } else {
        // The node that follows takes its place.
        IndexNode* next = lowest(node->upper);
        lowerHalf = next->parent != node;
        changed = lowerHalf ? next->parent : next;
        levels = next->upperLevels;
        replaceAtParent(next, next->upper);
        next->lower = node->lower;
        next->upper = node->upper;
        next->lowerLevels = node->lowerLevels;
        next->upperLevels = node->upperLevels;
        next->lower->parent = next;
        if (next->upper != nullptr) next->upper->parent = next;
        replaceAtParent(node, next);
    }
    carryUp(changed, lowerHalf, levels);
}

IndexNode* indexFrom(const IndexNode* head, const TableKey& key) {
    IndexNode* found = nullptr;
    for (IndexNode* node = head->lower; node != nullptr;) {
        const bool below = isBelow(node->key, key);
        if (!below) found = node;
        node = below ? node->upper : node->lower;
    }
    return found;
}

IndexNode* indexNext(const IndexNode* node) {
    if (node->upper != nullptr) return lowest(node->upper);
    IndexNode* parent = node->parent;
    while (parent->upper == node) {
        node = parent;
        parent = parent->parent;
    }
    return parent->parent == nullptr ? nullptr : parent;
}
