#include "status/Alerts.h"

#include "core/Conversions.h"
#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"
#include "runner/LabBus.h"
#include "runner/Programs.h"
#include "status/RunStatus.h"

#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

const QStringList kLabClasses{kConsoleClass, kExpedraClass, kSampleChangerClass, kTubelinkClass};

// "003 Sample 3 (ann)"
QString describe(const ItemInfo& item)
{
    return formatQueueNumber(item.queueNumber) + u' ' + item.sampleName + u" ("_s + item.user
           + u')';
}

// The command's arguments: the event, the queue number ("003"), the sample, the user, the status
// and, when there is one, a detail.
QStringList arguments(const QString& event, const ItemInfo& item, const QString& detail = {})
{
    QStringList arguments{event, formatQueueNumber(item.queueNumber), item.sampleName, item.user,
                          item.status};
    if (!detail.isEmpty())
        arguments.append(detail);
    return arguments;
}

void runAlertCommand(const QStringList& arguments)
{
    // Read when it is needed, so that the administrator can change it while Spinlane runs.
    const QString command = ProfileFile::readString(gIniPath, u"Alerts", u"Command", {}).trimmed();
    if (!command.isEmpty() && !QProcess::startDetached(command, arguments))
        qWarning("Spinlane: the alert command %s could not be started", qPrintable(command));
}

} // namespace

Alerts::Alerts(const RunStatus& status, const QDBusConnection& bus, QObject* parent)
    : QObject(parent)
    , m_status(status)
    , m_runState(status.runState())
    , m_bus(bus)
    , m_labPrograms(new QDBusServiceWatcher(this))
{
    connect(&status, &RunStatus::itemStatusChanged, this,
            [this](qint32 number, const QString& sample, const QString& user,
                   const QString& itemStatus) {
                ItemInfo item;
                item.queueNumber = number;
                item.sampleName = sample;
                item.user = user;
                item.status = itemStatus;
                // Every item done goes to the command only, so that it can tell the item's
                // owner; a desktop notification for each would drown the ones that matter.
                if (itemStatus == u"Done"_s)
                    runAlertCommand(arguments(u"ItemDone"_s, item));
                if (itemStatus != u"Failed"_s && itemStatus != u"Stopped"_s)
                    return;
                const bool failed = itemStatus == u"Failed"_s;
                raise(failed ? u"ItemFailed"_s : u"ItemStopped"_s, item,
                      u"Item "_s + formatQueueNumber(number)
                          + (failed ? u" failed"_s : u" was stopped"_s),
                      describe(item));
            });
    // Only a run that reaches the end finishes the queue, not the state restored at start-up.
    connect(&status, &RunStatus::runStateChanged, this, [this](const QString& state) {
        const bool finished = m_runState == u"running"_s && state == u"finished"_s;
        m_runState = state;
        if (!finished)
            return;
        QStringList counts;
        for (const auto& [itemStatus, count] : m_status.statusCounts())
            counts.append(QString::number(count) + u' ' + itemStatus);
        raise(u"QueueFinished"_s, m_status.currentItem(), u"The queue finished"_s,
              QString::number(m_status.itemCount()) + u" items: "_s + counts.join(u", "_s));
    });

    m_labPrograms->setConnection(bus);
    m_labPrograms->setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    for (const QString& className : kLabClasses)
        m_labPrograms->addWatchedService(labBusName(className));
    connect(m_labPrograms, &QDBusServiceWatcher::serviceUnregistered, this,
            [this](const QString& busName) {
                if (m_status.runState() != u"running"_s)
                    return;
                const QString className = busName.mid(kLabBusPrefix.size());
                const ItemInfo& item = m_status.currentItem();
                raise(u"ProgramLost"_s, item, className + u" was lost"_s,
                      u"While running item "_s + describe(item), className);
            });
}

void Alerts::raise(const QString& event, const ItemInfo& item, const QString& summary,
                   const QString& body, const QString& detail)
{
    notify(summary, body, event == u"QueueFinished"_s ? 1 : 2);
    runAlertCommand(arguments(event, item, detail));
}

// Sent without waiting for the answer: with no notification service the bus answers with an
// error that nobody reads.
void Alerts::notify(const QString& summary, const QString& body, uchar urgency)
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        u"org.freedesktop.Notifications"_s, u"/org/freedesktop/Notifications"_s,
        u"org.freedesktop.Notifications"_s, u"Notify"_s);
    const QVariantMap hints{{u"urgency"_s, QVariant::fromValue(urgency)},
                            {u"desktop-entry"_s, u"spinlane"_s}};
    message << u"Spinlane"_s << 0u << u"spinlane"_s << (u"Spinlane: "_s + summary) << body
            << QStringList() << hints << -1;
    m_bus.send(message);
}

} // namespace spinlane
