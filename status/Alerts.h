#pragma once

#include <QDBusConnection>
#include <QObject>

class QDBusServiceWatcher;

// Tells the lab's staff, wherever they are, when a run needs them: an item ended "Failed" or
// "Stopped", the queue finished, or a laboratory program was lost while the queue ran; and tells
// the alert command (only) of every item done, so that it can tell the item's owner. Each alert
// goes to the desktop's notification service when there is one, and to the command the settings
// file names (section "Alerts", key "Command"), which is started on its own, without a shell,
// with the event, the queue number, the sample name, the user and the status as its arguments
// (and, for a lost program, its automation class). Nothing waits for either: an alert never holds
// up the run.
namespace spinlane {

class RunStatus;
struct ItemInfo;

class Alerts : public QObject {
    Q_OBJECT
public:
    Alerts(const RunStatus& status, const QDBusConnection& bus, QObject* parent = nullptr);

private:
    void raise(const QString& event, const ItemInfo& item, const QString& summary,
               const QString& body, const QString& detail = {});
    // Urgency 1 normal, 2 critical.
    void notify(const QString& summary, const QString& body, uchar urgency);

    const RunStatus& m_status;
    QString m_runState; // as last signalled
    QDBusConnection m_bus;
    QDBusServiceWatcher* m_labPrograms;
};

} // namespace spinlane
