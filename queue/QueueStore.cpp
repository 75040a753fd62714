#include "queue/QueueStore.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"

namespace spinlane {

QueueArray gQueue;
QueueList gQueueList;
qint32 gCurrentQueueNum = 0;
QStringList gExpTitles;
QStringList gSolvents;

QueueArray::QueueArray()
    : m_items(1)
{
}

QueueItem& QueueArray::operator()(qint32 index)
{
    return const_cast<QueueItem&>(std::as_const(*this)(index));
}

const QueueItem& QueueArray::operator()(qint32 index) const
{
    if (index < 1 || index > upperBound())
        throw RuntimeError(RuntimeError::SubscriptOutOfRange);
    return m_items[std::size_t(index - 1)];
}

void QueueArray::redim(qint32 upperBound)
{
    if (upperBound < 1)
        throw RuntimeError(RuntimeError::SubscriptOutOfRange);
    m_items.assign(std::size_t(upperBound), QueueItem{});
}

void QueueArray::redimPreserve(qint32 upperBound)
{
    if (upperBound < 1)
        throw RuntimeError(RuntimeError::SubscriptOutOfRange);
    m_items.resize(std::size_t(upperBound));
}

QString experimentTitle(qint32 expTitleIndex)
{
    if (expTitleIndex < 0 || expTitleIndex >= gExpTitles.size())
        throw RuntimeError(RuntimeError::SubscriptOutOfRange);
    return gExpTitles.at(expTitleIndex);
}

void SyncQueueFromList(qint16 sortKey)
{
    const qint32 n = gQueueList.count();
    if (n == 0)
        return;
    // The records as they are, by the positions the rows' tags hold.
    std::vector<QueueItem> before;
    before.reserve(std::size_t(n));
    for (qint32 i = 1; i <= n; ++i)
        before.push_back(gQueue(i));

    gQueueList.sortByColumn(sortKey);
    if (sortKey != QueueList::QueueNumColumn)
        return;

    const std::vector<qint32> oldPositions = gQueueList.renumber();
    for (qint32 i = 1; i <= n; ++i) {
        const qint32 from = oldPositions[std::size_t(i - 1)];
        if (from < 1 || from > n)
            throw RuntimeError(RuntimeError::SubscriptOutOfRange);
        gQueue(i) = before[std::size_t(from - 1)];
    }
}

void resetQueueState()
{
    gQueue.redim(1);
    gQueueList.clear();
    gCurrentQueueNum = 0;
    gExpTitles.clear();
    gSolvents.clear();
}

} // namespace spinlane
