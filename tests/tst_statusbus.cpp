// Spinlane on the session bus: its class name, the status of a real run against the simulated
// laboratory as a bus client and spinlane-status see it, and the alerts of the run.

#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "core/Startup.h"
#include "core/SystemSeams.h"
#include "ledger/LedgerStore.h"
#include "queue/QueueEditing.h"
#include "queue/QueueReorder.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "runner/DBusAutomation.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunHistory.h"
#include "runner/RunQueue.h"
#include "runner/SampleSteps.h"
#include "status/SpinlaneBus.h"
#include "status/StatusBus.h"
#include "support/ProgramFixture.h"
#include "support/ScaledClock.h"
#include "support/SettingsFiles.h"
#include "support/SimulatedLab.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QScopeGuard>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <cmath>
#include <csignal>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

QDBusConnection connection(const QString& name)
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
}

// A desktop's notification service, as far as Spinlane uses it.
class NotificationService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QStringList received; // "summary | body"
public Q_SLOTS:
    uint Notify(const QString&, uint, const QString&, const QString& summary, const QString& body,
                const QStringList&, const QVariantMap&, int)
    {
        received.append(summary + u" | "_s + body);
        return uint(received.size());
    }
};

// What a client of the status interface receives, each signal as spinlane-status --watch prints
// it and each property change as "{Name=value ...}".
class StatusClient : public QObject {
    Q_OBJECT
public:
    QStringList lines;
    std::function<void(const QString&)> onLine = [](const QString&) {};
public Q_SLOTS:
    void item(int number, const QString& sample, const QString& user, const QString& status)
    {
        add(formatQueueNumber(number) + u' ' + sample + u" ("_s + user + u"): "_s + status);
    }
    void runState(const QString& state) { add(u"run: "_s + state); }
    void properties(const QString&, const QVariantMap& changed, const QStringList&)
    {
        QStringList values;
        for (auto it = changed.begin(); it != changed.end(); ++it) {
            const QVariantMap item = qdbus_cast<QVariantMap>(it.value());
            values.append(it.key() + u'='
                          + (item.isEmpty() ? it.value().toString()
                                            : item[u"QueueNumber"_s].toString() + u'/'
                                                  + item[u"Status"_s].toString()));
        }
        add(u'{' + values.join(u' ') + u'}');
    }

private:
    void add(const QString& line)
    {
        lines.append(line);
        onLine(line);
    }
};

// The runner as tst_simulatedlab sets it up: the real automation backend and event pump, a clock
// 20 times faster than real time, a notification service and a settings file naming the alert
// command `script` (a shell script written for the test; none is written when it is empty).
class LabRun {
public:
    explicit LabRun(const QByteArray& script)
        : m_automation(QDBusConnection::sessionBus(), DBusAutomation::Timeouts{2000, 10000})
        , m_notifications(connection(u"notifications"_s))
    {
        installSeams({nullptr, nullptr, nullptr, &m_clock, &m_pump, nullptr});
        m_previous = installAutomation(&m_automation);
        resetStartupState();
        resetSettingsState();
        resetProgramLinks();
        resetRunState();
        gIniPath = m_dir.filePath(u"Spinlane.INI"_s);
        writeFile(gIniPath, "[Alerts]\r\nCommand=" + m_dir.filePath(u"alert"_s).toUtf8());
        if (!script.isEmpty()) {
            writeFile(m_dir.filePath(u"alert"_s), "#!/bin/sh\nIFS='|'\n" + script);
            QFile::setPermissions(m_dir.filePath(u"alert"_s), QFile::ExeOwner | QFile::ReadOwner);
        }
        m_notifications.registerObject(u"/org/freedesktop/Notifications"_s, &notifications,
                                       QDBusConnection::ExportAllSlots);
        m_notifications.registerService(u"org.freedesktop.Notifications"_s);
    }
    ~LabRun()
    {
        WithdrawFromBus();
        resetProgramLinks();
        installAutomation(m_previous);
        QDBusConnection::disconnectFromBus(u"notifications"_s);
    }

    // Connects the programs in `mode` and makes a queue of `items` that shows the experiments.
    void connectAndQueue(qint16 mode, qint32 items)
    {
        makeQueue(items);
        gSampleControl = mode;
        ConnectPrograms();
        gExpTitles = gExpedra->GetExperimentTitles();
        for (qint32 i = 1; i <= items; ++i)
            FillQueueRow(i, i);
    }
    // The lines the alert command wrote to the file named "alert.args".
    QStringList alerts() const
    {
        return QString::fromUtf8(readFile(path(u"alert.args"_s))).split(u'\n', Qt::SkipEmptyParts);
    }
    QString path(const QString& name) const { return m_dir.filePath(name); }

    ScriptedSeams seams;
    NotificationService notifications;

private:
    QTemporaryDir m_dir;
    ScaledClock m_clock{20};
    QtEventPump m_pump;
    DBusAutomation m_automation;
    AutomationBackend* m_previous = nullptr;
    QDBusConnection m_notifications;
};

// Spinlane's forecast as a client reads it. The call lets this process's events go on, so Spinlane,
// which runs here, answers it.
QList<QVariantMap> forecastOnBus()
{
    const QDBusMessage answer =
        connection(u"client"_s)
            .call(QDBusMessage::createMethodCall(spinlaneBusName(), kStatusPath, kStatusInterface,
                                                 u"Forecast"_s),
                  QDBus::BlockWithGui, 5000);
    if (answer.type() != QDBusMessage::ReplyMessage || answer.signature() != u"aa{sv}"_s)
        return {{{u"error"_s, answer.errorMessage() + answer.signature()}}};
    return qdbus_cast<QList<QVariantMap>>(answer.arguments().first());
}

QDateTime timeOf(const QVariantMap& item, const QString& key)
{
    return QDateTime::fromString(item.value(key).toString(), Qt::ISODate);
}

// Counts QueueChanged.
class ChangeCounter : public QObject {
    Q_OBJECT
public:
    int count = 0;
public Q_SLOTS:
    void changed() { ++count; }
};

// What spinlane-status prints with `arguments`. It asks this process, whose events go on meanwhile.
QString statusTool(const QStringList& arguments)
{
    QProcess tool;
    tool.start(QStringLiteral(SPINLANE_STATUS), arguments);
    QSignalSpy finished(&tool, &QProcess::finished);
    return finished.wait(10000) ? QString::fromUtf8(tool.readAllStandardOutput()) : QString();
}

} // namespace

class TestStatusBus : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(), "needs a private bus: run by CTest");
    }

    // The class name is the program's from start-up to the end; a copy that finds the name taken
    // starts all the same and says so once.
    void classNameFromStartToEnd()
    {
        QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        {
            ProgramFixture program;
            QVERIFY(program.start(settingsFile({{u"Idle"_s, 3, 0}})));
            QCOMPARE(bus->serviceOwner(spinlaneBusName()).value(),
                     QDBusConnection::sessionBus().baseService());
            QDBusMessage introspect = QDBusMessage::createMethodCall(
                spinlaneBusName(), u"/"_s, u"org.freedesktop.DBus.Introspectable"_s,
                u"Introspect"_s);
            const QString xml = connection(u"client"_s)
                                    .call(introspect, QDBus::BlockWithGui)
                                    .arguments()
                                    .value(0)
                                    .toString();
            static const QRegularExpression noMembers(
                u"<interface name=\"org.spinlane.lab.Spinlane.clsBrelixSpinlane\"\\s*/>"_s);
            QVERIFY2(noMembers.match(xml).hasMatch(), qPrintable(xml));
            // Every argument of the status interface has a name, for generic bus clients.
            const QString status = connection(u"client"_s)
                                       .call(QDBusMessage::createMethodCall(
                                                 spinlaneBusName(), kStatusPath,
                                                 u"org.freedesktop.DBus.Introspectable"_s,
                                                 u"Introspect"_s),
                                             QDBus::BlockWithGui)
                                       .arguments()
                                       .value(0)
                                       .toString();
            static const QRegularExpression unnamed(u"<arg (?!name=\"\\w+\")"_s);
            QVERIFY2(status.contains(u"<arg name=\"items\" type=\"aas\" direction=\"out\"/>"_s)
                         && !status.contains(unnamed),
                     qPrintable(status));
            program.form->close();
            QCOMPARE(program.seams.programEnd.ends, 1);
        }
        QVERIFY(!bus->isServiceRegistered(spinlaneBusName()).value());

        QDBusConnection other = connection(u"other"_s);
        QVERIFY(other.registerService(spinlaneBusName()));
        ProgramFixture program;
        QTest::ignoreMessage(
            QtWarningMsg,
            qPrintable(u"Spinlane: the bus name "_s + spinlaneBusName()
                       + u" is taken by another program; Spinlane goes on without it"_s));
        QVERIFY(program.start(settingsFile({{u"Idle"_s, 3, 0}})));
        QCOMPARE(bus->serviceOwner(spinlaneBusName()).value(), other.baseService());
        QDBusConnection::disconnectFromBus(u"other"_s);
    }

    // Start, an item done, one failed, Stop, Continue and the end of the queue, as the status
    // interface, spinlane-status --watch and the alerts tell them.
    void statusThroughARun()
    {
        SimulatedLab lab("[Expedra]\r\nFailRuns=2\r\n[Experiment 1]\r\nTitle=PROTON\r\n"
                         "Duration=0.3\r\n[Changer]\r\nLoadSeconds=0.3\r\nEjectSeconds=0.2\r\n"
                         "Positions=48\r\nReadySeconds=0\r\nSpinRamp=400\r\n");
        QVERIFY(lab.isReady() && lab.startConsole());
        LabRun run("echo \"$*\" >> \"$0.args\"\n");
        PublishOnBus(QDBusConnection::sessionBus());
        // With the sample changer: a step that did not wait for its program would meet a busy
        // changer, and Continue takes up a stopped load that may still be moving.
        run.connectAndQueue(2, 4);

        StatusClient client;
        QDBusConnection clientBus = connection(u"client"_s);
        QVERIFY(clientBus.connect(spinlaneBusName(), kStatusPath, kStatusInterface,
                                  u"ItemStatusChanged"_s, &client,
                                  SLOT(item(int, QString, QString, QString))));
        QVERIFY(clientBus.connect(spinlaneBusName(), kStatusPath, kStatusInterface,
                                  u"RunStateChanged"_s, &client, SLOT(runState(QString))));
        QVERIFY(clientBus.connect(spinlaneBusName(), kStatusPath,
                                  u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s,
                                  &client, SLOT(properties(QString, QVariantMap, QStringList))));
        // Stop is pressed while item 3 runs for the first time.
        client.onLine = [&client](const QString& line) {
            if (line == u"003 Sample 3 (ann): In progress"_s
                && !client.lines.contains(u"run: stopped"_s))
                RequestStop();
        };
        QProcess watch;
        watch.start(QStringLiteral(SPINLANE_STATUS), {u"--watch"_s});
        QTRY_VERIFY_WITH_TIMEOUT(watch.canReadLine(), 10000);

        RunQueue();
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Failed"_s, u"Stopped"_s, u"Idle"_s}));
        ContinueQueue();
        // clang-format off
        const QStringList expected{
        u"run: running"_s, u"{RunState=running}"_s,
        u"001 Sample 1 (ann): In progress"_s, u"{CurrentItem=1/In progress CurrentQueueNumber=1}"_s,
        u"001 Sample 1 (ann): Done"_s, u"{CurrentItem=1/Done}"_s,
        u"002 Sample 2 (ann): In progress"_s, u"{CurrentItem=2/In progress CurrentQueueNumber=2}"_s,
        u"002 Sample 2 (ann): Failed"_s, u"{CurrentItem=2/Failed}"_s,
        u"003 Sample 3 (ann): In progress"_s, u"{CurrentItem=3/In progress CurrentQueueNumber=3}"_s,
        u"003 Sample 3 (ann): Stopped"_s, u"{CurrentItem=3/Stopped}"_s,
        u"run: stopped"_s, u"{RunState=stopped}"_s,
        u"run: running"_s, u"{RunState=running}"_s,
        u"003 Sample 3 (ann): In progress"_s, u"{CurrentItem=3/In progress}"_s,
        u"003 Sample 3 (ann): Done"_s, u"{CurrentItem=3/Done}"_s,
        u"004 Sample 4 (ann): In progress"_s, u"{CurrentItem=4/In progress CurrentQueueNumber=4}"_s,
        u"004 Sample 4 (ann): Done"_s, u"{CurrentItem=4/Done}"_s,
        u"run: finished"_s, u"{RunState=finished}"_s};
        // clang-format on
        QTRY_COMPARE(client.lines.join(u'\n'), expected.join(u'\n'));

        // The tool prints the state it found, then the same signals, each after the time.
        static const QRegularExpression stamp(u"^\\d\\d:\\d\\d:\\d\\d "_s,
                                              QRegularExpression::MultilineOption);
        QString watched;
        const auto watchedLines = [&] {
            watched += QString::fromUtf8(watch.readAllStandardOutput());
            return QString(watched).remove(stamp).split(u'\n', Qt::SkipEmptyParts);
        };
        QTRY_COMPARE(watchedLines(), QStringList{u"run: idle"_s}
                                         + expected.filter(QRegularExpression(u"^[0-9r]"_s)));
        watch.kill();
        watch.waitForFinished();

        // The values at the end, as spinlane-status reads them through the interface.
        const QString printed = statusTool({});
        QVERIFY2(printed.startsWith(u"Run state:   finished\nItem:        004 of 4\n"
                                    u"Sample:      40  Sample 4\nExperiment:  PROTON\n"
                                    u"User:        ann\nData file:   /data/4.kvd\n"
                                    u"Status:      Done\nStarted:     "_s),
                 qPrintable(printed));
        QVERIFY2(QDateTime::fromString(printed.section(u"Started:"_s, 1).trimmed(), Qt::ISODate)
                     .isValid(),
                 "no start time");
        // Run again would take up only the failed item, now, learned from the items run.
        const QString queue = statusTool({u"--queue"_s});
        // The end with its range, as "14:25 (14:10-14:40)" unless the range falls within the
        // minute, as it does for these short runs; the start is certain.
        static const QString time = u"[-0-9]*:?[ 0-9]+:[0-9]{2}"_s;
        static const QRegularExpression failed(u"\n002 +SN2 +20 +Sample 2 +PROTON +ann +Failed +"_s
                                               + time + u" +"_s + time + u"( \\("_s + time
                                               + u"-"_s + time + u"\\))?\n"_s);
        static const QRegularExpression done(u"\n003 +SN3 +30 +Sample 3 +PROTON +ann +Done *\n"_s);
        QVERIFY2(queue.contains(failed) && queue.contains(done) && queue.count(u'\n') == 6
                     && queue.endsWith(u"\nNo run goes on: the times are as if it were started "
                                       u"now.\n"_s),
                 qPrintable(queue));
        QCOMPARE(statusTool({u"--user"_s, u"ANN"_s}), queue);
        QCOMPARE(statusTool({u"--queue"_s, u"--user"_s, u"bob"_s}).count(u'\n'), 2);
        QCOMPARE(statusTool({u"--user"_s}), QString());

        QTRY_COMPARE(run.notifications.received,
                     (QStringList{u"Spinlane: Item 002 failed | 002 Sample 2 (ann)"_s,
                                  u"Spinlane: Item 003 was stopped | 003 Sample 3 (ann)"_s,
                                  u"Spinlane: The queue finished | 4 items: 3 Done, 1 Failed"_s}));
        // The commands run side by side, so their lines may land in any order.
        const auto sortedAlerts = [&run] {
            QStringList lines = run.alerts();
            lines.sort();
            return lines;
        };
        QTRY_COMPARE(sortedAlerts(), (QStringList{u"ItemDone|001|Sample 1|ann|Done"_s,
                                                  u"ItemDone|003|Sample 3|ann|Done"_s,
                                                  u"ItemDone|004|Sample 4|ann|Done"_s,
                                                  u"ItemFailed|002|Sample 2|ann|Failed"_s,
                                                  u"ItemStopped|003|Sample 3|ann|Stopped"_s,
                                                  u"QueueFinished|004|Sample 4|ann|Done"_s}));
        QDBusConnection::disconnectFromBus(u"client"_s);
    }

    // A ledger that cannot be written is on the status interface as soon as the outcome that
    // could not be recorded is, and gone once a retry wrote it; the run goes on.
    void ledgerProblemOnTheBus()
    {
        SimulatedLab lab("[Experiment 1]\r\nTitle=PROTON\r\nDuration=0.2\r\n");
        QVERIFY(lab.isReady() && lab.startConsole());
        LabRun run({});
        // Folders where both ledgers would be.
        QTemporaryDir dir;
        gIniPath = dir.filePath(u"Spinlane.INI"_s);
        QVERIFY(QDir().mkpath(ledgerPath()) && QDir().mkpath(userLedgerPath()));
        const auto cleanUp = qScopeGuard([] { QDir(userLedgerPath()).removeRecursively(); });
        resetRunHistory();
        PublishOnBus(QDBusConnection::sessionBus());
        run.connectAndQueue(1, 2);
        const auto problemOnBus = [] {
            QDBusMessage get = QDBusMessage::createMethodCall(
                spinlaneBusName(), kStatusPath, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
            get << kStatusInterface << u"LedgerProblem"_s;
            const QDBusMessage answer = connection(u"client"_s).call(get, QDBus::BlockWithGui, 5000);
            return answer.arguments().value(0).value<QDBusVariant>().variant().toString();
        };
        QCOMPARE(problemOnBus(), QString());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^Spinlane: the ledger .* cannot be written"_s));
        RunQueue();
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s}));
        QTRY_VERIFY(!problemOnBus().isEmpty());
        QCOMPARE(problemOnBus(), u"not a regular file"_s);
        // Once it can be written, a retry writes the records and says so, with no outcome and no
        // change of the queue in between.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^Spinlane: the ledger .* is written again"_s));
        QVERIFY(QDir(ledgerPath()).removeRecursively());
        QTRY_COMPARE_WITH_TIMEOUT(problemOnBus(), QString(), 10000);
        QString error;
        const auto ledger = LedgerStore::open(ledgerPath(), {}, &error);
        QVERIFY2(ledger, qPrintable(error));
        QCOMPARE(ledger->newest(10, nullptr)->size(), std::size_t(2));
        resetRunHistory();
    }

    // The forecast as a client reads it before, during and after a run, and QueueChanged for every
    // kind of change of the queue, and for none that leaves the list as it was.
    void forecastAndQueueChanged()
    {
        SimulatedLab lab("[Expedra]\r\nFailRuns=2\r\n[Experiment 1]\r\nTitle=PROTON\r\n"
                         "Duration=0.3\r\n[Changer]\r\nLoadSeconds=0.3\r\nEjectSeconds=0.2\r\n"
                         "Positions=48\r\nReadySeconds=0\r\nSpinRamp=400\r\n");
        QVERIFY(lab.isReady() && lab.startConsole());
        LabRun run({});
        resetRunHistory();
        PublishOnBus(QDBusConnection::sessionBus());
        run.connectAndQueue(2, 3);
        ChangeCounter changes;
        QVERIFY(connection(u"client"_s)
                    .connect(spinlaneBusName(), kStatusPath, kStatusInterface, u"QueueChanged"_s,
                             &changes, SLOT(changed())));

        // No history and no default: the first item's start is known (after the first eject),
        // nothing else.
        QList<QVariantMap> forecast = forecastOnBus();
        QCOMPARE(forecast.size(), 3);
        QCOMPARE(forecast[0].keys(),
                 (QStringList{u"Basis"_s, u"EarliestEnd"_s, u"EarliestStart"_s, u"ExpectedEnd"_s,
                              u"ExpectedSeconds"_s, u"ExpectedStart"_s, u"IfStartedNow"_s,
                              u"LatestEnd"_s, u"LatestStart"_s, u"LongerThanAnyRun"_s,
                              u"QueueNumber"_s, u"Runs"_s}));
        QVERIFY(timeOf(forecast[0], u"ExpectedStart"_s)
                >= QDateTime::currentDateTime().addSecs(-1));
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(forecast[i][u"QueueNumber"_s].toInt(), i + 1);
            QCOMPARE(forecast[i][u"Basis"_s].toString(), u"none"_s);
            QCOMPARE(forecast[i][u"ExpectedSeconds"_s].toInt(), -1);
            QCOMPARE(forecast[i][u"ExpectedEnd"_s].toString(), QString());
            QCOMPARE(forecast[i][u"LatestEnd"_s].toString(), QString());
            QVERIFY(forecast[i][u"IfStartedNow"_s].toBool());
        }
        QCOMPARE(forecast[1][u"ExpectedStart"_s].toString(), QString());
        QCOMPARE(forecast[1][u"EarliestStart"_s].toString(), QString());
        QCOMPARE(forecast[0][u"EarliestStart"_s], forecast[0][u"ExpectedStart"_s]);
        QCOMPARE(forecast[0][u"LatestStart"_s], forecast[0][u"ExpectedStart"_s]);

        // The lab's default: every item known, each starting when the one before ends.
        writeFile(gIniPath, "[Forecast]\r\nPROTON=60\r\n");
        forecast = forecastOnBus();
        QCOMPARE(forecast[0][u"Basis"_s].toString(), u"default"_s);
        // Load, spin, run and eject by their fixed waits alone, around the default.
        QCOMPARE(forecast[0][u"ExpectedSeconds"_s].toInt(),
                 kWaitAfterMotion + kWaitBetweenSpinCommands + kWaitAfterSpin + 60
                     + kWaitAfterRunStart + kWaitAfterExperiment + kWaitBeforeEject
                     + kWaitAfterMotion);
        for (int i = 1; i < 3; ++i)
            QCOMPARE(timeOf(forecast[i], u"ExpectedStart"_s),
                     timeOf(forecast[i - 1], u"ExpectedEnd"_s));
        // A default's range: from a quarter below to a half above its 60 s, and for a sum of
        // items of the title n times that, as they all share the nominal time's error (to the
        // second the interface gives).
        const auto offset = [&](int i, const QString& from, const QString& to) {
            return timeOf(forecast[i], from).secsTo(timeOf(forecast[i], to));
        };
        const struct {
            int item;
            double below, above;
        } ranges[] = {{0, 15, 30}, {1, 30, 60}, {2, 45, 90}};
        for (const auto& r : ranges) {
            QVERIFY(std::abs(offset(r.item, u"EarliestEnd"_s, u"ExpectedEnd"_s) - r.below) <= 1);
            QVERIFY(std::abs(offset(r.item, u"ExpectedEnd"_s, u"LatestEnd"_s) - r.above) <= 1);
            QVERIFY(!forecast[r.item][u"LongerThanAnyRun"_s].toBool());
        }
        QCOMPARE(forecast[1][u"LatestStart"_s], forecast[0][u"LatestEnd"_s]);

        // Each kind of change is signalled once, when it came in one go; a mark that the list's
        // columns do not show is none.
        const auto signalled = [&](const std::function<void()>& change) {
            changes.count = 0;
            change();
            gQueueList.setBold(1, !gQueueList.row(1).bold);
            return QTest::qWaitFor([&] { return changes.count > 0; }, 5000)
                   && (QTest::qWait(50), changes.count == 1);
        };
        QVERIFY(signalled([] { addItem(50, 0); }));
        QVERIFY(signalled([] {
            gQueueList.selectOnly(4);
            QVERIFY(MoveSelectedRow(-1));
        }));
        QVERIFY(signalled([] { gQueueList.setSubItem(3, QueueList::SampleNameSubItem, u"X"_s); }));
        gCurrentUserID = u"ann"_s;
        run.seams.messageBoxes.queueAnswer(MsgAnswer::Yes);
        QVERIFY(signalled([] { QVERIFY(DeleteQueueItem(3)); }));
        QCOMPARE(gQueue.upperBound(), 3);
        QVERIFY(signalled([] { gRunControls.setStartQueueCaption(kContinueCaption); }));
        changes.count = 0;
        gQueueList.setBold(1, false);
        gQueueList.setGhosted(2, true);
        QTest::qWait(100);
        QCOMPARE(changes.count, 0);
        gRunControls.setStartQueueCaption(kStartCaption);

        // At item 3's start the forecast runs from it, learned from the two items before.
        QList<QVariantMap> during;
        QVariantMap current;
        StatusClient client;
        QVERIFY(connection(u"client"_s)
                    .connect(spinlaneBusName(), kStatusPath, kStatusInterface,
                             u"ItemStatusChanged"_s, &client,
                             SLOT(item(int, QString, QString, QString))));
        client.onLine = [&](const QString& line) {
            if (line.startsWith(u"003"_s) && line.endsWith(u"In progress"_s))
                during = forecastOnBus();
        };
        changes.count = 0;
        RunQueue();
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Failed"_s, u"Done"_s}));
        QTRY_VERIFY(!during.isEmpty());
        QVERIFY(changes.count > 0);
        QCOMPARE(during.size(), 1);
        QCOMPARE(during[0][u"QueueNumber"_s].toInt(), 3);
        QCOMPARE(during[0][u"Basis"_s].toString(), u"history"_s);
        QCOMPARE(during[0][u"Runs"_s].toInt(), 2);
        QVERIFY(!during[0][u"IfStartedNow"_s].toBool());
        QVERIFY(timeOf(during[0], u"ExpectedEnd"_s) > timeOf(during[0], u"ExpectedStart"_s));
        QCOMPARE(during[0][u"EarliestStart"_s], during[0][u"ExpectedStart"_s]);
        QVERIFY(timeOf(during[0], u"EarliestEnd"_s) <= timeOf(during[0], u"ExpectedEnd"_s));
        QVERIFY(timeOf(during[0], u"LatestEnd"_s) >= timeOf(during[0], u"ExpectedEnd"_s));
        QCOMPARE(runHistory().size(), std::size_t(3));

        // Run again: only the failed item, as if it started now.
        forecast = forecastOnBus();
        QCOMPARE(forecast.size(), 1);
        QCOMPARE(forecast[0][u"QueueNumber"_s].toInt(), 2);
        QCOMPARE(forecast[0][u"Basis"_s].toString(), u"history"_s);
        QCOMPARE(forecast[0][u"Runs"_s].toInt(), 3);
        QVERIFY(forecast[0][u"IfStartedNow"_s].toBool());
        QDBusConnection::disconnectFromBus(u"client"_s);
    }

    void alertsNeverHoldTheRun_data()
    {
        QTest::addColumn<QByteArray>("lab");
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QStringList>("alerts");
        QTest::addColumn<QString>("notified");
        const QByteArray fails = "[Expedra]\r\nFailRuns=1\r\n[Experiment 1]\r\nTitle=PROTON\r\n"
                                 "Duration=0.3\r\n";
        const QString failed = u"Spinlane: Item 001 failed | 001 Sample 1 (ann)"_s;
        // The command records its process and then sleeps for a minute.
        QTest::newRow("slow command")
            << fails << QByteArray("echo \"$$|$*\" >> \"$0.args\"\nexec sleep 60\n")
            << QStringList{u"ItemFailed|001|Sample 1|ann|Failed"_s,
                           u"QueueFinished|001|Sample 1|ann|Failed"_s}
            << failed;
        QTest::newRow("missing command") << fails << QByteArray() << QStringList() << failed;
        QTest::newRow("program lost")
            << QByteArray("[Expedra]\r\nCrash=IsExperimentRunning:1\r\n")
            << QByteArray("echo \"$*\" >> \"$0.args\"\n")
            << QStringList{u"ProgramLost|001|Sample 1|ann|In progress|Expedra.BrelixExpedra"_s}
            << u"Spinlane: Expedra.BrelixExpedra was lost | While running item 001 Sample 1 (ann)"_s;
    }
    void alertsNeverHoldTheRun()
    {
        QFETCH(QByteArray, lab);
        QFETCH(QByteArray, script);
        QFETCH(QStringList, alerts);
        QFETCH(QString, notified);
        SimulatedLab simulated(lab);
        QVERIFY(simulated.isReady() && simulated.startConsole());
        LabRun run(script);
        PublishOnBus(QDBusConnection::sessionBus());
        run.connectAndQueue(1, 1);
        if (script.isEmpty()) {
            const QByteArray warning = "Spinlane: the alert command "
                                       + run.path(u"alert"_s).toUtf8() + " could not be started";
            QTest::ignoreMessage(QtWarningMsg, warning.constData());
            QTest::ignoreMessage(QtWarningMsg, warning.constData());
        }
        guarded([] { RunQueue(); });
        const bool lost = QTest::currentDataTag() == "program lost"_ba;
        QCOMPARE(run.seams.programEnd.ends, lost ? 1 : 0);
        QCOMPARE(statuses(), QStringList{lost ? u"In progress"_s : u"Failed"_s});
        QTRY_COMPARE(run.notifications.received.value(0), notified);
        QTRY_COMPARE(run.alerts().size(), alerts.size());
        QStringList received = run.alerts();
        // The slow commands are still running: the run went on without them.
        for (QString& line : received) {
            if (line.contains(u"|QueueFinished|"_s) || line.contains(u"|ItemFailed|"_s)) {
                const pid_t pid = pid_t(line.section(u'|', 0, 0).toInt());
                QCOMPARE(::kill(pid, 0), 0);
                ::kill(pid, SIGTERM);
                line = line.section(u'|', 1);
            }
        }
        // The commands run side by side, so their lines may land in either order.
        received.sort();
        QCOMPARE(received, alerts);
    }
};

SPINLANE_GUI_TEST_MAIN(TestStatusBus)
#include "tst_statusbus.moc"
