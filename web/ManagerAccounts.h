#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

// The facility managers who may see the instruments' usage: a file of "NAME:HASH" lines that
// only its owner may read, the hashes the system's crypt makes with yescrypt (or bcrypt, written
// by other tools). `spinlane-web --set-manager NAME` writes it.
namespace spinlane::web {

// ~/.config/spinlane/web-managers, or where XDG_CONFIG_HOME says.
QString defaultManagersPath();

// Every manager's hash by name. Nothing, with the reason, for a file that cannot be read, that
// others may read, or that holds a line which is not NAME:HASH with a yescrypt or bcrypt hash.
// A file that is not there holds no manager.
std::optional<QHash<QString, QByteArray>> readManagers(const QString& path, QString* error);

// Sets (or, with an empty hash, removes) one manager's hash, keeping the file's other lines;
// the file is written whole, readable by its owner only.
bool writeManager(const QString& path, const QString& name, const QByteArray& hash,
                  QString* error);

// A name a manager logs in with: 1 to 64 letters, digits, '.', '_', '@' or '-'.
bool isManagerName(const QString& name);

// A new yescrypt hash of `password` with a random salt; empty when crypt fails.
QByteArray hashPassword(const QByteArray& password);

// Whether `password` gives `hash`, compared in constant time.
bool passwordMatches(const QByteArray& password, const QByteArray& hash);

} // namespace spinlane::web
