#include "web/LiveChannel.h"

#include <QDeadlineTimer>
#include <QPointer>
#include <QWebSocket>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane::web {

struct LiveChannel::Client {
    std::unique_ptr<QWebSocket, void (*)(QWebSocket*)> socket{nullptr, [](QWebSocket* s) {
                                                                  s->deleteLater();
                                                              }};
    qint64 unsent = 0; // bytes handed to the socket and not yet written
    quint64 version = 0; // of the last message handed to it
    QDeadlineTimer stall; // by when the message it holds must be written
};

LiveChannel::LiveChannel(int maxClients, int stallSeconds, QObject* parent)
    : QObject(parent)
    , m_maxClients(maxClients)
    , m_stallMs(qint64(stallSeconds) * 1000)
{
    m_watch.setInterval(std::clamp<int>(int(m_stallMs / 4), 100, 1000));
    connect(&m_watch, &QTimer::timeout, this, &LiveChannel::dropStalled);
}

LiveChannel::~LiveChannel() = default;

void LiveChannel::take(std::unique_ptr<QWebSocket> socket)
{
    if (socket->requestUrl().path() != kLivePath || clients() >= m_maxClients) {
        socket->close(QWebSocketProtocol::CloseCodePolicyViolated,
                      clients() >= m_maxClients ? u"too many live clients"_s : u"no such channel"_s);
        socket.release()->deleteLater();
        return;
    }
    auto client = std::make_unique<Client>();
    client->socket.reset(socket.release());
    QWebSocket* raw = client->socket.get();
    raw->setMaxAllowedIncomingFrameSize(kMaxIncomingFrame);
    raw->setMaxAllowedIncomingMessageSize(kMaxIncomingFrame);
    // Queued, so that no client leaves the list while it is being gone through.
    const auto removeLater = [this, socket = QPointer<QWebSocket>(raw)](const char* why) {
        QMetaObject::invokeMethod(
            this, [this, socket, why] { if (socket) remove(socket, why); }, Qt::QueuedConnection);
    };
    connect(raw, &QWebSocket::disconnected, this, [removeLater] { removeLater(nullptr); });
    // Clients have nothing to say: a data frame, even the first of a message, ends them.
    connect(raw, &QWebSocket::textFrameReceived, this,
            [removeLater] { removeLater("sends data frames"); });
    connect(raw, &QWebSocket::binaryFrameReceived, this,
            [removeLater] { removeLater("sends data frames"); });
    connect(raw, &QWebSocket::bytesWritten, this,
            [this, raw](qint64 bytes) { written(raw, bytes); });
    m_clients.push_back(std::move(client));
    hand(*m_clients.back());
    if (!m_watch.isActive())
        m_watch.start();
}

void LiveChannel::send(const QString& message)
{
    m_message = message;
    ++m_version;
    for (auto& client : m_clients)
        hand(*client);
}

void LiveChannel::hand(Client& client)
{
    if (m_message.isEmpty() || client.unsent > 0 || client.version == m_version)
        return;
    client.version = m_version;
    client.unsent = client.socket->sendTextMessage(m_message);
    client.stall.setRemainingTime(m_stallMs);
}

void LiveChannel::written(QWebSocket* socket, qint64 bytes)
{
    for (auto& client : m_clients) {
        if (client->socket.get() != socket || client->unsent <= 0)
            continue;
        client->unsent -= bytes; // frame headers count too: done a little early at worst
        if (client->unsent <= 0) {
            client->unsent = 0;
            hand(*client);
        }
        return;
    }
}

void LiveChannel::dropStalled()
{
    std::vector<QWebSocket*> stalled;
    for (const auto& client : m_clients) {
        if (client->unsent > 0 && client->stall.hasExpired())
            stalled.push_back(client->socket.get());
    }
    for (QWebSocket* socket : stalled)
        remove(socket, "does not read its messages");
    if (m_clients.empty())
        m_watch.stop();
}

void LiveChannel::remove(QWebSocket* socket, const char* why)
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(),
                                    [socket](const auto& c) { return c->socket.get() == socket; });
    if (found == m_clients.end())
        return;
    if (why)
        qWarning("spinlane-web: a live client at %s %s; it is dropped",
                 qPrintable(socket->peerAddress().toString()), why);
    socket->disconnect(this);
    socket->abort();
    m_clients.erase(found);
}

} // namespace spinlane::web
