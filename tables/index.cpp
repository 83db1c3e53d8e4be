#include "tables/index.h"

#include <algorithm>

namespace {

bool isBelow(const TableKey& a, const TableKey& b) {
    const uint64_t highA = uint64_t{a[0]} << 32 | a[1];
    const uint64_t highB = uint64_t{b[0]} << 32 | b[1];
    return highA != highB ? highA < highB : a[2] < b[2];
}

uint32_t heightOf(const IndexNode* node) {
    return node == nullptr ? 0 : node->height;
}

void measure(IndexNode* node) {
    node->height = 1 + std::max(heightOf(node->lower), heightOf(node->upper));
}

// Puts `child` (or nothing) where `node` hangs.
void replaceAtParent(IndexNode* node, IndexNode* child) {
    IndexNode* parent = node->parent;
    (parent->lower == node ? parent->lower : parent->upper) = child;
    if (child != nullptr) child->parent = parent;
}

// Exchanges a node with its parent, keeping the order by key.
void rotateUp(IndexNode* node) {
    IndexNode* parent = node->parent;
    const bool isLower = parent->lower == node;
    replaceAtParent(parent, node);
    IndexNode*& given = isLower ? node->upper : node->lower;
    (isLower ? parent->lower : parent->upper) = given;
    if (given != nullptr) given->parent = parent;
    given = parent;
    parent->parent = node;
    measure(parent);
    measure(node);
}

// Makes the halves below a node differ by one level at most; the node that is on top then.
IndexNode* level(IndexNode* node) {
    const uint32_t lower = heightOf(node->lower);
    const uint32_t upper = heightOf(node->upper);
    if (lower <= upper + 1 && upper <= lower + 1) {
        measure(node);
        return node;
    }
    IndexNode* tall = lower > upper ? node->lower : node->upper;
    IndexNode* inner = lower > upper ? tall->upper : tall->lower;
    IndexNode* outer = lower > upper ? tall->lower : tall->upper;
    if (heightOf(inner) <= heightOf(outer)) {
        rotateUp(tall);
        return tall;
    }
    rotateUp(inner);
    rotateUp(inner);
    return inner;
}

// Levels a node below which a node came or went, and the ones above as far as their height changes.
void levelFrom(IndexNode* node) {
    while (node->parent != nullptr) {
        const uint32_t before = node->height;
        const IndexNode* top = level(node);
        if (top->height == before) return;
        node = top->parent;
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
    *node = {parent, nullptr, nullptr, key, 1};
    levelFrom(parent);
}

void indexRemove(IndexNode* node) {
    IndexNode* changed = node->parent;
    if (node->lower == nullptr || node->upper == nullptr) {
        replaceAtParent(node, node->lower != nullptr ? node->lower : node->upper);
    } else {
        // The one that follows takes its place.
        IndexNode* next = lowest(node->upper);
        changed = next->parent == node ? next : next->parent;
        replaceAtParent(next, next->upper);
        next->lower = node->lower;
        next->upper = node->upper;
        next->height = node->height;
        next->lower->parent = next;
        if (next->upper != nullptr) next->upper->parent = next;
        replaceAtParent(node, next);
    }
    levelFrom(changed);
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
