#pragma once

#include "facility/BrokerSettings.h"

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

namespace spinlane::testing {

// A real mosquitto on a free loopback port, with a configuration, password file and access list
// written for the test: no anonymous clients, retained messages kept across a restart.
class MosquittoBroker {
public:
    MosquittoBroker();
    ~MosquittoBroker();
    MosquittoBroker(const MosquittoBroker&) = delete;
    MosquittoBroker& operator=(const MosquittoBroker&) = delete;

    // Before start(): a user with that password (through mosquitto_passwd), and the access list.
    bool addUser(const QString& name, const QString& password);
    void setAccessList(const QByteArray& text) { m_acl = text; }
    // Before start(): TLS on its port with this certificate and key (PEM files).
    void setTls(const QString& certFile, const QString& keyFile)
    {
        m_tls = "certfile " + certFile.toUtf8() + "\nkeyfile " + keyFile.toUtf8() + '\n';
    }

    // Starts it and waits until it accepts connections; false (see log()) when it does not.
    bool start(int timeoutMs = 10000);
    // Ends it as a service manager would (SIGTERM), so that it saves what it retains.
    void stop();
    bool restart() { return stop(), start(); }
    // Restarts it having lost everything it retained, as after a disk failure.
    bool restartEmpty();

    quint16 port() const { return m_port; }
    facility::BrokerSettings settings(const QString& user, const QString& password) const;
    QString log() const;
    QString folder() const { return m_dir.path(); }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    QByteArray m_acl;
    QByteArray m_tls;
    bool m_hasUsers = false;
};

// A schema-1 instrument state as spinlane-web publishes it: `items` queue items of users "ann",
// "bob" and "cy" in turn, the first done, the second in progress while the run state is
// "running", expected starts a minute apart from `start`.
QByteArray recordedState(const QString& instrument, const QString& runState, int items,
                         const QString& updated = QStringLiteral("2026-11-25T10:00:00.000Z"));

} // namespace spinlane::testing
