#pragma once

#include <QString>
#include <QStringList>

namespace spinlane {
class ProfileDocument;
}

// The broker a spinlane-web publishes to or, in facility mode, listens to: the [broker] section of
// its configuration file. Secrets live only there, never on a command line.
namespace spinlane::facility {

struct BrokerSettings {
    QString host; // empty: no broker
    int port = 1883;
    QString user;
    QString password;
    bool tls = false;
    QString caFile; // TLS: the authority that signed the broker's certificate (system's when empty)
    QString certFile; // a client certificate and its key, instead of or beside a password
    QString keyFile;
    int keepAliveSeconds = 30;
    int heartbeatSeconds = 30; // an instrument says "online" again this often
    int offlineAfterSeconds = 90; // the facility shows an instrument offline after this silence
    int maxPayloadBytes = 4 * 1024 * 1024; // the facility ignores larger states

    bool isSet() const { return !host.isEmpty(); }
    QString address() const { return host + u':' + QString::number(port); }
};

// Reads [broker] from a configuration file already parsed from `path`. Each mistake adds a line
// "PATH: [broker] KEY: what is wrong" to `errors`, and so does a password in a file that others
// than its owner may read.
BrokerSettings readBrokerSettings(const ProfileDocument& file, const QString& path,
                                  QStringList* errors);

// "PATH holds a password and others can read it: chmod 600 PATH", or empty when only the owner
// may read the file.
QString exposedPasswordProblem(const QString& path);

} // namespace spinlane::facility
