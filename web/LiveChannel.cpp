#include "web/LiveChannel.h"

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
};

LiveChannel::LiveChannel(int maxClients, qint64 maxBacklogBytes, QObject* parent)
    : QObject(parent)
    , m_maxClients(maxClients)
    , m_maxBacklog(maxBacklogBytes)
{
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
    // Queued, so that no client leaves the list while it is being gone through.
    connect(
        raw, &QWebSocket::disconnected, this,
        [this, socket = QPointer<QWebSocket>(raw)] {
            if (socket)
                remove(socket);
        },
        Qt::QueuedConnection);
    connect(raw, &QWebSocket::bytesWritten, this,
            [this, raw](qint64 bytes) { written(raw, bytes); });
    // Clients have nothing to say; whatever they send is dropped unread.
    m_clients.push_back(std::move(client));
    pump();
}

void LiveChannel::send(const QString& message)
{
    m_message = message;
    ++m_version;
    // A client still writing an older message and far behind does not read: it goes.
    std::vector<QWebSocket*> behind;
    for (const auto& client : m_clients) {
        if (client->unsent > m_maxBacklog)
            behind.push_back(client->socket.get());
    }
    for (QWebSocket* socket : behind) {
        qWarning("spinlane-web: a live client at %s does not read its messages; it is dropped",
                 qPrintable(socket->peerAddress().toString()));
        socket->abort();
        remove(socket);
    }
    pump();
}

void LiveChannel::pump()
{
    if (m_message.isEmpty())
        return;
    for (auto& client : m_clients) {
        if (m_writing >= kWritingAtOnce)
            return;
        if (client->unsent > 0 || client->version == m_version)
            continue;
        client->version = m_version;
        client->unsent = client->socket->sendTextMessage(m_message);
        if (client->unsent > 0)
            ++m_writing;
    }
}

void LiveChannel::written(QWebSocket* socket, qint64 bytes)
{
    for (auto& client : m_clients) {
        if (client->socket.get() != socket || client->unsent <= 0)
            continue;
        client->unsent -= bytes; // frame headers count too: done a little early at worst
        if (client->unsent <= 0) {
            client->unsent = 0;
            --m_writing;
            pump();
        }
        return;
    }
}

void LiveChannel::remove(QWebSocket* socket)
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(),
                                    [socket](const auto& c) { return c->socket.get() == socket; });
    if (found == m_clients.end())
        return;
    if ((*found)->unsent > 0)
        --m_writing;
    socket->disconnect(this);
    m_clients.erase(found);
    pump();
}

} // namespace spinlane::web
