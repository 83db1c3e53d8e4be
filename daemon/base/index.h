// Order index: finds the rows of a table by key without walking its list.
//
// A board at its limits holds some 70,000 rows in one table, and each isolated pair asks several times for a
// row, for the place of a new one, or whether anything names an interface. The lists stay what everybody
// walks; this stands beside them and answers those questions in the logarithm of the rows.
//
// An index is a binary tree by key in which the two halves below a node differ by one level at most, whatever
// order the rows come and go in. Its nodes lie in the rows themselves and so take no memory of their own. A
// head stands above the topmost node, as the head of a list does, so that a node leaves without being told
// which index it is in. Rows of the same key keep the order of their coming.
//
// The caller holds the semaphore.
#pragma once

#include <array>
#include <cstdint>

// Up to three unsigned words, compared one after the other.
using TableKey = std::array<uint32_t, 3>;

struct IndexNode {
    IndexNode* parent;  // null in the head alone
    IndexNode* lower;   // the head's: the topmost node
    IndexNode* upper;
    TableKey key;
    uint16_t lowerLevels;  // of the half below
    uint16_t upperLevels;
};

void indexInit(IndexNode* head);
void indexInsert(IndexNode* head, IndexNode* node, const TableKey& key);
void indexRemove(IndexNode* node);

// The first node whose key is not below `key`, and the one that follows a node; null when there is none.
IndexNode* indexFrom(const IndexNode* head, const TableKey& key);
IndexNode* indexNext(const IndexNode* node);
