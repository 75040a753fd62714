#pragma once

#include "runner/Forecast.h"

#include <QDateTime>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <vector>

// The run as someone away from the window follows it: the run state, the current item and the
// queue, with a signal for every change. It only watches the queue list and the run controls, so
// the runner and the window know nothing of it.
namespace spinlane {

// One item as the status shows it.
struct ItemInfo {
    qint32 queueNumber = 0; // 0: no item
    qint32 samplePosition = 0;
    QString sampleName;
    QString experiment;
    QString user;
    QString dataFile;
    QString status;
    QDateTime started; // when it last went "In progress" while Spinlane ran; invalid when unknown

    bool operator==(const ItemInfo& o) const
    {
        return queueNumber == o.queueNumber && samplePosition == o.samplePosition
               && sampleName == o.sampleName && experiment == o.experiment && user == o.user
               && dataFile == o.dataFile && status == o.status && started == o.started;
    }
    bool operator!=(const ItemInfo& o) const { return !(*this == o); }
};

class RunStatus : public QObject {
    Q_OBJECT
public:
    explicit RunStatus(QObject* parent = nullptr);
    ~RunStatus() override;

    // "idle", "running", "stopped" or "finished".
    QString runState() const { return m_runState; }
    qint32 currentQueueNumber() const { return m_currentNumber; }
    qint32 itemCount() const { return qint32(m_rows.size()); }
    const ItemInfo& currentItem() const { return m_current; }
    // The list's columns for every item, in queue order.
    std::vector<QStringList> rows() const;
    // The number of items of each status, in the order the statuses first appear in the queue.
    QList<std::pair<QString, int>> statusCounts() const;
    // The expected start and end of every item the next run takes up, computed when asked.
    Forecast forecast() const;
    // Why the ledger cannot be written, empty while it can.
    QString ledgerProblem() const { return m_ledgerProblem; }

Q_SIGNALS:
    void itemStatusChanged(qint32 queueNumber, const QString& sampleName, const QString& user,
                           const QString& status);
    void runStateChanged(const QString& runState);
    // Some of "RunState", "CurrentQueueNumber", "ItemCount", "CurrentItem" and "LedgerProblem"
    // changed; sent
    // after the signals above that the same change caused.
    void propertiesChanged(const QStringList& names);
    // The queue list changed in any way, or a run started or ended: once for the changes that
    // came together, when the event loop next turns.
    void queueChanged();

private:
    void rowsChanged(int first, int last);
    void listReshaped();
    void runControlsChanged();
    void refreshCurrent(QStringList& changed);
    void noteQueueChanged();
    void sendQueueChanged();
    void updateLedgerProblem();

    std::vector<QStringList> m_rows; // each list row as last seen: number and sub-items
    QString m_runState;
    qint32 m_currentNumber = 0;
    ItemInfo m_current;
    qint32 m_startedNumber = 0; // the item that last went "In progress", and when
    QDateTime m_startedAt;
    QTimer m_queueChanged;
    QString m_ledgerProblem;
};

} // namespace spinlane
