#include "support/MosquittoBroker.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <pwd.h>
#include <unistd.h>

namespace spinlane::testing {

namespace {

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

bool writeFile(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

} // namespace

MosquittoBroker::MosquittoBroker() : m_port(freePort())
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardOutputFile(m_dir.filePath(QStringLiteral("mosquitto.log")), QIODevice::Append);
}

MosquittoBroker::~MosquittoBroker() { stop(); }

bool MosquittoBroker::addUser(const QString& name, const QString& password)
{
    QStringList arguments{QStringLiteral("-b")};
    if (!m_hasUsers)
        arguments.prepend(QStringLiteral("-c"));
    arguments << m_dir.filePath(QStringLiteral("passwd")) << name << password;
    QProcess passwd;
    passwd.start(QStringLiteral("mosquitto_passwd"), arguments);
    m_hasUsers = passwd.waitForFinished(10000) && passwd.exitStatus() == QProcess::NormalExit
                 && passwd.exitCode() == 0;
    return m_hasUsers;
}

bool MosquittoBroker::start(int timeoutMs)
{
    const passwd* me = getpwuid(getuid());
    QByteArray config = "listener " + QByteArray::number(m_port) + " 127.0.0.1\n"
                        + m_tls + "allow_anonymous false\n"
                        "persistence true\n"
                        "persistence_location " + m_dir.path().toUtf8() + "/\n"
                        "log_dest stdout\n"
                        "log_type error\nlog_type warning\nlog_type notice\nlog_type information\n";
    if (me)
        config += "user " + QByteArray(me->pw_name) + '\n';
    if (m_hasUsers)
        config += "password_file " + m_dir.filePath(QStringLiteral("passwd")).toUtf8() + '\n';
    if (!m_acl.isEmpty()) {
        writeFile(m_dir.filePath(QStringLiteral("acl")), m_acl);
        config += "acl_file " + m_dir.filePath(QStringLiteral("acl")).toUtf8() + '\n';
    }
    const QString configPath = m_dir.filePath(QStringLiteral("mosquitto.conf"));
    if (!writeFile(configPath, config))
        return false;
    m_process.start(QStringLiteral("mosquitto"), {QStringLiteral("-c"), configPath});
    if (!m_process.waitForStarted(timeoutMs))
        return false;
    const QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired() && m_process.state() == QProcess::Running) {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, m_port);
        if (probe.waitForConnected(int(qBound<qint64>(qint64(1), deadline.remainingTime(), qint64(200)))))
            return true;
        QThread::msleep(20); // a refused connection returns at once: do not spin
    }
    return false;
}

void MosquittoBroker::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool MosquittoBroker::restartEmpty()
{
    stop();
    QFile::remove(m_dir.filePath(QStringLiteral("mosquitto.db")));
    return start();
}

facility::BrokerSettings MosquittoBroker::settings(const QString& user, const QString& password) const
{
    facility::BrokerSettings settings;
    settings.host = QStringLiteral("127.0.0.1");
    settings.port = m_port;
    settings.user = user;
    settings.password = password;
    return settings;
}

QString MosquittoBroker::log() const
{
    QFile file(m_dir.filePath(QStringLiteral("mosquitto.log")));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QByteArray recordedState(const QString& instrument, const QString& runState, int items,
                         const QString& updated)
{
    static const QStringList users{QStringLiteral("ann"), QStringLiteral("bob"), QStringLiteral("cy")};
    const QDateTime start(QDate(2026, 11, 25), QTime(10, 0), Qt::UTC);
    const bool running = runState == u"running";
    QJsonArray queue;
    QJsonObject current;
    for (int i = 0; i < items; ++i) {
        const QString status = i == 0 ? QStringLiteral("Done")
                               : i == 1 && running ? QStringLiteral("In progress")
                                                   : QStringLiteral("Queued");
        QJsonObject item{{QStringLiteral("number"), i + 1},
                         {QStringLiteral("position"), i % 60 + 1},
                         {QStringLiteral("sample"), QStringLiteral("%1-S%2").arg(instrument).arg(i + 1)},
                         {QStringLiteral("experiment"), QStringLiteral("PROTON")},
                         {QStringLiteral("user"), users[i % users.size()]},
                         {QStringLiteral("status"), status},
                         {QStringLiteral("expectedStart"), i == 0 ? QString() : start.addSecs(60 * i).toString(Qt::ISODate)},
                         {QStringLiteral("expectedEnd"), i == 0 ? QString() : start.addSecs(60 * i + 60).toString(Qt::ISODate)},
                         {QStringLiteral("expectedSeconds"), i == 0 ? -1 : 60},
                         {QStringLiteral("basis"), i == 0 ? QStringLiteral("none") : QStringLiteral("history")},
                         {QStringLiteral("runs"), i == 0 ? 0 : 4}};
        if (i == 1 && running)
            current = item;
        queue.append(item);
    }
    const QJsonObject state{
        {QStringLiteral("schema"), 1},
        {QStringLiteral("instrument"), instrument},
        {QStringLiteral("spinlane"), runState != u"unknown"},
        {QStringLiteral("updated"), updated},
        {QStringLiteral("runState"), runState},
        {QStringLiteral("ifStartedNow"), !running},
        {QStringLiteral("queueEnd"), items > 1 ? start.addSecs(60 * items).toString(Qt::ISODate) : QString()},
        {QStringLiteral("current"), current.isEmpty() ? QJsonValue() : QJsonValue(current)},
        {QStringLiteral("queue"), queue}};
    return QJsonDocument(state).toJson(QJsonDocument::Compact);
}

} // namespace spinlane::testing
