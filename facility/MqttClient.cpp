#include "facility/MqttClient.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QSocketNotifier>

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace spinlane::facility {

namespace {

// Debian's certificate store, where ca-certificates keeps what the system trusts.
constexpr char kSystemCertificates[] = "/etc/ssl/certs";

void initLibrary()
{
    static const bool done = [] {
        mosquitto_lib_init();
        return true;
    }();
    Q_UNUSED(done);
}

QString reasonText(int reason)
{
    switch (reason) {
    case 0x86: // MQTT 5 "bad user name or password"
    case 0x87: // "not authorized": what mosquitto answers to a wrong password
        return QStringLiteral("the broker refused the user name or password");
    default:
        return QStringLiteral("the broker refused: %1").arg(QString::fromUtf8(mosquitto_reason_string(reason)));
    }
}

QString errorText(int rc)
{
    if (rc == MOSQ_ERR_ERRNO)
        return QString::fromLocal8Bit(std::strerror(errno));
    return QString::fromUtf8(mosquitto_strerror(rc));
}

} // namespace

MqttClient::MqttClient(const QString& clientId, QObject* parent) : QObject(parent)
{
    initLibrary();
    m_mosq = mosquitto_new(clientId.toUtf8().constData(), true, this);
    mosquitto_int_option(m_mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_connect_v5_callback_set(m_mosq, &MqttClient::onConnect);
    mosquitto_publish_v5_callback_set(m_mosq, &MqttClient::onPublish);
    mosquitto_subscribe_v5_callback_set(m_mosq, &MqttClient::onSubscribe);
    mosquitto_message_v5_callback_set(m_mosq, &MqttClient::onMessage);
    m_keepAlive.setInterval(1000);
    connect(&m_keepAlive, &QTimer::timeout, this, [this] {
        if (mosquitto_socket(m_mosq) < 0)
            return;
        checkResult(mosquitto_loop_misc(m_mosq));
        updateWriteInterest();
    });
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &MqttClient::connectNow);
}

MqttClient::~MqttClient()
{
    if (m_lookup >= 0)
        QHostInfo::abortHostLookup(m_lookup);
    m_running = false;
    dropSocket();
    mosquitto_destroy(m_mosq);
}

void MqttClient::setWill(const QString& topic, const QByteArray& payload, bool retain)
{
    mosquitto_will_set_v5(m_mosq, topic.toUtf8().constData(), int(payload.size()),
                          payload.constData(), 1, retain, nullptr);
}

void MqttClient::setReconnectDelays(int firstMs, int longestMs)
{
    m_firstDelayMs = m_delayMs = firstMs;
    m_longestDelayMs = longestMs;
}

void MqttClient::start(const BrokerSettings& settings)
{
    m_settings = settings;
    m_running = true;
    m_delayMs = m_firstDelayMs;
    mosquitto_username_pw_set(m_mosq,
                              settings.user.isEmpty() ? nullptr : settings.user.toUtf8().constData(),
                              settings.password.isEmpty() ? nullptr
                                                          : settings.password.toUtf8().constData());
    if (settings.tls)
        setUpTls();
    connectNow();
}

void MqttClient::setUpTls()
{
    const QByteArray ca = m_settings.caFile.toLocal8Bit();
    const QByteArray cert = m_settings.certFile.toLocal8Bit();
    const QByteArray key = m_settings.keyFile.toLocal8Bit();
    if (ca.isEmpty())
        qInfo("TLS to %s: no CAFile, so the system's certificate store in %s is trusted",
              qPrintable(m_settings.address()), kSystemCertificates);
    if (!m_tls) {
        // libmosquitto loads the authority and client certificate into this context; its own
        // check of the name would compare the certificate with the address it is given, so
        // the context checks the name instead.
        m_tls = std::make_unique<BrokerTls>();
        mosquitto_void_option(m_mosq, MOSQ_OPT_SSL_CTX, m_tls->context());
        mosquitto_int_option(m_mosq, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 1);
        mosquitto_tls_insecure_set(m_mosq, true);
    }
    m_tls->expect(m_settings.host);
    const int rc = mosquitto_tls_set(m_mosq, ca.isEmpty() ? nullptr : ca.constData(),
                                     ca.isEmpty() ? kSystemCertificates : nullptr,
                                     cert.isEmpty() ? nullptr : cert.constData(),
                                     key.isEmpty() ? nullptr : key.constData(), nullptr);
    if (rc != MOSQ_ERR_SUCCESS)
        report(QStringLiteral("TLS for %1: %2").arg(m_settings.address(), errorText(rc)));
}

void MqttClient::stop()
{
    m_running = false;
    m_retry.stop();
    if (m_connected) {
        mosquitto_disconnect_v5(m_mosq, 0, nullptr);
        mosquitto_loop_write(m_mosq, 1);
    }
    dropSocket();
}

void MqttClient::connectNow()
{
    if (!m_running)
        return;
    // libmosquitto looks host names up with a blocking call, on every attempt: look them up here
    // first, without waiting, and give it the address. TLS still checks the certificate against
    // the name (m_tls).
    if (!QHostAddress(m_settings.host).isNull()) {
        connectTo(m_settings.host);
        return;
    }
    m_lookup = QHostInfo::lookupHost(m_settings.host, this, [this](const QHostInfo& info) {
        m_lookup = -1;
        if (info.addresses().isEmpty()) {
            lost(QStringLiteral("cannot find the broker's host %1: %2")
                     .arg(m_settings.host, info.errorString()));
            return;
        }
        // IPv4 first: a broker told to listen on "localhost" often listens on 127.0.0.1 only.
        QList<QHostAddress> addresses = info.addresses();
        std::stable_partition(addresses.begin(), addresses.end(), [](const QHostAddress& a) {
            return a.protocol() == QAbstractSocket::IPv4Protocol;
        });
        connectTo(addresses.constFirst().toString());
    });
}

void MqttClient::connectTo(const QString& address)
{
    if (!m_running)
        return;
    if (m_tls)
        m_tls->takeRefusal();
    const int rc = mosquitto_connect_async(m_mosq, address.toUtf8().constData(), m_settings.port,
                                           m_settings.keepAliveSeconds);
    // On loopback the broker may answer, certificate included, before this returns.
    if (rc != MOSQ_ERR_SUCCESS) {
        lost(failure(rc));
        return;
    }
    watchSocket();
}

void MqttClient::watchSocket()
{
    dropSocket();
    const int fd = mosquitto_socket(m_mosq);
    if (fd < 0)
        return;
    m_reader = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(m_reader, &QSocketNotifier::activated, this, [this] {
        checkResult(mosquitto_loop_read(m_mosq, 1));
        updateWriteInterest();
    });
    m_writer = new QSocketNotifier(fd, QSocketNotifier::Write, this);
    connect(m_writer, &QSocketNotifier::activated, this, [this] {
        checkResult(mosquitto_loop_write(m_mosq, 1));
        updateWriteInterest();
    });
    updateWriteInterest();
    m_keepAlive.start();
}

void MqttClient::dropSocket()
{
    m_keepAlive.stop();
    for (QSocketNotifier* notifier : {m_reader, m_writer}) {
        if (notifier) {
            notifier->setEnabled(false);
            notifier->deleteLater();
        }
    }
    m_reader = m_writer = nullptr;
}

void MqttClient::updateWriteInterest()
{
    if (m_writer)
        m_writer->setEnabled(mosquitto_want_write(m_mosq));
}

void MqttClient::checkResult(int rc)
{
    if (rc == MOSQ_ERR_SUCCESS || !m_reader)
        return;
    if (rc == MOSQ_ERR_ERRNO && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        return;
    lost(failure(rc));
}

QString MqttClient::failure(int rc)
{
    // A refused certificate says more than the TLS error that follows it.
    const QString refusal = m_tls ? m_tls->takeRefusal() : QString();
    if (!refusal.isEmpty())
        return QStringLiteral("cannot trust the broker's certificate at %1: %2")
            .arg(m_settings.address(), refusal);
    return (m_connected ? QStringLiteral("lost the broker at %1: %2")
                        : QStringLiteral("cannot reach the broker at %1: %2"))
        .arg(m_settings.address(), errorText(rc));
}

void MqttClient::lost(const QString& why)
{
    dropSocket();
    mosquitto_disconnect(m_mosq);
    m_pendingTopics.clear();
    m_pendingFilters.clear();
    const bool wasConnected = m_connected;
    m_connected = false;
    // A refused login is the more useful thing to show than the closed socket that follows it.
    if (wasConnected || m_lastProblem.isEmpty() || !m_lastProblem.startsWith(u"the broker"))
        report(why);
    if (wasConnected)
        Q_EMIT disconnected();
    if (!m_running)
        return;
    m_retry.start(m_delayMs);
    m_delayMs = qMin(m_delayMs * 2, m_longestDelayMs);
}

void MqttClient::report(const QString& text)
{
    if (text == m_lastProblem)
        return;
    m_lastProblem = text;
    Q_EMIT problem(text);
}

int MqttClient::publish(const QString& topic, const QByteArray& payload, bool retain, int qos,
                        int expirySeconds)
{
    if (!m_connected)
        return -1;
    mosquitto_property* properties = nullptr;
    if (expirySeconds > 0)
        mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                     uint32_t(expirySeconds));
    int mid = 0;
    const int rc = mosquitto_publish_v5(m_mosq, &mid, topic.toUtf8().constData(), int(payload.size()),
                                        payload.constData(), qos, retain, properties);
    mosquitto_property_free_all(&properties);
    if (rc != MOSQ_ERR_SUCCESS) {
        report(QStringLiteral("cannot publish %1: %2").arg(topic, errorText(rc)));
        return -1;
    }
    if (qos > 0)
        m_pendingTopics.insert(mid, topic);
    updateWriteInterest();
    return mid;
}

bool MqttClient::subscribe(const QString& filter, int qos)
{
    if (!m_connected)
        return false;
    int mid = 0;
    const int rc = mosquitto_subscribe_v5(m_mosq, &mid, filter.toUtf8().constData(), qos, 0, nullptr);
    if (rc != MOSQ_ERR_SUCCESS) {
        report(QStringLiteral("cannot subscribe to %1: %2").arg(filter, errorText(rc)));
        return false;
    }
    m_pendingFilters.insert(mid, filter);
    updateWriteInterest();
    return true;
}

// libmosquitto calls these from mosquitto_loop_read and friends, on this object's thread.

void MqttClient::onConnect(mosquitto*, void* self, int rc, int, const mqtt5__property*)
{
    auto* client = static_cast<MqttClient*>(self);
    if (rc != 0) {
        client->report(QStringLiteral("%1 (%2)").arg(reasonText(rc), client->m_settings.address()));
        return;
    }
    client->m_connected = true;
    client->m_delayMs = client->m_firstDelayMs;
    client->m_lastProblem.clear();
    Q_EMIT client->connected();
}

void MqttClient::onPublish(mosquitto*, void* self, int mid, int reason, const mqtt5__property*)
{
    auto* client = static_cast<MqttClient*>(self);
    const QString topic = client->m_pendingTopics.take(mid);
    const bool accepted = reason < 0x80;
    if (!accepted) {
        client->report(reason == 0x87
                           ? QStringLiteral("the broker does not allow this user to publish %1").arg(topic)
                           : QStringLiteral("the broker refused %1: %2").arg(topic, reasonText(reason)));
    }
    Q_EMIT client->published(mid, accepted);
}

void MqttClient::onSubscribe(mosquitto*, void* self, int mid, int count, const int* granted,
                             const mqtt5__property*)
{
    auto* client = static_cast<MqttClient*>(self);
    const QString filter = client->m_pendingFilters.take(mid);
    for (int i = 0; i < count; ++i) {
        if (granted[i] >= 0x80) {
            client->report(QStringLiteral("the broker does not allow this user to read %1").arg(filter));
            return;
        }
    }
}

void MqttClient::onMessage(mosquitto*, void* self, const mosquitto_message* message,
                           const mqtt5__property*)
{
    auto* client = static_cast<MqttClient*>(self);
    Q_EMIT client->messageReceived(
        QString::fromUtf8(message->topic),
        QByteArray(static_cast<const char*>(message->payload), message->payloadlen),
        message->retain);
}

} // namespace spinlane::facility
