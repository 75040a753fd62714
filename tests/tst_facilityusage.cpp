// The facility's usage for its managers, through a real spinlane-web: the managers file its
// command writes, logins over HTTPS (and plain HTTP on this machine), failures slowed, sessions,
// and a month's hours per organization and instrument as JSON and CSV.
#include "ledger/LedgerStore.h"
#include "support/SettingsFiles.h"
#include "support/WebProcess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QTest>
#include <QWebSocket>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

const QByteArray kPassword = "correct horse battery";

struct Answer {
    int status = 0;
    QByteArray body;
    QByteArray cookie; // Set-Cookie
    QByteArray retryAfter;
    QByteArray disposition;
};

struct Ran {
    int exitCode = -1;
    QString err;
};

Ran web(const QStringList& arguments, const QByteArray& input = {})
{
    QProcess process;
    process.start(QStringLiteral(SPINLANE_WEB), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000))
        qFatal("spinlane-web did not finish");
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardError())};
}

// An item of `organization` on `instrument` that ended `minutes` after `takenUp` (UTC).
LedgerRecord item(qint64 number, const QString& organization, const QString& instrument,
                  const QDateTime& takenUp, int minutes)
{
    LedgerRecord r;
    r.instrument = instrument;
    r.ledger = u"L1"_s;
    r.number = number;
    r.organization = organization;
    r.user = u"ann"_s;
    r.run.takenUp = takenUp;
    r.run.ended = takenUp.addSecs(minutes * 60);
    r.run.outcome = u"Done"_s;
    return r;
}

QDateTime utc(int month, int day, int hour, int minute = 0)
{
    return QDateTime(QDate(2026, month, day), QTime(hour, minute), Qt::UTC);
}

} // namespace

class TestFacilityUsage : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    QNetworkAccessManager m_net;
    QSslConfiguration m_tls;
    QString m_base;

    QString path(const QString& name) const { return m_dir.filePath(name); }

    Answer ask(const QByteArray& method, const QString& target, const QByteArray& cookie = {},
               const QByteArray& body = {}, const QByteArray& origin = {},
               const QByteArray& type = "application/json")
    {
        QNetworkRequest request(QUrl(m_base + target));
        request.setSslConfiguration(m_tls);
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
        request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
        request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
        if (!cookie.isEmpty())
            request.setRawHeader("Cookie", cookie);
        if (method == "POST") {
            request.setRawHeader("Origin", origin.isEmpty() ? m_base.toUtf8() : origin);
            request.setRawHeader("Content-Type", type);
        }
        std::unique_ptr<QNetworkReply> reply(m_net.sendCustomRequest(request, method, body));
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        if (!reply->isFinished() && !finished.wait(20000))
            return {};
        if (reply->error() != QNetworkReply::NoError && !reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
            qWarning("%s", qPrintable(reply->errorString()));
        return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll(),
                reply->rawHeader("Set-Cookie"), reply->rawHeader("Retry-After"),
                reply->rawHeader("Content-Disposition")};
    }

    bool openssl(const QStringList& arguments)
    {
        QProcess process;
        process.setWorkingDirectory(m_dir.path());
        process.start(u"openssl"_s, arguments);
        return process.waitForFinished(20000) && process.exitCode() == 0;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // The facility's months are those of its time zone.
        qputenv("TZ", "Europe/Berlin");
        QVERIFY(openssl({u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                         u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-keyout"_s,
                         u"web.key"_s, u"-out"_s, u"web.pem"_s, u"-days"_s, u"2"_s, u"-subj"_s,
                         u"/CN=127.0.0.1"_s, u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s}));
        m_tls = QSslConfiguration::defaultConfiguration();
        m_tls.setCaCertificates(QSslCertificate::fromPath(path(u"web.pem"_s)));

        QString error;
        auto ledger = LedgerStore::open(path(u"facility.ledger"_s), {}, &error);
        QVERIFY2(ledger, qPrintable(error));
        const std::vector<LedgerRecord> records{
            // Ended at 00:30 on 1 February in Berlin: February's.
            item(1, u"Chem"_s, u"nmr400"_s, utc(1, 31, 22, 30), 60),
            item(2, u"Chem"_s, u"nmr400"_s, utc(2, 10, 8), 90),
            item(3, u"Chem"_s, u"nmr600"_s, utc(2, 11, 8), 45),
            item(4, u"Acme, \"Ltd\""_s, u"nmr600"_s, utc(2, 12, 8), 30),
            // Ended at 00:15 on 1 March in Berlin: March's.
            item(5, u"Acme, \"Ltd\""_s, u"nmr400"_s, utc(2, 28, 22, 45), 30)};
        QCOMPARE(ledger->insert(records, &error), std::optional<int>(5));

        // A manager set by the command, one with a bcrypt hash made elsewhere.
        const QString managers = path(u"managers"_s);
        QCOMPARE(web({u"--set-manager"_s, u"carol"_s, u"--config"_s, path(u"none.conf"_s)}, "short\n")
                     .exitCode, 2);
        writeFile(path(u"web.conf"_s), "[web]\nManagers=" + managers.toUtf8() + '\n');
        const Ran set = web({u"--config"_s, path(u"web.conf"_s), u"--set-manager"_s, u"boss"_s},
                            kPassword + '\n');
        QVERIFY2(set.exitCode == 0, qPrintable(set.err));
        QProcess python;
        python.start(u"python3"_s, {u"-W"_s, u"ignore"_s, u"-c"_s,
                                    u"import crypt; print(crypt.crypt('bcrypt pass', "
                                    "crypt.mksalt(crypt.METHOD_BLOWFISH)))"_s});
        QVERIFY(python.waitForFinished(20000));
        const QByteArray bcrypt = python.readAllStandardOutput().trimmed();
        QVERIFY2(bcrypt.startsWith("$2b$"), bcrypt.constData());
        QFile file(managers);
        QVERIFY(file.open(QIODevice::Append));
        file.write("carol:" + bcrypt + '\n');
        file.close();
        // The command keeps the other lines and the file private.
        QCOMPARE(web({u"--config"_s, path(u"web.conf"_s), u"--set-manager"_s, u"dave"_s},
                     "another password\n").exitCode, 0);
        QCOMPARE(web({u"--config"_s, path(u"web.conf"_s), u"--remove-manager"_s, u"dave"_s}).exitCode, 0);
        QCOMPARE(QFileInfo(managers).permissions(),
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser
                     | QFileDevice::WriteUser);
        const QByteArray lines = readFile(managers);
        QVERIFY2(lines.contains("\nboss:$y$") && lines.contains("\ncarol:" + bcrypt)
                     && !lines.contains("dave:"),
                 lines.constData());
    }

    // The whole of a manager's visit, over HTTPS and over plain HTTP on this machine (as behind
    // a reverse proxy there).
    void managersSeeTheMonth_data()
    {
        QTest::addColumn<bool>("https");
        QTest::newRow("https") << true;
        QTest::newRow("http on this machine") << false;
    }
    void managersSeeTheMonth()
    {
        QFETCH(bool, https);
        QByteArray conf = "[web]\nMode=facility\nManagers=" + path(u"managers"_s).toUtf8()
                          + "\n[broker]\nHost=127.0.0.1\nPort=1\n[ledger]\nDatabase="
                          + path(u"facility.ledger"_s).toUtf8() + '\n';
        if (https)
            conf.replace("[broker]", "CertFile=" + path(u"web.pem"_s).toUtf8() + "\nKeyFile="
                                         + path(u"web.key"_s).toUtf8() + "\n[broker]");
        QVERIFY(QFile::setPermissions(path(u"web.key"_s), QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        writeFile(path(u"facility.conf"_s), conf);
        WebProcess server(QStringLiteral(SPINLANE_WEB), path(u"facility.conf"_s));
        QVERIFY2(server.port, qPrintable(server.errors()));
        m_base = (https ? u"https://127.0.0.1:%1"_s : u"http://127.0.0.1:%1"_s).arg(server.port);
        const QString february = u"/api/v1/facility/usage/2026-02"_s;

        QCOMPARE(ask("GET", february).status, 401);
        // Everything else over the same port and scheme, the live channel too.
        QCOMPARE(ask("GET", u"/healthz"_s).status, 200);
        QWebSocket live;
        live.setSslConfiguration(m_tls);
        QSignalSpy message(&live, &QWebSocket::textMessageReceived);
        live.open(QUrl((https ? u"wss://127.0.0.1:%1/api/v1/live"_s : u"ws://127.0.0.1:%1/api/v1/live"_s)
                           .arg(server.port)));
        QVERIFY(message.wait(10000));
        QVERIFY(message.first().first().toString().startsWith(u"{\"seq\":"_s));
        // A wrong password, then the next attempt too soon.
        const QByteArray right = "{\"user\":\"boss\",\"password\":\"" + kPassword + "\"}";
        QCOMPARE(ask("POST", u"/api/v1/login"_s, {}, "{\"user\":\"boss\",\"password\":\"guess\"}").status,
                 401);
        Answer answer = ask("POST", u"/api/v1/login"_s, {}, right);
        QCOMPARE(answer.status, 429);
        QCOMPARE(answer.retryAfter, QByteArray("1"));
        // Logins only from the server's own page, as JSON, small.
        QCOMPARE(ask("POST", u"/api/v1/login"_s, {}, right, "https://evil.example").status, 403);
        QCOMPARE(ask("POST", u"/api/v1/login"_s, {}, right, {}, "text/plain").status, 415);
        QCOMPARE(ask("POST", u"/api/v1/login"_s, {}, QByteArray(2000, ' ') + right).status, 413);
        QCOMPARE(ask("GET", u"/api/v1/login"_s).status, 405);

        // A second after the failure, the right password is heard.
        const auto logIn = [&] { return answer = ask("POST", u"/api/v1/login"_s, {}, right); };
        QTRY_COMPARE_WITH_TIMEOUT(logIn().status, 200, 5000);
        QVERIFY2(answer.cookie.contains("; HttpOnly; SameSite=Strict")
                     && answer.cookie.endsWith("; Secure") == https,
                 answer.cookie.constData());
        const QByteArray session = answer.cookie.left(answer.cookie.indexOf(';'));

        answer = ask("GET", february, session);
        QCOMPARE(answer.status, 200);
        const QJsonObject usage = QJsonDocument::fromJson(answer.body).object();
        QStringList cells;
        for (const QJsonValue& value : usage[u"cells"_s].toArray()) {
            const QJsonObject cell = value.toObject();
            cells << u"%1 %2 %3 %4"_s.arg(cell[u"organization"_s].toString(),
                                          cell[u"instrument"_s].toString())
                         .arg(cell[u"items"_s].toInt())
                         .arg(cell[u"hours"_s].toDouble());
        }
        QCOMPARE(cells, (QStringList{u"Acme, \"Ltd\" nmr600 1 0.5"_s, u"Chem nmr400 2 2.5"_s,
                                     u"Chem nmr600 1 0.75"_s}));
        QCOMPARE(usage[u"organizations"_s].toArray(),
                 (QJsonArray{u"Chem"_s, u"Acme, \"Ltd\""_s})); // most hours first
        QCOMPARE(usage[u"instruments"_s].toArray(), (QJsonArray{u"nmr400"_s, u"nmr600"_s}));
        QCOMPARE(usage[u"items"_s].toInt(), 4);
        QCOMPARE(usage[u"hours"_s].toDouble(), 3.75);

        answer = ask("GET", february + u".csv"_s, session);
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.disposition, QByteArray("attachment; filename=\"spinlane-usage-2026-02.csv\""));
        QCOMPARE(answer.body, QByteArray("\xEF\xBB\xBF"
                                         "organization,instrument,items,instrument_hours\r\n"
                                         "\"Acme, \"\"Ltd\"\"\",nmr600,1,0.50\r\n"
                                         "Chem,nmr400,2,2.50\r\nChem,nmr600,1,0.75\r\n"));
        QCOMPARE(ask("GET", u"/api/v1/facility/usage/2026-13"_s, session).status, 404);
        QCOMPARE(ask("GET", u"/api/v1/facility/usage/2026-02.csv"_s, session + "x").status, 401);

        // A bcrypt hash from another tool serves as well.
        QCOMPARE(ask("POST", u"/api/v1/login"_s, {}, "{\"user\":\"carol\",\"password\":\"bcrypt pass\"}")
                     .status, 200);
        // A manager removed from the file is logged out at once.
        const QStringList config{u"--config"_s, path(u"facility.conf"_s)};
        QCOMPARE(web(config + QStringList{u"--set-manager"_s, u"dave"_s}, "dave's password\n").exitCode, 0);
        answer = ask("POST", u"/api/v1/login"_s, {}, "{\"user\":\"dave\",\"password\":\"dave's password\"}");
        QCOMPARE(answer.status, 200);
        const QByteArray daves = answer.cookie.left(answer.cookie.indexOf(';'));
        QCOMPARE(ask("GET", february, daves).status, 200);
        QCOMPARE(web(config + QStringList{u"--remove-manager"_s, u"dave"_s}).exitCode, 0);
        QCOMPARE(ask("GET", february, daves).status, 401);
        // Logged out, the session is gone.
        answer = ask("POST", u"/api/v1/logout"_s, session);
        QCOMPARE(answer.status, 200);
        QVERIFY2(answer.cookie.contains("Max-Age=0"), answer.cookie.constData());
        QCOMPARE(ask("GET", february, session).status, 401);
    }

    // Plain HTTP from another machine never carries a password or the usage. Played in a network
    // of its own (unshare), where an address that is not loopback is this test's to use.
    void plainHttpFromTheNetworkRefused()
    {
        QProcess probe;
        probe.start(u"unshare"_s, {u"--user"_s, u"--map-root-user"_s, u"--net"_s, u"true"_s});
        if (!probe.waitForFinished(10000) || probe.exitStatus() != QProcess::NormalExit
            || probe.exitCode() != 0)
            QSKIP("no network namespace of its own here (unshare --user --net)");
        writeFile(path(u"network.conf"_s),
                  "[web]\nMode=facility\nManagers=" + path(u"managers"_s).toUtf8()
                      + "\n[broker]\nHost=127.0.0.1\nPort=1\n[ledger]\nDatabase="
                      + path(u"facility.ledger"_s).toUtf8() + '\n');
        const QString script = uR"(set -e
ip link set lo up
ip addr add 10.9.8.7/32 dev lo
"$1" --config "$2" --listen 10.9.8.7:8470 2>/dev/null &
for i in $(seq 200); do curl -s -o /dev/null http://10.9.8.7:8470/healthz && break; sleep 0.05; done
curl -s -w ' %{http_code}
' -X POST -H 'Content-Type: application/json' \
  -H 'Origin: http://10.9.8.7:8470' --data "$3" http://10.9.8.7:8470/api/v1/login
curl -s -w ' %{http_code}
' http://10.9.8.7:8470/api/v1/facility/usage/2026-02
kill $!
)"_s;
        QProcess shell;
        shell.start(u"unshare"_s, {u"--user"_s, u"--map-root-user"_s, u"--net"_s, u"sh"_s, u"-c"_s,
                                   script, u"sh"_s, QStringLiteral(SPINLANE_WEB),
                                   path(u"network.conf"_s),
                                   u"{\"user\":\"boss\",\"password\":\""_s
                                       + QString::fromUtf8(kPassword) + u"\"}"_s});
        QVERIFY(shell.waitForFinished(30000));
        QCOMPARE(QString::fromUtf8(shell.readAllStandardOutput()),
                 u"Managers log in over HTTPS only.\n 403\nUsage is served over HTTPS only.\n 403\n"_s);
    }

    // What the program refuses to start with, and a managers file others can read.
    void privateFilesOnly()
    {
        const QByteArray pem = path(u"web.pem"_s).toUtf8();
        const QByteArray key = path(u"web.key"_s).toUtf8();
        writeFile(path(u"half.conf"_s), "[web]\nCertFile=" + pem + '\n');
        Ran ran = web({u"--config"_s, path(u"half.conf"_s)});
        QCOMPARE(ran.exitCode, 2);
        QVERIFY2(ran.err.contains(u"[web] KeyFile: HTTPS needs both CertFile and KeyFile"_s),
                 qPrintable(ran.err));
        writeFile(path(u"open.conf"_s), "[web]\nCertFile=" + pem + "\nKeyFile=" + key + '\n');
        QVERIFY(QFile::setPermissions(path(u"web.key"_s), QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                                              | QFileDevice::ReadOther));
        ran = web({u"--config"_s, path(u"open.conf"_s)});
        QCOMPARE(ran.exitCode, 2);
        QVERIFY2(ran.err.contains(u"is readable by others: chmod 600"_s), qPrintable(ran.err));
        QVERIFY(QFile::setPermissions(path(u"web.key"_s), QFileDevice::ReadOwner | QFileDevice::WriteOwner));

        QVERIFY(QFile::copy(path(u"managers"_s), path(u"shared-managers"_s)));
        QVERIFY(QFile::setPermissions(path(u"shared-managers"_s),
                                      QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                          | QFileDevice::ReadGroup));
        writeFile(path(u"shared.conf"_s), "[web]\nMode=facility\nManagers="
                                              + path(u"shared-managers"_s).toUtf8()
                                              + "\n[broker]\nHost=127.0.0.1\nPort=1\n[ledger]\nDatabase="
                                              + path(u"facility.ledger"_s).toUtf8() + '\n');
        WebProcess server(QStringLiteral(SPINLANE_WEB), path(u"shared.conf"_s));
        QVERIFY2(server.port, qPrintable(server.errors()));
        m_base = u"http://127.0.0.1:%1"_s.arg(server.port);
        QCOMPARE(ask("POST", u"/api/v1/login"_s, {},
                     "{\"user\":\"boss\",\"password\":\"" + kPassword + "\"}").status, 503);
        QVERIFY(server.waitForError(u"no manager can log in: "_s + path(u"shared-managers"_s)
                                    + u" holds a password and others can read it"_s));
        // The command will not write there either.
        QCOMPARE(web({u"--config"_s, path(u"shared.conf"_s), u"--set-manager"_s, u"eve"_s},
                     "long enough pass\n").exitCode, 1);
    }
};

QTEST_GUILESS_MAIN(TestFacilityUsage)
#include "tst_facilityusage.moc"
