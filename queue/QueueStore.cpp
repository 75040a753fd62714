#include "queue/QueueStore.h"

#include "app/Conversions.h"
#include "app/RuntimeError.h"

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

namespace {

// Row texts "001", "002", ...: formatted once per number and shared by every later renumbering.
const QString& queueNumberText(qint32 number)
{
    static QStringList texts;
    while (texts.size() < number)
        texts.append(formatQueueNumber(double(texts.size() + 1)));
    return texts.at(number - 1);
}

} // namespace

void SyncQueueFromList(qint16 sortKey)
{
    const qint32 n = gQueueList.count();
    if (n == 0)
        return;
    if (n > gQueue.upperBound())
        throw RuntimeError(RuntimeError::SubscriptOutOfRange);

    gQueueList.sortByColumn(sortKey);
    if (sortKey != QueueList::QueueNumColumn)
        return;

    // The records as they were, indexed by the old positions the rows' tags still hold.
    std::vector<QueueItem> before;
    before.reserve(std::size_t(n));
    for (qint32 i = 1; i <= n; ++i)
        before.push_back(gQueue(i));

    // The rows are changed in place and reported once, also when a bad tag stops the rebuild.
    std::vector<QueueRow>& rows = gQueueList.m_rows;
    try {
        for (qint32 i = 1; i <= n; ++i)
            rows[std::size_t(i - 1)].text = queueNumberText(i);
        for (qint32 i = 1; i <= n; ++i) {
            QueueRow& row = rows[std::size_t(i - 1)];
            if (row.tag < 1 || row.tag > n)
                throw RuntimeError(RuntimeError::SubscriptOutOfRange);
            gQueue(i) = before[std::size_t(row.tag - 1)];
            row.tag = i;
        }
    } catch (...) {
        gQueueList.rowsChanged(1, n);
        throw;
    }
    gQueueList.rowsChanged(1, n);
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
