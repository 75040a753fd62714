// spinlane-web attacked as a hostile client on the lab's network would: requests pipelined
// without reading, WebSocket frames a live client has no business sending, live clients that
// never read, requests for other hosts and from other origins. The facility serves, through a
// real mosquitto, instruments with the largest queues; each case checks what a well-behaved user
// sees and that the process stays within its documented memory.

#include "facility/MqttClient.h"
#include "facility/Topics.h"
#include "support/MosquittoBroker.h"
#include "support/WebProcess.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWebSocket>

#include <memory>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::facility;
using namespace spinlane::testing;

namespace {

constexpr int kLargeInstruments = 4; // of 999 items each: /api/v1/facility is about 1 MB
constexpr int kSmallInstruments = 30; // so that a live message is some 15 KB

// The documented bound for this configuration, with room for the program itself; a sanitizer's
// shadow memory and quarantine add their own.
#ifdef SPINLANE_SANITIZED
constexpr qint64 kMostKiB = 600 * 1024;
#else
constexpr qint64 kMostKiB = 150 * 1024;
#endif

struct Answer {
    int status = 0;
    QByteArray body;
    qint64 ms = -1;
};

Answer get(quint16 port, const QString& path)
{
    static QNetworkAccessManager network;
    QElapsedTimer timer;
    timer.start();
    std::unique_ptr<QNetworkReply> reply(
        network.get(QNetworkRequest(QUrl(u"http://127.0.0.1:%1%2"_s.arg(port).arg(path)))));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!reply->isFinished() && !finished.wait(20000))
        return {};
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll(),
            timer.elapsed()};
}

int instrumentsIn(const QByteArray& json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    return error.error == QJsonParseError::NoError
               ? int(document.object()[u"instruments"_s].toArray().size())
               : -1;
}

QString smallName(int i) { return u"small-%1"_s.arg(i); }

} // namespace

class TestWebAttack : public QObject {
    Q_OBJECT

private:
    bool publish(const QString& name, const QByteArray& state)
    {
        QSignalSpy published(m_tester.get(), &MqttClient::published);
        const int id = m_tester->publish(stateTopic(name), state, true);
        return id >= 0 && published.wait(5000) && published.last().at(0).toInt() == id
               && published.last().at(1).toBool();
    }
    // The well-behaved client's view: the service answers, whole, within its usual time.
    void checkWellBehaved()
    {
        const Answer health = get(m_web->port, u"/healthz"_s);
        QCOMPARE(health.status, 200);
        QVERIFY2(health.ms < 1000, qPrintable(QString::number(health.ms)));
        const Answer facility = get(m_web->port, u"/api/v1/facility"_s);
        QCOMPARE(facility.status, 200);
        QVERIFY(instrumentsIn(facility.body) >= kLargeInstruments + kSmallInstruments);
        const qint64 rss = m_web->residentKiB();
        QVERIFY2(rss > 0 && rss < kMostKiB, qPrintable(QString::number(rss)));
    }

    MosquittoBroker m_broker;
    QTemporaryDir m_dir;
    std::unique_ptr<MqttClient> m_tester;
    std::unique_ptr<WebProcess> m_web;
    int m_changes = 0;

private Q_SLOTS:
    void initTestCase()
    {
        for (const char* user : {"facility", "tester"})
            QVERIFY(m_broker.addUser(QString::fromLatin1(user), u"pw"_s));
        m_broker.setAccessList("user facility\ntopic read spinlane/v1/#\n"
                               "user tester\ntopic write spinlane/v1/#\n");
        QVERIFY2(m_broker.start(), qPrintable(m_broker.log()));
        m_tester = std::make_unique<MqttClient>(u"attack-tester"_s);
        m_tester->start(m_broker.settings(u"tester"_s, u"pw"_s));
        QTRY_VERIFY_WITH_TIMEOUT(m_tester->isConnected(), 10000);
        for (int i = 0; i < kLargeInstruments; ++i) {
            const QString name = u"large-%1"_s.arg(i);
            QVERIFY(publish(name, recordedState(name, u"running"_s, 999)));
        }
        for (int i = 0; i < kSmallInstruments; ++i)
            QVERIFY(publish(smallName(i), recordedState(smallName(i), u"idle"_s, 3)));

        const QString config = m_dir.filePath(u"web.conf"_s);
        QFile file(config);
        QVERIFY(file.open(QIODevice::WriteOnly));
        // Room for 256 live clients that never read beside the one that does.
        file.write(u"[web]\nMode=facility\nLiveStallSeconds=2\nMaxLiveClients=320\n"
                   u"AllowedHosts=proxy.example, "
                   u"nmr.example\n[broker]\nHost=127.0.0.1\nPort=%1\nUser=facility\nPassword=pw\n"_s
                       .arg(m_broker.port())
                       .toUtf8());
        file.close();
        QFile::setPermissions(config, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        m_web = std::make_unique<WebProcess>(QStringLiteral(SPINLANE_WEB), config);
        QVERIFY2(m_web->port, qPrintable(m_web->errors()));
        QTRY_COMPARE_WITH_TIMEOUT(
            instrumentsIn(get(m_web->port, u"/api/v1/facility/summary"_s).body),
            kLargeInstruments + kSmallInstruments, 20000);
    }

    // Requests pipelined by a client that never reads: the server stops reading it once its
    // answers pile up, and closes it when they do not drain.
    void pipeliningWithoutReading()
    {
        RawClient attacker(m_web->port);
        QVERIFY(attacker.isConnected());
        const QByteArray requests =
            QByteArray("GET /api/v1/facility HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n").repeated(400);
        qint64 sent = 0;
        QElapsedTimer sending;
        sending.start();
        while (sent < requests.size() && sending.elapsed() < 3000) {
            const qint64 now = attacker.send(requests.mid(sent));
            QVERIFY(now >= 0);
            sent += now;
            QTest::qWait(20);
        }
        checkWellBehaved();
        QVERIFY(attacker.hungUpWithin(20000));
        checkWellBehaved();
    }

    // Only the host names it serves, only its own origin, strict HTTP/1.1; no answer carries
    // Access-Control-Allow-Origin. {port} stands for the server's port.
    void sameOriginOnly_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("status");
        const QByteArray get = "GET /healthz HTTP/1.1\r\n";
        const QByteArray upgrade = "GET /api/v1/live HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n"
                                   "Upgrade: websocket\r\nConnection: Upgrade\r\n"
                                   "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                                   "Sec-WebSocket-Version: 13\r\n";
        QTest::newRow("its address") << get + "Host: 127.0.0.1:{port}\r\n\r\n" << QByteArray("200");
        QTest::newRow("localhost") << get + "Host: LocalHost:{port}\r\n\r\n" << QByteArray("200");
        QTest::newRow("an allowed host") << get + "Host: nmr.example\r\n\r\n" << QByteArray("200");
        QTest::newRow("another host") << get + "Host: evil.example\r\n\r\n" << QByteArray("421");
        QTest::newRow("rebound to it") << get + "Host: evil.example:{port}\r\n\r\n"
                                       << QByteArray("421");
        QTest::newRow("no Host") << get + "\r\n" << QByteArray("400");
        QTest::newRow("HTTP/1.0 without Host") << QByteArray("GET /healthz HTTP/1.0\r\n\r\n")
                                               << QByteArray("200");
        QTest::newRow("two Hosts") << get + "Host: 127.0.0.1\r\nHost: evil.example\r\n\r\n"
                                   << QByteArray("400");
        QTest::newRow("two Content-Lengths")
            << get + "Host: 127.0.0.1\r\nContent-Length: 0\r\nContent-Length: 5\r\n\r\nhello"
            << QByteArray("400");
        QTest::newRow("a body") << get + "Host: 127.0.0.1\r\nContent-Length: 5\r\n\r\nhello"
                                << QByteArray("400");
        QTest::newRow("another host's absolute URI")
            << QByteArray("GET http://evil.example/healthz HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            << QByteArray("400");
        QTest::newRow("its own absolute URI")
            << QByteArray("GET http://127.0.0.1:{port}/healthz HTTP/1.1\r\nHost: evil.example\r\n\r\n")
            << QByteArray("200");
        QTest::newRow("no version") << QByteArray("GET /healthz\r\nHost: 127.0.0.1\r\n\r\n")
                                    << QByteArray("400");
        QTest::newRow("HTTP/2.0") << QByteArray("GET /healthz HTTP/2.0\r\nHost: 127.0.0.1\r\n\r\n")
                                  << QByteArray("400");
        QTest::newRow("a folded header") << get + "Host: 127.0.0.1\r\nX-A: 1\r\n  folded\r\n\r\n"
                                         << QByteArray("400");
        QTest::newRow("a space before the colon") << get + "Host : 127.0.0.1\r\n\r\n"
                                                  << QByteArray("400");
        QTest::newRow("POST") << QByteArray("POST /healthz HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
                              << QByteArray("405");
        QTest::newRow("live from its page") << upgrade + "Origin: http://127.0.0.1:{port}\r\n\r\n"
                                            << QByteArray("101");
        QTest::newRow("live without Origin") << upgrade + "\r\n" << QByteArray("101");
        QTest::newRow("live from another site") << upgrade + "Origin: http://evil.example\r\n\r\n"
                                                << QByteArray("403");
        QTest::newRow("live from a sandbox") << upgrade + "Origin: null\r\n\r\n" << QByteArray("403");
    }
    void sameOriginOnly()
    {
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, status);
        RawClient client(m_web->port);
        QVERIFY(client.send(request.replace("{port}", QByteArray::number(m_web->port))) > 0);
        const QByteArray head = client.receive(5000, true);
        QVERIFY2(head.startsWith("HTTP/1.1 " + status + ' '), head.constData());
        QVERIFY2(!head.toLower().contains("access-control-"), head.constData());
        if (status == "421" || status == "400") {
            QVERIFY(!client.receive(500).contains("instruments"));
        }
    }

    // A live client sends nothing but control frames, and few: data, a fragment chain, a frame
    // too large or a flood of pings ends its connection.
    void liveClientsSendOnlyControlFrames_data()
    {
        QTest::addColumn<QByteArray>("frames");
        QTest::addColumn<int>("repeat");
        QTest::addColumn<bool>("closed");
        QTest::newRow("a ping now and then") << clientFrame(0x9, "are you there") << 1 << false;
        QTest::newRow("a text message") << clientFrame(0x1, "hello") << 1 << true;
        QTest::newRow("a binary message") << clientFrame(0x2, "hello") << 1 << true;
        QTest::newRow("a fragment chain")
            << clientFrame(0x1, "x", false) + clientFrame(0x0, QByteArray(120, 'x'), false)
            << 3000 << true;
        QTest::newRow("a frame too large") << clientFrame(0x2, QByteArray(60000, 'x')) << 1
                                           << true;
        QTest::newRow("a ping flood") << clientFrame(0x9, QByteArray(125, 'p')) << 3000 << true;
    }
    void liveClientsSendOnlyControlFrames()
    {
        QFETCH(QByteArray, frames);
        QFETCH(int, repeat);
        QFETCH(bool, closed);
        RawClient client(m_web->port);
        QVERIFY(client.upgrade().startsWith("HTTP/1.1 101 "));
        const QByteArray all = frames.repeated(repeat);
        qint64 sent = 0;
        QElapsedTimer sending;
        sending.start();
        while (sent < all.size() && sending.elapsed() < 3000) {
            const qint64 now = client.send(all.mid(sent));
            if (now < 0)
                break; // closed on the way
            sent += now;
            QTest::qWait(5);
        }
        QCOMPARE(client.hungUpWithin(closed ? 5000 : 1500), closed);
        checkWellBehaved();
    }

    // States no Spinlane sends: each is refused and counted, or (the largest allowed) served,
    // and the facility's API stays valid JSON for every browser.
    void hostileStates_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("state");
        QTest::addColumn<QByteArray>("reason"); // empty: accepted
        const QByteArray good = recordedState(u"hostile"_s, u"running"_s, 3);
        QByteArray control = good;
        control.replace("hostile-S1", "hostile\x01S1");
        QTest::newRow("a raw control character") << u"hostile"_s << control
                                                 << QByteArray("malformed");
        QByteArray escaped = good;
        escaped.replace("hostile-S1", "hostile\\u0007S1");
        QTest::newRow("an escaped control character") << u"hostile"_s << escaped
                                                      << QByteArray("malformed");
        QByteArray nested = good;
        nested.replace("\"hostile-S1\"", QByteArray("[").repeated(5000) + QByteArray("]").repeated(5000));
        QTest::newRow("deep nesting") << u"hostile"_s << nested << QByteArray("malformed");
        QByteArray huge = good;
        huge.replace("\"number\":2", "\"number\":1e308");
        QTest::newRow("a huge number") << u"hostile"_s << huge << QByteArray("malformed");
        QByteArray tooLong = good;
        tooLong.replace("hostile-S1", QByteArray(300, 's'));
        QTest::newRow("a text too long") << u"hostile"_s << tooLong << QByteArray("malformed");
        QTest::newRow("too many items") << u"hostile"_s
                                        << recordedState(u"hostile"_s, u"running"_s, 1001)
                                        << QByteArray("oversized");
        QTest::newRow("a name of ..") << u".."_s << recordedState(u".."_s, u"idle"_s, 3)
                                      << QByteArray("foreign");
        QTest::newRow("the largest allowed queue")
            << u"largest"_s << recordedState(u"largest"_s, u"running"_s, 1000) << QByteArray();
    }
    void hostileStates()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, state);
        QFETCH(QByteArray, reason);
        const auto rejected = [this, &reason] {
            const QByteArray metrics = get(m_web->port, u"/metrics"_s).body;
            const QByteArray line =
                "spinlane_facility_rejected_messages_total{reason=\"" + reason + "\"} ";
            const qsizetype at = metrics.indexOf(line);
            return at < 0 ? -1 : metrics.mid(at + line.size()).split('\n').first().toInt();
        };
        const int before = reason.isEmpty() ? 0 : rejected();
        QVERIFY(publish(name, state));
        if (reason.isEmpty()) {
            QTRY_COMPARE_WITH_TIMEOUT(get(m_web->port, u"/api/v1/facility/instruments/"_s + name).status,
                                      200, 10000);
            const QJsonObject entry = QJsonDocument::fromJson(
                get(m_web->port, u"/api/v1/facility/instruments/"_s + name).body).object();
            QCOMPARE(entry[u"instrument"_s][u"queue"_s].toArray().size(), 1000);
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(rejected(), before + 1, 10000);
        }
        const Answer facility = get(m_web->port, u"/api/v1/facility"_s);
        QVERIFY(instrumentsIn(facility.body) >= kLargeInstruments + kSmallInstruments);
        QVERIFY(!facility.body.contains("\x01") && !facility.body.contains("\\u0007"));
        const Answer samples = get(m_web->port, u"/api/v1/facility/samples/ann"_s);
        QCOMPARE(samples.status, 200);
        QVERIFY(QJsonDocument::fromJson(samples.body).isObject());
    }

    // Started on every address, it says once that the queue is visible to the network and how to
    // narrow it; on one address it says nothing of the kind. It runs in a network namespace of
    // its own with nothing but a loopback that is down, so "every address" reaches nobody, and
    // it is ended as soon as it has said what it says at start.
    void saysWhenTheQueueIsVisibleToTheNetwork_data()
    {
        QTest::addColumn<QString>("listen");
        QTest::addColumn<bool>("visible");
        QTest::newRow("every IPv4 address") << u"0.0.0.0:0"_s << true;
        QTest::newRow("every address") << u":0"_s << true;
        QTest::newRow("every IPv6 address") << u"[::]:0"_s << true;
        QTest::newRow("loopback") << u"127.0.0.1:0"_s << false;
    }
    void saysWhenTheQueueIsVisibleToTheNetwork()
    {
        QFETCH(QString, listen);
        QFETCH(bool, visible);
        QProcess probe;
        probe.start(u"unshare"_s, {u"--user"_s, u"--map-root-user"_s, u"--net"_s, u"true"_s});
        if (!probe.waitForFinished(10000) || probe.exitStatus() != QProcess::NormalExit
            || probe.exitCode() != 0)
            QSKIP("no network namespace of its own here (unshare --user --net): nothing is "
                  "started on every address of this machine");

        QProcess web;
        web.start(u"unshare"_s,
                  {u"--user"_s, u"--map-root-user"_s, u"--net"_s, QStringLiteral(SPINLANE_WEB),
                   u"--config"_s, m_dir.filePath(u"web.conf"_s), u"--listen"_s, listen});
        QByteArray said;
        static const QRegularExpression serving(
            u"serving the facility of .* at http://(.*):(\\d+)/\n"_s);
        QRegularExpressionMatch match;
        const QDeadlineTimer deadline(20000);
        while (!(match = serving.match(QString::fromUtf8(said))).hasMatch()
               && web.state() != QProcess::NotRunning && !deadline.hasExpired()) {
            web.waitForReadyRead(100);
            said += web.readAllStandardError();
        }
        web.kill();
        web.waitForFinished();
        QVERIFY2(match.hasMatch(), said.constData());
        const QString port = match.captured(2);
        const QString warning = u"spinlane-web: listening on every network of this machine: anyone "
                                u"who reaches port %1 sees the queue; --listen 127.0.0.1:%1 (or "
                                u"Listen= with one address) narrows it\n"_s.arg(port);
        QCOMPARE(QString::fromUtf8(said).count(warning), visible ? 1 : 0);
        QCOMPARE(said.count("every network"), visible ? 1 : 0);
    }

    // Live clients that never read, beside one that does: it gets every change within a second,
    // the others are dropped after the stall time, and memory stays within its bound throughout.
    void stalledLiveClientsDelayNobody_data()
    {
        QTest::addColumn<int>("stalled");
        QTest::newRow("16") << 16;
        QTest::newRow("64") << 64;
        QTest::newRow("256") << 256;
    }
    void stalledLiveClientsDelayNobody()
    {
        QFETCH(int, stalled);
        std::vector<std::unique_ptr<RawClient>> deaf;
        for (int i = 0; i < stalled; ++i) {
            deaf.push_back(std::make_unique<RawClient>(m_web->port));
            QVERIFY(deaf.back()->upgrade().startsWith("HTTP/1.1 101 "));
        }
        QWebSocket good;
        QString last;
        connect(&good, &QWebSocket::textMessageReceived, this,
                [&last](const QString& message) { last = message; });
        good.open(QUrl(u"ws://127.0.0.1:%1/api/v1/live"_s.arg(m_web->port)));
        QTRY_VERIFY_WITH_TIMEOUT(!last.isEmpty(), 5000);

        const int droppedBefore = int(m_web->errors().count(u"does not read its messages"_s));
        QElapsedTimer publishing;
        publishing.start();
        int changes = 0;
        while (changes < 12
               || m_web->errors().count(u"does not read its messages"_s) - droppedBefore
                      < stalled) {
            QVERIFY2(publishing.elapsed() < 30000, qPrintable(m_web->errors().right(500)));
            const QString updated = QDateTime(QDate(2026, 11, 25), QTime(11, 0), Qt::UTC)
                                        .addSecs(++m_changes)
                                        .toString(Qt::ISODateWithMs);
            const QString name = smallName(m_changes % kSmallInstruments);
            QVERIFY(publish(name, recordedState(name, u"idle"_s, 3, updated)));
            QTRY_VERIFY_WITH_TIMEOUT(last.contains(updated), 1000);
            ++changes;
            const qint64 rss = m_web->residentKiB();
            QVERIFY2(rss > 0 && rss < kMostKiB, qPrintable(QString::number(rss)));
        }
        QVERIFY(good.state() == QAbstractSocket::ConnectedState);
        checkWellBehaved();
    }
};

QTEST_GUILESS_MAIN(TestWebAttack)
#include "tst_webattack.moc"
