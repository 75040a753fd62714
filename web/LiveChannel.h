#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

class QWebSocket;

// The live channel's clients. Every message is the whole state, so a client only ever needs the
// newest: it gets it when it joins, then whenever a newer one exists and the last has been written
// to it. A few clients are written to at a time, so that the program never holds a message for
// every client at once; a client that does not read keeps at most one message, and is dropped
// when a newer one finds more than the bound of its bytes unsent.
namespace spinlane::web {

inline const QString kLivePath = QStringLiteral("/api/v1/live");

class LiveChannel : public QObject {
    Q_OBJECT
public:
    LiveChannel(int maxClients, qint64 maxBacklogBytes, QObject* parent = nullptr);
    ~LiveChannel() override;

    // Takes a socket the HTTP side upgraded; one on another path than kLivePath, or one more
    // than the limit, is closed.
    void take(std::unique_ptr<QWebSocket> socket);
    void send(const QString& message); // to every client, and to those who join later
    int clients() const { return int(m_clients.size()); }

    static constexpr int kWritingAtOnce = 16;

private:
    struct Client;
    void pump();
    void written(QWebSocket* socket, qint64 bytes);
    void remove(QWebSocket* socket);

    int m_maxClients;
    qint64 m_maxBacklog;
    QString m_message;
    quint64 m_version = 0;
    int m_writing = 0; // clients with a message not yet written
    std::vector<std::unique_ptr<Client>> m_clients;
};

} // namespace spinlane::web
