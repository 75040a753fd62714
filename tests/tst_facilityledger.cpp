// Every instrument's ledger gathered in the facility's: real spinlane-web processes for two
// instruments and the facility, through a real mosquitto with the shipped access list, while the
// broker restarts, the facility is killed in the middle of a burst and an instrument is away.
#include "core/ProfileFile.h"
#include "facility/LedgerMessage.h"
#include "facility/MqttClient.h"
#include "facility/Topics.h"
#include "ledger/LedgerStore.h"
#include "support/MosquittoBroker.h"
#include "support/PostgresServer.h"
#include "support/WebProcess.h"

#include <QFile>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <map>
#include <memory>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::facility;
using spinlane::testing::MosquittoBroker;
using spinlane::testing::RawClient;
using spinlane::testing::WebProcess;

namespace {

const QStringList kInstruments{u"nmr400"_s, u"nmr600"_s};
QString passwordOf(const QString& user) { return u"pw-"_s + user; }

LedgerRecord itemOf(int n)
{
    LedgerRecord r;
    r.instrument = u"workstation"_s; // the facility files it under the topic's instrument
    r.itemSerial = u"SN"_s + QString::number(n);
    r.queueNumber = n % 999 + 1;
    r.user = u"ann"_s;
    r.organization = u"Chemie, Süd"_s;
    r.sampleName = u"Probe \"%1\""_s.arg(n);
    r.samplePosition = n % 60 + 1;
    r.dataFile = u"/data/"_s + QString::number(n) + u".kvd"_s;
    r.run.takenUp = QDateTime(QDate(2026, 11, 2), QTime(8, 0), Qt::UTC).addSecs(n * 600);
    r.run.ended = r.run.takenUp.addSecs(540);
    r.run.outcome = n % 10 ? u"Done"_s : u"Failed"_s;
    r.run.mode = RunMode::Changer;
    r.run.experimentSeconds = 480;
    r.run.title = u"PROTON"_s;
    r.run.solvent = u"CDCl3"_s;
    return r;
}

} // namespace

class FacilityLedgerTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    MosquittoBroker m_broker;
    std::map<QString, int> m_written; // records appended to each instrument's ledger
    std::map<QString, int> m_earlier; // records of the ledgers it had before
    std::map<QString, std::unique_ptr<WebProcess>> m_instruments;
    std::unique_ptr<WebProcess> m_facility;

    QString ledgerOf(const QString& instrument) const { return m_dir.filePath(instrument + u".ledger"_s); }
    QString facilityLedger() const { return m_dir.filePath(u"facility.ledger"_s); }

    QString writeConfig(const QString& name, const QString& user,
                        const QList<std::array<QString, 3>>& more)
    {
        const QString config = m_dir.filePath(name + u".conf"_s);
        ProfileDocument file;
        const BrokerSettings broker = m_broker.settings(user, passwordOf(user));
        file.writeString(u"broker", u"Host", broker.host);
        file.writeString(u"broker", u"Port", QString::number(broker.port));
        file.writeString(u"broker", u"User", broker.user);
        file.writeString(u"broker", u"Password", broker.password);
        for (const auto& [section, key, value] : more)
            file.writeString(section, key, value);
        file.save(config);
        QFile::setPermissions(config, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        return config;
    }

    // What the workstation's Spinlane does at each outcome.
    void append(const QString& instrument, int count)
    {
        QString error;
        auto ledger = LedgerStore::open(ledgerOf(instrument), {}, &error);
        QVERIFY2(ledger, qPrintable(error));
        std::vector<LedgerRecord> records;
        for (int i = 0; i < count; ++i)
            records.push_back(itemOf(++m_written[instrument]));
        QVERIFY2(ledger->append(records, &error), qPrintable(error));
    }

    void startInstrument(const QString& name)
    {
        const QString config = writeConfig(name, name,
                                           {{u"web"_s, u"Instrument"_s, name},
                                            {u"ledger"_s, u"File"_s, ledgerOf(name)},
                                            {u"ledger"_s, u"ResendAfter"_s, u"2"_s}});
        m_instruments[name] = std::make_unique<WebProcess>(QStringLiteral(SPINLANE_WEB), config);
        QVERIFY2(m_instruments[name]->port, qPrintable(m_instruments[name]->errors()));
    }

    void startFacility(const QString& database = {})
    {
        const QString config =
            writeConfig(u"facility"_s, u"facility"_s,
                        {{u"web"_s, u"Mode"_s, u"facility"_s},
                         {u"ledger"_s, u"Database"_s, database.isEmpty() ? facilityLedger() : database}});
        m_facility = std::make_unique<WebProcess>(QStringLiteral(SPINLANE_WEB), config);
        QVERIFY2(m_facility->port, qPrintable(m_facility->errors()));
    }

    // Per instrument, how many records the facility holds and how far it holds all of those of
    // the instrument's present ledger.
    QStringList held(const QString& database = {})
    {
        QString error;
        auto ledger = LedgerStore::open(database.isEmpty() ? facilityLedger() : database, {}, &error);
        if (!ledger)
            return {error};
        QStringList lines;
        for (const QString& instrument : kInstruments) {
            const auto all = ledger->newest(100000, &error);
            qint64 count = 0;
            for (const LedgerRecord& record : all.value_or(std::vector<LedgerRecord>()))
                count += record.instrument == instrument;
            QString error;
            const auto own = LedgerStore::open(ledgerOf(instrument), {}, &error);
            lines << u"%1 %2 through %3"_s.arg(instrument).arg(count).arg(
                own ? ledger->heldThrough(instrument, own->identity(), 0, nullptr).value_or(-1) : -1);
        }
        return lines;
    }
    QStringList expected(bool withEarlierLedgers = true)
    {
        QStringList lines;
        for (const QString& instrument : kInstruments)
            lines << u"%1 %2 through %3"_s.arg(instrument)
                         .arg(m_written[instrument] + (withEarlierLedgers ? m_earlier[instrument] : 0))
                         .arg(m_written[instrument]);
        return lines;
    }

private Q_SLOTS:
    void initTestCase()
    {
        for (const QString& user : kInstruments + QStringList{u"facility"_s})
            QVERIFY2(m_broker.addUser(user, passwordOf(user)), "mosquitto_passwd failed");
        QFile acl(QStringLiteral(SPINLANE_EXAMPLES "/mosquitto/spinlane.acl"));
        QVERIFY(acl.open(QIODevice::ReadOnly));
        m_broker.setAccessList(acl.readAll());
        QVERIFY2(m_broker.start(), qPrintable(m_broker.log()));
    }

    // Records written before anyone listened, while the broker is away, in a burst during which
    // the facility is killed, and while an instrument is away: the facility ends with each once.
    void everyRecordArrivesOnce()
    {
        for (const QString& name : kInstruments)
            append(name, 50);
        startFacility();
        for (const QString& name : kInstruments)
            startInstrument(name);
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 20000);

        m_broker.stop();
        for (const QString& name : kInstruments)
            append(name, 30);
        QVERIFY2(m_broker.start(), qPrintable(m_broker.log()));
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 30000);

        // A burst, the facility killed while it takes it in, and started again.
        const int before = m_written[u"nmr400"_s];
        for (int part = 0; part < 4; ++part) {
            for (const QString& name : kInstruments)
                append(name, 100);
        }
        QTRY_VERIFY_WITH_TIMEOUT(held().constFirst() != u"nmr400 %1 through %1"_s.arg(before), 20000);
        m_facility->kill();
        startFacility();
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 40000);

        // An instrument away for a while, its Spinlane running on.
        m_instruments[u"nmr600"_s].reset();
        append(u"nmr600"_s, 120);
        QTest::qWait(1000);
        QVERIFY(held() != expected());
        startInstrument(u"nmr600"_s);
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 30000);

        // A new workstation for nmr600: a ledger made anew numbers from 1 again, and its records
        // are new records all the same.
        m_instruments[u"nmr600"_s].reset();
        m_earlier[u"nmr600"_s] = std::exchange(m_written[u"nmr600"_s], 0);
        for (const QString& suffix : {u""_s, u"-wal"_s, u"-shm"_s})
            QFile::remove(ledgerOf(u"nmr600"_s) + suffix);
        append(u"nmr600"_s, 7);
        startInstrument(u"nmr600"_s);
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 30000);

        // What the broker took is kept in the instrument's own ledger.
        QString error;
        const auto nmr400 = LedgerStore::open(ledgerOf(u"nmr400"_s), {}, &error);
        QCOMPARE(nmr400->meta(u"sent to broker "_s + m_broker.settings(u"x"_s, {}).address()),
                 QString::number(m_written[u"nmr400"_s]));
    }

    // The access list lets an instrument write only its own ledger: a record forged on another's
    // topic is refused by the broker and changes nothing; a damaged one on its own is ignored.
    void forgedRecordsChangeNothing()
    {
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 20000);
        MqttClient forger(u"forger"_s);
        forger.start(m_broker.settings(u"nmr400"_s, passwordOf(u"nmr400"_s)));
        QTRY_VERIFY_WITH_TIMEOUT(forger.isConnected(), 10000);
        QSignalSpy published(&forger, &MqttClient::published);
        LedgerRecord forged = itemOf(1);
        forged.number = m_written[u"nmr600"_s] + 1;
        forged.user = u"mallory"_s;
        const int refused = forger.publish(ledgerTopic(u"nmr600"_s), ledgerMessage(forged), false);
        QTRY_VERIFY_WITH_TIMEOUT(!published.isEmpty(), 10000);
        QCOMPARE(published.takeFirst(), (QVariantList{refused, false}));
        const int damaged = forger.publish(ledgerTopic(u"nmr400"_s), "{\"schema\":1,\"record\":\"x\"}", false);
        QTRY_VERIFY_WITH_TIMEOUT(!published.isEmpty(), 10000);
        QCOMPARE(published.takeFirst(), (QVariantList{damaged, true}));
        QVERIFY(m_facility->waitForError(u"ignored a ledger record on spinlane/v1/nmr400/ledger"_s));
        QTest::qWait(500);
        QCOMPARE(held(), expected());
        forger.stop();
    }

    // A facility whose database cannot be written for a while (another program holds its lock)
    // says so on /healthz and in /metrics; the records wait and are all written once it can.
    void aDatabaseThatCannotBeWrittenIsSaid()
    {
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 20000);
        const auto facilityGet = [this](const QByteArray& path) {
            RawClient client(m_facility->port);
            client.send("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
            return client.receive(10000);
        };
        QVERIFY(facilityGet("/metrics").contains("\nspinlane_facility_ledger_writable 1\n"));
        {
            QSqlDatabase lock = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"lock"_s);
            lock.setDatabaseName(facilityLedger());
            QVERIFY(lock.open() && QSqlQuery(lock).exec(u"BEGIN EXCLUSIVE"_s));
            append(u"nmr400"_s, 5);
            QTRY_VERIFY_WITH_TIMEOUT(facilityGet("/healthz").contains(
                                         "\r\n\r\nok (the facility's ledger cannot be written: "
                                         "database is locked"),
                                     20000);
            QVERIFY(facilityGet("/metrics").contains("\nspinlane_facility_ledger_writable 0\n"));
            QVERIFY(QSqlQuery(lock).exec(u"ROLLBACK"_s));
            lock.close();
        }
        QSqlDatabase::removeDatabase(u"lock"_s);
        QTRY_COMPARE_WITH_TIMEOUT(held(), expected(), 30000);
        QVERIFY(facilityGet("/healthz").endsWith("\r\n\r\nok\n"));
        const QByteArray metrics = facilityGet("/metrics");
        QVERIFY2(metrics.contains("\nspinlane_facility_ledger_writable 1\n")
                     && metrics.contains("\nspinlane_facility_ledger_records_total ")
                     && metrics.contains("\nspinlane_facility_ledger_rejected_total 1\n"),
                 metrics.constData());
    }

    // A facility that starts anew on an empty database, here PostgreSQL, gets every record the
    // workstations hold: its answer tells each instrument that it holds none of them yet.
    void aFacilityStartedAnewGetsEverything()
    {
        const PostgresServer server;
        QVERIFY2(server.error().isEmpty(), qPrintable(server.error()));
        m_facility.reset();
        startFacility(server.url());
        for (const QString& name : kInstruments)
            append(name, 3);
        QTRY_COMPARE_WITH_TIMEOUT(held(server.url()), expected(false), 40000);
        m_facility.reset(); // before its database goes
    }

    void cleanupTestCase()
    {
        if (qEnvironmentVariableIsSet("SPINLANE_SHOW_WEB_LOG")) {
            for (const auto& [name, web] : m_instruments)
                qInfo().noquote() << name << web->errors();
            if (m_facility)
                qInfo().noquote() << "facility" << m_facility->errors();
        }
        m_instruments.clear();
        m_facility.reset();
    }
};

QTEST_GUILESS_MAIN(FacilityLedgerTest)
#include "tst_facilityledger.moc"
