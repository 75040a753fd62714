#pragma once

#include "facility/BrokerSettings.h"

#include <QHostAddress>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QStringList>

#include <optional>

// What spinlane-web serves and where: its configuration file (INI, sections [web], [broker] and
// [ledger])
// and the command line's --listen and --facility, which win over the file.
namespace spinlane::web {

struct WebSettings {
    // Instrument: this workstation's Spinlane, published to the broker when one is configured.
    // Facility: every instrument the broker carries; no Spinlane needed.
    enum class Mode { Instrument, Facility };
    Mode mode = Mode::Instrument;
    facility::BrokerSettings broker;
    QString instrument; // the name the page and the API show; the host name by default
    QHostAddress address = QHostAddress::LocalHost;
    quint16 port = 8470;
    bool hideSampleNames = false;
    bool hideUsers = false; // other users' IDs; a user still finds their own items by exact ID
    // Host names that requests may name besides the listen address, localhost and the machine's
    // own names and addresses: a reverse proxy's, a DNS alias.
    QStringList allowedHosts;
    // With both (CertFile= and KeyFile=, read at start), the page and the API are served over
    // HTTPS only.
    QSslCertificate certificate;
    QSslKey key;
    // The facility managers who may see the usage page.
    QString managersFile;
    // Limits, so that stuck or hostile clients cannot take the service down.
    int maxConnections = 512; // open connections of every kind
    int maxLiveClients = 256; // of them, live channels
    int maxRequestBytes = 8192; // a request's line and headers
    int liveStallSeconds = 10; // a live client that has not taken its message by then is dropped
    int idleSeconds = 30; // an HTTP connection without a request is closed after it
    // The ledger. An instrument sends the records of its workstation's ledger file to the
    // facility; the facility keeps every instrument's in its database: an SQLite file, or
    // "postgresql://USER@HOST[:PORT]/NAME" with its password.
    QString ledgerFile; // Spinlane.ledger beside the default settings file
    QString ledgerDatabase; // facility.ledger in the user's data folder
    QString ledgerPassword;
    // An instrument sends its records again from where the facility holds them all when the
    // facility's answer has not caught up with what the broker took for this long.
    int ledgerResendSeconds = 30;
};

// ~/.config/spinlane/web.conf, or where XDG_CONFIG_HOME says.
QString defaultConfigPath();

// "ADDRESS:PORT", "[IPv6]:PORT" or ":PORT" (all addresses); port 0 takes a free one. False for
// anything else.
bool parseListen(const QString& text, QHostAddress* address, quint16* port);

// The file's settings over the defaults. A missing file gives the defaults; a file that cannot be
// read, an unknown key or a bad value gives nothing and `error` says which, with the file's name.
std::optional<WebSettings> readWebSettings(const QString& path, QString* error);

} // namespace spinlane::web
