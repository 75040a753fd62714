#pragma once

#include "web/HttpFace.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QObject>
#include <QThreadPool>

#include <optional>

// Logging facility managers in and keeping their sessions. A login is a POST of
// {"user","password"} from the server's own page; its answer sets a session cookie (HttpOnly,
// SameSite=Strict, and Secure over TLS) that the usage API asks for. Passwords are checked on a
// thread of their own, one at a time, against the managers file read at each login. Failures
// slow the next attempt down, both from the same address and for the same name: after n
// failures the next one is heard only after 2^(n-1) seconds, at most a minute; sooner ones get
// 429. Sessions live in memory for eight hours, a bounded number of them; a session ends too when
// its manager is removed from the file or given a new password.
namespace spinlane::web {

class ManagerLogin : public QObject {
    Q_OBJECT
public:
    explicit ManagerLogin(QString managersPath, QObject* parent = nullptr);
    ~ManagerLogin() override;

    // Answers a login POST through `respond`, later.
    void logIn(const HttpCall& call, const HttpFace::Respond& respond);
    // Ends the request's session, if any.
    HttpReply logOut(const HttpCall& call);
    // The manager whose session the request carries; nothing without a live one, or when the
    // managers file no longer gives the manager the password the session was opened with.
    std::optional<QString> managerOf(const HttpRequest& request);

    static constexpr int kSessionHours = 8;
    static constexpr int kMaxSessions = 64;
    static constexpr int kMaxWaitingChecks = 8;
    static constexpr int kMaxBackOffSeconds = 60;

private:
    struct Failures {
        int count = 0;
        QDeadlineTimer heardAgain; // no attempt is heard before
        QDeadlineTimer forgotten;
    };
    struct Session {
        QString manager;
        QByteArray hash;
        QDeadlineTimer expires;
    };

    void openSession(const QString& manager, const QByteArray& hash, bool secure,
                     const HttpFace::Respond& respond);
    qint64 waitSeconds(const QString& key) const;
    void failed(const QString& key);
    static QByteArray sessionCookie(const QByteArray& token, bool secure, int seconds);

    QString m_managersPath;
    QByteArray m_unknownHash; // checked for a name that is no manager's, so that it takes as long
    QHash<QString, Failures> m_failures; // "address:A" and "user:N"
    QHash<QByteArray, Session> m_sessions; // by token
    QThreadPool m_checks;
    int m_waitingChecks = 0;
};

} // namespace spinlane::web
