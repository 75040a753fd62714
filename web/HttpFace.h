#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>

#include <functional>
#include <memory>

class QWebSocket;

// The one class that touches Qt HTTP Server (a technical preview in Qt 6.4 whose interface
// changes later): it listens, answers GET and HEAD through a handler, refuses every other method
// with 405, adds the security headers, hands WebSocket upgrades on, and keeps the limits on
// connections, request size and idle time. Porting to another Qt version is this file's work.
namespace spinlane::web {

struct HttpLimits {
    int maxConnections = 512;
    int maxRequestBytes = 8192;
    int idleSeconds = 30;
};

struct HttpReply {
    int status = 200;
    QByteArray contentType;
    QByteArray body;
    bool noStore = true; // Cache-Control: no-store; otherwise no-cache
};

class HttpFace : public QObject {
    Q_OBJECT
public:
    using Handler = std::function<HttpReply(const QString& path)>;
    // Takes a WebSocket that asked for `path`; it is closed unless the callee keeps it.
    using Upgrade = std::function<void(std::unique_ptr<QWebSocket> socket)>;

    HttpFace(const HttpLimits& limits, Handler handler, Upgrade upgrade,
             QObject* parent = nullptr);
    ~HttpFace() override;

    // False with `error` when the address cannot be bound (in use, not this host's).
    bool listen(const QHostAddress& address, quint16 port, QString* error);
    quint16 port() const;
    int connections() const;

private:
    class Server;
    class Listener;
    std::unique_ptr<Server> m_server;
};

} // namespace spinlane::web
