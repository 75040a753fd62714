#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QStringList>

#include <functional>
#include <memory>

class QWebSocket;

// The HTTP side of spinlane-web: it listens, over TLS when it has a certificate, reads each
// request itself (strict HTTP/1.1; GET and HEAD, and POST with a small body where the server
// takes one), answers only the host names it serves, adds the security headers and
// hands WebSocket upgrades from its own origin to Qt WebSockets. Every connection is bounded: a
// request's size, its unsent answers (a connection that does not read is not read either, and is
// closed when its answers do not drain), the time between requests, the number of connections.
namespace spinlane::web {

struct HttpLimits {
    int maxConnections = 512;
    int maxRequestBytes = 8192;
    int idleSeconds = 30;
    // Host names, besides the listen address, localhost and this machine's names and addresses,
    // that a request may name (a proxy's, a DNS alias).
    QStringList allowedHosts;
    // The largest body a POST may carry; no POST at all when 0.
    int maxBodyBytes = 0;
    // With both, every connection is TLS.
    QSslCertificate certificate;
    QSslKey key;
    // Unsent answers above which a connection's next request waits, and the time they have to
    // drain before the connection is closed.
    static constexpr qint64 kMaxUnsentBytes = 256 * 1024;
    static constexpr int kDrainSeconds = 10;
};

struct HttpReply {
    int status = 200;
    QByteArray contentType;
    QByteArray body;
    bool noStore = true; // Cache-Control: no-store; otherwise no-cache
    QList<std::pair<QByteArray, QByteArray>> headers; // more, such as Set-Cookie
};

struct HttpRequest;

// A request as the server's handler sees it.
struct HttpCall {
    const HttpRequest& request;
    QByteArray body;
    QHostAddress peer;
    bool encrypted = false;
};

class HttpFace : public QObject {
    Q_OBJECT
public:
    // Gives a request's answer, now or later; the connection reads no further request until then.
    using Respond = std::function<void(const HttpReply& reply)>;
    using Handler = std::function<void(const HttpCall& call, const Respond& respond)>;
    // Takes a WebSocket that asked for `path`; it is closed unless the callee keeps it.
    using Upgrade = std::function<void(std::unique_ptr<QWebSocket> socket)>;

    HttpFace(const HttpLimits& limits, Handler handler, Upgrade upgrade,
             QObject* parent = nullptr);
    ~HttpFace() override;

    // False with `error` when the address cannot be bound (in use, not this host's).
    bool listen(const QHostAddress& address, quint16 port, QString* error);
    quint16 port() const;
    int connections() const;

    // The names of hosts a request may name: lower case, without port.
    QStringList servedHosts() const;

    class Listener; // with its connections, in HttpFace.cpp

private:
    std::unique_ptr<Listener> m_listener;
};

} // namespace spinlane::web
