#include "web/WebSettings.h"

#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"
#include "web/ManagerAccounts.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

const QString kSection = u"web"_s;

struct Number {
    const char* key;
    int WebSettings::*field;
    int least;
    int most;
};

const Number kNumbers[] = {
    {"MaxConnections", &WebSettings::maxConnections, 1, 100000},
    {"MaxLiveClients", &WebSettings::maxLiveClients, 0, 100000},
    {"MaxRequestBytes", &WebSettings::maxRequestBytes, 1024, 1 << 20},
    {"LiveStallSeconds", &WebSettings::liveStallSeconds, 1, 3600},
    {"IdleSeconds", &WebSettings::idleSeconds, 1, 86400},
};

std::optional<bool> parseBoolean(const QString& text)
{
    const QString value = text.trimmed().toLower();
    if (value == u"true"_s || value == u"yes"_s || value == u"1"_s)
        return true;
    if (value == u"false"_s || value == u"no"_s || value == u"0"_s)
        return false;
    return std::nullopt;
}

// A value as written: QSettings reads a value holding commas as a list.
QString textOf(const QVariant& value)
{
    return value.userType() == QMetaType::QStringList ? value.toStringList().join(u", "_s)
                                                      : value.toString();
}

} // namespace

QString defaultConfigPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           + u"/spinlane/web.conf"_s;
}

bool parseListen(const QString& text, QHostAddress* address, quint16* port)
{
    static const QRegularExpression form(u"^(?:\\[([^\\]]+)\\]|([^:\\[\\]]*)):(\\d{1,5})$"_s);
    const QRegularExpressionMatch match = form.match(text.trimmed());
    if (!match.hasMatch())
        return false;
    const QString host = match.captured(1).isEmpty() ? match.captured(2) : match.captured(1);
    const uint number = match.captured(3).toUInt();
    if (number > 65535)
        return false;
    QHostAddress parsed = host.isEmpty() ? QHostAddress(QHostAddress::Any) : QHostAddress(host);
    if (parsed.isNull())
        return false;
    *address = parsed;
    *port = quint16(number);
    return true;
}

namespace {

// The certificate and its key from CertFile= and KeyFile=: both or neither, the key readable by
// its owner only.
std::optional<QString> readTls(QSettings& ini, const QString& path, WebSettings* settings)
{
    const QString certFile = textOf(ini.value(u"CertFile"_s)).trimmed();
    const QString keyFile = textOf(ini.value(u"KeyFile"_s)).trimmed();
    const auto fail = [&](const QString& key, const QString& why) {
        return std::optional<QString>(path + u": [web] "_s + key + u": "_s + why);
    };
    if (certFile.isEmpty() != keyFile.isEmpty())
        return fail(certFile.isEmpty() ? u"CertFile"_s : u"KeyFile"_s,
                    u"HTTPS needs both CertFile and KeyFile"_s);
    if (certFile.isEmpty())
        return std::nullopt;
    const QList<QSslCertificate> certificates = QSslCertificate::fromPath(certFile);
    if (certificates.isEmpty())
        return fail(u"CertFile"_s, certFile + u" holds no PEM certificate"_s);
    settings->certificate = certificates.first();
    QFile key(keyFile);
    if (!key.open(QIODevice::ReadOnly))
        return fail(u"KeyFile"_s, keyFile + u" cannot be read"_s);
    if (QFileInfo(keyFile).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther))
        return fail(u"KeyFile"_s, keyFile + u" is readable by others: chmod 600 "_s + keyFile);
    const QByteArray pem = key.readAll();
    for (const QSsl::KeyAlgorithm algorithm : {QSsl::Rsa, QSsl::Ec, QSsl::Opaque}) {
        settings->key = QSslKey(pem, algorithm);
        if (!settings->key.isNull())
            return std::nullopt;
    }
    return fail(u"KeyFile"_s, keyFile + u" holds no PEM private key (RSA or EC)"_s);
}

// The [ledger] section over the defaults; the reason when it holds what it should not.
std::optional<QString> readLedgerSettings(QSettings& ini, const QString& path, WebSettings* settings)
{
    ini.beginGroup(u"ledger"_s);
    const auto fail = [&](const QString& key, const QString& why) {
        return std::optional<QString>(path + u": [ledger] "_s + key + u": "_s + why);
    };
    for (const QString& key : ini.childKeys()) {
        const QString value = textOf(ini.value(key)).trimmed();
        if (key == u"File"_s || key == u"Database"_s) {
            if (value.isEmpty())
                return fail(key, u"needs a path"_s);
            (key == u"File"_s ? settings->ledgerFile : settings->ledgerDatabase) = value;
        } else if (key == u"Password"_s) {
            settings->ledgerPassword = value;
        } else if (key == u"ResendAfter"_s) {
            bool ok = false;
            settings->ledgerResendSeconds = value.toInt(&ok);
            if (!ok || settings->ledgerResendSeconds < 1 || settings->ledgerResendSeconds > 86400)
                return fail(key, u"needs a whole number of seconds from 1 to 86400"_s);
        } else {
            return fail(key, u"unknown setting"_s);
        }
    }
    ini.endGroup();
    if (!settings->ledgerPassword.isEmpty()) {
        if (const QString exposed = facility::exposedPasswordProblem(path); !exposed.isEmpty())
            return exposed;
    }
    return std::nullopt;
}

} // namespace

std::optional<WebSettings> readWebSettings(const QString& path, QString* error)
{
    WebSettings settings;
    settings.instrument = QHostInfo::localHostName();
    const QFileInfo file(path);
    settings.ledgerFile = QFileInfo(defaultSettingsPath()).dir().filePath(u"Spinlane.ledger"_s);
    settings.ledgerDatabase = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
                              + u"/spinlane/facility.ledger"_s;
    settings.managersFile = defaultManagersPath();
    if (!file.exists())
        return settings;
    if (!file.isReadable()) {
        *error = path + u": cannot be read"_s;
        return std::nullopt;
    }
    QSettings ini(path, QSettings::IniFormat);
    if (ini.status() != QSettings::NoError) {
        *error = path + u": not a configuration file"_s;
        return std::nullopt;
    }
    const auto fail = [&](const QString& key, const QString& why) {
        *error = path + u": ["_s + kSection + u"] "_s + key + u": "_s + why;
        return std::nullopt;
    };
    for (const QString& key : ini.allKeys()) {
        const QString section = key.section(u'/', 0, 0);
        if (section == u"broker"_s || section == u"ledger"_s)
            continue; // read below
        if (!key.contains(u'/') || section != kSection) {
            *error = path + u": "_s + key + u": not a setting of spinlane-web (its settings are "_s
                     u"in [web], [broker] and [ledger])"_s;
            return std::nullopt;
        }
    }
    ini.beginGroup(kSection);
    QStringList known{u"Mode"_s, u"Instrument"_s, u"Listen"_s, u"HideSampleNames"_s,
                      u"HideUsers"_s, u"AllowedHosts"_s, u"CertFile"_s, u"KeyFile"_s,
                      u"Managers"_s};
    for (const Number& number : kNumbers)
        known.append(QLatin1StringView(number.key));
    for (const QString& key : ini.childKeys()) {
        if (!known.contains(key))
            return fail(key, u"unknown setting"_s);
    }
    if (ini.contains(u"Instrument"_s)) {
        settings.instrument = textOf(ini.value(u"Instrument"_s)).trimmed();
        if (settings.instrument.isEmpty() || settings.instrument.size() > 64)
            return fail(u"Instrument"_s, u"needs a name of 1 to 64 characters"_s);
    }
    if (ini.contains(u"Listen"_s)
        && !parseListen(textOf(ini.value(u"Listen"_s)), &settings.address, &settings.port))
        return fail(u"Listen"_s, u"not ADDRESS:PORT"_s);
    for (const QString& host : textOf(ini.value(u"AllowedHosts"_s)).split(u',', Qt::SkipEmptyParts)) {
        static const QRegularExpression name(u"^[A-Za-z0-9._-]+$"_s);
        if (!name.match(host.trimmed()).hasMatch())
            return fail(u"AllowedHosts"_s, u"needs host names without port, separated by commas"_s);
        settings.allowedHosts.append(host.trimmed().toLower());
    }
    for (const auto& [key, field] : {std::pair{u"HideSampleNames"_s, &WebSettings::hideSampleNames},
                                     std::pair{u"HideUsers"_s, &WebSettings::hideUsers}}) {
        if (!ini.contains(key))
            continue;
        const auto hide = parseBoolean(textOf(ini.value(key)));
        if (!hide)
            return fail(key, u"needs true or false"_s);
        settings.*field = *hide;
    }
    for (const Number& number : kNumbers) {
        const QString key = QLatin1StringView(number.key);
        if (!ini.contains(key))
            continue;
        bool ok = false;
        const int value = textOf(ini.value(key)).trimmed().toInt(&ok);
        if (!ok || value < number.least || value > number.most)
            return fail(key, u"needs a whole number from %1 to %2"_s.arg(number.least).arg(number.most));
        settings.*number.field = value;
    }
    if (settings.maxLiveClients > settings.maxConnections)
        return fail(u"MaxLiveClients"_s, u"more than MaxConnections"_s);
    if (ini.contains(u"Managers"_s)) {
        settings.managersFile = textOf(ini.value(u"Managers"_s)).trimmed();
        if (settings.managersFile.isEmpty())
            return fail(u"Managers"_s, u"needs a path"_s);
    }
    if (const auto tlsFailure = readTls(ini, path, &settings)) {
        *error = *tlsFailure;
        return std::nullopt;
    }
    if (ini.contains(u"Mode"_s)) {
        const QString mode = textOf(ini.value(u"Mode"_s)).trimmed().toLower();
        if (mode == u"facility"_s)
            settings.mode = WebSettings::Mode::Facility;
        else if (mode != u"instrument"_s)
            return fail(u"Mode"_s, u"needs instrument or facility"_s);
    }
    ini.endGroup();
    if (const auto ledgerFailure = readLedgerSettings(ini, path, &settings)) {
        *error = *ledgerFailure;
        return std::nullopt;
    }
    QStringList problems;
    settings.broker = facility::readBrokerSettings(ProfileDocument::load(path), path, &problems);
    if (!problems.isEmpty()) {
        *error = problems.join(u'\n');
        return std::nullopt;
    }
    if (settings.mode == WebSettings::Mode::Facility && !settings.broker.isSet())
        return fail(u"Mode"_s, u"the facility needs a broker: its Host in [broker]"_s);
    return settings;
}

} // namespace spinlane::web
