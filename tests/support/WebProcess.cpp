#include "support/WebProcess.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace spinlane::testing {

WebProcess::WebProcess(const QString& program, const QString& config, const QStringList& more)
{
    m_process.start(program, QStringList{u"--config"_s, config, u"--listen"_s, u"127.0.0.1:0"_s}
                                 + more);
    if (!waitForError(u"/\n"_s))
        return;
    static const QRegularExpression at(u"at https?://127\\.0\\.0\\.1:(\\d+)/"_s);
    port = quint16(at.match(errors()).captured(1).toUInt());
}

WebProcess::~WebProcess()
{
    m_process.terminate();
    if (!m_process.waitForFinished(10000))
        m_process.kill();
    m_process.waitForFinished();
}

bool WebProcess::waitForError(const QString& text, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!errors().contains(text)) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return false;
        m_process.waitForReadyRead(int(qBound(qint64(1), deadline.remainingTime(), qint64(100))));
    }
    return true;
}

QString WebProcess::errors()
{
    m_errors += m_process.readAllStandardError();
    return QString::fromUtf8(m_errors);
}

qint64 WebProcess::residentKiB() const
{
    QFile status(u"/proc/%1/status"_s.arg(m_process.processId()));
    if (!isRunning() || !status.open(QIODevice::ReadOnly))
        return -1;
    static const QRegularExpression rss(u"VmRSS:\\s+(\\d+)"_s);
    return rss.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
}

RawClient::RawClient(quint16 port)
{
    m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const int size = 1024;
    ::setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(m_fd);
        m_fd = -1;
        return;
    }
    ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
}

RawClient::~RawClient()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

qint64 RawClient::send(const QByteArray& bytes)
{
    const ssize_t sent = ::send(m_fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL);
    if (sent < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
    return sent;
}

QByteArray RawClient::receive(int timeoutMs, bool head)
{
    QByteArray received;
    const QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired() && !(head && received.contains("\r\n\r\n"))) {
        pollfd ready{m_fd, POLLIN, 0};
        if (::poll(&ready, 1, int(qMax<qint64>(1, deadline.remainingTime()))) <= 0)
            continue;
        char buffer[4096];
        const ssize_t got = ::recv(m_fd, buffer, head ? 1 : sizeof buffer, 0);
        if (got <= 0)
            break;
        received.append(buffer, got);
    }
    return received;
}

bool RawClient::closedWithin(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        pollfd ready{m_fd, POLLIN, 0};
        if (::poll(&ready, 1, int(qMax<qint64>(1, deadline.remainingTime()))) <= 0)
            continue;
        char buffer[65536];
        const ssize_t got = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK))
            return true;
    }
    return false;
}

bool RawClient::hungUpWithin(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        pollfd ready{m_fd, POLLRDHUP, 0};
        if (::poll(&ready, 1, int(qMax<qint64>(1, deadline.remainingTime()))) <= 0)
            continue;
        if (ready.revents & (POLLRDHUP | POLLHUP | POLLERR))
            return true;
        ::usleep(10000); // unread data only: poll would answer at once again
    }
    return false;
}

QByteArray RawClient::upgrade(const QByteArray& extraHeaders)
{
    send("GET /api/v1/live HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\n"
         "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
         "Sec-WebSocket-Version: 13\r\n"
         + extraHeaders + "\r\n");
    return receive(5000, true);
}

QByteArray clientFrame(int opcode, const QByteArray& payload, bool fin)
{
    QByteArray frame;
    frame += char((fin ? 0x80 : 0) | opcode);
    if (payload.size() < 126) {
        frame += char(0x80 | payload.size());
    } else {
        frame += char(0x80 | 126);
        frame += char(payload.size() >> 8);
        frame += char(payload.size() & 0xff);
    }
    frame += QByteArray(4, '\0');
    return frame + payload;
}

} // namespace spinlane::testing
