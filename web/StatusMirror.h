#pragma once

#include <QDBusConnection>
#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

class QDBusPendingCallWatcher;
class QDBusServiceWatcher;

// spinlane-web's own copy of Spinlane's status interface, so that no web request ever becomes a
// call to Spinlane. Each of Spinlane's signals (a burst of them gives one re-read) has the
// properties, the queue and the forecast read again with asynchronous calls that time out; the
// bus name is watched, so the copy says when Spinlane is not running and recovers by itself.
namespace spinlane::web {

struct InstrumentState {
    bool spinlane = false; // Spinlane owns its bus name and answered
    QString runState; // idle, running, stopped or finished
    QVariantMap current; // CurrentItem as Spinlane sends it
    QList<QStringList> queue; // Queue(): the list's columns for every item
    QList<QVariantMap> forecast; // Forecast(); empty when Spinlane has none

    bool operator==(const InstrumentState& o) const
    {
        return spinlane == o.spinlane && runState == o.runState && current == o.current
               && queue == o.queue && forecast == o.forecast;
    }
    bool operator!=(const InstrumentState& o) const { return !(*this == o); }
};

class StatusMirror : public QObject {
    Q_OBJECT
public:
    explicit StatusMirror(const QDBusConnection& bus, QObject* parent = nullptr);

    const InstrumentState& state() const { return m_state; }
    // The last state in which Spinlane answered, and when that was: the queue the page keeps,
    // greyed, while Spinlane is not running (the settings file still holds it).
    const InstrumentState& lastSeen() const { return m_lastSeen; }
    QDateTime lastSeenAt() const { return m_lastSeenAt; }
    // When items ended "Done" or "Failed", by queue number, as far as the mirror saw them end;
    // an item that ends otherwise or runs again loses its time.
    const QHash<int, QDateTime>& ended() const { return m_ended; }
    // Items seen ending "Done" and "Failed" since the mirror started.
    qint64 itemsDone() const { return m_done; }
    qint64 itemsFailed() const { return m_failed; }

    static constexpr int kCallTimeoutMs = 5000;

Q_SIGNALS:
    void changed(); // state() differs from before

private Q_SLOTS:
    void itemStatusChanged(int queueNumber, const QString& sample, const QString& user,
                           const QString& status);
    void somethingChanged(); // any other signal of Spinlane's

private:
    void refreshSoon();
    void refresh();
    void answered();
    void spinlaneGone();
    void publish(const InstrumentState& state);

    QDBusConnection m_bus;
    QDBusServiceWatcher* m_watcher;
    QTimer m_soon; // gathers a burst of signals into one re-read
    QTimer m_retry; // after a call that timed out
    InstrumentState m_state;
    InstrumentState m_lastSeen;
    QDateTime m_lastSeenAt;
    QHash<int, QDateTime> m_ended;
    QList<QDBusPendingCallWatcher*> m_pending; // the calls of the re-read under way
    bool m_again = false; // a signal came while a re-read was under way
    quint64 m_generation = 0; // bumped when Spinlane leaves: older answers are dropped
    qint64 m_done = 0;
    qint64 m_failed = 0;
};

} // namespace spinlane::web
