// The facility against a real mosquitto: instruments publishing through it (child processes
// that can be killed), their access list, and what the facility makes of it all.
#include "core/ProfileFile.h"
#include "facility/FacilityModel.h"
#include "facility/InstrumentPublisher.h"
#include "facility/Topics.h"
#include "support/MosquittoBroker.h"

#include <QFile>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>
#include <QWebSocket>

#include <map>
#include <memory>

#include <signal.h>

using namespace spinlane;
using namespace spinlane::facility;
using spinlane::testing::MosquittoBroker;
using spinlane::testing::recordedState;

namespace {
const QStringList kInstruments{QStringLiteral("nmr400"), QStringLiteral("nmr600"),
                               QStringLiteral("nmr800")};
QString passwordOf(const QString& user) { return QStringLiteral("pw-") + user; }

// spinlane-web as its own program, on a free loopback port.
class WebProgram {
public:
    WebProgram(const QString& config, const QStringList& more = {})
    {
        m_process.start(QStringLiteral(SPINLANE_WEB),
                        QStringList{QStringLiteral("--config"), config, QStringLiteral("--listen"),
                                    QStringLiteral("127.0.0.1:0")} + more);
        m_process.waitForStarted();
    }
    ~WebProgram()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished();
    }
    // Waits until its standard error holds `text`; false when it ends or stays silent.
    bool waitForError(const QString& text, int timeoutMs = 10000)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (!errors().contains(text)) {
            if (deadline.hasExpired() || m_process.state() != QProcess::Running)
                return false;
            m_process.waitForReadyRead(int(qBound(qint64(1), deadline.remainingTime(), qint64(100))));
        }
        return true;
    }
    quint16 port()
    {
        static const QRegularExpression at(QStringLiteral("at http://127\\.0\\.0\\.1:(\\d+)/"));
        return waitForError(QStringLiteral("/\n")) ? quint16(at.match(errors()).captured(1).toUInt()) : 0;
    }
    QString errors()
    {
        m_errors += m_process.readAllStandardError();
        return QString::fromUtf8(m_errors);
    }
    QProcess& process() { return m_process; }

private:
    QProcess m_process;
    QByteArray m_errors;
};

QByteArray get(quint16 port, const QString& path)
{
    static QNetworkAccessManager network;
    QNetworkRequest request(QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(path)));
    std::unique_ptr<QNetworkReply> reply(network.get(request));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!finished.wait(10000) || reply->error() != QNetworkReply::NoError)
        return {};
    return reply->readAll();
}
} // namespace

class FacilityBrokerTest : public QObject {
    Q_OBJECT

private:
    QString writeState(const QString& name, const QByteArray& state)
    {
        const QString path = m_dir.filePath(name + QStringLiteral("-%1.json").arg(++m_files));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(state) != state.size())
            return {};
        return path;
    }
    void publishFrom(const QString& name, const QByteArray& state)
    {
        m_publishers.at(name)->write(writeState(name, state).toLocal8Bit() + '\n');
    }
    // A configuration file that only its owner may read, with [broker] for `user`.
    QString writeConfig(const QString& fileName, const QString& user, const QString& password,
                        const QList<std::array<QString, 3>>& more = {})
    {
        const QString config = m_dir.filePath(fileName);
        ProfileDocument file;
        const BrokerSettings broker = m_broker.settings(user, password);
        file.writeString(u"broker", u"Host", broker.host);
        file.writeString(u"broker", u"Port", QString::number(broker.port));
        file.writeString(u"broker", u"User", broker.user);
        file.writeString(u"broker", u"Password", broker.password);
        file.writeString(u"broker", u"Heartbeat", QStringLiteral("1"));
        for (const auto& [section, key, value] : more)
            file.writeString(section, key, value);
        if (!file.save(config))
            return {};
        QFile::setPermissions(config, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        return config;
    }
    void startPublisher(const QString& name)
    {
        const QString config = writeConfig(name + QStringLiteral(".conf"), name, passwordOf(name));
        auto process = std::make_unique<QProcess>();
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(QStringLiteral(FACILITY_PUBLISHER), {config, name});
        QVERIFY(process->waitForStarted());
        m_publishers[name] = std::move(process);
        publishFrom(name, recordedState(name, QStringLiteral("running"), 20));
    }
    std::unique_ptr<FacilityModel> startFacility()
    {
        auto facility = std::make_unique<FacilityModel>();
        facility->client().setReconnectDelays(100, 1000);
        BrokerSettings settings = m_broker.settings(QStringLiteral("facility"), passwordOf(QStringLiteral("facility")));
        settings.offlineAfterSeconds = 5;
        settings.maxPayloadBytes = 64 * 1024;
        facility->start(settings);
        return facility;
    }
    QString runStateOf(const FacilityModel& facility, const QString& name)
    {
        const FacilityModel::Entry* entry = facility.entry(name);
        return entry && entry->state ? entry->state->runState : QString();
    }
    QByteArray stateOf(const FacilityModel& facility, const QString& name)
    {
        const FacilityModel::Entry* entry = facility.entry(name);
        return entry && entry->state ? entry->state->json : QByteArray();
    }
    FacilityModel::Offline offlineOf(const FacilityModel& facility, const QString& name)
    {
        const FacilityModel::Entry* entry = facility.entry(name);
        return entry ? entry->offline : FacilityModel::Offline::Silent;
    }

    MosquittoBroker m_broker;
    QTemporaryDir m_dir;
    int m_files = 0;
    std::map<QString, std::unique_ptr<QProcess>> m_publishers;
    std::unique_ptr<FacilityModel> m_facility;

private Q_SLOTS:
    void initTestCase()
    {
        for (const QString& user : kInstruments + QStringList{QStringLiteral("facility"), QStringLiteral("tester")})
            QVERIFY2(m_broker.addUser(user, passwordOf(user)), "mosquitto_passwd failed");
        QFile acl(QStringLiteral(SPINLANE_EXAMPLES "/mosquitto/spinlane.acl"));
        QVERIFY(acl.open(QIODevice::ReadOnly));
        // The shipped access list, and one user who may write anywhere in the tree.
        m_broker.setAccessList(acl.readAll() + "\nuser tester\ntopic write spinlane/v1/#\n");
        QVERIFY2(m_broker.start(), qPrintable(m_broker.log()));
        m_facility = startFacility();
        for (const QString& name : kInstruments)
            startPublisher(name);
    }

    void cleanupTestCase()
    {
        if (qEnvironmentVariableIsSet("SPINLANE_SHOW_BROKER_LOG"))
            qInfo().noquote() << m_broker.log();
        for (auto& [name, process] : m_publishers) {
            process->kill();
            process->waitForFinished();
        }
    }

    void everyInstrumentIsSeen()
    {
        for (const QString& name : kInstruments) {
            QTRY_COMPARE_WITH_TIMEOUT(runStateOf(*m_facility, name), QStringLiteral("running"), 10000);
            QTRY_COMPARE(offlineOf(*m_facility, name), FacilityModel::Offline::No);
        }
        const QJsonObject json = QJsonDocument::fromJson(m_facility->facilityJson()).object();
        QCOMPARE(json.value(QLatin1String("instruments")).toArray().size(), 3);
        QVERIFY(json.value(QLatin1String("broker")).toObject().value(QLatin1String("connected")).toBool());
    }

    void aChangeReachesTheFacility()
    {
        QSignalSpy changed(m_facility.get(), &FacilityModel::instrumentChanged);
        publishFrom(QStringLiteral("nmr600"), recordedState(QStringLiteral("nmr600"), QStringLiteral("finished"), 20));
        QTRY_COMPARE(runStateOf(*m_facility, QStringLiteral("nmr600")), QStringLiteral("finished"));
        QVERIFY(changed.contains({QStringLiteral("nmr600")}));
        QCOMPARE(runStateOf(*m_facility, QStringLiteral("nmr400")), QStringLiteral("running"));
    }

    void aKilledInstrumentGoesOfflineByItsWill()
    {
        QProcess& nmr800 = *m_publishers.at(QStringLiteral("nmr800"));
        ::kill(pid_t(nmr800.processId()), SIGKILL);
        QVERIFY(nmr800.waitForFinished());
        QTRY_COMPARE_WITH_TIMEOUT(offlineOf(*m_facility, QStringLiteral("nmr800")),
                                  FacilityModel::Offline::Will, 4000); // before its silence counts
        const QJsonObject entry = QJsonDocument::fromJson(m_facility->entryJson(QStringLiteral("nmr800"))).object();
        QCOMPARE(entry.value(QLatin1String("runState")).toString(), QStringLiteral("offline"));
        QCOMPARE(entry.value(QLatin1String("lastRunState")).toString(), QStringLiteral("running"));
        QCOMPARE(entry.value(QLatin1String("instrument")).toObject().value(QLatin1String("runState")).toString(),
                 QStringLiteral("unknown"));
        QVERIFY(m_facility->metricsText().contains("spinlane_instrument_running{instrument=\"nmr800\"} 0\n"));
    }

    void aBrokerRestartLosesNothingRetained()
    {
        // nmr800's will is older than the broker's shutdown.
        QTest::qWait(int(FacilityModel::kShutdownWillMs) + 100);
        QSignalSpy lost(&m_facility->client(), &MqttClient::disconnected);
        QVERIFY2(m_broker.restart(), qPrintable(m_broker.log()));
        QTRY_COMPARE(lost.count(), 1);
        // The stopping broker sent every instrument's will: they are not heard, not gone; the
        // one that left before stays gone.
        QCOMPARE(offlineOf(*m_facility, QStringLiteral("nmr400")), FacilityModel::Offline::Silent);
        QCOMPARE(offlineOf(*m_facility, QStringLiteral("nmr600")), FacilityModel::Offline::Silent);
        QCOMPARE(offlineOf(*m_facility, QStringLiteral("nmr800")), FacilityModel::Offline::Will);
        QCOMPARE(runStateOf(*m_facility, QStringLiteral("nmr600")), QStringLiteral("finished"));
        QTRY_VERIFY_WITH_TIMEOUT(m_facility->client().isConnected(), 10000);
        // The instruments reconnect by themselves and go on publishing.
        publishFrom(QStringLiteral("nmr400"), recordedState(QStringLiteral("nmr400"), QStringLiteral("stopped"), 20));
        QTRY_COMPARE_WITH_TIMEOUT(runStateOf(*m_facility, QStringLiteral("nmr400")), QStringLiteral("stopped"), 20000);
        QCOMPARE(offlineOf(*m_facility, QStringLiteral("nmr800")), FacilityModel::Offline::Will);
        QTRY_COMPARE_WITH_TIMEOUT(offlineOf(*m_facility, QStringLiteral("nmr600")), FacilityModel::Offline::No, 20000);
    }

    void aFacilityStartedLastSeesEverything()
    {
        // Nothing but the broker's retained messages tells it what happened before.
        std::unique_ptr<FacilityModel> late = startFacility();
        QTRY_COMPARE_WITH_TIMEOUT(late->instruments(), kInstruments, 10000);
        QTRY_COMPARE(runStateOf(*late, QStringLiteral("nmr400")), QStringLiteral("stopped"));
        QTRY_COMPARE(runStateOf(*late, QStringLiteral("nmr600")), QStringLiteral("finished"));
        QTRY_COMPARE(runStateOf(*late, QStringLiteral("nmr800")), QStringLiteral("running"));
        QTRY_COMPARE(offlineOf(*late, QStringLiteral("nmr400")), FacilityModel::Offline::No);
        QTRY_COMPARE(offlineOf(*late, QStringLiteral("nmr600")), FacilityModel::Offline::No);
        QTRY_COMPARE(offlineOf(*late, QStringLiteral("nmr800")), FacilityModel::Offline::Will);
    }

    void theFacilityPageServesEveryInstrument()
    {
        const QString config = writeConfig(QStringLiteral("facility.conf"), QStringLiteral("facility"),
                                           passwordOf(QStringLiteral("facility")),
                                           {{QStringLiteral("web"), QStringLiteral("Mode"), QStringLiteral("facility")},
                                            {QStringLiteral("broker"), QStringLiteral("OfflineAfter"), QStringLiteral("5")}});
        WebProgram web(config);
        const quint16 port = web.port();
        QVERIFY2(port, qPrintable(web.errors()));
        QVERIFY(web.errors().contains(QStringLiteral("serving the facility")));
        const auto names = [&] {
            QStringList seen;
            const QJsonArray instruments = QJsonDocument::fromJson(get(port, QStringLiteral("/api/v1/facility")))
                                               .object().value(QLatin1String("instruments")).toArray();
            for (const QJsonValue& entry : instruments)
                seen << entry[QLatin1String("name")].toString() + u'=' + entry[QLatin1String("runState")].toString();
            return seen;
        };
        QTRY_COMPARE_WITH_TIMEOUT(names(), (QStringList{QStringLiteral("nmr400=stopped"), QStringLiteral("nmr600=finished"),
                                                        QStringLiteral("nmr800=offline")}), 10000);

        QWebSocket live;
        QStringList messages;
        connect(&live, &QWebSocket::textMessageReceived, this, [&](const QString& m) { messages << m; });
        live.open(QUrl(QStringLiteral("ws://127.0.0.1:%1/api/v1/live").arg(port)));
        QTRY_VERIFY(!messages.isEmpty());
        const QJsonObject first = QJsonDocument::fromJson(messages.first().toUtf8()).object();
        const QJsonArray cards = first[QLatin1String("facility")][QLatin1String("instruments")].toArray();
        QCOMPARE(cards.size(), 3);
        QCOMPARE(cards[0][QLatin1String("instrument")][QLatin1String("queueLength")].toInt(), 20);
        QVERIFY(!cards[0][QLatin1String("instrument")].toObject().contains(QLatin1String("queue")));

        // A change on one instrument reaches the live client.
        publishFrom(QStringLiteral("nmr400"), recordedState(QStringLiteral("nmr400"), QStringLiteral("idle"), 7));
        const auto reached = [&] {
            const QJsonArray cards = QJsonDocument::fromJson(messages.last().toUtf8())
                                         .object()[QLatin1String("facility")][QLatin1String("instruments")].toArray();
            for (const QJsonValue& entry : cards) {
                if (entry[QLatin1String("name")].toString() == u"nmr400"
                    && entry[QLatin1String("runState")].toString() == u"idle")
                    return entry[QLatin1String("instrument")][QLatin1String("queueLength")].toInt();
            }
            return 0;
        };
        QTRY_COMPARE(reached(), 7);

        const QByteArray metrics = get(port, QStringLiteral("/metrics"));
        QVERIFY(metrics.contains("spinlane_instrument_online{instrument=\"nmr600\"} 1\n"));
        QVERIFY(metrics.contains("spinlane_instrument_online{instrument=\"nmr800\"} 0\n"));
        const QJsonArray bob = QJsonDocument::fromJson(get(port, QStringLiteral("/api/v1/facility/samples/bob")))
                                   .object()[QLatin1String("items")].toArray();
        QCOMPARE(bob.size(), 2 + 7 + 7); // bob has every third item: 2 of nmr400's 7, 7 of the others' 20
        QVERIFY(get(port, QStringLiteral("/api/v1/facility/instruments/nmr600")).contains("\"queue\":["));
        QVERIFY(get(port, QStringLiteral("/api/v1/facility/instruments/nobody")).isEmpty());

        // The page hears when the facility loses the broker, and when it is back.
        const auto brokerSaid = [&] {
            QStringList said;
            for (const QString& m : messages) {
                const QJsonObject broker = QJsonDocument::fromJson(m.toUtf8())
                                               .object()[QLatin1String("facility")][QLatin1String("broker")].toObject();
                const QString now = broker[QLatin1String("connected")].toBool() ? QStringLiteral("connected") : QStringLiteral("lost");
                if (said.isEmpty() || said.last() != now)
                    said << now;
            }
            return said;
        };
        QVERIFY2(m_broker.restart(), qPrintable(m_broker.log()));
        QTRY_COMPARE_WITH_TIMEOUT(brokerSaid(), (QStringList{QStringLiteral("connected"), QStringLiteral("lost"),
                                                             QStringLiteral("connected")}), 15000);
        QTRY_VERIFY_WITH_TIMEOUT(m_facility->client().isConnected(), 10000);
    }

    void anInstrumentsWebServerPublishes()
    {
        // No Spinlane runs on this bus: the instrument says so, through the broker too.
        const QString config = writeConfig(QStringLiteral("nmr400-web.conf"), QStringLiteral("nmr400"),
                                           passwordOf(QStringLiteral("nmr400")),
                                           {{QStringLiteral("web"), QStringLiteral("Instrument"), QStringLiteral("nmr400")}});
        WebProgram web(config);
        QVERIFY2(web.port(), qPrintable(web.errors()));
        QTRY_VERIFY_WITH_TIMEOUT(m_facility->entry(QStringLiteral("nmr400"))->state
                                     && !m_facility->entry(QStringLiteral("nmr400"))->state->spinlane, 10000);
        QCOMPARE(runStateOf(*m_facility, QStringLiteral("nmr400")), QStringLiteral("unknown"));
        QVERIFY(web.waitForError(QStringLiteral("broker: publishing nmr400 to 127.0.0.1:")));
    }

    void aRefusedWebServerKeepsServingItsPage()
    {
        const QString config = writeConfig(QStringLiteral("refused.conf"), QStringLiteral("nmr400"),
                                           QStringLiteral("guessed"));
        WebProgram web(config);
        const quint16 port = web.port();
        QVERIFY2(port, qPrintable(web.errors()));
        QVERIFY(web.waitForError(QStringLiteral("spinlane-web: broker: the broker refused the user name or password")));
        QVERIFY(get(port, QStringLiteral("/api/v1/instrument")).contains("\"schema\":1"));
        QVERIFY(get(port, QStringLiteral("/metrics")).contains("spinlane_broker_connected{instrument="));
        QVERIFY(get(port, QStringLiteral("/healthz")).contains("refused the user name or password"));
    }

    // Logged in, but the access list refuses the instrument's topics: not connected, and why.
    void aRefusedTopicShowsInTheMetric()
    {
        const QString config = writeConfig(QStringLiteral("forged.conf"), QStringLiteral("nmr600"),
                                           passwordOf(QStringLiteral("nmr600")),
                                           {{QStringLiteral("web"), QStringLiteral("Instrument"), QStringLiteral("nmr400")}});
        WebProgram web(config);
        const quint16 port = web.port();
        QVERIFY2(port, qPrintable(web.errors()));
        QVERIFY(web.waitForError(QStringLiteral("the broker does not allow this user to publish spinlane/v1/nmr400/")));
        QTRY_VERIFY(get(port, QStringLiteral("/metrics")).contains("spinlane_broker_connected{instrument=\"nmr400\"} 0\n"));
        QVERIFY(get(port, QStringLiteral("/healthz")).contains("does not allow this user to publish"));
    }

    void aPasswordOthersCanReadIsRefused()
    {
        const QString config = writeConfig(QStringLiteral("exposed.conf"), QStringLiteral("nmr400"),
                                           passwordOf(QStringLiteral("nmr400")));
        QFile::setPermissions(config, QFile::permissions(config) | QFileDevice::ReadOther);
        WebProgram web(config);
        QVERIFY(web.process().waitForFinished(10000));
        QCOMPARE(web.process().exitCode(), 2);
        QVERIFY2(web.errors().contains(QStringLiteral("%1 holds a password and others can read it: chmod 600 %1").arg(config)),
                 qPrintable(web.errors()));
    }

    void wrongCredentialsAreRefused()
    {
        const QByteArray before = stateOf(*m_facility, QStringLiteral("nmr400"));
        InstrumentPublisher publisher(QStringLiteral("nmr400"));
        publisher.start(m_broker.settings(QStringLiteral("nmr400"), QStringLiteral("guessed")));
        const QString expected = QStringLiteral("the broker refused the user name or password (127.0.0.1:%1)")
                                     .arg(m_broker.port());
        QTRY_COMPARE(publisher.problem(), expected);
        publisher.setState(recordedState(QStringLiteral("nmr400"), QStringLiteral("idle"), 3));
        QTest::qWait(300); // a few reconnection attempts, all refused
        QVERIFY(!publisher.isConnected());
        QCOMPARE(publisher.problem(), expected);
        QCOMPARE(stateOf(*m_facility, QStringLiteral("nmr400")), before);
    }

    void anotherInstrumentsTopicIsDenied()
    {
        // nmr600's workstation poses as nmr400: its login is right, the topic is not its own.
        const QByteArray before = stateOf(*m_facility, QStringLiteral("nmr400"));
        InstrumentPublisher forger(QStringLiteral("nmr400"));
        forger.start(m_broker.settings(QStringLiteral("nmr600"), passwordOf(QStringLiteral("nmr600"))));
        forger.setState(recordedState(QStringLiteral("nmr400"), QStringLiteral("idle"), 1));
        QTRY_VERIFY(forger.problem().startsWith(QStringLiteral("the broker does not allow this user to publish spinlane/v1/nmr400/")));
        QVERIFY(forger.isConnected());
        QTRY_COMPARE(forger.problem(), QStringLiteral("the broker does not allow this user to publish spinlane/v1/nmr400/state"));
        QCOMPARE(forger.publishedStates(), 0u);
        QVERIFY(!forger.isDelivering());

        // A message sent after the forged one reaches the facility after it would have.
        syncWithFacility();
        QCOMPARE(stateOf(*m_facility, QStringLiteral("nmr400")), before);
    }

    // TLS checks the broker's certificate against the name it was given, looked up beforehand
    // without waiting (libmosquitto connects to the address), or against the address it was
    // given; without CAFile, against the system's certificate store, and says so.
    void tlsChecksTheBrokersName_data()
    {
        QTest::addColumn<QString>("certified"); // the broker certificate's subjectAltName
        QTest::addColumn<QString>("host"); // the configured Host
        QTest::addColumn<bool>("withCa");
        QTest::addColumn<QString>("refusal"); // "": accepted
        QTest::newRow("its name") << QStringLiteral("DNS:localhost") << QStringLiteral("localhost") << true
                                  << QString();
        QTest::newRow("another name") << QStringLiteral("DNS:elsewhere.example") << QStringLiteral("localhost")
                                      << true << QStringLiteral("hostname mismatch");
        QTest::newRow("its address") << QStringLiteral("IP:127.0.0.1") << QStringLiteral("127.0.0.1") << true
                                     << QString();
        QTest::newRow("a name, configured by address")
            << QStringLiteral("DNS:localhost") << QStringLiteral("127.0.0.1") << true
            << QStringLiteral("IP address mismatch");
        QTest::newRow("the system's store") << QStringLiteral("DNS:localhost") << QStringLiteral("localhost")
                                            << false << QStringLiteral("unable to get local issuer certificate");
    }
    void tlsChecksTheBrokersName()
    {
        QFETCH(QString, certified);
        QFETCH(QString, host);
        QFETCH(bool, withCa);
        QFETCH(QString, refusal);
        QTemporaryDir dir;
        const auto openssl = [&dir](const QStringList& arguments) {
            QProcess process;
            process.setWorkingDirectory(dir.path());
            process.start(QStringLiteral("openssl"), arguments);
            return process.waitForFinished(20000) && process.exitCode() == 0;
        };
        const QStringList key{QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                              QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes")};
        QVERIFY(openssl(QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + key
                        + QStringList{QStringLiteral("-keyout"), QStringLiteral("ca.key"), QStringLiteral("-out"),
                                      QStringLiteral("ca.pem"), QStringLiteral("-days"), QStringLiteral("2"),
                                      QStringLiteral("-subj"), QStringLiteral("/CN=Spinlane test authority")}));
        QVERIFY(openssl(QStringList{QStringLiteral("req")} + key
                        + QStringList{QStringLiteral("-keyout"), QStringLiteral("broker.key"), QStringLiteral("-out"),
                                      QStringLiteral("broker.csr"), QStringLiteral("-subj"),
                                      QStringLiteral("/CN=") + certified.section(u':', 1)}));
        QFile extension(dir.filePath(QStringLiteral("san.ext")));
        QVERIFY(extension.open(QIODevice::WriteOnly));
        extension.write("subjectAltName=" + certified.toUtf8() + '\n');
        extension.close();
        QVERIFY(openssl({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"), QStringLiteral("broker.csr"),
                         QStringLiteral("-CA"), QStringLiteral("ca.pem"), QStringLiteral("-CAkey"), QStringLiteral("ca.key"),
                         QStringLiteral("-CAcreateserial"), QStringLiteral("-out"), QStringLiteral("broker.pem"),
                         QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-extfile"), QStringLiteral("san.ext")}));
        MosquittoBroker broker;
        QVERIFY(broker.addUser(QStringLiteral("facility"), QStringLiteral("pw")));
        broker.setTls(dir.filePath(QStringLiteral("broker.pem")), dir.filePath(QStringLiteral("broker.key")));
        QVERIFY2(broker.start(), qPrintable(broker.log()));
        BrokerSettings settings = broker.settings(QStringLiteral("facility"), QStringLiteral("pw"));
        settings.host = host;
        settings.tls = true;
        if (withCa)
            settings.caFile = dir.filePath(QStringLiteral("ca.pem"));
        else
            QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("no CAFile, so the system's certificate store in /etc/ssl/certs is trusted")));
        MqttClient client(QStringLiteral("tls-test"));
        client.setReconnectDelays(100, 1000);
        QSignalSpy connected(&client, &MqttClient::connected);
        client.start(settings);
        if (refusal.isEmpty()) {
            QTRY_VERIFY2_WITH_TIMEOUT(client.isConnected(),
                                      qPrintable(client.lastProblem() + u'\n' + broker.log()), 10000);
        } else {
            const QString expected = QStringLiteral("cannot trust the broker's certificate at %1:%2: %3")
                                         .arg(host).arg(broker.port()).arg(refusal);
            QTRY_COMPARE_WITH_TIMEOUT(client.lastProblem(), expected, 10000);
            QTest::qWait(300); // a few more attempts, all refused before the login
            QCOMPARE(connected.count(), 0);
            QCOMPARE(client.lastProblem(), expected);
        }
    }

    // A broker whose name cannot be found is said, on standard error and /healthz, and tried
    // again, while the facility goes on answering. The name's first label is longer than DNS
    // allows, so the resolver fails it at once without asking any server.
    void anUnknownBrokerNameKeepsTheFacilityAnswering()
    {
        const QString unknown = QString(64, u'x') + QStringLiteral(".invalid");
        const QString config = writeConfig(QStringLiteral("unknown.conf"), QStringLiteral("facility"),
                                           passwordOf(QStringLiteral("facility")),
                                           {{QStringLiteral("web"), QStringLiteral("Mode"), QStringLiteral("facility")},
                                            {QStringLiteral("broker"), QStringLiteral("Host"), unknown}});
        WebProgram web(config);
        const quint16 port = web.port();
        QVERIFY2(port, qPrintable(web.errors()));
        const QString said = QStringLiteral("cannot find the broker's host ") + unknown;
        QVERIFY2(web.waitForError(QStringLiteral("spinlane-web: broker: ") + said), qPrintable(web.errors()));
        for (int i = 0; i < 5; ++i) // answered between the attempts, every time
            QVERIFY(get(port, QStringLiteral("/healthz")).contains(said.toUtf8()));
        QVERIFY(get(port, QStringLiteral("/api/v1/facility")).contains("\"connected\":false"));

        // The client itself: the failure is said once however often it is tried, and the event
        // loop never waits for the lookup.
        BrokerSettings settings = m_broker.settings(QStringLiteral("facility"), passwordOf(QStringLiteral("facility")));
        settings.host = unknown;
        MqttClient client(QStringLiteral("unknown-test"));
        client.setReconnectDelays(20, 40);
        QSignalSpy problems(&client, &MqttClient::problem);
        QElapsedTimer clock;
        qint64 longestPause = 0;
        QTimer beat;
        beat.setInterval(10);
        connect(&beat, &QTimer::timeout, this, [&] { longestPause = qMax(longestPause, clock.restart()); });
        clock.start();
        beat.start();
        client.start(settings);
        QTRY_VERIFY(client.lastProblem().startsWith(said));
        QTest::qWait(500);
        QCOMPARE(problems.count(), 1);
        QVERIFY2(longestPause < 1000, qPrintable(QString::number(longestPause)));
    }

    void badPayloadsAreIgnoredAndCounted_data()
    {
        QTest::addColumn<QString>("topic");
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<int>("fault");
        const QString state = QStringLiteral("spinlane/v1/nmr400/state");
        QTest::newRow("not JSON") << state << QByteArray("{\"schema\":1,") << int(PayloadFault::Malformed);
        QTest::newRow("queue of numbers")
            << state << QByteArray(R"({"schema":1,"instrument":"nmr400","spinlane":true,"runState":"idle","queue":[1,2]})")
            << int(PayloadFault::Malformed);
        QTest::newRow("online says maybe") << QStringLiteral("spinlane/v1/nmr400/online") << QByteArray("maybe")
                                           << int(PayloadFault::Malformed);
        QTest::newRow("999 items, above the limit")
            << state << recordedState(QStringLiteral("nmr400"), QStringLiteral("idle"), 999) << int(PayloadFault::Oversized);
        QTest::newRow("another instrument's state")
            << state << recordedState(QStringLiteral("nmr600"), QStringLiteral("idle"), 2) << int(PayloadFault::Foreign);
    }

    void badPayloadsAreIgnoredAndCounted()
    {
        QFETCH(QString, topic);
        QFETCH(QByteArray, payload);
        QFETCH(int, fault);
        const quint64 before = m_facility->rejected(PayloadFault(fault));
        const QByteArray stateBefore = stateOf(*m_facility, QStringLiteral("nmr400"));
        MqttClient& tester = testerClient();
        QSignalSpy taken(&tester, &MqttClient::published);
        QVERIFY(tester.publish(topic, payload, false) >= 0);
        QVERIFY(taken.wait());
        QTRY_COMPARE(m_facility->rejected(PayloadFault(fault)), before + 1);
        QCOMPARE(m_facility->instruments(), kInstruments);
        QCOMPARE(stateOf(*m_facility, QStringLiteral("nmr400")), stateBefore);
        QVERIFY(m_facility->metricsText().contains(
            QByteArray("spinlane_facility_rejected_messages_total{reason=\"") + faultName(PayloadFault(fault))
            + "\"} " + QByteArray::number(before + 1)));
    }

    void publishersTellABrokerThatLostEverythingAgain()
    {
        QVERIFY2(m_broker.restartEmpty(), qPrintable(m_broker.log()));
        std::unique_ptr<FacilityModel> fresh = startFacility();
        // The live instruments publish their current state on reconnecting; the dead one is gone.
        QTRY_COMPARE_WITH_TIMEOUT(fresh->instruments(), (QStringList{QStringLiteral("nmr400"), QStringLiteral("nmr600")}), 20000);
        QTRY_COMPARE(stateOf(*fresh, QStringLiteral("nmr600")), stateOf(*m_facility, QStringLiteral("nmr600")));
        QTRY_COMPARE(offlineOf(*fresh, QStringLiteral("nmr600")), FacilityModel::Offline::No);
    }

private:
    MqttClient& testerClient()
    {
        if (!m_tester) {
            m_tester = std::make_unique<MqttClient>(QStringLiteral("tester"));
            m_tester->start(m_broker.settings(QStringLiteral("tester"), passwordOf(QStringLiteral("tester"))));
        }
        [&] { QTRY_VERIFY(m_tester->isConnected()); }();
        return *m_tester;
    }
    // Publishes a harmless message and waits until the facility has counted it: whatever the
    // broker took before has reached the facility by then.
    void syncWithFacility()
    {
        const quint64 before = m_facility->rejected(PayloadFault::Foreign);
        testerClient().publish(QStringLiteral("spinlane/v1/sync/state"),
                               recordedState(QStringLiteral("nmr400"), QStringLiteral("idle"), 1), false);
        QTRY_COMPARE(m_facility->rejected(PayloadFault::Foreign), before + 1);
    }

    std::unique_ptr<MqttClient> m_tester;
};

QTEST_GUILESS_MAIN(FacilityBrokerTest)
#include "tst_facilitybroker.moc"
