#include "web/HttpFace.h"

#include "web/LiveChannel.h"

#include <QAbstractHttpServer>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QWebSocket>

#include <list>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

using Status = QHttpServerResponder::StatusCode;

// Never from another origin, nothing inline: the page's script and style are files of its own.
const QByteArray kContentSecurityPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

constexpr int kLiveSendBuffer = 64 * 1024;

} // namespace

// One accepted connection, as long as its socket lives: what it sent since its last answer and
// how long it has been quiet.
class Guard : public QObject {
    Q_OBJECT // for findChild<Guard*>, which otherwise takes any child for one
public:
    Guard(QTcpSocket* socket, const HttpLimits& limits, std::list<Guard*>& all)
        : QObject(socket)
        , m_socket(socket)
        , m_all(all)
        , m_peer(socket->peerAddress())
        , m_peerPort(socket->peerPort())
    {
        m_place = m_all.insert(m_all.end(), this);
        m_idle.setSingleShot(true);
        m_idle.setInterval(limits.idleSeconds * 1000);
        connect(&m_idle, &QTimer::timeout, socket, &QTcpSocket::abort);
        m_idle.start();
        // Connected before the HTTP server's own reader, so a request too long is cut off first.
        connect(socket, &QTcpSocket::readyRead, this, [this, max = limits.maxRequestBytes] {
            m_idle.start();
            m_received += m_socket->bytesAvailable();
            if (m_received > max)
                refuseTooLong();
        });
        connect(socket, &QTcpSocket::bytesWritten, this, [this] {
            if (!m_live)
                m_idle.start();
        });
        connect(socket, &QTcpSocket::disconnected, this, &Guard::leave);
    }
    ~Guard() override { leave(); }

    void answered() { m_received = 0; }
    void becomeLive()
    {
        m_live = true;
        m_idle.stop();
        // A live client's messages wait in the program, where the live channel sees how many
        // pile up, rather than in megabytes of the system's buffers.
        m_socket->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, kLiveSendBuffer);
    }
    bool isLive() const { return m_live; }
    bool isPeer(const QHostAddress& address, quint16 port) const
    {
        return m_peerPort == port && m_peer.isEqual(address);
    }
    QTcpSocket* socket() const { return m_socket; }

private:
    void refuseTooLong()
    {
        // The request is not parsed any further: a short answer, then the connection ends.
        QObject::disconnect(m_socket, &QTcpSocket::readyRead, nullptr, nullptr);
        m_socket->write("HTTP/1.1 431 Request Header Fields Too Large\r\n"
                        "Content-Length: 0\r\nConnection: close\r\n\r\n");
        m_socket->disconnectFromHost();
    }
    void leave()
    {
        if (m_counted) {
            m_all.erase(m_place);
            m_counted = false;
        }
    }

    QTcpSocket* m_socket;
    std::list<Guard*>& m_all;
    std::list<Guard*>::iterator m_place;
    bool m_counted = true;
    QHostAddress m_peer;
    quint16 m_peerPort;
    QTimer m_idle;
    qint64 m_received = 0;
    bool m_live = false;
};

// Accepts connections within the limit: when it is reached, the oldest connection that is not a
// live channel makes room (a browser opens a new one when it needs to); when every one is live,
// the new connection is closed.
class HttpFace::Listener : public QTcpServer {
public:
    Listener(const HttpLimits& limits, QObject* parent)
        : QTcpServer(parent)
        , m_limits(limits)
    {
        setMaxPendingConnections(std::max(30, limits.maxConnections));
    }

    ~Listener() override
    {
        while (!guards.empty())
            delete guards.front();
    }

    std::list<Guard*> guards;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto* socket = new QTcpSocket(this);
        if (!socket->setSocketDescriptor(descriptor)) {
            delete socket;
            return;
        }
        if (int(guards.size()) >= m_limits.maxConnections && !evictOne()) {
            socket->abort();
            delete socket;
            return;
        }
        socket->setReadBufferSize(m_limits.maxRequestBytes + 1024);
        new Guard(socket, m_limits, guards);
        addPendingConnection(socket);
    }

private:
    bool evictOne()
    {
        for (Guard* guard : guards) {
            if (!guard->isLive()) {
                QTcpSocket* socket = guard->socket();
                delete guard;
                socket->abort();
                return true;
            }
        }
        return false;
    }

    HttpLimits m_limits;
};

class HttpFace::Server : public QAbstractHttpServer {
public:
    Server(const HttpLimits& limits, Handler handler, Upgrade upgrade)
        : m_limits(limits)
        , m_handler(std::move(handler))
        , m_upgrade(std::move(upgrade))
    {
        connect(this, &QAbstractHttpServer::newWebSocketConnection, this, [this] {
            while (hasPendingWebSocketConnections()) {
                std::unique_ptr<QWebSocket> socket = nextPendingWebSocketConnection();
                if (!socket)
                    break;
                if (listener) {
                    for (Guard* guard : listener->guards) {
                        if (guard->isPeer(socket->peerAddress(), socket->peerPort()))
                            guard->becomeLive();
                    }
                }
                m_upgrade(std::move(socket));
            }
        });
    }

    QPointer<Listener> listener;

protected:
    bool handleRequest(const QHttpServerRequest& request, QTcpSocket* socket) override
    {
        if (auto* guard = socket->findChild<Guard*>(QString(), Qt::FindDirectChildrenOnly))
            guard->answered();
        // Qt 6.4 asks here before it hands a WebSocket upgrade to its WebSocket server: true
        // lets the upgrade go on, with nothing written; false closes the connection.
        if (request.value("upgrade").compare("websocket", Qt::CaseInsensitive) == 0
            && request.value("connection").toLower().contains("upgrade"))
            return request.url().path() == kLivePath;
        const bool head = request.method() == QHttpServerRequest::Method::Head;
        HttpReply reply;
        if (request.method() == QHttpServerRequest::Method::Get || head) {
            reply = m_handler(request.url().path());
        } else {
            reply = {405, "text/plain; charset=utf-8", "Only GET and HEAD are served.\n", true};
        }
        QHttpServerResponder responder = makeResponder(request, socket);
        responder.writeStatusLine(Status(reply.status));
        responder.writeHeader("Content-Type", reply.contentType);
        responder.writeHeader("Content-Length", QByteArray::number(reply.body.size()));
        responder.writeHeader("X-Content-Type-Options", "nosniff");
        responder.writeHeader("Content-Security-Policy", kContentSecurityPolicy);
        responder.writeHeader("Referrer-Policy", "no-referrer");
        responder.writeHeader("X-Frame-Options", "DENY");
        responder.writeHeader("Cache-Control", reply.noStore ? "no-store" : "no-cache");
        if (reply.status == 405)
            responder.writeHeader("Allow", "GET, HEAD");
        responder.writeBody(head ? QByteArray() : reply.body); // the blank line, at least
        return true;
    }

    void missingHandler(const QHttpServerRequest&, QTcpSocket* socket) override
    {
        socket->disconnectFromHost();
    }

private:
    HttpLimits m_limits;
    Handler m_handler;
    Upgrade m_upgrade;
};

HttpFace::HttpFace(const HttpLimits& limits, Handler handler, Upgrade upgrade, QObject* parent)
    : QObject(parent)
    , m_server(std::make_unique<Server>(limits, std::move(handler), std::move(upgrade)))
{
    m_server->listener = new Listener(limits, m_server.get());
}

HttpFace::~HttpFace() = default;

bool HttpFace::listen(const QHostAddress& address, quint16 port, QString* error)
{
    if (!m_server->listener->listen(address, port)) {
        *error = m_server->listener->errorString();
        return false;
    }
    m_server->bind(m_server->listener);
    return true;
}

quint16 HttpFace::port() const { return m_server->listener->serverPort(); }

int HttpFace::connections() const { return int(m_server->listener->guards.size()); }

} // namespace spinlane::web

#include "HttpFace.moc"
