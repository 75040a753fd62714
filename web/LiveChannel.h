#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

class QWebSocket;

// The live channel's clients. Every message is the whole state, so a client only ever needs the
// newest: it gets it when it joins, then whenever a newer one exists and the last has been written
// to it. Each client is written to on its own, so one that does not read never delays another;
// it holds at most one message, and is dropped when that message is not written within the stall
// time. Clients send nothing but control frames: a data frame closes the connection.
namespace spinlane::web {

inline const QString kLivePath = QStringLiteral("/api/v1/live");

class LiveChannel : public QObject {
    Q_OBJECT
public:
    LiveChannel(int maxClients, int stallSeconds, QObject* parent = nullptr);
    ~LiveChannel() override;

    // Takes a socket the HTTP side upgraded; one on another path than kLivePath, or one more
    // than the limit, is closed.
    void take(std::unique_ptr<QWebSocket> socket);
    void send(const QString& message); // to every client, and to those who join later
    int clients() const { return int(m_clients.size()); }

    // The largest control frame a client may send.
    static constexpr int kMaxIncomingFrame = 125;

private:
    struct Client;
    void hand(Client& client);
    void written(QWebSocket* socket, qint64 bytes);
    void dropStalled();
    void remove(QWebSocket* socket, const char* why);

    int m_maxClients;
    qint64 m_stallMs;
    QString m_message;
    quint64 m_version = 0;
    QTimer m_watch; // looks for clients that do not read
    std::vector<std::unique_ptr<Client>> m_clients;
};

} // namespace spinlane::web
