#pragma once

#include "queue/QueueItem.h"
#include "queue/QueueList.h"

#include <QStringList>

#include <vector>

namespace spinlane {

// A one-based array of queue records with indexes 1 to upperBound(). It always holds at least one
// record: an empty queue is one blank record (and an empty list). An index outside the bounds is
// SubscriptOutOfRange.
class QueueArray {
public:
    QueueArray();

    qint32 upperBound() const { return qint32(m_items.size()); }
    QueueItem& operator()(qint32 index);
    const QueueItem& operator()(qint32 index) const;

    // New bounds 1 to upperBound, every record blank.
    void redim(qint32 upperBound);
    // New bounds 1 to upperBound, keeping the records that still fit.
    void redimPreserve(qint32 upperBound);

private:
    std::vector<QueueItem> m_items;
};

// The queue and its list. Row i of gQueueList shows gQueue(i): its text is i formatted "000" and
// its tag is i. Every change of order is made on the list and carried back by SyncQueueFromList.
extern QueueArray gQueue;
extern QueueList gQueueList;
extern qint32 gCurrentQueueNum; // queue number of the item being run or last run; 0 = none
extern QStringList gExpTitles; // experiment titles; the list is elements 0 .. upper bound - 1
extern QStringList gSolvents; // solvent names; the same rule

// Upper bound of a zero-based list: its size - 1 (-1 when empty).
inline qint32 upperBound(const QStringList& list) { return qint32(list.size()) - 1; }

// The title at an item's experiment index; SubscriptOutOfRange outside the array.
QString experimentTitle(qint32 expTitleIndex);

// Re-sorts the list by the column `sortKey` names (0 = queue number). For sort key 0 also
// renumbers the rows "001", "002", ... and rebuilds gQueue in row order from the rows' tags,
// which hold each row's position before the change. Ordered correctly up to 999 items: from
// 1000 on, "1000" sorts before "999" as text.
void SyncQueueFromList(qint16 sortKey);

// Back to the state of a fresh start: an empty queue and list, no current item, no lists.
void resetQueueState();

} // namespace spinlane
