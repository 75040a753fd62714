#include "web/LiveChannel.h"

#include <QTimer>
#include <QWebSocket>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane::web {

struct LiveChannel::Client {
    std::unique_ptr<QWebSocket, void (*)(QWebSocket*)> socket{nullptr, [](QWebSocket* s) {
                                                                  s->deleteLater();
                                                              }};
    qint64 unsent = 0; // bytes handed to the socket and not yet written
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
    if (socket->requestUrl().path() != kLivePath) {
        socket->close(QWebSocketProtocol::CloseCodePolicyViolated, u"no such channel"_s);
        socket.release()->deleteLater();
        return;
    }
    if (clients() >= m_maxClients) {
        socket->close(QWebSocketProtocol::CloseCodeTooMuchData, u"too many live clients"_s);
        socket.release()->deleteLater();
        return;
    }
    auto client = std::make_unique<Client>();
    client->socket.reset(socket.release());
    QWebSocket* raw = client->socket.get();
    connect(raw, &QWebSocket::disconnected, this, [this, raw] { remove(raw); });
    connect(raw, &QWebSocket::bytesWritten, this, [this, raw](qint64 written) {
        for (auto& c : m_clients) {
            if (c->socket.get() == raw)
                c->unsent = std::max<qint64>(0, c->unsent - written);
        }
    });
    // Clients have nothing to say; whatever they send is dropped unread.
    m_clients.push_back(std::move(client));
    if (m_greeting)
        m_clients.back()->unsent += m_clients.back()->socket->sendTextMessage(m_greeting());
    else if (!m_message.isEmpty())
        sendTo(*m_clients.back());
}

void LiveChannel::send(const QString& message)
{
    m_message = message;
    // Sending may drop a client: go through a copy of the list.
    std::vector<QWebSocket*> sockets;
    for (const auto& client : m_clients)
        sockets.push_back(client->socket.get());
    for (QWebSocket* socket : sockets) {
        for (auto& client : m_clients) {
            if (client->socket.get() == socket) {
                sendTo(*client);
                break;
            }
        }
    }
}

void LiveChannel::sendTo(Client& client)
{
    if (client.unsent > m_maxBacklog) {
        ++m_dropped;
        QWebSocket* socket = client.socket.get();
        qWarning("spinlane-web: a live client at %s does not read its messages; it is dropped",
                 qPrintable(socket->peerAddress().toString()));
        socket->abort();
        remove(socket);
        return;
    }
    client.unsent += client.socket->sendTextMessage(m_message);
}

void LiveChannel::remove(QWebSocket* socket)
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(),
                                    [socket](const auto& c) { return c->socket.get() == socket; });
    if (found == m_clients.end())
        return;
    socket->disconnect(this);
    m_clients.erase(found);
}

} // namespace spinlane::web
