#pragma once

#include "facility/BrokerSettings.h"
#include "facility/MqttClient.h"

#include <QByteArray>
#include <QObject>
#include <QSet>
#include <QTimer>

// Keeps one instrument's topics on the broker up to date: its state (retained), "online"
// (retained, again every heartbeat, expiring when the heartbeats stop) and, through the last
// will, "offline" when it vanishes. setState() never waits: a state the broker has not yet
// taken is replaced by the newer one, so at most one is in flight, and after every reconnection
// the latest is published again.
namespace spinlane::facility {

class InstrumentPublisher : public QObject {
    Q_OBJECT
public:
    explicit InstrumentPublisher(const QString& instrument, QObject* parent = nullptr);
    ~InstrumentPublisher() override; // leaves saying "offline"

    // False (and problem() says why) when the instrument's name cannot be a topic level.
    bool start(const BrokerSettings& settings);
    void stop();
    void setState(const QByteArray& json);

    QString instrument() const { return m_instrument; }
    bool isConnected() const { return m_client.isConnected(); }
    // Connected, and the broker takes what is published: false too while the broker refuses
    // the state or online topic (MQTT 5 reason codes), until it takes one again.
    bool isDelivering() const { return isConnected() && m_refusedTopics.isEmpty(); }
    QString problem() const { return m_client.lastProblem().isEmpty() ? m_problem : m_client.lastProblem(); }
    quint64 publishedStates() const { return m_publishedStates; } // taken by the broker
    MqttClient& client() { return m_client; }

Q_SIGNALS:
    // Connected, lost, refused: read isConnected() and problem().
    void statusChanged();

private:
    void publishState();
    void sayOnline();

    QString m_instrument;
    MqttClient m_client;
    BrokerSettings m_settings;
    QByteArray m_state;
    bool m_unsent = false;
    int m_inFlight = -1;
    int m_onlineInFlight = -1;
    QSet<QString> m_refusedTopics;
    quint64 m_publishedStates = 0;
    QString m_problem;
    QTimer m_heartbeat;
};

} // namespace spinlane::facility
