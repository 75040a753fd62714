// Nothing lost: the recovery journal beside the settings file, the restore at start-up, the close
// on a shutdown signal and saves that fail part way. The end-to-end cases run the program in a
// child process against the simulated laboratory and kill it there.

#include "app/Main.h"
#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/SingleInstance.h"
#include "core/SystemSeams.h"
#include "queue/SettingsFile.h"
#include "runner/DBusAutomation.h"
#include "runner/ProgramLinks.h"
#include "settings/RecoveryJournal.h"
#include "support/ProgramFixture.h"
#include "support/RealLabSeams.h"
#include "support/SimulatedLab.h"

#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QTimer>

#include <csignal>

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
// with the real event loop and end; a person moves SN3 before SN2, switches Always On Top on
// and starts the run.
int runProgram(int argc, char** argv)
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
    guarded([] { Main({}); });
    frmSpinlane* form = MainForm();
    if (!form)
        return 2;
    form->txtUserID->setText(u"ann"_s);
    form->cmdEnter->click();
    gQueueList.selectOnly(3);
    form->updQueueItemUp->click();
    form->menuItem(u"mnuPrefs"_s, 50)->trigger();
    QTimer::singleShot(0, form->cmdStartQueue, &QPushButton::click);
    return QApplication::exec();
}

} // namespace

class TestRecovery : public ProgramTest {
    Q_OBJECT

    QString journal() { return program().iniPath() + u".recovery"_s; }

    // The program in a child process on items SN1..SN3 (single-sample mode, a password set by
    // hand), once its run has reached the second item's experiment.
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
};

int main(int argc, char** argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--run-program") == 0)
        return runProgram(argc, argv);
    TestRecovery test;
    return runGuiTest(test, argc, argv);
}

#include "tst_recovery.moc"
