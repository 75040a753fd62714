#include "web/ManagerAccounts.h"

#include "facility/BrokerSettings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

#include <openssl/crypto.h>

#include <crypt.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

bool isStrongHash(const QByteArray& hash)
{
    return hash.startsWith("$y$") || hash.startsWith("$2b$") || hash.startsWith("$2y$");
}

QByteArray cryptOf(const QByteArray& password, const QByteArray& setting)
{
    auto data = std::make_unique<crypt_data>();
    const char* out = crypt_rn(password.constData(), setting.constData(), data.get(), sizeof *data);
    // A failed crypt gives NULL or a text starting with '*', which no stored hash does.
    return out && out[0] != '*' ? QByteArray(out) : QByteArray();
}

} // namespace

QString defaultManagersPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           + u"/spinlane/web-managers"_s;
}

bool isManagerName(const QString& name)
{
    static const QRegularExpression form(u"^[A-Za-z0-9._@-]{1,64}$"_s);
    return form.match(name).hasMatch();
}

std::optional<QHash<QString, QByteArray>> readManagers(const QString& path, QString* error)
{
    QHash<QString, QByteArray> managers;
    QFile file(path);
    if (!file.exists())
        return managers;
    if (const QString exposed = facility::exposedPasswordProblem(path); !exposed.isEmpty()) {
        *error = exposed;
        return std::nullopt;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *error = path + u": cannot be read ("_s + file.errorString() + u')';
        return std::nullopt;
    }
    int number = 0;
    while (!file.atEnd()) {
        ++number;
        const QByteArray line = file.readLine(4096).trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const qsizetype colon = line.indexOf(':');
        const QString name = QString::fromUtf8(line.first(std::max<qsizetype>(colon, 0)));
        const QByteArray hash = line.mid(colon + 1);
        if (colon < 0 || !isManagerName(name) || !isStrongHash(hash)) {
            *error = u"%1:%2: not NAME:HASH with a yescrypt or bcrypt hash"_s.arg(path).arg(number);
            return std::nullopt;
        }
        managers.insert(name, hash);
    }
    return managers;
}

bool writeManager(const QString& path, const QString& name, const QByteArray& hash, QString* error)
{
    std::optional<QHash<QString, QByteArray>> managers = readManagers(path, error);
    if (!managers)
        return false;
    if (hash.isEmpty())
        managers->remove(name);
    else
        managers->insert(name, hash);
    QStringList names = managers->keys();
    names.sort();
    QByteArray text = "# Facility managers who may see the usage page: written by spinlane-web "
                      "--set-manager\n";
    for (const QString& each : names)
        text += each.toUtf8() + ':' + managers->value(each) + '\n';
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(text) != text.size() || !file.commit()) {
        *error = path + u": cannot be written ("_s + file.errorString() + u')';
        return false;
    }
    return true;
}

QByteArray hashPassword(const QByteArray& password)
{
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    if (!crypt_gensalt_rn("$y$", 0, nullptr, 0, setting, sizeof setting))
        return {};
    return cryptOf(password, setting);
}

bool passwordMatches(const QByteArray& password, const QByteArray& hash)
{
    const QByteArray computed = cryptOf(password, hash);
    return !computed.isEmpty() && computed.size() == hash.size()
           && CRYPTO_memcmp(computed.constData(), hash.constData(), size_t(hash.size())) == 0;
}

} // namespace spinlane::web
