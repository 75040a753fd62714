#include "status/RunStatus.h"

#include "core/Conversions.h"
#include "core/Seams.h"
#include "queue/QueueStore.h"
#include "runner/RunControls.h"
#include "runner/RunHistory.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

QStringList rowColumns(qint32 row)
{
    const QueueRow& r = gQueueList.row(row);
    QStringList columns{r.text};
    for (const QString& subItem : r.subItems)
        columns.append(subItem);
    return columns;
}

// A number shown in the list; a text that holds none, or one past 32 bits, is 0.
qint32 shownNumber(const QString& text)
{
    const double value = leadingNumber(text);
    return std::abs(value) < 2147483648.0 ? qint32(value) : 0;
}

qint32 queueNumberOf(const QStringList& columns)
{
    return shownNumber(columns[QueueList::QueueNumColumn]);
}

// A run that has not returned is running, even when Stop already changed the caption.
QString runStateNow()
{
    const QString caption = gRunControls.startQueueCaption();
    if (gRunControls.runUnderWay() || caption == kStopCaption)
        return u"running"_s;
    if (caption == kContinueCaption)
        return u"stopped"_s;
    return caption == kRunAgainCaption ? u"finished"_s : u"idle"_s;
}

} // namespace

RunStatus::RunStatus(QObject* parent)
    : QObject(parent)
    , m_runState(runStateNow())
{
    connect(&gQueueList, &QAbstractItemModel::dataChanged, this,
            [this](const QModelIndex& first, const QModelIndex& last) {
                rowsChanged(first.row(), last.row());
            });
    for (auto reshaped : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(&gQueueList, reshaped, this, &RunStatus::listReshaped);
    connect(&gQueueList, &QAbstractItemModel::modelReset, this, &RunStatus::listReshaped);
    connect(&gQueueList, &QAbstractItemModel::layoutChanged, this, &RunStatus::listReshaped);
    connect(&gRunControls, &RunControls::changed, this, &RunStatus::runControlsChanged);
    m_queueChanged.setSingleShot(true);
    m_queueChanged.setInterval(0);
    connect(&m_queueChanged, &QTimer::timeout, this, &RunStatus::sendQueueChanged);
    // Said when the ledger fails and again when a retry between outcomes writes it.
    m_ledgerProblem = spinlane::ledgerProblem();
    spinlane::onLedgerProblemChanged([this] {
        QMetaObject::invokeMethod(this, &RunStatus::updateLedgerProblem, Qt::QueuedConnection);
    });
    listReshaped();
}

RunStatus::~RunStatus() { spinlane::onLedgerProblemChanged({}); }

Forecast RunStatus::forecast() const { return forecastNow(); }

void RunStatus::noteQueueChanged()
{
    if (!m_queueChanged.isActive())
        m_queueChanged.start();
}

void RunStatus::sendQueueChanged() { Q_EMIT queueChanged(); }

void RunStatus::updateLedgerProblem()
{
    if (const QString problem = spinlane::ledgerProblem(); problem != m_ledgerProblem) {
        m_ledgerProblem = problem;
        Q_EMIT propertiesChanged({u"LedgerProblem"_s});
    }
}

std::vector<QStringList> RunStatus::rows() const
{
    std::vector<QStringList> rows = m_rows;
    std::stable_sort(rows.begin(), rows.end(), [](const QStringList& a, const QStringList& b) {
        return queueNumberOf(a) < queueNumberOf(b);
    });
    return rows;
}

QList<std::pair<QString, int>> RunStatus::statusCounts() const
{
    QList<std::pair<QString, int>> counts;
    for (const QStringList& row : rows()) {
        const QString& status = row[QueueList::StatusColumn];
        auto found = std::find_if(counts.begin(), counts.end(),
                                  [&](const auto& count) { return count.first == status; });
        if (found == counts.end())
            counts.append({status, 1});
        else
            ++found->second;
    }
    return counts;
}

// Rows change one field at a time. A status that changes in a row that keeps its number is an
// item's status change; a blank row getting its first status is a new item, not a change.
void RunStatus::rowsChanged(int first, int last)
{
    QList<QStringList> statusChanges;
    bool changed = false;
    for (int r = std::max(first, 0); r <= last && r < int(m_rows.size()); ++r) {
        QStringList now = rowColumns(r + 1);
        QStringList& before = m_rows[std::size_t(r)];
        if (now == before)
            continue;
        changed = true;
        const QString& status = now[QueueList::StatusColumn];
        const QString& previous = before[QueueList::StatusColumn];
        if (status != previous && !previous.isEmpty()
            && now[QueueList::QueueNumColumn] == before[QueueList::QueueNumColumn]) {
            if (status == u"In progress"_s) {
                m_startedNumber = queueNumberOf(now);
                m_startedAt = seams().clock->now();
            }
            statusChanges.append(now);
        }
        before = std::move(now);
    }
    if (!changed)
        return;
    noteQueueChanged();
    for (const QStringList& row : statusChanges)
        Q_EMIT itemStatusChanged(queueNumberOf(row), row[QueueList::SampleNameColumn],
                                 row[QueueList::UserIDColumn], row[QueueList::StatusColumn]);
    QStringList names;
    refreshCurrent(names);
    if (!names.isEmpty())
        Q_EMIT propertiesChanged(names);
}

void RunStatus::listReshaped()
{
    const std::size_t count = m_rows.size();
    m_rows.clear();
    for (qint32 row = 1; row <= gQueueList.count(); ++row)
        m_rows.push_back(rowColumns(row));
    noteQueueChanged();
    QStringList names;
    if (m_rows.size() != count)
        names.append(u"ItemCount"_s);
    refreshCurrent(names);
    if (!names.isEmpty())
        Q_EMIT propertiesChanged(names);
}

// While a run is under way the current item follows the items' status changes only, so the
// steps between (Continue steps back one item before it takes it up again) do not show.
void RunStatus::runControlsChanged()
{
    const QString state = runStateNow();
    QStringList names;
    if (state != u"running"_s)
        refreshCurrent(names);
    if (state != m_runState) {
        noteQueueChanged();
        m_runState = state;
        names.prepend(u"RunState"_s);
        Q_EMIT runStateChanged(state);
    }
    if (!names.isEmpty())
        Q_EMIT propertiesChanged(names);
}

void RunStatus::refreshCurrent(QStringList& changed)
{
    const qint32 n = gCurrentQueueNum;
    ItemInfo item;
    const auto row = std::find_if(m_rows.begin(), m_rows.end(),
                                  [n](const QStringList& r) { return queueNumberOf(r) == n; });
    if (n > 0 && row != m_rows.end()) {
        item.queueNumber = n;
        item.samplePosition = shownNumber((*row)[QueueList::SampleNumColumn]);
        item.sampleName = (*row)[QueueList::SampleNameColumn];
        item.experiment = (*row)[QueueList::ExpTitleColumn];
        item.user = (*row)[QueueList::UserIDColumn];
        item.status = (*row)[QueueList::StatusColumn];
        // The record of the same number, once the list and the queue agree on the count.
        if (n <= gQueue.upperBound() && gQueue.upperBound() == qint32(m_rows.size()))
            item.dataFile = gQueue(n).OutputFilePath;
        if (m_startedNumber == n)
            item.started = m_startedAt;
    }
    if (n != m_currentNumber) {
        m_currentNumber = n;
        changed.append(u"CurrentQueueNumber"_s);
    }
    if (item != m_current) {
        m_current = item;
        changed.append(u"CurrentItem"_s);
    }
}

} // namespace spinlane
