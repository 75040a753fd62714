#include "support/PostgresServer.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QDir>
#include <QTcpServer>
#include <QThread>

#include <csignal>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString newestBinFolder()
{
    QStringList versions =
        QDir(u"/usr/lib/postgresql"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    std::sort(versions.begin(), versions.end(),
              [](const QString& a, const QString& b) { return a.toInt() < b.toInt(); });
    return versions.isEmpty() ? QString() : u"/usr/lib/postgresql/"_s + versions.last() + u"/bin"_s;
}

quint16 freeLoopbackPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

} // namespace

PostgresServer::PostgresServer()
    : m_bin(newestBinFolder())
{
    if (m_bin.isEmpty() || !QFile::exists(m_bin + u"/initdb"_s)) {
        m_error = u"PostgreSQL's server programs are not installed (Debian's postgresql)"_s;
        return;
    }
    const QString data = m_dir.filePath(u"data"_s);
    if (::geteuid() == 0) {
        const passwd* nobody = ::getpwnam("nobody");
        if (!nobody || ::chown(QFile::encodeName(m_dir.path()).constData(), nobody->pw_uid,
                               nobody->pw_gid) != 0) {
            m_error = u"cannot hand the server's folder to nobody"_s;
            return;
        }
        m_user = {nobody->pw_uid, nobody->pw_gid};
    }
    if (!run(u"initdb"_s, {u"-D"_s, data, u"-U"_s, u"spinlane"_s, u"--auth=trust"_s,
                           u"--no-sync"_s, u"-E"_s, u"UTF8"_s, u"--locale=C"_s}))
        return;
    m_port = freeLoopbackPort();
    m_server.setProcessChannelMode(QProcess::MergedChannels);
    asServerUser(m_server);
    m_server.start(m_bin + u"/postgres"_s,
                   {u"-D"_s, data, u"-k"_s, m_dir.path(), u"-h"_s, u"127.0.0.1"_s, u"-p"_s,
                    QString::number(m_port), u"-c"_s, u"fsync=off"_s});
    const QDeadlineTimer deadline(30000);
    while (!deadline.hasExpired() && m_server.state() != QProcess::NotRunning) {
        QProcess ready;
        ready.start(m_bin + u"/pg_isready"_s,
                    {u"-h"_s, u"127.0.0.1"_s, u"-p"_s, QString::number(m_port)});
        if (ready.waitForFinished(5000) && ready.exitCode() == 0)
            return;
        QThread::msleep(100);
    }
    m_error = u"the PostgreSQL server did not start: "_s + QString::fromLocal8Bit(m_server.readAll());
}

PostgresServer::~PostgresServer()
{
    if (m_server.state() == QProcess::NotRunning)
        return;
    ::kill(pid_t(m_server.processId()), SIGINT); // fast shutdown
    if (!m_server.waitForFinished(20000))
        m_server.kill();
    m_server.waitForFinished(5000);
}

QString PostgresServer::url(const QString& database) const
{
    return u"postgresql://spinlane@127.0.0.1:%1/%2"_s.arg(m_port).arg(database);
}

void PostgresServer::asServerUser(QProcess& process) const
{
    if (!m_user)
        return;
    const auto [uid, gid] = *m_user;
    process.setChildProcessModifier([uid = uid, gid = gid] {
        if (::setgid(gid) != 0 || ::setuid(uid) != 0)
            ::_exit(127);
    });
}

bool PostgresServer::run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    asServerUser(process);
    process.start(m_bin + u'/' + program, arguments);
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0)
        return true;
    m_error = program + u" failed: "_s + QString::fromLocal8Bit(process.readAll());
    return false;
}
