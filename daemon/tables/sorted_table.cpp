#include "daemon/tables/sorted_table.h"

namespace {

TableIndex innerIndex;
TableIndex pairIndex;
TableIndex groupIndex;
TableIndex vlanGroupIndex;
TableIndex portIndex;

}  // namespace

TableIndex& tableIndex(const ListNode* head) {
    if (head == &gPortIsoInfo.ifInnerList) return innerIndex;
    if (head == &gPortIsoInfo.ifPairList) return pairIndex;
    if (head == &gPortIsoInfo.ifGrpList) return groupIndex;
    if (head == &gPortIsoInfo.ifVlanGrpList) return vlanGroupIndex;
    return portIndex;
}

void tableInit(ListNode* head) {
    listInit(head);
    indexInit(&tableIndex(head).byKey);
    indexInit(&tableIndex(head).byUnit);
}
