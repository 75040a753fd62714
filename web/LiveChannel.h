#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

class QWebSocket;

// The live channel's clients: each gets the current message when it joins, then every new one.
// A client that does not read (its unsent bytes pass the bound) is dropped, so it cannot make the
// program grow or hold up the others.
namespace spinlane::web {

inline const QString kLivePath = QStringLiteral("/api/v1/live");

class LiveChannel : public QObject {
    Q_OBJECT
public:
    LiveChannel(int maxClients, qint64 maxBacklogBytes, QObject* parent = nullptr);
    ~LiveChannel() override;

    // Takes a socket the HTTP side upgraded; one on another path than /api/v1/live, or one more
    // than the limit, is closed.
    void take(std::unique_ptr<QWebSocket> socket);
    void send(const QString& message); // to every client, and to those who join later
    // What a joining client gets first instead of the last message: for a channel whose messages
    // are changes of one part, a snapshot of the whole.
    void setGreeting(std::function<QString()> greeting) { m_greeting = std::move(greeting); }
    int clients() const { return int(m_clients.size()); }
    qint64 dropped() const { return m_dropped; }

private:
    struct Client;
    void sendTo(Client& client);
    void remove(QWebSocket* socket);

    int m_maxClients;
    qint64 m_maxBacklog;
    QString m_message;
    std::function<QString()> m_greeting;
    std::vector<std::unique_ptr<Client>> m_clients;
    qint64 m_dropped = 0;
};

} // namespace spinlane::web
