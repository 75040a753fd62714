#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <optional>
#include <sys/types.h>
#include <utility>

// A real PostgreSQL server of Debian's, made with initdb in a temporary folder and listening on
// a free loopback port, for as long as the object lives. The database user is "spinlane", trusted
// on loopback. PostgreSQL refuses to run as root: run by root, the server runs as nobody.
class PostgresServer {
public:
    PostgresServer();
    ~PostgresServer();
    PostgresServer(const PostgresServer&) = delete;
    PostgresServer& operator=(const PostgresServer&) = delete;

    // Empty once the server answers; otherwise what went wrong.
    QString error() const { return m_error; }
    // postgresql://spinlane@127.0.0.1:PORT/NAME
    QString url(const QString& database = QStringLiteral("postgres")) const;

private:
    bool run(const QString& program, const QStringList& arguments);
    void asServerUser(QProcess& process) const;

    QTemporaryDir m_dir;
    QProcess m_server;
    QString m_bin;
    quint16 m_port = 0;
    QString m_error;
    std::optional<std::pair<uid_t, gid_t>> m_user; // whom the server runs as, when not as us
};
