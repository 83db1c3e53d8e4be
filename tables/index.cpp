#include "tables/index.h"

namespace {

bool isBelow(const TableKey& a, const TableKey& b) {
    const uint64_t highA = uint64_t{a[0]} << 32 | a[1];
    const uint64_t highB = uint64_t{b[0]} << 32 | b[1];
    return highA != highB ? highA < highB : a[2] < b[2];
}

// Neighbouring keys must have ranks that have nothing to do with one another.
uint32_t rankOf(const TableKey& key) {
    uint32_t hash = 0;
    for (const uint32_t word : key) {
        hash = (hash ^ word) * 0x85EBCA6Bu;
        hash = (hash ^ hash >> 13) * 0xC2B2AE35u;
        hash ^= hash >> 16;
    }
    return hash;
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
}

}  // namespace

void indexInit(IndexNode* head) {
    *head = {};
    head->rank = UINT32_MAX;  // nothing ranks above it
}

void indexInsert(IndexNode* head, IndexNode* node, const TableKey& key) {
    IndexNode* parent = head;
    IndexNode** place = &head->lower;
    while (*place != nullptr) {
        parent = *place;
        place = isBelow(key, parent->key) ? &parent->lower : &parent->upper;
    }
    *place = node;
    *node = {parent, nullptr, nullptr, key, rankOf(key)};
    while (node->parent->rank < node->rank) rotateUp(node);
}

void indexRemove(IndexNode* node) {
    while (node->lower != nullptr && node->upper != nullptr) {
        rotateUp(node->lower->rank < node->upper->rank ? node->upper : node->lower);
    }
    replaceAtParent(node, node->lower != nullptr ? node->lower : node->upper);
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
    if (node->upper != nullptr) {
        IndexNode* next = node->upper;
        while (next->lower != nullptr) next = next->lower;
        return next;
    }
    IndexNode* parent = node->parent;
    while (parent->upper == node) {
        node = parent;
        parent = parent->parent;
    }
    return parent->parent == nullptr ? nullptr : parent;
}
