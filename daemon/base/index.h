// Order index: an AVL tree that finds the rows of a table by key without walking its list.
//
// What it is for
//
// A board at its limits holds some 70,000 rows in one table, and each isolated pair asks several times for a
// row, for the place of a new one, or whether anything names an interface. Walks follow the lists; the index
// answers those questions in time logarithmic in the rows.
//
// Why this shape
//
// An AVL tree is a binary tree by key in which the two halves below a node differ by one level at most, so
// that no order in which rows come and go makes it slow. Each node holds the levels of both halves below it,
// not their difference: a change is carried up from its place without a look at the other halves, which are
// seldom in a near cache. The nodes lie in the rows themselves and take no memory of their own. A head stands
// above the topmost node, as the head of a list does, so that a node is removed without saying which index it
// is in. Rows of the same key keep the order in which they came.
//
// Thread-safety
//
// None of its own: the caller holds the semaphore, which guards every index as it guards the tables. A node's
// key must not change while the node is in an index.
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

void indexInit(IndexNode* head);  // makes an index empty
// Behind those of the same key. The node is in no index; all of it is written.
void indexInsert(IndexNode* head, IndexNode* node, const TableKey& key);
// The node is in an index; it keeps what it holds.
void indexRemove(IndexNode* node);

// The first node whose key is not below `key`, and the one that follows a node; null when there is none.
IndexNode* indexFrom(const IndexNode* head, const TableKey& key);
IndexNode* indexNext(const IndexNode* node);
