// Nothing lost: the recovery journal beside the settings file, the restore at start-up, the close
// on a shutdown signal and saves that fail part way. The end-to-end cases run the program in a
// child process against the simulated laboratory and kill it there.

#include "app/Main.h"
#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/SingleInstance.h"
#include "core/SystemSeams.h"
#include "ledger/LedgerStore.h"
#include "queue/QueueEditing.h"
#include "queue/SettingsFile.h"
#include "runner/DBusAutomation.h"
#include "runner/ProgramLinks.h"
#include "runner/RunLog.h"
#include "settings/RecoveryJournal.h"
#include "support/ProgramFixture.h"
#include "support/RealLabSeams.h"
#include "support/SimulatedLab.h"

#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

QString general(const QString& path, const QString& key)
{
    return settings::readText(ProfileDocument::load(path), settings::kGeneral, key, {});
}

// The simulated laboratory: each experiment runs a second and a half.
const QByteArray kLab = "[Experiment 1]\r\nTitle=PROTON\r\nDuration=1.5\r\n";

// The child process: the whole program on the test's settings file and the simulated laboratory,
// with the real event loop and end. With "--run-program" a person moves SN3 before SN2, switches
// Always On Top on and starts the run; with "--wait-for-changer", while start-up still waits for
// the sample changer, a person deletes SN2 and adds an item, and the child says "edited".
int runChild(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const QString iniPath = QString::fromLocal8Bit(argv[2]);
    ScriptedSeams scripted; // answers the start-up questions; the clock and pump are real
    scripted.messageBoxes.queueAnswer(MsgAnswer::Ok);
    scripted.fileDialogs.queueChoice(iniPath);
    ProcessExit end;
    const RealLabSeams real(&end);
    setInstanceLockPath(iniPath + u".instance-lock"_s);
    CloseOnShutdownSignals();
    const bool whileWaiting = qstrcmp(argv[1], "--wait-for-changer") == 0;
    QTimer edit;
    QObject::connect(&edit, &QTimer::timeout, [&] {
        frmSpinlane* form = MainForm();
        if (!form || !form->isVisible() || gQueueList.count() != 3)
            return;
        edit.stop();
        guarded([&] {
            form->txtUserID->setText(u"ann"_s);
            form->cmdEnter->click();
            gQueueList.selectOnly(2);
            scripted.messageBoxes.queueAnswer(MsgAnswer::Yes);
            DeleteSelectedItems();
            QueueItem added;
            added.ItemSN = u"NEW"_s;
            CommitNewItem(3, added);
        });
        std::fputs("edited\n", stdout);
        std::fflush(stdout);
    });
    if (whileWaiting)
        edit.start(20);
    guarded([] { Main({}); });
    frmSpinlane* form = MainForm();
    if (!form)
        return 2;
    if (!whileWaiting) {
        form->txtUserID->setText(u"ann"_s);
        form->cmdEnter->click();
        gQueueList.selectOnly(3);
        form->updQueueItemUp->click();
        form->menuItem(u"mnuPrefs"_s, 50)->trigger();
        QTimer::singleShot(0, form->cmdStartQueue, &QPushButton::click);
    }
    return QApplication::exec();
}

} // namespace

class TestRecovery : public ProgramTest {
    Q_OBJECT

    QString journal() { return program().iniPath() + u".recovery"_s; }

    // The program in a child process on items SN1..SN3 (single-sample mode, a password set by
    // hand), once its run has reached the second item's experiment.
    // The ledger beside the settings file: each record as "serial outcome", oldest first.
    QStringList ledgerOutcomes()
    {
        QString error;
        const auto ledger = LedgerStore::open(
            QFileInfo(program().iniPath()).dir().filePath(u"Spinlane.ledger"_s), {}, &error);
        if (!ledger)
            return {error};
        QStringList outcomes;
        for (const LedgerRecord& record : ledger->newest(1000, &error).value_or(std::vector<LedgerRecord>()))
            outcomes << record.itemSerial + u' ' + record.run.outcome;
        return outcomes;
    }

    bool startRunInChild(QProcess& child, SimulatedLab& lab)
    {
        if (!lab.isReady() || !lab.startConsole())
            return false;
        writeFile(program().iniPath(),
                  settingsFile(queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s}),
                               {{u"Password"_s, u"secret"_s},
                                {u"LogFile"_s, program().path(u"run.log"_s)}}));
        writeFile(program().path(u"run.log"_s), "old\r\n");
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QCoreApplication::applicationFilePath(),
                    {u"--run-program"_s, program().iniPath()});
        const auto reachedSecond = [&] {
            return queueInFile(journal(), &QueueItem::Status).value(1) == u"SN3 In progress"_s
                   && lab.calls().count(u"Expedra.RunExperiment()"_s) == 2;
        };
        const QDeadlineTimer deadline(30000);
        while (!reachedSecond() && child.state() != QProcess::NotRunning && !deadline.hasExpired())
            QTest::qWait(20);
        return reachedSecond();
    }

private Q_SLOTS:
    void journalFollowsTheSession()
    {
        START_PROGRAM(queueOf({u"Idle"_s, u"Idle"_s}));
        // Looking at the queue changes nothing the close would save.
        select(2);
        form->lvwSpinlane_ColumnClick(3);
        form->lvwSpinlane_ColumnClick(0);
        QVERIFY(!gRecoveryJournal.flush());
        QVERIFY(!QFile::exists(journal()));

        // A move and a preference reach the journal a moment later, and so do a run's statuses.
        select(2);
        click(form->updQueueItemUp);
        trigger(u"mnuPrefs"_s, 50);
        QTRY_COMPARE(queueInFile(journal(), &QueueItem::Status), (QStringList{u"SN2 Idle"_s, u"SN1 Idle"_s}));
        QCOMPARE(general(journal(), u"AlwaysOnTop"_s), u"True"_s);
        click(form->cmdStartQueue);
        QTRY_COMPARE(queueInFile(journal(), &QueueItem::Status), (QStringList{u"SN2 Done"_s, u"SN1 Done"_s}));
        QCOMPARE(general(journal(), u"Current Queue Num"_s), u"2"_s);

        // A run-time error ends the program and leaves both files as they were.
        const QByteArray settingsBefore = readFile(program().iniPath());
        const QByteArray journalBefore = readFile(journal());
        guarded([] { throw RuntimeError(RuntimeError::AutomationError); });
        QCOMPARE(seams().programEnd.ends, 1);
        trigger(u"mnuPrefs"_s, 50);
        QVERIFY(!gRecoveryJournal.flush());
        QCOMPARE(readFile(program().iniPath()), settingsBefore);
        QCOMPARE(readFile(journal()), journalBefore);
    }

    // Restoring is the end-to-end case below; here the journal is not loaded.
    void journalSetAside_data()
    {
        QTest::addColumn<QString>("journalKey"); // "key=value" in its General section
        QTest::addColumn<bool>("asked");
        QTest::newRow("declined") << u"Current Queue Num=2"_s << true;
        QTest::newRow("damaged") << u"AlwaysOnTop=maybe"_s << false;
        QTest::newRow("another version") << u"Version Number=0.9.1"_s << false;
    }
    void journalSetAside()
    {
        QFETCH(QString, journalKey);
        QFETCH(bool, asked);
        writeFile(program().iniPath(), settingsFile(queueOf({u"Idle"_s, u"Idle"_s})));
        const QByteArray journalBytes =
            settingsFile(queueOf({u"Done"_s, u"In progress"_s}),
                         {{journalKey.section(u'=', 0, 0), journalKey.section(u'=', 1)}});
        writeFile(journal(), journalBytes);
        const QDateTime savedAt = QFileInfo(program().iniPath()).lastModified().addSecs(60);
        QFile touched(journal());
        QVERIFY(touched.open(QIODevice::ReadWrite)
                && touched.setFileTime(savedAt, QFileDevice::FileModificationTime));
        touched.close();

        QVERIFY(program().restart({}, asked ? QList{MsgAnswer::No} : QList<MsgAnswer>{}));
        const QString text = asked ? u"Spinlane did not close normally. Restore the queue as it "
                                     u"was at "_s
                                         + generalDate(savedAt) + u'?'
                                   : u"Spinlane did not close normally, but the queue it kept "
                                     u"for that case cannot be read. It was set aside as "_s
                                         + program().iniPath() + u".recovery-declined."_s;
        QCOMPARE(program().startBoxes.mid(1),
                 QList{box(text, asked ? MsgButtons::YesNo : MsgButtons::Ok,
                           asked ? MsgIcon::Question : MsgIcon::Exclamation)});
        QCOMPARE(statuses(), (QStringList{u"Idle"_s, u"Idle"_s}));
        QVERIFY(!QFile::exists(journal()));
        QCOMPARE(readFile(program().iniPath() + u".recovery-declined"_s), journalBytes);
    }

    void failedSaveKeepsTheOldFile()
    {
        START_PROGRAM(queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s}));
        trigger(u"mnuPrefs"_s, 50);
        QVERIFY(gRecoveryJournal.flush());
        const QByteArray settingsBefore = readFile(program().iniPath());
        const QByteArray journalBefore = readFile(journal());
        const QStringList files = QDir(program().path(u"config"_s)).entryList(QDir::Files);
        {
            const FileSizeLimit diskFull(quint64(settingsBefore.size() / 2));
            trigger(u"mnuFile"_s, 50);
        }
        QCOMPARE(seams().messageBoxes.shown,
                 QList<MessageBoxRequest>{box(u"Spinlane could not save the settings file "_s
                                                  + program().iniPath()
                                                  + u":\r\nFile too large\r\nThe queue will be "
                                                    u"offered for restoring at the next start."_s,
                                              MsgButtons::Ok, MsgIcon::Exclamation)});
        QCOMPARE(readFile(program().iniPath()), settingsBefore);
        QCOMPARE(readFile(journal()), journalBefore);
        QCOMPARE(QDir(program().path(u"config"_s)).entryList(QDir::Files), files);
    }

    void killedMidRunComesBack()
    {
        SimulatedLab lab(kLab);
        QProcess child;
        QVERIFY(startRunInChild(child, lab));
        ::kill(pid_t(child.processId()), SIGKILL);
        QVERIFY(child.waitForFinished(10000));
        // The outcome recorded before the kill is in the ledger; the item it cut short is not.
        QCOMPARE(ledgerOutcomes(), QStringList{u"SN1 Done"_s});

        const RealLabSeams real; // started again on the real clock and laboratory
        const QDateTime savedAt = QFileInfo(journal()).lastModified();
        frmSpinlane* form = program().restart({}, {MsgAnswer::Yes});
        QVERIFY(form);
        QCOMPARE(program().startBoxes.mid(1),
                 QList{box(u"Spinlane did not close normally. Restore the queue as it was at "_s
                               + generalDate(savedAt) + u'?',
                           MsgButtons::YesNo, MsgIcon::Question)});
        QCOMPARE(runLogLines(program().path(u"run.log"_s)),
                 (QStringList{u"old"_s, u"[Restore Spinlane at T: the queue as it was at T]"_s,
                              QString()}));
        // The queue, the statuses and the edits are back; the running item stopped.
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Stopped"_s, u"Idle"_s}));
        QCOMPARE(gQueue(2).ItemSN, u"SN3"_s);
        QVERIFY(gAlwaysOnTop);
        QCOMPARE(gRunControls.startQueueCaption(), kContinueCaption);

        // The experiment the killed program started runs to its end in the laboratory.
        QTRY_VERIFY_WITH_TIMEOUT(!gExpedra->IsExperimentRunning(), 10000);
        lab.clearCalls();
        program().logIn(u"ann"_s);
        click(form->cmdStartQueue);
        QCOMPARE(seams().messageBoxes.texts(), QStringList());
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s, u"Done"_s}));
        QCOMPARE(lab.calls().count(u"Expedra.RunExperiment()"_s), 2);
        trigger(u"mnuFile"_s, 50);
        QCOMPARE(queueInFile(program().iniPath(), &QueueItem::Status),
                 (QStringList{u"SN1 Done"_s, u"SN3 Done"_s, u"SN2 Done"_s}));
        QCOMPARE(general(program().iniPath(), u"Password"_s), u"secret"_s);
        QVERIFY(!QFile::exists(journal()));
        QCOMPARE(ledgerOutcomes(), (QStringList{u"SN1 Done"_s, u"SN3 Done"_s, u"SN2 Done"_s}));
    }

    void shutdownSignalSavesTheRun()
    {
        SimulatedLab lab(kLab);
        QProcess child;
        QVERIFY(startRunInChild(child, lab));
        ::kill(pid_t(child.processId()), SIGTERM);
        QVERIFY(child.waitForFinished(20000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(queueInFile(program().iniPath(), &QueueItem::Status),
                 (QStringList{u"SN1 Done"_s, u"SN3 Stopped"_s, u"SN2 Idle"_s}));
        QCOMPARE(general(program().iniPath(), u"Current Queue Num"_s), u"2"_s);
        QVERIFY(!QFile::exists(journal()));
    }

    // A lab program that fails on the first call after an outcome leaves the outcome in the
    // journal, with the item the run had taken up; the restore agrees with the run log, and
    // Continue takes up the next item, not the finished one.
    void outcomeOutlivesTheNextCall_data()
    {
        QTest::addColumn<QString>("sampleControl");
        QTest::addColumn<QString>("failingCall");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("changer: load after Done") << u"2"_s << u"Changer.LoadSample"_s << u"Done"_s;
        QTest::newRow("changer: load after Failed")
            << u"2"_s << u"Changer.LoadSample"_s << u"Failed"_s;
        QTest::newRow("single sample: set-up after Done")
            << u"1"_s << u"Expedra.SetCurrentExperiment"_s << u"Done"_s;
        QTest::newRow("single sample: set-up after Failed")
            << u"1"_s << u"Expedra.SetCurrentExperiment"_s << u"Failed"_s;
    }
    void outcomeOutlivesTheNextCall()
    {
        QFETCH(QString, sampleControl);
        QFETCH(QString, failingCall);
        QFETCH(QString, outcome);
        START_PROGRAM({{u"Idle"_s, 1, 1}, {u"Idle"_s, 2}, {u"Idle"_s, 3}},
                      {{u"Sample Control"_s, sampleControl}});
        if (outcome == u"Failed"_s)
            lab().expedra->failingExperiments = {1};
        const QString logPath = program().path(u"run.log"_s);
        gLogOn = OpenLogFile(logPath, false);
        connect(&gQueueList, &QAbstractItemModel::dataChanged, form, [&] {
            if (gQueueList.subItem(1, QueueList::StatusSubItem) == outcome)
                lab().log.failing.insert(failingCall);
        });
        click(form->cmdStartQueue);
        QCOMPARE(seams().programEnd.ends, 1);
        QCOMPARE(queueInFile(journal(), &QueueItem::Status),
                 (QStringList{u"SN1 "_s + outcome, u"SN2 In progress"_s, u"SN3 Idle"_s}));
        QCOMPARE(general(journal(), u"Current Queue Num"_s), u"2"_s);
        const QStringList logged = runLogLines(logPath).filter(u"\tann\t"_s);
        QCOMPARE(logged, QStringList{u"001\tSN1\t1\tSample 1\tCARBON\tann\t"_s + outcome + u"\tT"_s});
        QCOMPARE(ledgerOutcomes(), QStringList{u"SN1 "_s + outcome});

        lab().log.failing.clear();
        lab().expedra->failingExperiments.clear();
        QVERIFY(program().restart({}, {MsgAnswer::Yes}));
        QCOMPARE(statuses(), (QStringList{outcome, u"Stopped"_s, u"Idle"_s}));
        QCOMPARE(gRunControls.startQueueCaption(), kContinueCaption);
        program().logIn(u"ann"_s);
        lab().log.clear();
        click(program().form->cmdStartQueue);
        QCOMPARE(statuses(), (QStringList{outcome, u"Done"_s, u"Done"_s}));
        QCOMPARE(lab().log.calls.count(u"Expedra.RunExperiment()"_s), 2);
        QCOMPARE(ledgerOutcomes(), (QStringList{u"SN1 "_s + outcome, u"SN2 Done"_s, u"SN3 Done"_s}));
        QVERIFY(!lab().log.calls.contains(u"Expedra.SetCurrentExperiment(1)"_s));
    }

    // A journal is the last session's work whatever the settings file's time says, and whether
    // or not an administrator changed a key of the file since.
    void journalOfferedWhateverTheFileSays_data()
    {
        QTest::addColumn<bool>("clockSetBack");
        QTest::newRow("settings file hours in the future") << true;
        QTest::newRow("one key changed by hand") << false;
    }
    void journalOfferedWhateverTheFileSays()
    {
        QFETCH(bool, clockSetBack);
        START_PROGRAM(queueOf({u"Idle"_s, u"Idle"_s}));
        click(form->cmdStartQueue);
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s}));
        guarded([] { throw RuntimeError(RuntimeError::AutomationError); });
        if (clockSetBack) {
            QFile file(program().iniPath());
            QVERIFY(file.open(QIODevice::ReadWrite)
                    && file.setFileTime(QDateTime::currentDateTime().addSecs(7200),
                                        QFileDevice::FileModificationTime));
        } else {
            QVERIFY(ProfileFile::writeString(program().iniPath(), u"General", u"LogFile",
                                             u"/var/log/nmr.log"_s));
        }
        QVERIFY(program().restart({}, {MsgAnswer::Yes}));
        QVERIFY(program().startBoxes.last().text.startsWith(
            u"Spinlane did not close normally. Restore the queue"_s));
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s}));
        QCOMPARE(gRunControls.startQueueCaption(), kRunAgainCaption);
    }

    // After moves, additions and deletes and a crash, either answer gives a queue without a
    // blank item, a lost one or a deleted one: Yes the session's, No the saved one less the
    // items deleted since.
    void deletesAfterMovesSurviveACrash_data()
    {
        QTest::addColumn<MsgAnswer>("answer");
        QTest::addColumn<QStringList>("queue");
        QTest::addColumn<QStringList>("fileAfterDelete"); // once the first row is deleted
        QTest::newRow("restored") << MsgAnswer::Yes
                                  << QStringList{u"SN3"_s, u"SN1"_s, u"SN2"_s, u"NEW"_s}
                                  << QStringList{u"SN1 Idle"_s, u"SN2 Idle"_s};
        QTest::newRow("declined") << MsgAnswer::No << QStringList{u"SN1"_s, u"SN2"_s, u"SN3"_s}
                                  << QStringList{u"SN2 Idle"_s, u"SN3 Idle"_s};
    }
    void deletesAfterMovesSurviveACrash()
    {
        QFETCH(MsgAnswer, answer);
        QFETCH(QStringList, queue);
        QFETCH(QStringList, fileAfterDelete);
        START_PROGRAM(queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s, u"Idle"_s}));
        const auto moveUp = [&](qint32 row, int times) {
            select(row);
            for (int i = 0; i < times; ++i)
                click(form->updQueueItemUp);
        };
        const auto remove = [&](qint32 row) {
            select(row);
            seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
            click(form->cmdDelete);
        };
        moveUp(4, 2);
        remove(2); // SN4
        QueueItem added;
        added.ItemSN = u"NEW"_s;
        CommitNewItem(4, added);
        moveUp(3, 2); // SN3 to the top
        QCOMPARE(serials(), (QStringList{u"SN3"_s, u"SN1"_s, u"SN2"_s, u"NEW"_s}));
        QVERIFY(gRecoveryJournal.flush());
        guarded([] { throw RuntimeError(RuntimeError::AutomationError); });

        QVERIFY(program().restart({}, {answer}));
        QCOMPARE(serials(), queue);
        // The next session's deletes still find each item's own section of the file.
        program().logIn(u"ann"_s);
        form = program().form;
        remove(1);
        QCOMPARE(queueInFile(program().iniPath(), &QueueItem::Status), fileAfterDelete);
    }

    // A shutdown signal while start-up waits for the sample changer closes as File/Exit does:
    // the edits made in the window meanwhile are saved.
    void shutdownSignalWhileWaitingForTheChanger()
    {
        SimulatedLab lab(kLab + "[Changer]\r\nReadySeconds=600\r\n");
        QVERIFY(lab.isReady() && lab.startConsole());
        writeFile(program().iniPath(),
                  settingsFile(queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s}),
                               {{u"Sample Control"_s, u"2"_s}}));
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(),
                    {u"--wait-for-changer"_s, program().iniPath()});
        QVERIFY(child.waitForReadyRead(30000));
        QCOMPARE(child.readLine(), "edited\n");
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(journal()), 10000);
        ::kill(pid_t(child.processId()), SIGTERM);
        QVERIFY(child.waitForFinished(20000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(queueInFile(program().iniPath(), &QueueItem::Status),
                 (QStringList{u"SN1 Idle"_s, u"SN3 Idle"_s, u"NEW Idle"_s}));
        QVERIFY(!QFile::exists(journal()));
    }

    // A settings file the user may write in a folder the user may not: the file is written in
    // place, the journal is kept in the user's own folder and offered from there.
    void folderThatCannotBeWritten()
    {
        writeFile(program().iniPath(), settingsFile(queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s})));
        QTemporaryDir home;
        const QString folder = program().path(u"config"_s);
        {
            const UnwritableFolder shared(folder, home.path());
            frmSpinlane* form = program().restart();
            QVERIFY(form);
            program().logIn(u"ann"_s);
            select(3);
            click(form->updQueueItemUp);
            QVERIFY(gRecoveryJournal.flush());
            QVERIFY(!QFile::exists(journal()));
            QVERIFY(QFile::exists(userRecoveryJournalPath()));
            select(1);
            seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
            click(form->cmdDelete);
            QCOMPARE(queueInFile(program().iniPath(), &QueueItem::Status),
                     (QStringList{u"SN2 Idle"_s, u"SN3 Idle"_s}));
            guarded([] { throw RuntimeError(RuntimeError::AutomationError); });

            QVERIFY(program().restart({}, {MsgAnswer::Yes}));
            QCOMPARE(serials(), (QStringList{u"SN3"_s, u"SN2"_s}));
            const int ends = seams().programEnd.ends;
            trigger(u"mnuFile"_s, 50);
            QCOMPARE(seams().programEnd.ends, ends + 1);
            QCOMPARE(seams().messageBoxes.texts(), QStringList());
            QVERIFY(!QFile::exists(userRecoveryJournalPath()));
        }
        QCOMPARE(queueInFile(program().iniPath(), &QueueItem::Status),
                 (QStringList{u"SN3 Idle"_s, u"SN2 Idle"_s}));
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{u"Spinlane.INI"_s});
    }

    // When neither the settings file nor a journal can be written, the close promises nothing
    // and the program stays open with the queue.
    void closeThatCanKeepNothingStaysOpen()
    {
        START_PROGRAM(queueOf({u"Idle"_s, u"Idle"_s}));
        select(2);
        click(form->updQueueItemUp);
        const QByteArray settingsBefore = readFile(program().iniPath());
        {
            const FileSizeLimit diskFull(quint64(settingsBefore.size() / 2));
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression(u"^spinlane: the recovery journal .* cannot "
                                                    u"be written: File too large$"_s));
            trigger(u"mnuFile"_s, 50);
        }
        QCOMPARE(seams().programEnd.ends, 0);
        QCOMPARE(seams().messageBoxes.texts(),
                 QStringList{u"Spinlane could not save the settings file "_s + program().iniPath()
                             + u":\r\nFile too large\r\nNor can it keep the queue for restoring. "
                               u"Spinlane stays open: make room on the disk or allow the "
                               u"writing, then close it again."_s});
        QVERIFY(form->isVisible());
        QCOMPARE(readFile(program().iniPath()), settingsBefore);
        trigger(u"mnuFile"_s, 50); // room again
        QCOMPARE(seams().programEnd.ends, 1);
        QCOMPARE(queueInFile(program().iniPath(), &QueueItem::Status),
                 (QStringList{u"SN2 Idle"_s, u"SN1 Idle"_s}));
    }

    // A full disk mid-run: the journal says so once on standard error and the run goes on.
    void journalAndLedgerOnAFullDiskKeepTheRunGoing()
    {
        START_PROGRAM(queueOf({u"Idle"_s, u"Idle"_s, u"Idle"_s}));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"^spinlane: the recovery journal .* cannot be "
                                                u"written: File too large$"_s));
        QTest::failOnWarning(QRegularExpression(u"recovery journal"_s));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"^Spinlane: the ledger .* cannot be written .*; "
                                                u"the run goes on"_s));
        QTest::failOnWarning(QRegularExpression(u"ledger .* cannot be written"_s));
        {
            const FileSizeLimit diskFull(16);
            click(form->cmdStartQueue);
        }
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s, u"Done"_s}));
        QCOMPARE(seams().programEnd.ends, 0);
        QVERIFY(gRecoveryJournal.flush()); // room again: the next write succeeds
        QCOMPARE(queueInFile(journal(), &QueueItem::Status),
                 (QStringList{u"SN1 Done"_s, u"SN2 Done"_s, u"SN3 Done"_s}));
        // The ledger's records waited, and are written within seconds of there being room.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^Spinlane: the ledger .* is written again$"_s));
        QTRY_COMPARE_WITH_TIMEOUT(ledgerOutcomes(), (QStringList{u"SN1 Done"_s, u"SN2 Done"_s, u"SN3 Done"_s}),
                                  15000);
    }
};

int main(int argc, char** argv)
{
    if (argc == 3
        && (qstrcmp(argv[1], "--run-program") == 0 || qstrcmp(argv[1], "--wait-for-changer") == 0))
        return runChild(argc, argv);
    TestRecovery test;
    return runGuiTest(test, argc, argv);
}

#include "tst_recovery.moc"
