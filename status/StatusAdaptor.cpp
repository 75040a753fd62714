#include "status/StatusAdaptor.h"

#include "core/Conversions.h"
#include "status/RunStatus.h"
#include "status/StatusBus.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QMetaProperty>

using namespace Qt::StringLiterals;

namespace spinlane {

StatusAdaptor::StatusAdaptor(QObject* object, const RunStatus& status, const QDBusConnection& bus)
    : QDBusAbstractAdaptor(object)
    , m_status(status)
    , m_bus(bus)
{
    qDBusRegisterMetaType<QList<QStringList>>();
    qDBusRegisterMetaType<QList<QVariantMap>>();
    connect(&status, &RunStatus::itemStatusChanged, this, &StatusAdaptor::ItemStatusChanged);
    connect(&status, &RunStatus::runStateChanged, this, &StatusAdaptor::RunStateChanged);
    connect(&status, &RunStatus::queueChanged, this, &StatusAdaptor::QueueChanged);
    connect(&status, &RunStatus::propertiesChanged, this, &StatusAdaptor::sendPropertiesChanged);
}

QString StatusAdaptor::runState() const { return m_status.runState(); }
int StatusAdaptor::currentQueueNumber() const { return m_status.currentQueueNumber(); }
int StatusAdaptor::itemCount() const { return m_status.itemCount(); }
QString StatusAdaptor::ledgerProblem() const { return m_status.ledgerProblem(); }

QVariantMap StatusAdaptor::currentItem() const
{
    const ItemInfo& item = m_status.currentItem();
    return {
        {u"QueueNumber"_s, item.queueNumber},
        {u"SamplePosition"_s, item.samplePosition},
        {u"SampleName"_s, item.sampleName},
        {u"Experiment"_s, item.experiment},
        {u"User"_s, item.user},
        {u"DataFile"_s, item.dataFile},
        {u"Status"_s, item.status},
        {u"Started"_s, item.started.isValid() ? item.started.toString(Qt::ISODate) : QString()}};
}

void StatusAdaptor::Queue(QList<QStringList>& items) const
{
    const std::vector<QStringList> rows = m_status.rows();
    items = {rows.begin(), rows.end()};
}

void StatusAdaptor::Forecast(QList<QVariantMap>& items) const
{
    const spinlane::Forecast forecast = m_status.forecast();
    items.clear();
    for (const ForecastItem& item : forecast.items)
        items.append({{u"QueueNumber"_s, item.queueNumber},
                      {u"ExpectedStart"_s, isoDateTimeWithOffset(item.expectedStart)},
                      {u"ExpectedEnd"_s, isoDateTimeWithOffset(item.expectedEnd)},
                      {u"EarliestStart"_s, isoDateTimeWithOffset(item.earliestStart)},
                      {u"LatestStart"_s, isoDateTimeWithOffset(item.latestStart)},
                      {u"EarliestEnd"_s, isoDateTimeWithOffset(item.earliestEnd)},
                      {u"LatestEnd"_s, isoDateTimeWithOffset(item.latestEnd)},
                      {u"LongerThanAnyRun"_s, item.beyondRuns},
                      {u"ExpectedSeconds"_s, item.expectedSeconds},
                      {u"Basis"_s, basisName(item.basis)},
                      {u"Runs"_s, item.runs},
                      {u"IfStartedNow"_s, forecast.ifStartedNow}});
}

// The standard signal of org.freedesktop.DBus.Properties, with the new values.
void StatusAdaptor::sendPropertiesChanged(const QStringList& names)
{
    QVariantMap changed;
    for (const QString& name : names) {
        const int index = metaObject()->indexOfProperty(name.toLatin1().constData());
        changed.insert(name, metaObject()->property(index).read(this));
    }
    QDBusMessage signal = QDBusMessage::createSignal(
        kStatusPath, u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s);
    signal << kStatusInterface << changed << QStringList();
    m_bus.send(signal);
}

} // namespace spinlane
