// spinlane-web against the simulated laboratory: a real run that run_queue_on_lab publishes as
// Spinlane does, the server as a program of its own, real HTTP and WebSocket clients.

#include "core/ProfileFile.h"
#include "support/RunningAdapter.h"
#include "support/SettingsFiles.h"
#include "support/SimulatedLab.h"
#include "support/WebProcess.h"
#include "web/WebSettings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QWebSocket>

#include <arpa/inet.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;
using namespace spinlane::web;

namespace {

const QString kSecret = u"pa55-w0rd-never-served"_s;
const QString kHostileSample = u"<script>alert('x')</script> & \"Co\""_s;

// Loads, ejects and experiments of a second or less.
const QByteArray kQuickLab = "[Changer]\r\nLoadSeconds=0.3\r\nEjectSeconds=0.3\r\nSpinRamp=100\r\n"
                             "ReadySeconds=0\r\n[Experiment 1]\r\nTitle=PROTON\r\nDuration=1\r\n";

// A program of the test, ended with SIGTERM at the end.
class Program {
public:
    Program(const QString& path, const QStringList& arguments)
    {
        m_process.setProcessChannelMode(QProcess::SeparateChannels);
        m_process.start(path, arguments);
    }
    ~Program() { stop(); }

    void stop() { endProcess(m_process); }
    QString errors()
    {
        m_errors += m_process.readAllStandardError();
        return QString::fromUtf8(m_errors);
    }
    bool waitForError(const QString& text, int timeoutMs = 10000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!errors().contains(text)) {
            if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
                return false;
            QSignalSpy more(&m_process, &QProcess::readyReadStandardError);
            more.wait(int(std::max<qint64>(1, deadline.remainingTime())));
        }
        return true;
    }
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    qint64 residentKiB() const
    {
        QFile status(u"/proc/%1/status"_s.arg(m_process.processId()));
        if (!status.open(QIODevice::ReadOnly))
            return -1;
        static const QRegularExpression rss(u"VmRSS:\\s+(\\d+)"_s);
        return rss.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
    }

private:
    QProcess m_process;
    QByteArray m_errors;
};

// spinlane-web on a free loopback port with the configuration `config`.
class Web : public Program {
public:
    Web(const QString& configPath)
        : Program(QStringLiteral(SPINLANE_WEB),
                  {u"--config"_s, configPath, u"--listen"_s, u"127.0.0.1:0"_s})
    {
        if (!waitForError(u"/\n"_s))
            return;
        static const QRegularExpression at(u"at http://127\\.0\\.0\\.1:(\\d+)/"_s);
        port = quint16(at.match(errors()).captured(1).toUInt());
    }
    QUrl url(const QString& path) const
    {
        return QUrl(u"http://127.0.0.1:%1%2"_s.arg(port).arg(path));
    }
    quint16 port = 0;
};

// The run of a settings file's queue, published on the bus from before the run until it ends.
class Spinlane : public Program {
public:
    explicit Spinlane(const QString& iniPath)
        : Program(QStringLiteral(RUN_QUEUE_ON_LAB), {u"--publish"_s, iniPath})
    {
    }
};

struct Answer {
    int status = 0;
    QByteArray body;
    QHash<QByteArray, QByteArray> headers; // names in lower case
};

Answer request(const QUrl& url, const QByteArray& method = "GET")
{
    static QNetworkAccessManager network;
    std::unique_ptr<QNetworkReply> reply(
        method == "HEAD" ? network.head(QNetworkRequest(url))
                         : network.sendCustomRequest(QNetworkRequest(url), method));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!reply->isFinished() && !finished.wait(10000))
        return {};
    Answer answer;
    answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    answer.body = reply->readAll();
    for (const auto& [name, value] : reply->rawHeaderPairs())
        answer.headers.insert(name.toLower(), value);
    return answer;
}

QJsonObject json(const QByteArray& bytes) { return QJsonDocument::fromJson(bytes).object(); }

// A browser's live channel: every message it received, in order.
class LiveClient : public QObject {
public:
    explicit LiveClient(const QUrl& url)
    {
        connect(&socket, &QWebSocket::textMessageReceived, this, [this](const QString& text) {
            messages.append(QJsonDocument::fromJson(text.toUtf8()).object());
            texts.append(text);
        });
        QUrl live = url;
        live.setScheme(u"ws"_s);
        live.setPath(u"/api/v1/live"_s);
        socket.open(live);
    }
    QJsonObject last() const { return messages.isEmpty() ? QJsonObject() : messages.last(); }
    QJsonObject instrument() const { return last()[u"instrument"_s].toObject(); }
    // Each item's status changes, in the order they were seen: "1:In progress".
    QStringList statusChanges() const
    {
        QStringList changes;
        QHash<int, QString> seen;
        for (const QJsonObject& message : messages) {
            for (const QJsonValue& item : message[u"instrument"_s][u"queue"_s].toArray()) {
                const int number = item[u"number"_s].toInt();
                const QString status = item[u"status"_s].toString();
                if (seen.contains(number) && seen[number] != status)
                    changes.append(QString::number(number) + u':' + status);
                seen[number] = status;
            }
        }
        return changes;
    }

    QWebSocket socket;
    QList<QJsonObject> messages;
    QStringList texts;
};

// A Spinlane.INI of `items` in the folder, with the sample changer and the secret password; the
// first item's sample name is kHostileSample.
QString writeSpinlaneIni(const QTemporaryDir& dir, const QList<QueueEntry>& items,
                         const QString& longName = {})
{
    const QString path = dir.filePath(u"Spinlane.INI"_s);
    ProfileDocument file = ProfileDocument::fromBytes(
        settingsFile(items, {{u"Password"_s, kSecret}, {u"Sample Control"_s, u"2"_s}}));
    file.writeString(u"Item 1", u"Sample Name", kHostileSample);
    for (int i = 2; i <= items.size() && !longName.isEmpty(); ++i)
        file.writeString(u"Item "_s + QString::number(i), u"Sample Name", longName);
    file.save(path);
    return path;
}

QString writeWebConf(const QTemporaryDir& dir, const QString& text)
{
    const QString path = dir.filePath(u"web.conf"_s);
    writeFile(path, text.toUtf8());
    return path;
}

// A connection that sends `bytes` and returns what came back before the server closed it or
// went quiet; "closed" is appended when the server closed.
QByteArray rawExchange(quint16 port, const QByteArray& bytes)
{
    QTcpSocket socket;
    socket.connectToHost(u"127.0.0.1"_s, port);
    if (!socket.waitForConnected(5000))
        return "no connection";
    socket.write(bytes);
    QByteArray answer;
    QDeadlineTimer deadline(5000);
    while (!deadline.hasExpired()) {
        if (socket.state() != QAbstractSocket::ConnectedState) {
            answer += socket.readAll();
            return answer + "closed";
        }
        if (socket.waitForReadyRead(200))
            answer += socket.readAll();
        else if (answer.contains("\r\n\r\n"))
            break; // answered, kept open
    }
    return answer;
}

} // namespace

class TestWeb : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listenForms_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("address"); // empty: refused
        QTest::addColumn<int>("port");
        QTest::newRow("IPv4") << u"127.0.0.1:8470"_s << u"127.0.0.1"_s << 8470;
        QTest::newRow("every address") << u":9000"_s << u"any"_s << 9000;
        QTest::newRow("IPv6") << u"[::1]:8471"_s << u"::1"_s << 8471;
        QTest::newRow("free port") << u"127.0.0.1:0"_s << u"127.0.0.1"_s << 0;
        QTest::newRow("no port") << u"127.0.0.1"_s << QString() << 0;
        QTest::newRow("port too big") << u"127.0.0.1:65536"_s << QString() << 0;
        QTest::newRow("host name") << u"localhost:80"_s << QString() << 0;
        QTest::newRow("IPv6 unbracketed") << u"::1:80"_s << QString() << 0;
        QTest::newRow("not an address") << u"300.1.1.1:80"_s << QString() << 0;
    }
    void listenForms()
    {
        QFETCH(QString, text);
        QFETCH(QString, address);
        QFETCH(int, port);
        QHostAddress parsed;
        quint16 parsedPort = 1;
        QCOMPARE(parseListen(text, &parsed, &parsedPort), !address.isEmpty());
        if (address.isEmpty())
            return;
        QCOMPARE(parsed, address == u"any"_s ? QHostAddress(QHostAddress::Any) : QHostAddress(address));
        QCOMPARE(parsedPort, port);
    }

    void configurationFile_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("error"); // empty: accepted
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("everything") << u"[web]\nInstrument=nmr400, east\nListen=0.0.0.0:9000\n"
                                       u"HideSampleNames=true\nHideUsers=yes\nMaxConnections=10\n"
                                       u"MaxLiveClients=5\n"_s
                                    << QString();
        QTest::newRow("the settings file's section")
            << u"[General]\nPassword=demo\n"_s
            << u"Password: not a setting of spinlane-web"_s;
        QTest::newRow("unknown key") << u"[web]\nListn=1.2.3.4:5\n"_s
                                     << u"[web] Listn: unknown setting"_s;
        QTest::newRow("bad address") << u"[web]\nListen=nowhere\n"_s
                                     << u"[web] Listen: not ADDRESS:PORT"_s;
        QTest::newRow("allowed hosts") << u"[web]\nAllowedHosts=nmr.example, Proxy.Lab\n"_s
                                       << QString();
        QTest::newRow("allowed host with port") << u"[web]\nAllowedHosts=nmr.example:80\n"_s
                                                << u"[web] AllowedHosts: needs host names"_s;
        QTest::newRow("bad Boolean") << u"[web]\nHideSampleNames=perhaps\n"_s
                                     << u"[web] HideSampleNames: needs true or false"_s;
        QTest::newRow("bad Boolean of users") << u"[web]\nHideUsers=2\n"_s
                                              << u"[web] HideUsers: needs true or false"_s;
        QTest::newRow("limit out of range") << u"[web]\nMaxConnections=0\n"_s
                                            << u"[web] MaxConnections: needs a whole number"_s;
        QTest::newRow("more live than connections")
            << u"[web]\nMaxConnections=5\nMaxLiveClients=6\n"_s
            << u"[web] MaxLiveClients: more than MaxConnections"_s;
    }
    void configurationFile()
    {
        QFETCH(QString, text);
        QFETCH(QString, error);
        QTemporaryDir dir;
        const QString path = writeWebConf(dir, text);
        QString said;
        const std::optional<WebSettings> settings = readWebSettings(path, &said);
        QCOMPARE(settings.has_value(), error.isEmpty());
        if (!error.isEmpty()) {
            QVERIFY2(said.startsWith(path + u": "_s) && said.contains(error), qPrintable(said));
            return;
        }
        if (qstrcmp(QTest::currentDataTag(), "everything") == 0) {
            QCOMPARE(settings->instrument, u"nmr400, east"_s);
            QCOMPARE(settings->address, QHostAddress(QHostAddress::AnyIPv4));
            QCOMPARE(settings->port, 9000);
            QVERIFY(settings->hideSampleNames);
            QVERIFY(settings->hideUsers);
            QCOMPARE(settings->maxConnections, 10);
            QCOMPARE(settings->maxLiveClients, 5);
        } else if (qstrcmp(QTest::currentDataTag(), "allowed hosts") == 0) {
            QCOMPARE(settings->allowedHosts, (QStringList{u"nmr.example"_s, u"proxy.lab"_s}));
        } else {
            QVERIFY(!settings->instrument.isEmpty()); // the host name
            QCOMPARE(settings->address, QHostAddress(QHostAddress::LocalHost));
            QCOMPARE(settings->port, 8470);
            QVERIFY(!settings->hideSampleNames);
            QVERIFY(!settings->hideUsers);
        }
    }

    // A taken port and a bad file end the program with 2 and a message naming the cause.
    void refusesToStart_data()
    {
        QTest::addColumn<QString>("config");
        QTest::addColumn<QString>("listen"); // {port}: a port another server holds
        QTest::addColumn<QString>("message");
        QTest::newRow("port in use") << QString() << u"127.0.0.1:{port}"_s
                                     << u"The bound address is already in use"_s;
        QTest::newRow("not this machine's") << QString() << u"192.0.2.1:8470"_s
                                            << u"cannot listen on 192.0.2.1:8470"_s;
        QTest::newRow("bad option") << QString() << u"8470"_s << u"--listen 8470: not"_s;
        QTest::newRow("bad file") << u"[web]\nHideSampleNames=2\n"_s << u"127.0.0.1:0"_s
                                  << u"HideSampleNames: needs true or false"_s;
    }
    void refusesToStart()
    {
        QFETCH(QString, config);
        QFETCH(QString, listen);
        QFETCH(QString, message);
        QTemporaryDir dir;
        QTcpServer taken;
        QVERIFY(taken.listen(QHostAddress::LocalHost));
        QProcess web;
        web.start(QStringLiteral(SPINLANE_WEB),
                  {u"--config"_s, writeWebConf(dir, config), u"--listen"_s,
                   QString(listen).replace(u"{port}"_s, QString::number(taken.serverPort()))});
        QVERIFY(web.waitForFinished(10000));
        QCOMPARE(web.exitCode(), 2);
        const QString said = QString::fromUtf8(web.readAllStandardError());
        QVERIFY2(said.startsWith(u"spinlane-web: "_s) && said.contains(message), qPrintable(said));
    }

    // The API and the live channel follow a run item by item; Spinlane's end and its return
    // show up by themselves; nothing of the settings file's [General] section is ever served.
    void followsARun()
    {
        SimulatedLab lab(kQuickLab);
        QVERIFY(lab.isReady());
        QVERIFY(lab.startConsole());
        QTemporaryDir dir;
        Web web(writeWebConf(dir, u"[web]\nInstrument=nmr400\n"_s));
        QVERIFY2(web.port, qPrintable(web.errors()));

        LiveClient live(web.url({}));
        QTRY_VERIFY_WITH_TIMEOUT(!live.messages.isEmpty(), 10000);
        QCOMPARE(live.instrument()[u"spinlane"_s], false);
        QCOMPARE(live.instrument()[u"runState"_s], u"unknown"_s);

        const QString ini = writeSpinlaneIni(dir, queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s}));
        {
            Spinlane spinlane(ini);
            QTRY_VERIFY_WITH_TIMEOUT(live.instrument()[u"runState"_s] == u"finished"_s, 60000);
            QCOMPARE(live.statusChanges(),
                     (QStringList{u"1:In progress"_s, u"1:Done"_s, u"2:In progress"_s,
                                  u"2:Done"_s, u"3:In progress"_s, u"3:Done"_s}));
            for (qsizetype i = 1; i < live.messages.size(); ++i)
                QVERIFY(live.messages[i][u"seq"_s].toInteger()
                        > live.messages[i - 1][u"seq"_s].toInteger());

            const Answer api = request(web.url(u"/api/v1/instrument"_s));
            QCOMPARE(api.status, 200);
            const QJsonObject instrument = json(api.body);
            QCOMPARE(instrument, live.instrument());
            QCOMPARE(instrument[u"schema"_s], 1);
            QCOMPARE(instrument[u"instrument"_s], u"nmr400"_s);
            QCOMPARE(instrument[u"spinlane"_s], true);
            const QJsonArray queue = instrument[u"queue"_s].toArray();
            QCOMPARE(queue.size(), 3);
            QCOMPARE(queue[0][u"sample"_s], kHostileSample);
            QCOMPARE(queue[0][u"user"_s], u"ann"_s);
            QCOMPARE(queue[0][u"experiment"_s], u"PROTON"_s);
            QCOMPARE(queue[1][u"number"_s], 2);
            QCOMPARE(queue[2][u"position"_s], 1);
            // The forecast's range is carried for every item; the next run skips these.
            for (const QString& key : {u"expectedStart"_s, u"earliestStart"_s, u"latestStart"_s,
                                       u"earliestEnd"_s, u"latestEnd"_s})
                QCOMPARE(queue[0][key], QJsonValue(QString()));
            QCOMPARE(queue[0][u"longerThanAnyRun"_s], QJsonValue(false));
            const QJsonObject current = instrument[u"current"_s].toObject();
            QCOMPARE(current[u"number"_s], 3);
            QCOMPARE(current[u"status"_s], u"Done"_s);
            // Each item ended while the copy watched: when, for "done 14:36" on the page.
            for (const QJsonValue& item : queue)
                QVERIFY(QDateTime::fromString(item[u"ended"_s].toString(), Qt::ISODate).isValid());
            QVERIFY(QDateTime::fromString(current[u"started"_s].toString(), Qt::ISODateWithMs)
                        .isValid());
            QVERIFY(QDateTime::fromString(instrument[u"updated"_s].toString(), Qt::ISODateWithMs)
                        .isValid());

            const QByteArray metrics = request(web.url(u"/metrics"_s)).body;
            for (const char* line : {"spinlane_up{instrument=\"nmr400\"} 1\n",
                                     "spinlane_run_state{instrument=\"nmr400\",state=\"finished\"} 1\n",
                                     "spinlane_queue_items{instrument=\"nmr400\",status=\"Done\"} 3\n",
                                     "spinlane_items_done_total{instrument=\"nmr400\"} 3\n",
                                     "spinlane_web_live_clients{instrument=\"nmr400\"} 1\n"})
                QVERIFY2(metrics.contains(line), metrics.constData());

            // Every answer the server gives, and every message: never the password.
            QList<QByteArray> served = {api.body, metrics};
            for (const QString& path : {u"/"_s, u"/common.js"_s, u"/page.js"_s, u"/page.css"_s,
                                        u"/healthz"_s, u"/nothing"_s, u"/api/v1/live"_s})
                served.append(request(web.url(path)).body);
            for (const QString& text : std::as_const(live.texts))
                served.append(text.toUtf8());
            for (const QByteArray& body : std::as_const(served))
                QVERIFY(!body.contains(kSecret.toUtf8()) && !body.contains("Password"));
        }
        // Spinlane ends, and comes back.
        QTRY_COMPARE_WITH_TIMEOUT(live.instrument()[u"spinlane"_s], false, 10000);
        QCOMPARE(live.instrument()[u"runState"_s], u"unknown"_s);
        // The queue is still in the settings file: the last one seen stays, "as of" a time,
        // without expected times, the ends kept.
        const QJsonObject gone = live.instrument();
        const QJsonArray lastQueue = gone[u"queue"_s].toArray();
        QCOMPARE(lastQueue.size(), 3);
        QVERIFY(QDateTime::fromString(gone[u"asOf"_s].toString(), Qt::ISODate).isValid());
        QCOMPARE(gone[u"current"_s], QJsonValue::Null);
        QCOMPARE(gone[u"queueEnd"_s], u""_s);
        QCOMPARE(lastQueue[2][u"status"_s], u"Done"_s);
        QVERIFY(!lastQueue[2][u"ended"_s].toString().isEmpty());
        QCOMPARE(json(request(web.url(u"/api/v1/instrument"_s)).body)[u"spinlane"_s], false);
        Spinlane again(writeSpinlaneIni(dir, queueOf({u"Idle"_s, u"Idle"_s})));
        QTRY_VERIFY_WITH_TIMEOUT(live.instrument()[u"spinlane"_s] == true
                                     && live.instrument()[u"queue"_s].toArray().size() == 2,
                                 20000);
        // A client that joins late gets the current state at once.
        LiveClient late(web.url({}));
        QTRY_VERIFY_WITH_TIMEOUT(!late.messages.isEmpty(), 10000);
        QCOMPARE(late.instrument(), live.instrument());

        QCOMPARE(live.instrument()[u"asOf"_s], u""_s);

        // Where sample names and users are confidential, they are left out everywhere; a user
        // still finds their own items by the exact ID (case aside), and nobody else's.
        QTemporaryDir hiddenDir;
        Web hidden(writeWebConf(
            hiddenDir, u"[web]\nInstrument=nmr400\nHideSampleNames=true\nHideUsers=true\n"_s));
        QVERIFY2(hidden.port, qPrintable(hidden.errors()));
        LiveClient hiddenLive(hidden.url({}));
        QTRY_VERIFY_WITH_TIMEOUT(hiddenLive.instrument()[u"queue"_s].toArray().size() == 2, 10000);
        const QByteArray api = request(hidden.url(u"/api/v1/instrument"_s)).body;
        QVERIFY(api.contains("\"sample\":\"\"") && !api.contains("Sample 2")
                && !api.contains("<script>"));
        QVERIFY(!hiddenLive.texts.join(QString()).contains(u"Sample 2"_s));
        QVERIFY(api.contains("\"user\":\"\"") && !api.contains("ann"));
        QVERIFY(!hiddenLive.texts.join(QString()).contains(u"ann"_s));
        const auto numbersOf = [&hidden](const QString& user) {
            return json(request(hidden.url(u"/api/v1/instrument/users/"_s + user)).body)
                [u"numbers"_s].toArray();
        };
        QCOMPARE(numbersOf(u"ANN"_s), (QJsonArray{1, 2}));
        QCOMPARE(numbersOf(u"an"_s), QJsonArray());
        QCOMPARE(numbersOf(u"ann2"_s), QJsonArray());
    }

    // What every answer carries, and what other methods get.
    void answers_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<QByteArray>("cache");
        QTest::newRow("page") << u"/"_s << QByteArray("GET") << 200
                              << QByteArray("text/html; charset=utf-8") << QByteArray("no-cache");
        QTest::newRow("script") << u"/page.js"_s << QByteArray("GET") << 200
                                << QByteArray("text/javascript; charset=utf-8")
                                << QByteArray("no-cache");
        QTest::newRow("API") << u"/api/v1/instrument"_s << QByteArray("GET") << 200
                             << QByteArray("application/json") << QByteArray("no-store");
        QTest::newRow("API, HEAD") << u"/api/v1/instrument"_s << QByteArray("HEAD") << 200
                                   << QByteArray("application/json") << QByteArray("no-store");
        QTest::newRow("metrics") << u"/metrics"_s << QByteArray("GET") << 200
                                 << QByteArray("text/plain; version=0.0.4; charset=utf-8")
                                 << QByteArray("no-store");
        QTest::newRow("health") << u"/healthz"_s << QByteArray("GET") << 200
                                << QByteArray("text/plain; charset=utf-8")
                                << QByteArray("no-store");
        QTest::newRow("unknown") << u"/admin"_s << QByteArray("GET") << 404
                                 << QByteArray("text/plain; charset=utf-8")
                                 << QByteArray("no-store");
        for (const char* method : {"POST", "PUT", "DELETE", "PATCH", "OPTIONS"})
            QTest::addRow("%s", method) << u"/api/v1/instrument"_s << QByteArray(method) << 405
                                        << QByteArray("text/plain; charset=utf-8")
                                        << QByteArray("no-store");
    }
    void answers()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, method);
        QFETCH(int, status);
        QFETCH(QByteArray, type);
        QFETCH(QByteArray, cache);
        QTemporaryDir dir;
        Web web(writeWebConf(dir, {}));
        QVERIFY2(web.port, qPrintable(web.errors()));
        const Answer answer = request(web.url(path), method);
        QCOMPARE(answer.status, status);
        QCOMPARE(answer.headers.value("content-type"), type);
        QCOMPARE(answer.headers.value("cache-control"), cache);
        QCOMPARE(answer.headers.value("x-content-type-options"), QByteArray("nosniff"));
        QVERIFY(answer.headers.value("content-security-policy").startsWith("default-src 'none';"));
        if (status == 405)
            QCOMPARE(answer.headers.value("allow"), QByteArray("GET, HEAD"));
        if (method == "HEAD") {
            QVERIFY(answer.body.isEmpty());
            QCOMPARE(answer.headers.value("content-length").toInt(),
                     request(web.url(path)).body.size());
        }
    }

    // Oversized and malformed requests, a thousand idle connections and a live client that never
    // reads, all during a run: each is answered or closed, the server stays small, and a well
    // behaved live client gets every change.
    void hostileClients()
    {
        SimulatedLab lab(kQuickLab);
        QVERIFY(lab.isReady());
        QVERIFY(lab.startConsole());
        QTemporaryDir dir;
        Web web(writeWebConf(dir, u"[web]\nMaxConnections=300\nLiveStallSeconds=2\nIdleSeconds=2\n"_s));
        QVERIFY2(web.port, qPrintable(web.errors()));
        LiveClient live(web.url({}));
        QTRY_VERIFY_WITH_TIMEOUT(!live.messages.isEmpty(), 10000);

        const QList<std::pair<QByteArray, QByteArray>> bad{
            {"GET / HTTP/1.1\r\nHost: x\r\nX-Big: " + QByteArray(20000, 'a') + "\r\n\r\n",
             "HTTP/1.1 431 "},
            {"GET /" + QByteArray(100000, 'a') + " HTTP/1.1\r\nHost: x\r\n\r\n", "HTTP/1.1 431 "},
            {"GET / HTTP/1.1\r\n" + QByteArray("X-Many: 1\r\n").repeated(2000) + "\r\n",
             "HTTP/1.1 431 "},
            {"GET /%C3%28%FF%FE HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", "HTTP/1.1 404 "},
            {"GET /\xff\xfe\xc3\x28 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", "HTTP/1.1 404 "},
            {"GET /api/v1/live HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\n"
             "Connection: Upgrade\r\n\r\n",
             ""},
            {"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", ""}};
        for (const auto& [sent, expected] : bad) {
            const QByteArray answer = rawExchange(web.port, sent);
            QVERIFY2(answer.endsWith("closed")
                         || (!expected.isEmpty() && answer.startsWith(expected)),
                     answer.left(200).constData());
            if (!expected.isEmpty() && !answer.endsWith("closed"))
                QVERIFY2(answer.startsWith(expected), answer.left(200).constData());
        }

        // A live client that sends its handshake and then never reads a byte: the smallest
        // receive buffer, so the server's unsent messages pile up on its side.
        RawClient deaf(web.port);
        const QByteArray handshake = "GET /api/v1/live HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                     "Upgrade: websocket\r\nConnection: Upgrade\r\n"
                                     "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                                     "Sec-WebSocket-Version: 13\r\n\r\n";
        QVERIFY(deaf.isConnected() && deaf.send(handshake) == handshake.size());
        std::vector<std::unique_ptr<QTcpSocket>> idle;
        for (int i = 0; i < 1000; ++i) {
            idle.push_back(std::make_unique<QTcpSocket>());
            idle.back()->connectToHost(u"127.0.0.1"_s, web.port);
        }
        QTRY_VERIFY_WITH_TIMEOUT(
            std::all_of(idle.begin(), idle.end(),
                        [](const auto& s) { return s->state() != QAbstractSocket::ConnectingState; }),
            20000);
        QCOMPARE(request(web.url(u"/healthz"_s)).status, 200);

        // A queue whose messages are large, so the deaf client's backlog grows quickly.
        QList<QueueEntry> items = queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s});
        for (int i = 0; i < 300; ++i)
            items.append({u"Done"_s});
        const QString name = QString(u'x').repeated(200);
        Spinlane spinlane(writeSpinlaneIni(dir, items, name));
        QTRY_VERIFY_WITH_TIMEOUT(live.instrument()[u"runState"_s] == u"finished"_s, 60000);
        QCOMPARE(live.statusChanges(),
                 (QStringList{u"1:In progress"_s, u"1:Done"_s, u"2:In progress"_s, u"2:Done"_s,
                              u"3:In progress"_s, u"3:Done"_s}));
        QVERIFY2(web.errors().contains(u"does not read its messages; it is dropped"_s),
                 qPrintable(web.errors()));
        QVERIFY(web.isRunning());
        // A sanitizer's shadow memory and quarantine add their own.
#ifdef SPINLANE_SANITIZED
        constexpr qint64 kMostKiB = 400 * 1024;
#else
        constexpr qint64 kMostKiB = 80 * 1024;
#endif
        const qint64 rss = web.residentKiB();
        QVERIFY2(rss > 0 && rss < kMostKiB, qPrintable(QString::number(rss)));
        const Answer api = request(web.url(u"/api/v1/instrument"_s));
        QCOMPARE(api.status, 200);
        QCOMPARE(json(api.body)[u"queue"_s].toArray().size(), 303);
        const QByteArray metrics = request(web.url(u"/metrics"_s)).body;
        static const QRegularExpression oneLiveClient(
            u"\nspinlane_web_live_clients\\{instrument=\"[^\"]+\"\\} 1\n"_s);
        QVERIFY2(QString::fromUtf8(metrics).contains(oneLiveClient), metrics.constData());
    }
};

QTEST_GUILESS_MAIN(TestWeb)
#include "tst_web.moc"
