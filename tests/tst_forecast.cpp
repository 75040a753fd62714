// The history of runs and the forecast learned from it, on the virtual clock with the fake
// laboratory.

#include "core/ProgramSettings.h"
#include "ledger/LedgerStore.h"
#include "queue/QueueStore.h"
#include "runner/Forecast.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunHistory.h"
#include "runner/RunQueue.h"
#include "runner/SampleSteps.h"
#include "support/FakePrograms.h"
#include "support/QueueProbe.h"
#include "support/ScriptedSeams.h"
#include "support/SettingsFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

const QDateTime kStart(QDate(2026, 11, 22), QTime(9, 0));

std::vector<LedgerRecord> ledgerRecords(const QString& path)
{
    QString error;
    const std::unique_ptr<LedgerStore> ledger = LedgerStore::open(path, {}, &error);
    if (!ledger)
        qFatal("cannot open the ledger %s: %s", qPrintable(path), qPrintable(error));
    return ledger->newest(1000000, &error).value_or(std::vector<LedgerRecord>());
}

RunRecord record(const QString& title, double experiment, const QString& outcome = u"Done"_s,
                 bool loaded = true)
{
    RunRecord r;
    r.mode = RunMode::Changer;
    r.takenUp = QDateTime(QDate(2026, 11, 20), QTime(8, 0), Qt::UTC);
    r.ended = r.takenUp.addSecs(qint64(experiment));
    r.outcome = outcome;
    r.loaded = loaded;
    r.ejected = true;
    r.loadSeconds = 20;
    r.spinSeconds = 11;
    r.ejectSeconds = 10;
    r.experimentSeconds = experiment;
    r.title = title;
    return r;
}

// A model with round numbers: A 100 s (80 s with the sample still in), learned from 5 runs; B
// the lab's default of 200 s; C unknown. Load 20 s, spin 11 s, eject 10 s.
class FixedModel : public DurationModel {
public:
    Estimate experiment(const QString& title, bool sameSample) const override
    {
        if (title == u"A"_s)
            return {sameSample ? 80.0 : 100.0, Basis::History, 5};
        if (title == u"B"_s)
            return {200, Basis::Default, 0};
        return {};
    }
    double load() const override { return 20; }
    double spin() const override { return 11; }
    double eject() const override { return 10; }
};

// "n start+s end+s seconds basis/runs", times as seconds after kStart and "?" when unknown.
QStringList describe(const Forecast& forecast)
{
    const auto at = [](const QDateTime& t) {
        return t.isValid() ? QString::number(kStart.msecsTo(t) / 1000.0) : u"?"_s;
    };
    QStringList lines;
    for (const ForecastItem& item : forecast.items)
        lines.append(QString::number(item.queueNumber) + u' ' + at(item.expectedStart) + u' '
                     + at(item.expectedEnd) + u' ' + QString::number(item.expectedSeconds) + u' '
                     + basisName(item.basis) + u'/' + QString::number(item.runs));
    return lines;
}

// "n start[earliest,latest] end[earliest,latest] basis/runs", times in seconds after kStart.
QStringList describeRanges(const Forecast& forecast)
{
    const auto at = [](const QDateTime& t) {
        return t.isValid() ? QString::number(kStart.msecsTo(t) / 1000.0) : u"?"_s;
    };
    const auto span = [&](const QDateTime& t, const QDateTime& low, const QDateTime& high) {
        return at(t) + u'[' + at(low) + u',' + at(high) + u']';
    };
    QStringList lines;
    for (const ForecastItem& item : forecast.items)
        lines.append(QString::number(item.queueNumber) + u' '
                     + span(item.expectedStart, item.earliestStart, item.latestStart) + u' '
                     + span(item.expectedEnd, item.earliestEnd, item.latestEnd) + u' '
                     + basisName(item.basis) + u'/' + QString::number(item.runs)
                     + (item.beyondRuns ? u" beyond"_s : QString()));
    return lines;
}

} // namespace

class TestForecast : public QObject {
    Q_OBJECT

    std::unique_ptr<ScriptedSeams> m_seams;
    std::unique_ptr<FakeLab> m_lab;
    std::unique_ptr<QTemporaryDir> m_dir;

    QString historyPath() const { return m_dir->filePath(u"Spinlane.history"_s); }

    void linkPrograms(qint16 mode)
    {
        gSampleControl = mode;
        ConnectPrograms();
        m_lab->log.clear();
    }

private Q_SLOTS:
    void init()
    {
        m_seams = std::make_unique<ScriptedSeams>();
        m_lab = std::make_unique<FakeLab>();
        m_dir = std::make_unique<QTemporaryDir>();
        m_seams->time.setNow(kStart);
        resetSettingsState();
        resetQueueState();
        resetProgramLinks();
        resetRunState();
        resetRunHistory();
        gIniPath = m_dir->filePath(u"Spinlane.INI"_s);
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_dir->filePath(u"data"_s)));
        gExpTitles = m_lab->expedra->titles;
        gSolvents = m_lab->expedra->solvents;
    }

    void cleanup()
    {
        resetRunHistory();
        m_lab.reset();
        m_seams.reset();
    }

    void historyLines_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("readable");
        const QByteArray good = formatRunRecord(record(u"PROTON"_s, 300));
        QTest::newRow("a record") << good << true;
        QTest::newRow("with CR") << good + '\r' << true;
        QTest::newRow("cut in the middle") << good.left(good.size() - 9) << false;
        QTest::newRow("cut before the title")
            << good.left(good.lastIndexOf('\t', good.lastIndexOf('\t') - 1)) << false;
        QTest::newRow("one field more") << good + "\tx" << false;
        QTest::newRow("foreign text") << QByteArray("[General]") << false;
        QTest::newRow("empty") << QByteArray() << false;
        QTest::newRow("another format") << QByteArray(good).replace("SLH1", "SLH2") << false;
        const auto field = [&](int index, const QByteArray& value) {
            QList<QByteArray> fields = good.split('\t');
            fields[index] = value;
            return fields.join('\t');
        };
        QTest::newRow("no time") << field(1, "yesterday") << false;
        QTest::newRow("local time") << field(2, "2026-11-20T08:05:00.000") << false;
        QTest::newRow("unknown outcome") << field(3, "Idle") << false;
        QTest::newRow("unknown mode") << field(4, "robot") << false;
        QTest::newRow("flag not 0 or 1") << field(5, "yes") << false;
        QTest::newRow("negative seconds") << field(7, "-1") << false;
        QTest::newRow("not a number") << field(8, "nan") << false;
        QTest::newRow("beyond a week") << field(10, "700000") << false;
        QTest::newRow("unusual title") << field(11, "%09x%0A%25 %E2%82%AC") << true;
        QTest::newRow("unusual solvent") << field(12, "D%092O %E2%82%AC") << true;
    }
    void historyLines()
    {
        QFETCH(QByteArray, line);
        QFETCH(bool, readable);
        const std::optional<RunRecord> parsed = parseRunRecord(line);
        QCOMPARE(parsed.has_value(), readable);
        if (parsed) // what is read is written back as it was
            QCOMPARE(formatRunRecord(*parsed), line.chopped(line.endsWith('\r') ? 1 : 0));
    }

    void historyRoundTripAndBound()
    {
        RunRecord odd = record(u"tab\there\nline %20 € "_s, 12.345, u"Stopped"_s, false);
        odd.mode = RunMode::Experiments;
        odd.solvent = u"DMSO\t€"_s;
        QCOMPARE(parseRunRecord(formatRunRecord(odd)), std::optional<RunRecord>(odd));
        // A line of the first format, which ended with the title, reads with no solvent.
        const QByteArray first = formatRunRecord(odd).chopped(formatRunRecord(odd).size()
                                                              - formatRunRecord(odd).lastIndexOf('\t'));
        odd.solvent.clear();
        QCOMPARE(parseRunRecord(first), std::optional<RunRecord>(odd));

        // Damaged lines between good ones are skipped, the last one cut short included.
        const QByteArray content = formatRunRecord(record(u"A"_s, 1)) + "\nrubbish\n\n"
                                   + formatRunRecord(record(u"B"_s, 2)) + "\r\n"
                                   + formatRunRecord(record(u"C"_s, 3)).chopped(4);
        const std::vector<RunRecord> read = parseRunHistory(content);
        QCOMPARE(read.size(), std::size_t(2));
        QCOMPARE(read[1].title, u"B"_s);

        std::vector<RunRecord> many;
        for (int i = 0; i < kHistoryRecordsPerTitle + 20; ++i) {
            many.push_back(record(u"A"_s, i));
            if (i % 50 == 0)
                many.push_back(record(u"B"_s, i));
        }
        const std::vector<RunRecord> bounded = boundedRunHistory(many);
        QCOMPARE(bounded.size(), std::size_t(kHistoryRecordsPerTitle + 7));
        QCOMPARE(bounded.front().experimentSeconds, 0.0); // B's first record stays
        QCOMPARE(bounded[1].experimentSeconds, 20.0); // A's oldest 20 went
        QCOMPARE(bounded.back().experimentSeconds, double(kHistoryRecordsPerTitle + 19));
    }

    // The real run loop writes a ledger record for each item with its parts as they took, on the
    // disk before the next item begins; the forecast learns from the same records.
    void runLoopWritesTheLedger()
    {
        linkPrograms(2);
        addItem(5, 0, u"Idle"_s, u"CDCl3"_s);
        addItem(5, 1, u"Idle"_s, u"CDCl3"_s); // same position: neither ejected nor loaded again
        addItem(7, 2, u"Idle"_s, u"D2O"_s);
        gQueue(3).SampleName = u"Ölprobe, \"rein\""_s;
        m_lab->expedra->failingExperiments = {2};
        std::optional<std::size_t> seenDuringItem3;
        connect(&gQueueList, &QAbstractItemModel::dataChanged, this, [&] {
            if (gQueue(3).Status == u"In progress"_s && !seenDuringItem3)
                seenDuringItem3 = ledgerRecords(ledgerPath()).size();
        });
        RunQueue();
        disconnect(&gQueueList, nullptr, this, nullptr);
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s, u"Failed"_s}));
        QCOMPARE(seenDuringItem3, std::optional<std::size_t>(2));
        QCOMPARE(ledgerInUse(), ledgerPath());

        const std::vector<LedgerRecord> records = ledgerRecords(ledgerPath());
        QCOMPARE(records.size(), std::size_t(3));
        const struct {
            QString title, outcome;
            bool loaded, ejected;
        } expected[] = {{u"PROTON"_s, u"Done"_s, true, false},
                        {u"CARBON"_s, u"Done"_s, false, true},
                        {u"COSY"_s, u"Failed"_s, true, false}}; // a failed run leaves it in
        for (int i = 0; i < 3; ++i) {
            const LedgerRecord& l = records[std::size_t(i)];
            const QueueItem& item = gQueue(i + 1);
            QCOMPARE(l.instrument, ledgerInstrument());
            QCOMPARE(l.number, qint64(i + 1));
            QCOMPARE(l.queueNumber, i + 1);
            QCOMPARE((QStringList{l.itemSerial, l.user, l.organization, l.sampleName, l.dataFile}),
                     (QStringList{item.ItemSN, item.UserID, item.Organization, item.SampleName,
                                  item.OutputFilePath}));
            QCOMPARE(l.samplePosition, item.SampleNum);
            QCOMPARE(runHistory()[std::size_t(i)], l.run);
            const RunRecord& r = l.run;
            QCOMPARE(r.title, expected[i].title);
            QCOMPARE(r.solvent, item.Solvent);
            QCOMPARE(r.outcome, expected[i].outcome);
            QCOMPARE(r.mode, RunMode::Changer);
            QCOMPARE(r.loaded, expected[i].loaded);
            QCOMPARE(r.ejected, expected[i].ejected);
            // The fake changer loads in 20 s and ejects in 10 s, a run takes 60 s, all past the
            // fixed waits; polls move the virtual clock by 20 ms.
            QVERIFY2(std::abs(r.experimentSeconds - 61) < 0.1, formatRunRecord(r).constData());
            QVERIFY(std::abs(r.loadSeconds - (r.loaded ? 20 : 0)) < 0.1);
            QVERIFY(std::abs(r.spinSeconds - 11) < 0.1);
            QVERIFY(std::abs(r.ejectSeconds - (r.ejected ? 10 : 0)) < 0.1);
            const double parts =
                r.handlingSeconds() + r.experimentSeconds + (r.ejected ? kWaitBeforeEject : 0);
            QVERIFY(std::abs(secondsBetween(r.takenUp, r.ended) - parts) < 0.1);
            if (i > 0) // the next item is taken up when the last one's outcome is recorded
                QCOMPARE(r.takenUp, records[std::size_t(i - 1)].run.ended);
        }

        // The history of an earlier version was imported when the ledger opened: none here.
        resetRunHistory();
        QCOMPARE(runHistory().size(), std::size_t(3)); // read back from the ledger
    }

    // A ledger that cannot be written anywhere is said once; the run goes on, the forecast keeps
    // the records, and they are written once the ledger can be, in their order.
    void unwritableLedgerCatchesUp()
    {
        gIniPath = m_dir->filePath(u"gone/Spinlane.INI"_s);
        writeFile(m_dir->filePath(u"data"_s), "a file where the user's data folder would be");
        linkPrograms(2);
        for (qint32 sample : {5, 5, 7})
            addItem(sample, qint16(gQueueList.count()));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"^Spinlane: the ledger .*gone.Spinlane.ledger "
                                                u"cannot be written \\(.+\\); the run goes on, "
                                                u"and its records are written as soon as it can "
                                                u"be$"_s));
        QTest::failOnWarning(QRegularExpression(u"cannot be written"_s));
        RunQueue();
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s, u"Done"_s}));
        QCOMPARE(runHistory().size(), std::size_t(3)); // kept for the forecast all the same
        QVERIFY(!ledgerProblem().isEmpty());
        QVERIFY(!QFileInfo::exists(m_dir->filePath(u"gone"_s))); // the settings folder is not made

        QVERIFY(QDir(m_dir->path()).mkdir(u"gone"_s));
        addItem(9, 0);
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"^Spinlane: the ledger .* is written again$"_s));
        RunQueue();
        QVERIFY(ledgerProblem().isEmpty());
        const std::vector<LedgerRecord> records = ledgerRecords(ledgerPath());
        QCOMPARE(records.size(), std::size_t(4));
        for (std::size_t i = 0; i < records.size(); ++i) {
            QCOMPARE(records[i].number, qint64(i + 1));
            QCOMPARE(records[i].queueNumber, qint32(i + 1));
        }
    }

    // A history file of an earlier version is imported once, all of it that the forecast learns
    // from, and renamed; the forecast keeps each title's newest records only.
    void historyFileImportedOnce()
    {
        QByteArray content = "foreign line\n";
        const int lines = kHistoryRecordsPerTitle + kHistoryRecordsPerTitle / 4;
        for (int i = 0; i < lines; ++i)
            content += formatRunRecord(record(u"PROTON"_s, i)) + '\n';
        writeFile(historyPath(), content);
        QCOMPARE(runHistory().size(), std::size_t(kHistoryRecordsPerTitle));
        QCOMPARE(runHistory().back().experimentSeconds, double(lines - 1));
        QVERIFY(!QFileInfo::exists(historyPath()));
        QVERIFY(QFileInfo::exists(historyPath() + u".imported"_s));

        // Put back (a restore from a backup, say), it is not imported again.
        writeFile(historyPath(), content);
        resetRunHistory();
        linkPrograms(2);
        addItem(5, 0);
        RunQueue();
        const std::vector<LedgerRecord> records = ledgerRecords(ledgerPath());
        QCOMPARE(records.size(), std::size_t(lines + 1));
        QCOMPARE(records.front().run, record(u"PROTON"_s, 0));
        QCOMPARE(records.front().instrument, ledgerInstrument());
        QCOMPARE(records.back().number, qint64(lines + 1));
        QCOMPARE(records.back().sampleName, u"Sample 1"_s);
        // In memory a title is bounded again only once it is well past its bound.
        QCOMPARE(runHistory().size(), std::size_t(kHistoryRecordsPerTitle + 1));
    }

    // A history or a ledger that is no regular file is never opened: opening a FIFO would wait
    // for its other end, and the forecast and the run would wait with it. The ledger then lives
    // in the user's own data folder.
    void historyAndLedgerThatAreNoFiles()
    {
#ifdef Q_OS_UNIX
        QCOMPARE(::mkfifo(QFile::encodeName(historyPath()).constData(), 0600), 0);
        QCOMPARE(::mkfifo(QFile::encodeName(ledgerPath()).constData(), 0600), 0);
        linkPrograms(2);
        addItem(5, 0);
        QVERIFY(runHistory().empty());
        QCOMPARE(forecastNow().items.size(), std::size_t(1));
        RunQueue();
        QCOMPARE(statuses(), QStringList{u"Done"_s});
        QCOMPARE(ledgerInUse(), userLedgerPath());
        QVERIFY(userLedgerPath().startsWith(m_dir->filePath(u"data/"_s)));
        QCOMPARE(ledgerRecords(userLedgerPath()).size(), std::size_t(1));
        QVERIFY(!QFileInfo(historyPath()).isFile());
        QVERIFY(!QFileInfo(ledgerPath()).isFile());
#else
        QSKIP("FIFOs are a Unix matter");
#endif
    }

    // A history grown huge by other means (every line a title of its own) is read from its newest
    // part only, and that imported; the forecast learns from the newest records only.
    void hugeHistoryReadFromItsNewestPart()
    {
        QByteArray content;
        int titles = 0;
        while (content.size() < kHistoryBytesRead + kHistoryBytesRead / 2)
            content += formatRunRecord(record(u"T"_s + QString::number(titles++), 100)) + '\n';
        writeFile(historyPath(), content);
        bool oversized = false;
        const std::vector<RunRecord> read = readRunHistory(historyPath(), &oversized);
        QVERIFY(oversized);
        QVERIFY(read.size() > std::size_t(kHistoryRecords));
        QVERIFY(read.size() < std::size_t(titles));
        QCOMPARE(read.back().title, u"T"_s + QString::number(titles - 1));
        const int imported = int(read.size());

        linkPrograms(2);
        addItem(5, 0);
        RunQueue();
        QCOMPARE(ledgerRecords(ledgerPath()).size(), std::size_t(imported + 1));
        QCOMPARE(runHistory().size(), std::size_t(kHistoryRecords + 1));
        resetRunHistory();
        QCOMPARE(runHistory().size(), std::size_t(kHistoryRecords)); // the newest only
        QCOMPARE(runHistory().front().title, u"T"_s + QString::number(titles - kHistoryRecords + 1));
        QCOMPARE(runHistory().back().title, u"PROTON"_s);
    }

    void forecastFollowsTheRunLoop_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("queue"); // position:title:status per item
        QTest::addColumn<int>("first");
        QTest::addColumn<int>("running"); // the current item, 0 when no run goes on
        QTest::addColumn<int>("takenUp"); // seconds before now
        QTest::addColumn<QStringList>("expected");
        // Ejecting first 12 s; item 1 loads 20 + spins 11 + runs 100, keeps its sample for item 2,
        // which runs 80 and ejects 12; item 3 loads and ejects; the last is always ejected.
        QTest::newRow("changer, idle")
            << 2 << u"5:A:Idle 5:A:Failed 7:B:Stopped 8:A:Idle"_s << 1 << 0 << 0
            << QStringList{u"1 12 143 131 history/5"_s, u"2 143 246 103 history/5"_s,
                           u"3 246 489 243 default/0"_s, u"4 489 632 143 history/5"_s};
        // The eject looks at the next item in the queue even when the run skips it.
        QTest::newRow("done items skipped")
            << 2 << u"5:A:Idle 5:A:Done 5:A:Idle"_s << 1 << 0 << 0
            << QStringList{u"1 12 143 131 history/5"_s, u"3 143 246 103 history/5"_s};
        QTest::newRow("no estimate") << 1 << u"1:A:Idle 2:C:Idle 3:B:Idle"_s << 2 << 0 << 0
                                     << QStringList{u"2 0 ? -1 none/0"_s, u"3 ? ? 200 default/0"_s};
        QTest::newRow("no sample control")
            << 0 << u"1:C:Idle 2:C:Idle"_s << 1 << 0 << 0
            << QStringList{u"1 0 0 0 default/0"_s, u"2 0 0 0 default/0"_s};
        // Item 2 began 40 s ago with 131 s expected: 91 s are left.
        QTest::newRow("running") << 2 << u"3:A:Done 5:A:In\u00a0progress 5:A:Idle"_s << 0 << 2 << 40
                                 << QStringList{u"2 -40 91 131 history/5"_s,
                                                u"3 91 194 103 history/5"_s};
        QTest::newRow("running late")
            << 1 << u"3:A:In\u00a0progress 4:A:Idle"_s << 0 << 1 << 500
            << QStringList{u"1 -500 30 530 history/5"_s, u"2 30 130 100 history/5"_s};
        // The clock was set back by an hour while item 1 ran: nothing lies before now.
        QTest::newRow("clock set back")
            << 1 << u"3:A:In\u00a0progress 4:A:Idle"_s << 0 << 1 << -3600
            << QStringList{u"1 0 100 100 history/5"_s, u"2 100 200 100 history/5"_s};
        QTest::newRow("empty queue") << 2 << QString() << 1 << 0 << 0 << QStringList();
    }
    void forecastFollowsTheRunLoop()
    {
        QFETCH(int, mode);
        QFETCH(QString, queue);
        QFETCH(int, first);
        QFETCH(int, running);
        QFETCH(int, takenUp);
        QFETCH(QStringList, expected);
        ForecastInput in;
        in.mode = RunMode(mode);
        in.now = kStart;
        in.firstItem = first;
        in.running = running > 0;
        in.currentQueueNum = running;
        in.currentTakenUp = kStart.addSecs(-takenUp);
        for (const QString& item : queue.split(u' ', Qt::SkipEmptyParts)) {
            const QStringList f = item.split(u':');
            in.queue.push_back({qint32(in.queue.size() + 1), f[0].toInt(), f[1],
                                QString(f[2]).replace(u'\u00a0', u' '), QString()});
        }
        const Forecast forecast = forecastQueue(in, FixedModel());
        QCOMPARE(describe(forecast), expected);
        QCOMPARE(forecast.ifStartedNow, running == 0);
    }

    // A few odd runs do not move the estimate; stopped runs do not count; the runs of the same
    // sample state are preferred once there are enough of them.
    void historyModelEstimates()
    {
        std::vector<RunRecord> history;
        for (double seconds : {300.0, 310.0, 5.0, 290.0, 305.0, 3000.0, 295.0})
            history.push_back(record(u"PROTON"_s, seconds, seconds == 5 ? u"Failed"_s : u"Done"_s));
        history.push_back(record(u"PROTON"_s, 1, u"Stopped"_s));
        const HistoryModel model(history, {{u"carbon"_s, 1800}});
        const Estimate proton = model.experiment(u"PROTON"_s, false);
        QCOMPARE(proton.basis, Basis::History);
        QCOMPARE(proton.runs, 7);
        QVERIFY2(proton.seconds >= 295 && proton.seconds <= 305,
                 qPrintable(QString::number(proton.seconds)));
        // Fewer than three runs with the sample still in: all of the title's runs count.
        QCOMPARE(model.experiment(u"PROTON"_s, true).seconds, proton.seconds);
        const Estimate carbon = model.experiment(u"CARBON"_s, false);
        QCOMPARE(carbon.basis, Basis::Default);
        QCOMPARE(carbon.seconds, 1800.0 + kWaitAfterRunStart + kWaitAfterExperiment);
        // A title never run and without a default: the median of the instrument's latest runs.
        const Estimate cosy = model.experiment(u"COSY"_s, false);
        QCOMPARE(cosy.basis, Basis::Typical);
        QCOMPARE(cosy.runs, 7);
        QCOMPARE(cosy.seconds, 300.0);
        QVERIFY(!HistoryModel({}, {}).experiment(u"COSY"_s, false).known());
        QCOMPARE(model.load(), 20.0);
        QCOMPARE(model.eject(), 10.0);

        for (int i = 0; i < 3; ++i)
            history.push_back(record(u"PROTON"_s, 100, u"Done"_s, false));
        QCOMPARE(HistoryModel(history, {}).experiment(u"PROTON"_s, true).seconds, 100.0);
        // A freshly loaded sample's solvent counts once it has five runs of the title.
        std::vector<RunRecord> solvents;
        for (int i = 0; i < 10; ++i) {
            solvents.push_back(record(u"NOESY"_s, i < 5 ? 200 : 400));
            solvents.back().solvent = i < 5 ? u"CDCl3"_s : u"DMSO"_s;
        }
        solvents.push_back(record(u"NOESY"_s, 100));
        solvents.back().solvent = u"D2O"_s;
        const HistoryModel bySolvent(solvents, {});
        QCOMPARE(bySolvent.experimentIn(u"NOESY"_s, u"DMSO"_s, false).seconds, 400.0);
        QCOMPARE(bySolvent.experimentIn(u"NOESY"_s, u"DMSO"_s, false).runs, 5);
        QCOMPARE(bySolvent.experimentIn(u"NOESY"_s, u"CDCl3"_s, false).seconds, 200.0);
        const Estimate whole = bySolvent.experiment(u"NOESY"_s, false);
        QCOMPARE(whole.runs, 11);
        QCOMPARE(bySolvent.experimentIn(u"NOESY"_s, u"D2O"_s, false).seconds, whole.seconds);
        QCOMPARE(bySolvent.experimentIn(u"NOESY"_s, u"DMSO"_s, true).seconds,
                 bySolvent.experiment(u"NOESY"_s, true).seconds);
        QCOMPARE(HistoryModel(solvents, {}, false).experimentIn(u"NOESY"_s, u"DMSO"_s, false).seconds,
                 whole.seconds);

        // Only the latest runs count: the lab's PROTON got slower.
        for (int i = 0; i < 40; ++i)
            history.push_back(record(u"PROTON"_s, 600));
        QCOMPARE(HistoryModel(history, {}).experiment(u"PROTON"_s, false).seconds, 600.0);

        // Without history, the fixed waits alone.
        const HistoryModel empty({}, {});
        QCOMPARE(empty.load(), double(kWaitAfterMotion));
        QCOMPARE(empty.spin(), double(kWaitBetweenSpinCommands + kWaitAfterSpin));
        QCOMPARE(empty.eject(), double(kWaitAfterMotion));
    }

    // The range's arithmetic, worked by hand. A's runs are 100, 110, ..., 190 s: the mean of the
    // middle half 145, the 10th percentile 109 and the 90th 181, so 36 s either way; from ten
    // runs, widened by Student's t for nine degrees of freedom, 1.383 / 1.2816, to a = 38.848 s,
    // and the error of the mean a / sqrt(10) = 12.285 s, which every A ahead shares. B's runs are
    // 100, 120, ..., 280 s: 190, 72 s either way, b = 77.697 s, shared 24.570 s. Their 20 runs
    // together, for a title never run (typical): the median 160, the mean 167.5, the 10th
    // percentile 109 and the 90th 242, a range every item of that title shares, not widened. A
    // range centres on the sum of the means. Items without sample handling, so that the
    // experiment alone counts.
    void forecastRanges_data()
    {
        QTest::addColumn<QString>("queue"); // title:status per item
        QTest::addColumn<int>("takenUp"); // seconds before now that item 1 went "In progress"
        QTest::addColumn<QStringList>("expected");
        // sqrt(a² + 12.285²) = 40.745 either way.
        QTest::newRow("one item") << u"A:Idle"_s << -1
                                  << QStringList{u"1 0[0,0] 145[104.256,185.744] history/10"_s};
        // A's and B's spreads and errors add as independent ones: sqrt(a² + 12.285² + b² +
        // 24.570²) = 91.107, not their sum.
        QTest::newRow("two items of known spread")
            << u"A:Idle B:Idle"_s << -1
            << QStringList{u"1 0[0,0] 145[104.256,185.744] history/10"_s,
                           u"2 145[104.256,185.744] 335[243.893,426.107] history/10"_s};
        // Three As: their own spreads add as independent ones, the error of A's mean three
        // times over: sqrt(3a² + (3 × 12.285)²) = 76.719; independent it would be 70.571.
        QTest::newRow("one title's shared error")
            << u"A:Idle A:Idle A:Idle"_s << -1
            << QStringList{u"1 0[0,0] 145[104.256,185.744] history/10"_s,
                           u"2 145[104.256,185.744] 290[229.816,350.184] history/10"_s,
                           u"3 290[229.816,350.184] 435[358.281,511.719] history/10"_s};
        // X takes the typical 160 s; its range lies 58.5 s below and 74.5 s above its mean, 7.5 s
        // later: 312.5 - sqrt(40.745² + 58.5²) = 241.209 and 312.5 + sqrt(40.745² + 74.5²) =
        // 397.414; the third item, A again, doubles A's shared error: 457.5 - sqrt(2a² +
        // (2 × 12.285)² + 58.5²) = 373.570 and 457.5 + sqrt(2a² + (2 × 12.285)² + 74.5²) =
        // 553.272.
        QTest::newRow("unknown title between known ones")
            << u"A:Idle X:Idle A:Idle"_s << -1
            << QStringList{u"1 0[0,0] 145[104.256,185.744] history/10"_s,
                           u"2 145[104.256,185.744] 305[241.209,397.414] typical/20"_s,
                           u"3 305[241.209,397.414] 450[373.57,553.272] history/10"_s};
        // Past its median, at 160 s: the runs of 160, 170, 180 and 190 s leave 0, 10, 20 and
        // 30 s, the mean of the middle two 15, their 10th and 90th percentiles 3 and 27, so 12 s
        // either way, widened by t for three degrees of freedom, 1.638 / 1.2816, to 15.337 s, and
        // its error 15.337 / sqrt(4) = 7.669 s: 15 ± 17.147, from now at the earliest. Behind
        // it, sqrt(17.147² + 40.745²) = 44.206 either way.
        QTest::newRow("running past its median")
            << u"A:In\u00a0progress A:Idle"_s << 160
            << QStringList{u"1 -160[-160,-160] 15[0,32.147] history/4"_s,
                           u"2 15[0,32.147] 160[115.794,204.206] history/10"_s};
        // Past every run: 30 s more, from now to a = 38.848 s beyond, and it says so. Behind it
        // sqrt(30² + 40.745²) = 50.598 below and sqrt(a² + 40.745²) = 56.297 above.
        QTest::newRow("running past every run")
            << u"A:In\u00a0progress A:Idle"_s << 200
            << QStringList{u"1 -200[-200,-200] 30[0,68.848] history/10 beyond"_s,
                           u"2 30[0,68.848] 175[124.402,231.297] history/10"_s};
    }
    void forecastRanges()
    {
        QFETCH(QString, queue);
        QFETCH(int, takenUp);
        QFETCH(QStringList, expected);
        std::vector<RunRecord> history;
        for (int i = 0; i < 10; ++i)
            history.push_back(record(u"A"_s, 100 + 10 * i));
        for (int i = 0; i < 10; ++i)
            history.push_back(record(u"B"_s, 100 + 20 * i));
        for (RunRecord& r : history)
            r.mode = RunMode::Experiments;
        const HistoryModel model(history, {});
        ForecastInput in;
        in.mode = RunMode::Experiments;
        in.now = kStart;
        in.running = takenUp >= 0;
        in.currentQueueNum = in.running ? 1 : 0;
        in.currentTakenUp = kStart.addSecs(-takenUp);
        in.firstItem = in.running ? 2 : 1;
        for (const QString& item : queue.split(u' ')) {
            const QStringList f = item.split(u':');
            in.queue.push_back({qint32(in.queue.size() + 1), qint32(in.queue.size() + 1), f[0],
                                QString(f[1]).replace(u'\u00a0', u' '), QString()});
        }
        QCOMPARE(describeRanges(forecastQueue(in, model)), expected);
    }

    void defaultsFromTheSettingsFile()
    {
        writeFile(gIniPath, "[General]\r\nPROTON=1\r\n[forecast]\r\nPROTON = 240\r\n"
                            "Carbon 13=1800.5\r\nproton=99\r\nCOSY=soon\r\nNOESY=0\r\n"
                            "HSQC=-5\r\n");
        const QHash<QString, double> defaults = forecastDefaults(gIniPath);
        QCOMPARE(defaults, (QHash<QString, double>{{u"proton"_s, 240}, {u"carbon 13"_s, 1800.5}}));
        QVERIFY(forecastDefaults(m_dir->filePath(u"missing.INI"_s)).isEmpty());
    }

    void forecastInputFromTheRunControls_data()
    {
        QTest::addColumn<QString>("caption");
        QTest::addColumn<bool>("running");
        QTest::addColumn<int>("current");
        QTest::addColumn<int>("first");
        QTest::newRow("start") << kStartCaption << false << 0 << 1;
        QTest::newRow("start after restore") << kStartCaption << false << 2 << 3;
        QTest::newRow("continue") << kContinueCaption << false << 2 << 2;
        QTest::newRow("continue, nothing run") << kContinueCaption << false << 0 << 1;
        QTest::newRow("run again") << kRunAgainCaption << false << 3 << 1;
        QTest::newRow("running") << kStopCaption << true << 2 << 3;
        QTest::newRow("end of a run") << kRunAgainCaption << true << 3 << 4;
    }
    void forecastInputFromTheRunControls()
    {
        QFETCH(QString, caption);
        QFETCH(bool, running);
        QFETCH(int, current);
        QFETCH(int, first);
        makeQueue(3, {u"Done"_s, u"Stopped"_s});
        gCurrentQueueNum = current;
        gRunControls.setStartQueueCaption(caption);
        gRunControls.setRunUnderWay(running);
        gSampleControl = 2;
        const ForecastInput in = forecastInputNow();
        QCOMPARE(in.firstItem, first);
        QCOMPARE(in.mode, RunMode::Changer);
        QCOMPARE(in.running, running);
        QCOMPARE(in.now, kStart);
        QCOMPARE(in.queue.size(), std::size_t(3));
        QCOMPARE(in.queue[1].status, u"Stopped"_s);
        QCOMPARE(in.queue[2].samplePosition, 30);
    }

    // Learned from a first run, the forecast of a second one meets every item's real start and
    // end, taken before the run and at each item's start: the fake programs always take as long.
    void forecastMeetsTheRun()
    {
        linkPrograms(2);
        for (qint32 sample : {1, 2, 2, 3})
            addItem(sample, qint16(sample % 3));
        RunQueue();
        const QList<std::pair<qint32, qint16>> second{{4, 0}, {4, 1}, {6, 2}, {6, 2}, {8, 0}};
        resetQueueState();
        gExpTitles = m_lab->expedra->titles;
        for (const auto& [sample, experiment] : second)
            addItem(sample, experiment, gQueueList.count() == 3 ? u"Done"_s : u"Idle"_s);
        resetRunState();
        m_seams->time.setNow(kStart.addDays(1));

        std::vector<Forecast> forecasts{forecastNow()};
        QVERIFY(forecasts[0].ifStartedNow);
        qint32 seen = 0;
        connect(&gQueueList, &QAbstractItemModel::dataChanged, this, [&] {
            if (gCurrentQueueNum > seen && gQueue(gCurrentQueueNum).Status == u"In progress"_s) {
                seen = gCurrentQueueNum;
                forecasts.push_back(forecastNow());
            }
        });
        RunQueue();
        disconnect(&gQueueList, nullptr, this, nullptr);
        QCOMPARE(forecasts.size(),
                 std::size_t(5)); // before the run and at items 1, 2, 3 and 5 (4 was done)
        const std::vector<RunRecord>& history = runHistory();
        QCOMPARE(history.size(), std::size_t(8));
        QMap<qint32, RunRecord> actual;
        for (qint32 n : {1, 2, 3, 5})
            actual.insert(n, history[history.size() - 4 + std::size_t(actual.size())]);
        for (const Forecast& forecast : forecasts) {
            for (const ForecastItem& item : forecast.items) {
                QVERIFY2(item.basis == Basis::History && item.runs >= 1,
                         qPrintable(describe({{item}, false}).join(u',')));
                const RunRecord& real = actual[item.queueNumber];
                QVERIFY2(std::abs(real.takenUp.msecsTo(item.expectedStart)) < 1000,
                         qPrintable(describe(forecast).join(u',')));
                QVERIFY2(std::abs(real.ended.msecsTo(item.expectedEnd)) < 1000,
                         qPrintable(describe(forecast).join(u',')));
            }
        }
        QCOMPARE(forecasts.back().items.size(), std::size_t(1));
        QVERIFY(!forecasts.back().ifStartedNow);
    }
};

QTEST_GUILESS_MAIN(TestForecast)
#include "tst_forecast.moc"
