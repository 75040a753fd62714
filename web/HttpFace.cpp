#include "web/HttpFace.h"

#include "web/HttpRequest.h"
#include "web/LiveChannel.h"

#include <QElapsedTimer>
#include <QHostInfo>
#include <QNetworkInterface>
#include <QPointer>
#include <QSet>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpServer>
#include <QTimer>
#include <QWebSocket>
#include <QWebSocketServer>

#include <sys/socket.h>

#include <list>
#include <optional>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

// Never from another origin, nothing inline: the page's script and style are files of its own.
const QByteArray kContentSecurityPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

constexpr int kLiveSendBuffer = 64 * 1024;

// What a live client may send, which is only control frames: a burst, then a trickle.
constexpr int kLiveBurstBytes = 1024;
constexpr int kLiveBytesPerSecond = 128;
constexpr int kLiveCostPerRead = 32; // so that many tiny frames cost too

// Ends a connection at once: what the client has not taken is dropped rather than kept by the
// system for a client that may never read it.
void reset(QTcpSocket* socket)
{
    const linger now{1, 0};
    ::setsockopt(int(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    socket->abort();
}

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 413: return "Content Too Large";
    case 415: return "Unsupported Media Type";
    case 421: return "Misdirected Request";
    case 426: return "Upgrade Required";
    case 429: return "Too Many Requests";
    case 431: return "Request Header Fields Too Large";
    case 503: return "Service Unavailable";
    default: return "Unknown";
    }
}

HttpReply refusal(int status, const QByteArray& why)
{
    return {status, "text/plain; charset=utf-8", why + '\n', true, {}};
}

} // namespace

// A connection's socket, plain or TLS. Qt WebSockets answers a handshake with
// Access-Control-Allow-* headers, which this server never sends: they are taken out of that one
// answer. (A plain connection is a QTcpSocket: Qt WebSockets counts what it wrote to a QSslSocket
// by its encrypted bytes, which a plain QSslSocket never reports.)
struct HandshakeMark {
    bool handshakePending = false;
};

template <typename Socket>
class HttpSocket : public Socket, public HandshakeMark {
public:
    using Socket::Socket;

protected:
    qint64 writeData(const char* data, qint64 size) override
    {
        if (!handshakePending)
            return Socket::writeData(data, size);
        handshakePending = false;
        QByteArray kept;
        for (const QByteArray& line : QByteArray(data, size).split('\n')) {
            if (!line.startsWith("Access-Control-"))
                kept += line + '\n';
        }
        kept.chop(1);
        return Socket::writeData(kept.constData(), kept.size()) < 0 ? -1 : size;
    }
};

// One accepted connection, as long as its socket lives. It reads one request at a time and only
// while the answers it has not sent stay below the bound; it hands a WebSocket upgrade on and,
// once live, watches that the client sends little.
class Connection : public QObject {
public:
    Connection(QTcpSocket* socket, HandshakeMark* mark, HttpFace::Listener* listener);
    ~Connection() override;

    void becomeLive();
    bool isLive() const { return m_live; }
    bool isPeer(const QHostAddress& address, quint16 port) const
    {
        return m_peerPort == port && m_peer.isEqual(address);
    }
    QTcpSocket* socket() const { return m_socket; }

private:
    void readyRead();
    void written();
    void process();
    void answer(const HttpRequest& request, const QByteArray& body);
    void write(const HttpRequest& request, const HttpReply& reply, bool close);
    void handOn(const HttpRequest& request, qsizetype headBytes);

    QTcpSocket* m_socket;
    HandshakeMark* m_mark;
    HttpFace::Listener* m_listener;
    QHostAddress m_peer;
    quint16 m_peerPort;
    QTimer m_idle; // from the last answer or write to the next request
    QTimer m_drain; // from when the unsent answers passed the bound
    bool m_closing = false;
    bool m_handedOn = false;
    bool m_live = false;
    bool m_waiting = false; // for the handler's answer
    bool m_inHandler = false;
    QElapsedTimer m_lastRead;
    qint64 m_budget = kLiveBurstBytes;
};

// Accepts connections within the limit: when it is reached, the oldest connection that is not a
// live channel makes room (a browser opens a new one when it needs to); when every one is live,
// the new connection is closed.
class HttpFace::Listener : public QTcpServer {
public:
    Listener(const HttpLimits& limits, Handler handler, Upgrade upgrade)
        : limits(limits)
        , handler(std::move(handler))
        , upgrade(std::move(upgrade))
        , webSockets(u"spinlane-web"_s, QWebSocketServer::NonSecureMode)
    {
        if (!limits.certificate.isNull() && !limits.key.isNull()) {
            tls = QSslConfiguration::defaultConfiguration();
            tls->setLocalCertificate(limits.certificate);
            tls->setPrivateKey(limits.key);
            tls->setPeerVerifyMode(QSslSocket::VerifyNone);
        }
        setMaxPendingConnections(std::max(30, limits.maxConnections));
        webSockets.setHandshakeTimeout(limits.idleSeconds * 1000);
        connect(&webSockets, &QWebSocketServer::newConnection, this, [this] {
            while (webSockets.hasPendingConnections()) {
                std::unique_ptr<QWebSocket> socket(webSockets.nextPendingConnection());
                if (!socket)
                    break;
                for (Connection* connection : connections) {
                    if (connection->isPeer(socket->peerAddress(), socket->peerPort()))
                        connection->becomeLive();
                }
                this->upgrade(std::move(socket));
            }
        });
    }

    ~Listener() override
    {
        while (!connections.empty())
            delete connections.front();
    }

    bool serves(const QByteArray& host) const { return hosts.contains(host); }

    const HttpLimits limits;
    const Handler handler;
    const Upgrade upgrade;
    std::list<Connection*> connections;
    QSet<QByteArray> hosts;
    QWebSocketServer webSockets;
    std::optional<QSslConfiguration> tls;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        QTcpSocket* socket = nullptr;
        HandshakeMark* mark = nullptr;
        if (tls) {
            auto* secure = new HttpSocket<QSslSocket>(this);
            secure->setSslConfiguration(*tls);
            std::tie(socket, mark) = std::pair(secure, secure);
        } else {
            auto* plain = new HttpSocket<QTcpSocket>(this);
            std::tie(socket, mark) = std::pair(plain, plain);
        }
        if (!socket->setSocketDescriptor(descriptor)) {
            delete socket;
            return;
        }
        if (int(connections.size()) >= limits.maxConnections && !evictOne()) {
            socket->abort();
            delete socket;
            return;
        }
        // A request's head and body fit in the buffer; the system's buffers hold back the rest.
        socket->setReadBufferSize(limits.maxRequestBytes + limits.maxBodyBytes + 1024);
        // Each answer is written whole at once: its last segment need not wait for the client's
        // delayed acknowledgement of the one before (about 40 ms).
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        new Connection(socket, mark, this);
        if (tls)
            static_cast<QSslSocket*>(socket)->startServerEncryption();
    }

private:
    bool evictOne()
    {
        for (Connection* connection : connections) {
            if (!connection->isLive()) {
                QTcpSocket* socket = connection->socket();
                delete connection;
                socket->abort();
                socket->deleteLater();
                return true;
            }
        }
        return false;
    }
};

Connection::Connection(QTcpSocket* socket, HandshakeMark* mark, HttpFace::Listener* listener)
    : QObject(socket)
    , m_socket(socket)
    , m_mark(mark)
    , m_listener(listener)
    , m_peer(socket->peerAddress())
    , m_peerPort(socket->peerPort())
{
    m_listener->connections.push_back(this);
    m_idle.setSingleShot(true);
    m_idle.setInterval(listener->limits.idleSeconds * 1000);
    connect(&m_idle, &QTimer::timeout, socket, &QTcpSocket::abort);
    m_idle.start();
    m_drain.setSingleShot(true);
    m_drain.setInterval(HttpLimits::kDrainSeconds * 1000);
    connect(&m_drain, &QTimer::timeout, this, [socket] { reset(socket); });
    // Connected before anything of Qt WebSockets, so that this sees what a live client sends.
    connect(socket, &QTcpSocket::readyRead, this, &Connection::readyRead);
    connect(socket, &QTcpSocket::bytesWritten, this, &Connection::written);
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
}

Connection::~Connection() { m_listener->connections.remove(this); }

void Connection::becomeLive()
{
    m_live = true;
    m_idle.stop();
    m_drain.stop();
    m_lastRead.start();
    // A live client's messages wait in the program, where the live channel sees them, rather
    // than in megabytes of the system's buffers.
    m_socket->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, kLiveSendBuffer);
    // However the live channel ends it, the message the client did not take goes with it.
    const linger now{1, 0};
    ::setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

void Connection::readyRead()
{
    if (!m_handedOn) {
        process();
        return;
    }
    if (!m_live)
        return;
    // A live client has nothing to say but the odd control frame: a flood of anything ends it.
    const qint64 since = m_lastRead.restart();
    m_budget = std::min<qint64>(kLiveBurstBytes, m_budget + since * kLiveBytesPerSecond / 1000);
    m_budget -= kLiveCostPerRead + m_socket->bytesAvailable();
    if (m_budget < 0) {
        qWarning("spinlane-web: a live client at %s sends more than control frames; it is closed",
                 qPrintable(m_peer.toString()));
        reset(m_socket);
    }
}

void Connection::written()
{
    if (m_handedOn)
        return;
    m_idle.start();
    if (m_socket->bytesToWrite() < HttpLimits::kMaxUnsentBytes) {
        m_drain.stop();
        process();
    }
}

void Connection::process()
{
    const int most = m_listener->limits.maxRequestBytes;
    while (!m_closing && !m_handedOn && !m_waiting
           && m_socket->bytesToWrite() < HttpLimits::kMaxUnsentBytes) {
        const QByteArray head = m_socket->peek(most + 4);
        const qsizetype end = head.indexOf("\r\n\r\n");
        if (end < 0 || end + 4 > most) {
            if (head.size() > most)
                write({}, refusal(431, "The request is too long."), true);
            return;
        }
        const HttpRequest request = parseHttpRequest(QByteArrayView(head).first(end + 2));
        if (request.problem.isEmpty() && request.upgradeToWebSocket
            && m_listener->serves(request.host)) {
            handOn(request, end + 4);
            return;
        }
        // A body the server takes is read with its head; any other is refused below unread.
        const qint64 bodyBytes = request.method == "POST" && !request.transferEncoding
                                         && request.contentLength <= m_listener->limits.maxBodyBytes
                                     ? request.contentLength
                                     : 0;
        if (m_socket->bytesAvailable() < end + 4 + bodyBytes)
            return;
        m_socket->read(end + 4);
        m_idle.start();
        answer(request, m_socket->read(bodyBytes));
    }
    if (!m_closing && !m_handedOn && !m_waiting && !m_drain.isActive()
        && m_socket->bytesToWrite() >= HttpLimits::kMaxUnsentBytes)
        m_drain.start();
}

void Connection::answer(const HttpRequest& request, const QByteArray& body)
{
    if (!request.problem.isEmpty())
        return write(request, refusal(400, "Bad request: " + request.problem + '.'), true);
    // HTTP/1.0 may name no host; no browser sends that.
    if (!m_listener->serves(request.host) && !(request.http10 && request.host.isEmpty()))
        return write(request, refusal(request.absoluteUri ? 400 : 421,
                                      "This server does not serve that host."), true);
    const bool getOrHead = request.method == "GET" || request.method == "HEAD";
    const bool post = request.method == "POST" && m_listener->limits.maxBodyBytes > 0;
    if (request.hasBody && !post)
        return write(request, refusal(getOrHead ? 400 : 405, "Requests have no body here."),
                     true);
    if (request.transferEncoding)
        return write(request, refusal(400, "A body needs its Content-Length."), true);
    if (request.contentLength > m_listener->limits.maxBodyBytes)
        return write(request, refusal(413, "The body is too large."), true);
    if (!getOrHead && !post)
        return write(request, refusal(405, "Only GET and HEAD are served."), !request.keepAlive);
    // The answer may come later (a password to check): nothing more is read until it has.
    m_waiting = true;
    m_idle.stop();
    QPointer<Connection> self(this);
    const HttpRequest asked = request;
    m_inHandler = true;
    m_listener->handler(
        {request, body, m_peer, m_listener->tls.has_value()}, [self, asked](const HttpReply& reply) {
            if (!self || !self->m_waiting)
                return;
            self->m_waiting = false;
            self->m_idle.start();
            self->write(asked, reply, !asked.keepAlive);
            if (!self->m_inHandler) // otherwise the loop that called the handler goes on
                self->process();
        });
    m_inHandler = false;
}

void Connection::write(const HttpRequest& request, const HttpReply& reply, bool close)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(reply.status) + ' '
                      + reasonPhrase(reply.status) + "\r\nContent-Type: " + reply.contentType
                      + "\r\nContent-Length: " + QByteArray::number(reply.body.size())
                      + "\r\nX-Content-Type-Options: nosniff\r\nContent-Security-Policy: "
                      + kContentSecurityPolicy
                      + "\r\nReferrer-Policy: no-referrer\r\nX-Frame-Options: DENY\r\n"
                        "Cache-Control: "
                      + (reply.noStore ? "no-store" : "no-cache") + "\r\n";
    if (reply.status == 405)
        head += m_listener->limits.maxBodyBytes > 0 ? "Allow: GET, HEAD, POST\r\n"
                                                   : "Allow: GET, HEAD\r\n";
    for (const auto& [name, value] : reply.headers)
        head += name + ": " + value + "\r\n";
    if (close)
        head += "Connection: close\r\n";
    else if (request.http10)
        head += "Connection: keep-alive\r\n";
    m_socket->write(head + "\r\n");
    if (request.method != "HEAD")
        m_socket->write(reply.body);
    if (close) {
        m_closing = true;
        // What the client sent beyond this request goes unread: dropped here rather than left to
        // make the system reset the connection before the client has read the answer.
        m_socket->readAll();
        m_socket->disconnectFromHost();
    }
}

void Connection::handOn(const HttpRequest& request, qsizetype headBytes)
{
    if (request.path != kLivePath || request.method != "GET") {
        m_socket->read(headBytes);
        return write(request, refusal(404, "Not found."), true);
    }
    // A browser always says which page opened the channel: only this server's own may.
    if (!request.origin.isEmpty()) {
        const QUrl origin = QUrl::fromEncoded(request.origin);
        if (!origin.isValid() || !m_listener->serves(origin.host().toUtf8().toLower())) {
            m_socket->read(headBytes);
            return write(request, refusal(403, "The live channel serves this server's page only."),
                         true);
        }
    }
    // Qt WebSockets reads the handshake from the socket itself.
    m_mark->handshakePending = true;
    m_handedOn = true;
    // From here the socket belongs to Qt WebSockets, which ends it.
    disconnect(m_socket, &QTcpSocket::disconnected, m_socket, &QObject::deleteLater);
    m_listener->webSockets.handleConnection(m_socket);
}

HttpFace::HttpFace(const HttpLimits& limits, Handler handler, Upgrade upgrade, QObject* parent)
    : QObject(parent)
    , m_listener(std::make_unique<Listener>(limits, std::move(handler), std::move(upgrade)))
{
}

HttpFace::~HttpFace() = default;

bool HttpFace::listen(const QHostAddress& address, quint16 port, QString* error)
{
    if (!m_listener->listen(address, port)) {
        *error = m_listener->errorString();
        return false;
    }
    QSet<QByteArray>& hosts = m_listener->hosts;
    hosts = {"localhost", "127.0.0.1", "::1", address.toString().toLatin1().toLower()};
    const QString name = QHostInfo::localHostName().toLower();
    hosts.insert(name.toUtf8());
    if (!QHostInfo::localDomainName().isEmpty())
        hosts.insert((name + u'.' + QHostInfo::localDomainName().toLower()).toUtf8());
    if (address == QHostAddress::Any || address == QHostAddress::AnyIPv4
        || address == QHostAddress::AnyIPv6) {
        for (QHostAddress local : QNetworkInterface::allAddresses()) {
            local.setScopeId({});
            hosts.insert(local.toString().toLatin1().toLower());
        }
    }
    for (const QString& allowed : m_listener->limits.allowedHosts)
        hosts.insert(allowed.trimmed().toLower().toUtf8());
    return true;
}

quint16 HttpFace::port() const { return m_listener->serverPort(); }

int HttpFace::connections() const { return int(m_listener->connections.size()); }

QStringList HttpFace::servedHosts() const
{
    QStringList names;
    for (const QByteArray& host : m_listener->hosts)
        names.append(QString::fromUtf8(host));
    names.sort();
    return names;
}

} // namespace spinlane::web
