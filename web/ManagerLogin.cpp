#include "web/ManagerLogin.h"

#include "web/HttpRequest.h"
#include "web/ManagerAccounts.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

const QByteArray kCookieName = "spinlane-session";
constexpr int kMaxFailureKeys = 4096;
constexpr int kForgetFailuresSeconds = 3600;

HttpReply text(int status, const QByteArray& body)
{
    return {status, "text/plain; charset=utf-8", body + '\n', true, {}};
}

// A login from another site's page could otherwise set a session in the manager's browser.
bool fromOwnPage(const HttpRequest& request)
{
    const QUrl origin = QUrl::fromEncoded(request.origin);
    return origin.isValid() && !origin.host().isEmpty()
           && origin.host().toUtf8().toLower() == request.host;
}

QByteArray newToken()
{
    quint32 words[8];
    QRandomGenerator::system()->fillRange(words);
    return QByteArray(reinterpret_cast<const char*>(words), sizeof words)
        .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
}

QByteArray tokenOf(const QByteArray& cookieHeader)
{
    for (const QByteArray& part : cookieHeader.split(';')) {
        const QByteArray cookie = part.trimmed();
        if (cookie.startsWith(kCookieName + '='))
            return cookie.mid(kCookieName.size() + 1);
    }
    return {};
}

} // namespace

ManagerLogin::ManagerLogin(QString managersPath, QObject* parent)
    : QObject(parent)
    , m_managersPath(std::move(managersPath))
    , m_unknownHash(hashPassword(newToken()))
{
    m_checks.setMaxThreadCount(1);
}

ManagerLogin::~ManagerLogin() { m_checks.waitForDone(); }

qint64 ManagerLogin::waitSeconds(const QString& key) const
{
    const auto found = m_failures.constFind(key);
    if (found == m_failures.cend() || found->heardAgain.hasExpired())
        return 0;
    return std::max<qint64>(1, (found->heardAgain.remainingTime() + 999) / 1000);
}

void ManagerLogin::failed(const QString& key)
{
    if (m_failures.size() >= kMaxFailureKeys && !m_failures.contains(key)) {
        m_failures.removeIf([](const auto& entry) { return entry.value().forgotten.hasExpired(); });
        if (m_failures.size() >= kMaxFailureKeys)
            m_failures.erase(m_failures.begin());
    }
    Failures& failures = m_failures[key];
    ++failures.count;
    const int seconds = std::min(kMaxBackOffSeconds, 1 << std::min(failures.count - 1, 10));
    failures.heardAgain.setRemainingTime(seconds * 1000);
    failures.forgotten.setRemainingTime(kForgetFailuresSeconds * 1000);
}

QByteArray ManagerLogin::sessionCookie(const QByteArray& token, bool secure, int seconds)
{
    return kCookieName + '=' + token + "; Path=/api/v1/; Max-Age=" + QByteArray::number(seconds)
           + "; HttpOnly; SameSite=Strict" + (secure ? "; Secure" : "");
}

void ManagerLogin::logIn(const HttpCall& call, const HttpFace::Respond& respond)
{
    if (!fromOwnPage(call.request))
        return respond(text(403, "Logins come from this server's own page."));
    if (call.request.contentType != "application/json")
        return respond(text(415, "A login is JSON: {\"user\": ..., \"password\": ...}."));
    const QJsonObject login = QJsonDocument::fromJson(call.body).object();
    const QString user = login.value(u"user"_s).toString();
    const QByteArray password = login.value(u"password"_s).toString().toUtf8();
    if (!isManagerName(user) || password.isEmpty())
        return respond(text(400, "A login needs a user name and a password."));
    const QString address = u"address:"_s + call.peer.toString();
    const QString name = u"user:"_s + user;
    if (const qint64 wait = std::max(waitSeconds(address), waitSeconds(name)); wait > 0) {
        HttpReply refused = text(429, "Too many failed logins: try again in "
                                          + QByteArray::number(wait) + " s.");
        refused.headers.append({"Retry-After", QByteArray::number(wait)});
        return respond(refused);
    }
    if (m_waitingChecks >= kMaxWaitingChecks)
        return respond(text(503, "Too many logins at once: try again in a moment."));
    QString error;
    const std::optional<QHash<QString, QByteArray>> managers = readManagers(m_managersPath, &error);
    if (!managers) {
        qWarning("spinlane-web: no manager can log in: %s", qPrintable(error));
        return respond(text(503, "No manager can log in: the managers file is not usable."));
    }
    const bool known = managers->contains(user);
    const QByteArray hash = known ? managers->value(user) : m_unknownHash;
    const bool secure = call.encrypted;
    ++m_waitingChecks;
    m_checks.start([this, user, address, name, password, hash, known, secure, respond] {
        const bool matched = passwordMatches(password, hash) && known;
        QMetaObject::invokeMethod(
            this,
            [this, user, address, name, matched, hash, secure, respond] {
                --m_waitingChecks;
                if (!matched) {
                    failed(address);
                    failed(name);
                    return respond(text(401, "Wrong user name or password."));
                }
                m_failures.remove(address);
                m_failures.remove(name);
                openSession(user, hash, secure, respond);
            },
            Qt::QueuedConnection);
    });
}

void ManagerLogin::openSession(const QString& manager, const QByteArray& hash, bool secure,
                               const HttpFace::Respond& respond)
{
    m_sessions.removeIf([](const auto& entry) { return entry.value().expires.hasExpired(); });
    if (m_sessions.size() >= kMaxSessions) {
        // The session closest to its end makes room.
        auto oldest = m_sessions.begin();
        for (auto it = m_sessions.begin(); it != m_sessions.end(); ++it) {
            if (it->expires < oldest->expires)
                oldest = it;
        }
        m_sessions.erase(oldest);
    }
    const QByteArray token = newToken();
    m_sessions.insert(token, {manager, hash, QDeadlineTimer(qint64(kSessionHours) * 3600 * 1000)});
    HttpReply reply{200, "application/json",
                    QJsonDocument(QJsonObject{{u"manager"_s, manager}}).toJson(QJsonDocument::Compact),
                    true, {}};
    reply.headers.append({"Set-Cookie", sessionCookie(token, secure, kSessionHours * 3600)});
    respond(reply);
}

HttpReply ManagerLogin::logOut(const HttpCall& call)
{
    if (!fromOwnPage(call.request))
        return text(403, "Logouts come from this server's own page.");
    m_sessions.remove(tokenOf(call.request.cookie));
    HttpReply reply = text(200, "Logged out.");
    reply.headers.append({"Set-Cookie", sessionCookie("", call.encrypted, 0)});
    return reply;
}

std::optional<QString> ManagerLogin::managerOf(const HttpRequest& request)
{
    const auto found = m_sessions.find(tokenOf(request.cookie));
    if (found == m_sessions.end())
        return std::nullopt;
    QString error;
    const auto managers = readManagers(m_managersPath, &error);
    if (found->expires.hasExpired() || !managers
        || managers->value(found->manager) != found->hash) {
        m_sessions.erase(found);
        return std::nullopt;
    }
    return found->manager;
}

} // namespace spinlane::web
