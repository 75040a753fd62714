#include "facility/BrokerSettings.h"

#include "core/ProfileFile.h"

#include <QFileInfo>

namespace spinlane::facility {

namespace {

constexpr QStringView kSection = u"broker";
const QStringList kKeys = {QStringLiteral("Host"), QStringLiteral("Port"), QStringLiteral("User"),
                           QStringLiteral("Password"), QStringLiteral("TLS"), QStringLiteral("CAFile"),
                           QStringLiteral("CertFile"), QStringLiteral("KeyFile"), QStringLiteral("KeepAlive"),
                           QStringLiteral("Heartbeat"), QStringLiteral("OfflineAfter"),
                           QStringLiteral("MaxPayloadBytes")};

struct Reader {
    const ProfileDocument& file;
    QString path;
    QStringList* errors;

    void fail(QStringView key, const QString& what) const
    {
        errors->append(QStringLiteral("%1: [broker] %2: %3").arg(path, key.toString(), what));
    }
    QString text(QStringView key, const QString& fallback = {}) const
    {
        return file.value(kSection, key).value_or(fallback).trimmed();
    }
    int number(QStringView key, int fallback, int lowest, int highest) const
    {
        const QString written = text(key);
        if (written.isEmpty())
            return fallback;
        bool ok = false;
        const int value = written.toInt(&ok);
        if (!ok || value < lowest || value > highest) {
            fail(key, QStringLiteral("\"%1\" is not a whole number from %2 to %3")
                          .arg(written)
                          .arg(lowest)
                          .arg(highest));
            return fallback;
        }
        return value;
    }
    bool flag(QStringView key) const
    {
        const QString written = text(key).toLower();
        if (written.isEmpty() || written == u"false" || written == u"no" || written == u"0")
            return false;
        if (written == u"true" || written == u"yes" || written == u"1")
            return true;
        fail(key, QStringLiteral("\"%1\" is neither true nor false").arg(text(key)));
        return false;
    }
    QString readableFile(QStringView key) const
    {
        const QString name = text(key);
        if (!name.isEmpty() && !QFileInfo(name).isReadable())
            fail(key, QStringLiteral("cannot read %1").arg(name));
        return name;
    }
};

} // namespace

BrokerSettings readBrokerSettings(const ProfileDocument& file, const QString& path,
                                  QStringList* errors)
{
    const Reader read{file, path, errors};
    for (const ProfileDocument::Item& item : file.items()) {
        if (!item.header && item.section.compare(kSection, Qt::CaseInsensitive) == 0
            && !kKeys.contains(item.key, Qt::CaseInsensitive))
            read.fail(item.key, QStringLiteral("unknown setting"));
    }
    BrokerSettings settings;
    settings.host = read.text(u"Host");
    settings.tls = read.flag(u"TLS");
    settings.port = read.number(u"Port", settings.tls ? 8883 : 1883, 1, 65535);
    settings.user = read.text(u"User");
    settings.password = file.value(kSection, u"Password").value_or(QString());
    settings.caFile = read.readableFile(u"CAFile");
    settings.certFile = read.readableFile(u"CertFile");
    settings.keyFile = read.readableFile(u"KeyFile");
    settings.keepAliveSeconds = read.number(u"KeepAlive", settings.keepAliveSeconds, 5, 3600);
    settings.heartbeatSeconds = read.number(u"Heartbeat", settings.heartbeatSeconds, 1, 3600);
    settings.offlineAfterSeconds =
        read.number(u"OfflineAfter", settings.offlineAfterSeconds, 2, 86400);
    settings.maxPayloadBytes =
        read.number(u"MaxPayloadBytes", settings.maxPayloadBytes, 1024, 256 * 1024 * 1024);
    if (settings.certFile.isEmpty() != settings.keyFile.isEmpty())
        read.fail(u"CertFile", QStringLiteral("a client certificate needs both CertFile and KeyFile"));
    if (!settings.certFile.isEmpty() && !settings.tls)
        read.fail(u"CertFile", QStringLiteral("a client certificate needs TLS=true"));
    if (!settings.password.isEmpty() && settings.user.isEmpty())
        read.fail(u"Password", QStringLiteral("a password needs a User"));
    if (settings.host.isEmpty() && (!settings.user.isEmpty() || settings.tls))
        read.fail(u"Host", QStringLiteral("the broker's host is missing"));
    if (!settings.password.isEmpty()) {
        const QString exposed = exposedPasswordProblem(path);
        if (!exposed.isEmpty())
            errors->append(exposed);
    }
    return settings;
}

QString exposedPasswordProblem(const QString& path)
{
    const QFileInfo info(path);
    const auto others = QFileDevice::ReadGroup | QFileDevice::ReadOther;
    if (!(info.permissions() & others))
        return {};
    return QStringLiteral("%1 holds a password and others can read it: chmod 600 %1").arg(path);
}

} // namespace spinlane::facility
