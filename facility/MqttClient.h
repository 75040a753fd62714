#pragma once

#include "facility/BrokerSettings.h"
#include "facility/BrokerTls.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>

class QSocketNotifier;
struct mosquitto;
struct mqtt5__property;
struct mosquitto_message;

// An MQTT 5 client (libmosquitto) that runs on Qt's event loop: socket notifiers read and write,
// a timer keeps the connection alive, and nothing ever waits for the broker, nor for the name
// service: the broker's host name is looked up beforehand without waiting, and libmosquitto is
// given the address. Once started it connects by itself, and again after every loss (a name that
// cannot be found included) with a growing delay, until stop().
//
// MQTT 5 because its acknowledgements carry reason codes: a publish or subscription the broker's
// access list forbids comes back as refused, where MQTT 3.1.1 acknowledges it as if accepted.
namespace spinlane::facility {

class MqttClient : public QObject {
    Q_OBJECT
public:
    explicit MqttClient(const QString& clientId, QObject* parent = nullptr);
    ~MqttClient() override;

    // Published by the broker when this client vanishes without saying goodbye. Set before start().
    void setWill(const QString& topic, const QByteArray& payload, bool retain);
    // The first delay after a loss, doubled after each failed attempt up to the longest.
    void setReconnectDelays(int firstMs, int longestMs);

    void start(const BrokerSettings& settings);
    // Leaves the broker cleanly (no last will) and stays away.
    void stop();

    bool isConnected() const { return m_connected; }
    // What went wrong last ("" while all is well since the last connection).
    QString lastProblem() const { return m_lastProblem; }

    // Hands the message to the connection; the message id, or -1 when not connected. `published`
    // reports whether the broker took it (QoS 1 or 2). A message with an expiry is dropped by the
    // broker, retained copy included, once that many seconds have passed.
    int publish(const QString& topic, const QByteArray& payload, bool retain, int qos = 1,
                int expirySeconds = 0);
    // Subscriptions last for one connection: subscribe again on every connected().
    bool subscribe(const QString& filter, int qos = 1);

Q_SIGNALS:
    void connected();
    void disconnected();
    // One line for a person: the broker refused the login, a topic, or could not be reached.
    void problem(const QString& text);
    void published(int messageId, bool accepted);
    // `retained`: kept by the broker from before this client subscribed.
    void messageReceived(const QString& topic, const QByteArray& payload, bool retained);

private:
    void setUpTls();
    void connectNow();
    void connectTo(const QString& address);
    void watchSocket();
    void dropSocket();
    void lost(const QString& why);
    void checkResult(int rc);
    QString failure(int rc); // what went wrong, for a person
    void updateWriteInterest();
    void report(const QString& text);

    static void onConnect(mosquitto*, void* self, int rc, int flags, const mqtt5__property*);
    static void onPublish(mosquitto*, void* self, int mid, int reason, const mqtt5__property*);
    static void onSubscribe(mosquitto*, void* self, int mid, int count, const int* granted,
                            const mqtt5__property*);
    static void onMessage(mosquitto*, void* self, const mosquitto_message* message,
                          const mqtt5__property*);

    mosquitto* m_mosq = nullptr;
    BrokerSettings m_settings;
    std::unique_ptr<BrokerTls> m_tls; // libmosquitto holds a reference to its context
    QSocketNotifier* m_reader = nullptr;
    QSocketNotifier* m_writer = nullptr;
    QTimer m_keepAlive;
    QTimer m_retry;
    int m_firstDelayMs = 500;
    int m_longestDelayMs = 30000;
    int m_delayMs = 500;
    bool m_running = false;
    bool m_connected = false;
    int m_lookup = -1;
    QString m_lastProblem;
    QHash<int, QString> m_pendingTopics; // message id -> topic, until the broker answers
    QHash<int, QString> m_pendingFilters;
};

} // namespace spinlane::facility
