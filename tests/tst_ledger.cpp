// The ledger: records kept once and for good in a real database, and the reports a facility
// bills from, through the spinlane-ledger command as a facility runs it.

#include "ledger/LedgerReport.h"
#include "ledger/LedgerStore.h"
#include "support/PostgresServer.h"
#include "support/SettingsFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

// An item of `org` that was taken up at `takenUp` (UTC), ran `minutes` and ended as `outcome`.
LedgerRecord item(const QString& org, const QString& user, const QDateTime& takenUp, int minutes,
                  const QString& outcome = u"Done"_s, const QString& instrument = u"nmr400"_s)
{
    LedgerRecord r;
    r.instrument = instrument;
    r.itemSerial = u"SN"_s + QString::number(takenUp.toSecsSinceEpoch() % 1000);
    r.queueNumber = 3;
    r.user = user;
    r.organization = org;
    r.sampleName = u"Sample"_s;
    r.samplePosition = 7;
    r.dataFile = u"/data/a.kvd"_s;
    r.run.takenUp = takenUp;
    r.run.ended = takenUp.addSecs(minutes * 60);
    r.run.outcome = outcome;
    r.run.mode = RunMode::Changer;
    r.run.loaded = true;
    r.run.loadSeconds = 20;
    r.run.experimentSeconds = minutes * 60 - 60;
    r.run.title = u"PROTON"_s;
    r.run.solvent = u"CDCl3"_s;
    return r;
}

QDateTime utc(int month, int day, int hour, int minute = 0)
{
    return QDateTime(QDate(2026, month, day), QTime(hour, minute), Qt::UTC);
}

struct Ran {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// Runs spinlane-ledger with the time zone of a facility in Berlin.
Ran ledgerCommand(const QStringList& arguments)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"TZ"_s, u"Europe/Berlin"_s);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(SPINLANE_LEDGER), arguments);
    if (!process.waitForFinished(30000))
        qFatal("spinlane-ledger did not finish");
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

// Rows of a CSV as Python's csv module, which reads as spreadsheets do, sees them.
QList<QStringList> csvRows(const QByteArray& csv)
{
    QProcess python;
    python.start(u"python3"_s,
                 {u"-c"_s, u"import csv, io, json, sys\n"
                           "text = sys.stdin.buffer.read().decode('utf-8-sig')\n"
                           "print(json.dumps(list(csv.reader(io.StringIO(text, newline='')))))"_s});
    python.write(csv);
    python.closeWriteChannel();
    if (!python.waitForFinished(30000))
        qFatal("python3 did not finish");
    QList<QStringList> rows;
    for (const QJsonValue& row : QJsonDocument::fromJson(python.readAllStandardOutput()).array()) {
        QStringList cells;
        for (const QJsonValue& cell : row.toArray())
            cells << cell.toString();
        rows << cells;
    }
    return rows;
}

// Items around February 2026 in Berlin, of two organizations and two instruments.
std::vector<LedgerRecord> monthOfItems()
{
    return {
        // 23:30 on 31 January UTC is 00:30 on 1 February in Berlin: February's.
        item(u"Chem"_s, u"ann"_s, utc(1, 31, 22, 30), 60),
        item(u"Chem"_s, u"ann"_s, utc(2, 10, 8), 90),
        item(u"Chem"_s, u"cy"_s, utc(2, 11, 8), 6, u"Failed"_s),
        item(u"Acme, \"Ltd\""_s, u"eve"_s, utc(2, 12, 8), 3, u"Stopped"_s),
        item(u"Acme, \"Ltd\""_s, u"eve"_s, utc(2, 28, 22, 30), 120, u"Done"_s, u"nmr600"_s),
        item(u"Chem"_s, u"ann"_s, utc(1, 31, 22, 0), 29)}; // ended 23:29 in Berlin: January's
}

} // namespace

class TestLedger : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    QString path(const QString& name) const { return m_dir.filePath(name); }

    std::unique_ptr<LedgerStore> open(const QString& name)
    {
        QString error;
        std::unique_ptr<LedgerStore> store = LedgerStore::open(path(name), {}, &error);
        if (!store)
            qWarning("%s", qPrintable(error));
        return store;
    }

private Q_SLOTS:
    // Numbers only grow, one sequence per ledger; a record lands once however often it is sent, odd texts
    // come back as they went, and the file is in WAL mode with full sync.
    void recordsKeptOnceAndForGood()
    {
        auto ledger = open(u"a.ledger"_s);
        QVERIFY(ledger);
        LedgerRecord odd = item(u"Chemie, \"Süd\""_s, u"zoë"_s, utc(3, 1, 8), 30);
        odd.sampleName = u"line\nbreak\t€ 'quoted'"_s;
        std::vector<LedgerRecord> first{odd, item(u"Bio"_s, u"bo"_s, utc(3, 1, 9), 10)};
        QVERIFY(ledger->append(first, nullptr));
        QCOMPARE(first[1].number, qint64(2));
        std::vector<LedgerRecord> other{item(u"Bio"_s, u"bo"_s, utc(3, 1, 9), 5, u"Failed"_s,
                                             u"nmr600"_s)};
        QVERIFY(ledger->append(other, nullptr));
        QCOMPARE(other[0].number, qint64(3)); // one sequence, whatever the instrument's name
        ledger.reset();

        ledger = open(u"a.ledger"_s);
        QCOMPARE(ledger->meta(u"schema"_s), QString::number(LedgerStore::schemaVersion()));
        std::vector<LedgerRecord> more{item(u"Bio"_s, u"bo"_s, utc(3, 2, 9), 10)};
        QVERIFY(ledger->append(more, nullptr));
        QCOMPARE(more[0].number, qint64(4));
        const auto all = ledger->newest(100, nullptr);
        QVERIFY(all);
        QCOMPARE(all->size(), std::size_t(4));
        QCOMPARE(all->front(), first[0]);
        QCOMPARE(all->back(), more[0]);

        // Sent again, with one new record among them: only the new one lands.
        LedgerRecord fresh = item(u"Bio"_s, u"bo"_s, utc(3, 3, 9), 10);
        fresh.ledger = first[0].ledger;
        fresh.number = 5;
        QCOMPARE(ledger->insert({first[0], first[1], fresh, first[1]}, nullptr), std::optional<int>(1));
        QCOMPARE(ledger->newest(100, nullptr)->size(), std::size_t(5));

        // Appending once: the second time changes nothing.
        std::vector<LedgerRecord> imported{item(u""_s, u""_s, utc(1, 1, 1), 1)};
        QVERIFY(ledger->appendOnce(imported, u"imported x"_s, nullptr));
        QVERIFY(ledger->appendOnce(imported, u"imported x"_s, nullptr));
        QCOMPARE(ledger->newest(100, nullptr)->size(), std::size_t(6));
        // What a workstation sends on, and how far a facility holds an instrument's every record.
        const auto next = ledger->after(3, 2, nullptr);
        QCOMPARE(next->size(), std::size_t(2));
        QCOMPARE(next->front().number, qint64(4));
        const QString own = ledger->identity();
        QVERIFY(!own.isEmpty());
        QCOMPARE(next->front().ledger, own);
        QCOMPARE(ledger->heldThrough(u"nmr400"_s, own, 0, nullptr), std::optional<qint64>(2));
        QCOMPARE(ledger->heldThrough(u"nmr400"_s, own, 3, nullptr), std::optional<qint64>(6));
        QCOMPARE(ledger->heldThrough(u"nmr600"_s, own, 0, nullptr), std::optional<qint64>(0));
        // A record of another ledger of the same instrument and number is another record.
        LedgerRecord fromElsewhere = first[0];
        fromElsewhere.ledger = u"another workstation's"_s;
        QCOMPARE(ledger->insert({fromElsewhere}, nullptr), std::optional<int>(1));
        QCOMPARE(ledger->heldThrough(u"nmr400"_s, u"another workstation's"_s, 0, nullptr),
                 std::optional<qint64>(1));

        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"peek"_s);
        db.setDatabaseName(path(u"a.ledger"_s));
        QVERIFY(db.open());
        QSqlQuery pragma(u"PRAGMA journal_mode"_s, db);
        QVERIFY(pragma.next());
        QCOMPARE(pragma.value(0).toString(), u"wal"_s);
    }

    // What ended from the first moment up to, not including, the last.
    void recordsOfAPeriod()
    {
        auto ledger = open(u"period.ledger"_s);
        std::vector<LedgerRecord> records{item(u"A"_s, u"a"_s, utc(1, 31, 23, 30), 29),
                                          item(u"A"_s, u"a"_s, utc(1, 31, 23, 30), 30),
                                          item(u"A"_s, u"a"_s, utc(2, 28, 23, 0), 60)};
        QVERIFY(ledger->append(records, nullptr));
        const auto february = ledger->endedBetween(utc(2, 1, 0), utc(3, 1, 0), nullptr);
        QVERIFY(february);
        QCOMPARE(february->size(), std::size_t(1));
        QCOMPARE(february->front().number, qint64(2));
    }

    // A ledger that is no regular file, or of a newer schema, is refused, never opened as one.
    void ledgersThatCannotBeOpened()
    {
        QString error;
#ifdef Q_OS_UNIX
        QCOMPARE(::mkfifo(QFile::encodeName(path(u"fifo"_s)).constData(), 0600), 0);
        QVERIFY(!LedgerStore::open(path(u"fifo"_s), {}, &error));
        QCOMPARE(error, u"not a regular file"_s);
#endif
        QVERIFY(open(u"newer.ledger"_s));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"newer"_s);
            db.setDatabaseName(path(u"newer.ledger"_s));
            QVERIFY(db.open());
            QVERIFY(QSqlQuery(db).exec(u"UPDATE spinlane_meta SET value = '99' WHERE key = 'schema'"_s));
        }
        QSqlDatabase::removeDatabase(u"newer"_s);
        QVERIFY(!LedgerStore::open(path(u"newer.ledger"_s), {}, &error));
        QVERIFY2(error.contains(u"newer version"_s), qPrintable(error));
    }

    void ratesFiles_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("error"); // part of it; empty when the file is good
        QTest::newRow("good") << QByteArray("[Rates]\nPerHour=40\nMinimumCharge=5\nChargeFailed=yes\n"
                                            "[Classes]\ninternal=25\n[Organizations]\nChem=internal\n"
                                            "Acme Analytics=90.5\n")
                              << QString();
        QTest::newRow("no number") << QByteArray("[Rates]\nPerHour=forty\n") << u"line 2"_s;
        QTest::newRow("negative") << QByteArray("[Classes]\ninternal=-3\n") << u"line 2"_s;
        QTest::newRow("unknown class") << QByteArray("[Organizations]\nChem=gold\n") << u"gold"_s;
        QTest::newRow("unknown key") << QByteArray("[Rates]\nPerDay=3\n") << u"PerDay"_s;
        QTest::newRow("bad flag") << QByteArray("[Rates]\nChargeFailed=maybe\n") << u"ChargeFailed"_s;
    }
    void ratesFiles()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, error);
        writeFile(path(u"rates.ini"_s), content);
        QString reason;
        const std::optional<Rates> rates = readRates(path(u"rates.ini"_s), &reason);
        QCOMPARE(rates.has_value(), error.isEmpty());
        QVERIFY2(reason.contains(error), qPrintable(reason));
        if (rates) {
            QCOMPARE(rates->rateOf(u"Chem"_s), 25.0);
            QCOMPARE(rates->rateOf(u"Acme Analytics"_s), 90.5);
            QCOMPARE(rates->rateOf(u"Other"_s), 40.0);
            QCOMPARE(rates->minimumCharge, 5.0);
            QVERIFY(rates->chargeFailed);
        }
    }

    // A month's report through the command, as cron runs it in a facility's time zone: an item
    // belongs to the day it ended there, with all its hours; amounts at each organization's
    // rate, at least the minimum charge, failed items free unless charged.
    void monthlyReport()
    {
        auto ledger = open(u"month.ledger"_s);
        std::vector<LedgerRecord> records = monthOfItems();
        QVERIFY(ledger->append(records, nullptr));
        ledger.reset();
        writeFile(path(u"rates.ini"_s), "[Rates]\nPerHour=40\nMinimumCharge=5\n"
                                         "[Classes]\ninternal=20\n[Organizations]\nChem=internal\n");
        const QStringList period{u"--database"_s, path(u"month.ledger"_s), u"--from"_s,
                                 u"2026-02-01"_s, u"--to"_s, u"2026-02-28"_s};

        Ran ran = ledgerCommand(QStringList{u"report"_s} << period << u"--rates"_s
                                                         << path(u"rates.ini"_s)
                                                         << u"--format"_s << u"csv"_s);
        QCOMPARE(ran.exitCode, 0);
        QVERIFY(ran.out.startsWith("\xEF\xBB\xBF"));
        // Acme: stopped 3 min at 40/h is 2.00, charged the minimum 5; its item of 120 min ended
        // at 01:30 on 1 March in Berlin, so it is March's. Chem: 60 + 90 min at 20/h = 50; the
        // failed item is free.
        QCOMPARE(csvRows(ran.out),
                 (QList<QStringList>{{u"organization"_s, u"items"_s, u"done"_s, u"failed"_s,
                                      u"stopped"_s, u"instrument_hours"_s, u"experiment_hours"_s,
                                      u"amount"_s},
                                     {u"Acme, \"Ltd\""_s, u"1"_s, u"0"_s, u"0"_s, u"1"_s, u"0.05"_s,
                                      u"0.03"_s, u"5.00"_s},
                                     {u"Chem"_s, u"3"_s, u"2"_s, u"1"_s, u"0"_s, u"2.60"_s,
                                      u"2.55"_s, u"50.00"_s},
                                     {u"Total"_s, u"4"_s, u"2"_s, u"1"_s, u"1"_s, u"2.65"_s,
                                      u"2.58"_s, u"55.00"_s}}));

        ran = ledgerCommand(QStringList{u"report"_s} << period << u"--by"_s << u"user"_s
                                                     << u"--format"_s << u"json"_s);
        QCOMPARE(ran.exitCode, 0);
        const QJsonObject json = QJsonDocument::fromJson(ran.out).object();
        QCOMPARE(json[u"by"_s].toString(), u"user"_s);
        QCOMPARE(json[u"rows"_s].toArray().size(), 3);
        QCOMPARE(json[u"rows"_s].toArray()[0].toObject()[u"user"_s].toString(), u"ann"_s);
        QCOMPARE(json[u"rows"_s].toArray()[0].toObject()[u"instrument_hours"_s].toDouble(), 2.5);
        QCOMPARE(json[u"total"_s].toObject()[u"items"_s].toInt(), 4);
        QVERIFY(!json[u"total"_s].toObject().contains(u"amount"_s));

        // The whole year in one report adds up to its months.
        ran = ledgerCommand({u"report"_s, u"--database"_s, path(u"month.ledger"_s), u"--from"_s,
                             u"2026-01-01"_s, u"--to"_s, u"2026-12-31"_s, u"--by"_s,
                             u"instrument"_s});
        QCOMPARE(ran.exitCode, 0);
        const QStringList lines = QString::fromUtf8(ran.out).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 4);
        QVERIFY2(lines[1].simplified().startsWith(u"nmr400 5 3 1 1 "_s), qPrintable(lines[1]));
        QVERIFY2(lines[3].simplified().startsWith(u"Total 6 4 1 1 "_s), qPrintable(lines[3]));
    }

    // The records as a spreadsheet reads them: quotes, commas, line breaks and names in any
    // language intact, and a name that looks like a formula never run as one.
    void exportForASpreadsheet()
    {
        auto ledger = open(u"export.ledger"_s);
        LedgerRecord odd = item(u"Chemie, Süd"_s, u"zoë"_s, utc(5, 5, 10), 15);
        odd.sampleName = u"=HYPERLINK(\"http://x\",\"y\")"_s;
        odd.dataFile = u"/data/\"q\"\nline.kvd"_s;
        std::vector<LedgerRecord> records{odd, item(u"Bio"_s, u"bo"_s, utc(5, 6, 10), 15)};
        QVERIFY(ledger->append(records, nullptr));
        ledger.reset();
        const Ran ran = ledgerCommand({u"export"_s, u"--database"_s, path(u"export.ledger"_s),
                                       u"--from"_s, u"2026-05-05"_s, u"--to"_s, u"2026-05-05"_s});
        QCOMPARE(ran.exitCode, 0);
        const QList<QStringList> rows = csvRows(ran.out);
        QCOMPARE(rows.size(), 2);
        const QStringList& header = rows[0];
        const QStringList& row = rows[1];
        QCOMPARE(row.size(), header.size());
        const auto cell = [&](const QString& name) { return row.value(header.indexOf(name)); };
        QCOMPARE(cell(u"organization"_s), u"Chemie, Süd"_s);
        QCOMPARE(cell(u"user_id"_s), u"zoë"_s);
        QCOMPARE(cell(u"sample_name"_s), u"'=HYPERLINK(\"http://x\",\"y\")"_s);
        QCOMPARE(cell(u"data_file"_s), u"/data/\"q\"\nline.kvd"_s);
        QCOMPARE(cell(u"taken_up"_s), u"2026-05-05T10:00:00.000Z"_s);
        QCOMPARE(cell(u"record"_s), u"1"_s);
        QCOMPARE(cell(u"outcome"_s), u"Done"_s);
    }

    // A facility's PostgreSQL ledger keeps records as the SQLite one does, once each, and the
    // command reports the same figures from both.
    void sameFiguresFromSQLiteAndPostgreSQL()
    {
        const PostgresServer server;
        QVERIFY2(server.error().isEmpty(), qPrintable(server.error()));
        QString error;
        auto postgres = LedgerStore::open(server.url(), {}, &error);
        QVERIFY2(postgres, qPrintable(error));
        auto sqlite = open(u"same.ledger"_s);
        std::vector<LedgerRecord> records = monthOfItems();
        records[1].sampleName = u"Probe \"7\", Süd"_s;
        QVERIFY(sqlite->append(records, nullptr));
        QCOMPARE(postgres->insert(records, &error), std::optional<int>(int(records.size())));
        QCOMPARE(postgres->insert(records, &error), std::optional<int>(0)); // sent again
        QCOMPARE(*postgres->newest(100, nullptr), *sqlite->newest(100, nullptr));
        // The usage view's sums for February in Berlin: the report's hours (see monthlyReport),
        // by instrument too, from both databases.
        const QDateTime february(QDate(2026, 1, 31), QTime(23, 0), Qt::UTC);
        const QDateTime march(QDate(2026, 2, 28), QTime(23, 0), Qt::UTC);
        for (LedgerStore* store : {sqlite.get(), postgres.get()}) {
            const auto usage = store->usageBetween(february, march, &error);
            QVERIFY2(usage, qPrintable(error));
            QStringList cells;
            for (const UsageCell& cell : *usage)
                cells << u"%1 %2 %3 %4"_s.arg(cell.organization, cell.instrument)
                             .arg(cell.items)
                             .arg(cell.instrumentHours, 0, 'f', 4);
            QCOMPARE(cells, (QStringList{u"Acme, \"Ltd\" nmr400 1 0.0500"_s,
                                         u"Chem nmr400 3 2.6000"_s}));
        }
        postgres.reset();
        // Opened again, the schema is there and current.
        postgres = LedgerStore::open(server.url(), {}, &error);
        QVERIFY2(postgres, qPrintable(error));
        QCOMPARE(postgres->meta(u"schema"_s), QString::number(LedgerStore::schemaVersion()));
        postgres.reset();
        sqlite.reset();

        writeFile(path(u"rates.ini"_s), "[Rates]\nPerHour=40\nMinimumCharge=5\n");
        const QStringList period{u"--from"_s, u"2026-01-01"_s, u"--to"_s, u"2026-03-31"_s};
        for (const QString& by : {u"organization"_s, u"user"_s, u"title"_s, u"instrument"_s}) {
            const QStringList report = QStringList{u"report"_s, u"--by"_s, by, u"--rates"_s,
                                                   path(u"rates.ini"_s), u"--format"_s, u"csv"_s}
                                       + period;
            const Ran fromSqlite =
                ledgerCommand(report + QStringList{u"--database"_s, path(u"same.ledger"_s)});
            const Ran fromPostgres = ledgerCommand(report + QStringList{u"--database"_s, server.url()});
            QCOMPARE(fromSqlite.exitCode, 0);
            QCOMPARE(fromPostgres.exitCode, 0);
            QVERIFY(csvRows(fromSqlite.out).size() > 2);
            QCOMPARE(fromPostgres.out, fromSqlite.out);
        }
        const QStringList exported = QStringList{u"export"_s} + period;
        QCOMPARE(ledgerCommand(exported + QStringList{u"--database"_s, server.url()}).out,
                 ledgerCommand(exported + QStringList{u"--database"_s, path(u"same.ledger"_s)}).out);
    }

    void commandLines_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("said");
        const QString db = u"DB"_s;
        QTest::newRow("no command") << QStringList{} << 2 << u"usage"_s;
        QTest::newRow("no dates") << QStringList{u"report"_s, u"--database"_s, db} << 2
                                  << u"--from"_s;
        QTest::newRow("not a date")
            << QStringList{u"export"_s, u"--database"_s, db, u"--from"_s, u"May"_s, u"--to"_s,
                           u"2026-05-05"_s}
            << 2 << u"--from May"_s;
        QTest::newRow("backwards")
            << QStringList{u"report"_s, u"--database"_s, db, u"--from"_s, u"2026-05-05"_s,
                           u"--to"_s, u"2026-05-04"_s}
            << 2 << u"before"_s;
        QTest::newRow("rates on export")
            << QStringList{u"export"_s, u"--database"_s, db, u"--from"_s, u"2026-05-05"_s,
                           u"--to"_s, u"2026-05-05"_s, u"--rates"_s, u"r"_s}
            << 2 << u"--rates is not an option of export"_s;
        QTest::newRow("no such ledger")
            << QStringList{u"report"_s, u"--database"_s, u"missing.ledger"_s, u"--from"_s,
                           u"2026-05-05"_s, u"--to"_s, u"2026-05-05"_s}
            << 1 << u"no such ledger"_s;
        QTest::newRow("bad rates")
            << QStringList{u"report"_s, u"--database"_s, db, u"--from"_s, u"2026-05-05"_s,
                           u"--to"_s, u"2026-05-05"_s, u"--rates"_s, u"bad-rates.ini"_s}
            << 1 << u"line 1"_s;
    }
    void commandLines()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, said);
        QVERIFY(open(u"cl.ledger"_s));
        writeFile(path(u"bad-rates.ini"_s), "PerHour=1\n");
        for (QString& argument : arguments) {
            if (argument == u"DB"_s)
                argument = path(u"cl.ledger"_s);
            else if (argument.endsWith(u".ini"_s) || argument.endsWith(u".ledger"_s))
                argument = path(argument);
        }
        const Ran ran = ledgerCommand(arguments);
        QCOMPARE(ran.exitCode, exitCode);
        QVERIFY2(ran.err.contains(said.toUtf8()), ran.err.constData());
        QVERIFY(ran.out.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestLedger)
#include "tst_ledger.moc"
