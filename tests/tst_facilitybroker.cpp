// The facility against a real mosquitto: instruments publishing through it (child processes
// that can be killed), their access list, and what the facility makes of it all.
#include "core/ProfileFile.h"
#include "facility/FacilityModel.h"
#include "facility/InstrumentPublisher.h"
#include "facility/Topics.h"
#include "support/MosquittoBroker.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

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
    void startPublisher(const QString& name)
    {
        const QString config = m_dir.filePath(name + QStringLiteral(".conf"));
        ProfileDocument file;
        const BrokerSettings broker = m_broker.settings(name, passwordOf(name));
        file.writeString(u"Broker", u"Host", broker.host);
        file.writeString(u"Broker", u"Port", QString::number(broker.port));
        file.writeString(u"Broker", u"User", broker.user);
        file.writeString(u"Broker", u"Password", broker.password);
        file.writeString(u"Broker", u"Heartbeat", QStringLiteral("1"));
        QVERIFY(file.save(config));
        QFile::setPermissions(config, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
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
        QSignalSpy lost(&m_facility->client(), &MqttClient::disconnected);
        QVERIFY2(m_broker.restart(), qPrintable(m_broker.log()));
        QTRY_COMPARE(lost.count(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(m_facility->client().isConnected(), 10000);
        // The instruments reconnect by themselves and go on publishing.
        publishFrom(QStringLiteral("nmr400"), recordedState(QStringLiteral("nmr400"), QStringLiteral("stopped"), 20));
        QTRY_COMPARE_WITH_TIMEOUT(runStateOf(*m_facility, QStringLiteral("nmr400")), QStringLiteral("stopped"), 20000);
        QCOMPARE(offlineOf(*m_facility, QStringLiteral("nmr800")), FacilityModel::Offline::Will);
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

    void wrongCredentialsAreRefused()
    {
        InstrumentPublisher publisher(QStringLiteral("nmr400"));
        publisher.start(m_broker.settings(QStringLiteral("nmr400"), QStringLiteral("guessed")));
        const QString expected = QStringLiteral("the broker refused the user name or password (127.0.0.1:%1)")
                                     .arg(m_broker.port());
        QTRY_COMPARE(publisher.problem(), expected);
        publisher.setState(recordedState(QStringLiteral("nmr400"), QStringLiteral("idle"), 3));
        QTest::qWait(300); // a few reconnection attempts, all refused
        QVERIFY(!publisher.isConnected());
        QCOMPARE(publisher.problem(), expected);
        QCOMPARE(runStateOf(*m_facility, QStringLiteral("nmr400")), QStringLiteral("stopped"));
    }

    void anotherInstrumentsTopicIsDenied()
    {
        // nmr600's workstation poses as nmr400: its login is right, the topic is not its own.
        InstrumentPublisher forger(QStringLiteral("nmr400"));
        forger.start(m_broker.settings(QStringLiteral("nmr600"), passwordOf(QStringLiteral("nmr600"))));
        forger.setState(recordedState(QStringLiteral("nmr400"), QStringLiteral("idle"), 1));
        QTRY_VERIFY(forger.problem().startsWith(QStringLiteral("the broker does not allow this user to publish spinlane/v1/nmr400/")));
        QVERIFY(forger.isConnected());
        QTRY_COMPARE(forger.problem(), QStringLiteral("the broker does not allow this user to publish spinlane/v1/nmr400/state"));
        QCOMPARE(forger.publishedStates(), 0u);

        // A message sent after the forged one reaches the facility after it would have.
        syncWithFacility();
        QCOMPARE(runStateOf(*m_facility, QStringLiteral("nmr400")), QStringLiteral("stopped"));
        QCOMPARE(m_facility->entry(QStringLiteral("nmr400"))->state->queue.size(), 20);
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
        const QByteArray facilityBefore = m_facility->entryJson(QStringLiteral("nmr400"));
        MqttClient& tester = testerClient();
        QSignalSpy taken(&tester, &MqttClient::published);
        QVERIFY(tester.publish(topic, payload, false) >= 0);
        QVERIFY(taken.wait());
        QTRY_COMPARE(m_facility->rejected(PayloadFault(fault)), before + 1);
        QCOMPARE(m_facility->instruments(), kInstruments);
        QCOMPARE(runStateOf(*m_facility, QStringLiteral("nmr400")), QStringLiteral("stopped"));
        QVERIFY(m_facility->metricsText().contains(
            QByteArray("spinlane_facility_rejected_messages_total{reason=\"") + faultName(PayloadFault(fault))
            + "\"} " + QByteArray::number(before + 1)));
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
