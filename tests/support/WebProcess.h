#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace spinlane::testing {

// spinlane-web as a program of its own on a free loopback port, ended with SIGTERM at the end.
class WebProcess {
public:
    WebProcess(const QString& program, const QString& config, const QStringList& more = {});
    ~WebProcess();
    WebProcess(const WebProcess&) = delete;
    WebProcess& operator=(const WebProcess&) = delete;

    // Waits until its standard error holds `text`; false when it ends or stays silent.
    bool waitForError(const QString& text, int timeoutMs = 10000);
    QString errors();
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    // Ends it at once (SIGKILL), as a crash or a power cut would.
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    // Its resident memory, from /proc; -1 when it is not running.
    qint64 residentKiB() const;
    quint16 port = 0; // 0 when it did not start serving

private:
    QProcess m_process;
    QByteArray m_errors;
};

// A client on a raw socket that does what a browser would not: its receive buffer is the
// smallest, it reads only when told to, and it writes whatever it is given without waiting.
class RawClient {
public:
    explicit RawClient(quint16 port);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool isConnected() const { return m_fd >= 0; }
    // Sends as much of `bytes` as the system takes now; the number sent, -1 once it fails.
    qint64 send(const QByteArray& bytes);
    // Reads what arrives within `timeoutMs` (to the first blank line with `head`).
    QByteArray receive(int timeoutMs, bool head = false);
    // Reads and drops everything until the server closes; false when it stays open that long.
    bool closedWithin(int timeoutMs);
    // Whether the server ends the connection within `timeoutMs`, seen without reading.
    bool hungUpWithin(int timeoutMs);
    // Sends a live channel's handshake and reads the server's answer to it.
    QByteArray upgrade(const QByteArray& extraHeaders = {});

private:
    int m_fd = -1;
};

// A client's WebSocket frame (masked with a zero key, which leaves the payload as it is).
QByteArray clientFrame(int opcode, const QByteArray& payload, bool fin = true);

} // namespace spinlane::testing
