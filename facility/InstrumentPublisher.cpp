#include "facility/InstrumentPublisher.h"

#include "facility/Topics.h"

#include <QRandomGenerator>

namespace spinlane::facility {

namespace {
QString clientIdFor(const QString& instrument)
{
    // Two publishers of one name must not throw each other off the broker in turn forever.
    return QStringLiteral("spinlane-%1-%2").arg(instrument).arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'));
}
} // namespace

InstrumentPublisher::InstrumentPublisher(const QString& instrument, QObject* parent)
    : QObject(parent), m_instrument(instrument), m_client(clientIdFor(instrument))
{
    connect(&m_client, &MqttClient::connected, this, [this] {
        m_inFlight = -1;
        sayOnline();
        if (!m_state.isEmpty())
            m_unsent = true;
        publishState();
        m_heartbeat.start();
        Q_EMIT statusChanged();
    });
    connect(&m_client, &MqttClient::disconnected, this, [this] {
        m_heartbeat.stop();
        m_inFlight = -1;
        Q_EMIT statusChanged();
    });
    connect(&m_client, &MqttClient::problem, this, &InstrumentPublisher::statusChanged);
    connect(&m_client, &MqttClient::published, this, [this](int id, bool accepted) {
        if (id != m_inFlight && id != m_onlineInFlight)
            return;
        const QString topic = id == m_inFlight ? stateTopic(m_instrument) : onlineTopic(m_instrument);
        const bool wasDelivering = isDelivering();
        if (accepted)
            m_refusedTopics.remove(topic);
        else
            m_refusedTopics.insert(topic);
        if (wasDelivering != isDelivering())
            Q_EMIT statusChanged();
        if (id == m_onlineInFlight) {
            m_onlineInFlight = -1;
            return;
        }
        m_inFlight = -1;
        if (accepted)
            ++m_publishedStates;
        publishState();
    });
    connect(&m_heartbeat, &QTimer::timeout, this, &InstrumentPublisher::sayOnline);
}

InstrumentPublisher::~InstrumentPublisher() { stop(); }

bool InstrumentPublisher::start(const BrokerSettings& settings)
{
    if (!isValidInstrumentName(m_instrument)) {
        m_problem = QStringLiteral("the instrument name \"%1\" cannot be a topic level: use letters, "
                                   "digits, \".\", \"-\" or \"_\"")
                        .arg(m_instrument);
        Q_EMIT statusChanged();
        return false;
    }
    m_settings = settings;
    m_heartbeat.setInterval(settings.heartbeatSeconds * 1000);
    m_client.setWill(onlineTopic(m_instrument), kOfflinePayload, true);
    m_client.start(settings);
    return true;
}

void InstrumentPublisher::stop()
{
    m_heartbeat.stop();
    // A clean leave sends no will: say it ourselves.
    if (m_client.isConnected())
        m_client.publish(onlineTopic(m_instrument), kOfflinePayload, true);
    m_client.stop();
}

void InstrumentPublisher::setState(const QByteArray& json)
{
    m_state = json;
    m_unsent = true;
    publishState();
}

void InstrumentPublisher::publishState()
{
    if (!m_unsent || m_inFlight >= 0 || !m_client.isConnected())
        return;
    m_unsent = false;
    m_inFlight = m_client.publish(stateTopic(m_instrument), m_state, true);
}

void InstrumentPublisher::sayOnline()
{
    // The retained "online" expires when the heartbeats stop, so that an instrument whose will
    // was lost with the broker is not taken for alive by a facility that starts later.
    const int expiry = qMax(m_settings.offlineAfterSeconds, 3 * m_settings.heartbeatSeconds);
    m_onlineInFlight = m_client.publish(onlineTopic(m_instrument), kOnlinePayload, true, 1, expiry);
}

} // namespace spinlane::facility
