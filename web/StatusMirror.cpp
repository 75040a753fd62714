#include "web/StatusMirror.h"

#include "status/StatusBus.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

const QString kProperties = u"org.freedesktop.DBus.Properties"_s;
constexpr int kRetryMs = 2000;

bool timedOut(const QDBusError& error)
{
    return error.type() == QDBusError::NoReply || error.type() == QDBusError::Timeout
           || error.type() == QDBusError::TimedOut;
}

} // namespace

StatusMirror::StatusMirror(const QDBusConnection& bus, QObject* parent)
    : QObject(parent)
    , m_bus(bus)
    , m_watcher(new QDBusServiceWatcher(spinlaneBusName(), bus,
                                        QDBusServiceWatcher::WatchForOwnerChange, this))
{
    qDBusRegisterMetaType<QList<QStringList>>();
    qDBusRegisterMetaType<QList<QVariantMap>>();
    m_soon.setSingleShot(true);
    m_soon.setInterval(0);
    connect(&m_soon, &QTimer::timeout, this, &StatusMirror::refresh);
    m_retry.setSingleShot(true);
    m_retry.setInterval(kRetryMs);
    connect(&m_retry, &QTimer::timeout, this, &StatusMirror::refresh);

    connect(m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& newOwner) {
                spinlaneGone();
                if (!newOwner.isEmpty())
                    refreshSoon();
            });
    const QString name = spinlaneBusName();
    m_bus.connect(name, kStatusPath, kStatusInterface, u"ItemStatusChanged"_s, this,
                  SLOT(itemStatusChanged(int, QString, QString, QString)));
    for (const QString& signal : {u"RunStateChanged"_s, u"QueueChanged"_s})
        m_bus.connect(name, kStatusPath, kStatusInterface, signal, this, SLOT(somethingChanged()));
    m_bus.connect(name, kStatusPath, kProperties, u"PropertiesChanged"_s, this,
                  SLOT(somethingChanged()));
    refreshSoon();
}

void StatusMirror::itemStatusChanged(int queueNumber, const QString&, const QString&,
                                     const QString& status)
{
    if (status == u"Done"_s)
        ++m_done;
    else if (status == u"Failed"_s)
        ++m_failed;
    if (status == u"Done"_s || status == u"Failed"_s)
        m_ended.insert(queueNumber, QDateTime::currentDateTime());
    else
        m_ended.remove(queueNumber);
    refreshSoon();
}

void StatusMirror::somethingChanged() { refreshSoon(); }

void StatusMirror::refreshSoon()
{
    if (!m_soon.isActive())
        m_soon.start();
}

void StatusMirror::refresh()
{
    if (!m_pending.isEmpty()) {
        m_again = true;
        return;
    }
    m_again = false;
    m_retry.stop();
    const auto call = [this](const QString& interface, const QString& method,
                             const QVariantList& arguments) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(spinlaneBusName(), kStatusPath, interface, method);
        message.setArguments(arguments);
        auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message, kCallTimeoutMs), this);
        watcher->setProperty("generation", m_generation);
        m_pending.append(watcher);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, &StatusMirror::answered);
    };
    call(kProperties, u"GetAll"_s, {kStatusInterface});
    call(kStatusInterface, u"Queue"_s, {});
    call(kStatusInterface, u"Forecast"_s, {});
}

void StatusMirror::answered()
{
    for (const QDBusPendingCallWatcher* watcher : std::as_const(m_pending)) {
        if (!watcher->isFinished())
            return;
    }
    const QList<QDBusPendingCallWatcher*> calls = std::exchange(m_pending, {});
    for (QDBusPendingCallWatcher* watcher : calls)
        watcher->deleteLater();
    if (calls.size() != 3 || calls.first()->property("generation").toULongLong() != m_generation)
        return;

    const QDBusPendingReply<QVariantMap> properties = *calls.at(0);
    const QDBusPendingReply<QList<QStringList>> queue = *calls.at(1);
    const QDBusPendingReply<QList<QVariantMap>> forecast = *calls.at(2);
    for (const QDBusError& error : {properties.error(), queue.error()}) {
        if (!error.isValid())
            continue;
        if (timedOut(error))
            m_retry.start(); // Spinlane is busy or stuck: keep the copy, ask again later
        else
            publish({});
        return;
    }
    InstrumentState state;
    state.spinlane = true;
    state.runState = properties.value().value(u"RunState"_s).toString();
    state.current = qdbus_cast<QVariantMap>(properties.value().value(u"CurrentItem"_s));
    state.queue = queue.value();
    // A Spinlane without a forecast answers UnknownMethod: the copy then has none.
    if (!forecast.isError())
        state.forecast = forecast.value();
    publish(state);
    if (m_again)
        refreshSoon();
}

void StatusMirror::spinlaneGone()
{
    ++m_generation;
    for (QDBusPendingCallWatcher* watcher : std::exchange(m_pending, {}))
        watcher->deleteLater();
    m_again = false;
    m_retry.stop();
    publish({});
}

void StatusMirror::publish(const InstrumentState& state)
{
    // The last state is "as of" the moment Spinlane was last heard, or left.
    if (state.spinlane)
        m_lastSeen = state;
    if (state.spinlane || m_state.spinlane)
        m_lastSeenAt = QDateTime::currentDateTime();
    if (state == m_state)
        return;
    m_state = state;
    Q_EMIT changed();
}

} // namespace spinlane::web
