#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "queue/QueueEditing.h"
#include "queue/QueueReorder.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "queue/StatusBar.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "runner/SampleSteps.h"
#include "support/FakePrograms.h"
#include "support/QueueProbe.h"
#include "support/ScriptedSeams.h"
#include "support/SettingsFiles.h"

#include <QLocale>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

const QDateTime kStart(QDate(2026, 11, 22), QTime(9, 0));
const QString kTubelinkQuestion = u"No OLE connection to Tubelink program.\r\nContinue anyway?"_s;

} // namespace

class TestRunner : public QObject {
    Q_OBJECT

    std::unique_ptr<ScriptedSeams> m_seams;
    std::unique_ptr<FakeLab> m_lab;
    QTemporaryDir m_dir;

    VirtualTime& time() { return m_seams->time; }
    CallLog& log() { return m_lab->log; }

    QStringList actions() const { return testing::actions(m_lab->log.calls); }

    // Links made as start-up would make them for `mode`, without the start-up calls in the log.
    void linkPrograms(qint16 mode)
    {
        gSampleControl = mode;
        ConnectPrograms();
        log().clear();
        time().setNow(kStart);
    }

    QStringList logLines() const { return runLogLines(m_dir.filePath(u"run.log"_s)); }

private Q_SLOTS:
    void initTestCase() { QLocale::setDefault(QLocale::c()); }

    void init()
    {
        m_seams = std::make_unique<ScriptedSeams>();
        m_lab = std::make_unique<FakeLab>();
        time().setNow(kStart);
        resetSettingsState();
        resetQueueState();
        resetProgramLinks();
        resetRunState();
        gCurrentUserID = u"ann"_s;
        gExpTitles = m_lab->expedra->titles;
        gSolvents = m_lab->expedra->solvents;
        QVERIFY(OpenLogFile(m_dir.filePath(u"run.log"_s), false));
        gLogOn = true;
    }

    void cleanup()
    {
        gLogOn = false;
        CloseLogFile();
        m_lab.reset();
        m_seams.reset();
    }

    void connectingInEachMode()
    {
        gSampleControl = 2;
        ConnectPrograms();
        QCOMPARE(
            log().calls,
            (QStringList{u"GetObject(Korvo.Application)"_s,
                         u"CreateObject(Expedra.BrelixExpedra)"_s, u"Expedra.SetShown(False)"_s,
                         u"Expedra.GetWindowHandle()"_s, u"ShowWindow(101, 0)"_s,
                         u"CreateObject(Carousio.clsCarousio)"_s, u"Changer.SetVisible(False)"_s,
                         u"Changer.GetWindowHandle()"_s, u"ShowWindow(202, 0)"_s}));
        QCOMPARE(log().timeOf(u"Expedra.SetShown(False)"_s), kStart.addSecs(1));
        QCOMPARE(gExpedraWnd, 101);
        QCOMPARE(gSampleChangerWnd, 202);

        // Experiments only: the changer is told to quit and let go; switched off, a new link.
        gExpQueueOnly = true;
        ConnectPrograms();
        QCOMPARE(log().calls.last(), u"Changer.Quit()"_s);
        QCOMPARE(gSampleChangerWnd, 0);
        QVERIFY(!gSampleChanger);
        gExpQueueOnly = false;
        ConnectPrograms();
        QCOMPARE(log().calls.last(), u"ShowWindow(202, 0)"_s);
        QVERIFY(gSampleChanger);
        // Releasing goes past a program that fails to quit.
        log().clear();
        log().failing = {u"Expedra.Quit"_s};
        ReleasePrograms();
        QCOMPARE(log().calls, (QStringList{u"Expedra.Quit()"_s, u"Changer.Quit()"_s}));

        // Single-sample interface: its window is minimised; experiments only drops it quietly.
        resetProgramLinks();
        log().calls.clear();
        gSampleControl = 1;
        log().failing = {u"Expedra.SetShown"_s, u"Expedra.GetWindowHandle"_s};
        ConnectPrograms();
        QCOMPARE(log().calls.mid(2),
                 (QStringList{u"Expedra.SetShown(False)"_s, u"Expedra.GetWindowHandle()"_s,
                              u"ShowWindow(0, 0)"_s, u"CreateObject(Tubelink.Tubelink)"_s,
                              u"Tubelink.GetWindowHandle()"_s, u"CloseWindow(303)"_s}));
        QCOMPARE(gTubelinkWnd, 303);
        gExpQueueOnly = true;
        ConnectPrograms();
        QCOMPARE(gTubelinkWnd, 0);
        QVERIFY(!gTubelink);
        QVERIFY(m_seams->messageBoxes.shown.isEmpty());
        QCOMPARE(m_seams->programEnd.ends, 0);
    }

    void connectFailures_data()
    {
        QTest::addColumn<qint16>("mode");
        QTest::addColumn<QString>("missing");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("ends"); // a question is answered to go on unless it ends
        QTest::newRow("console") << qint16(1) << kConsoleClass
                                 << u"Start Korvo application first."_s << true;
        QTest::newRow("set-up program")
            << qint16(1) << kExpedraClass << u"No OLE connection to Expedra program."_s << true;
        QTest::newRow("sample changer")
            << qint16(2) << kSampleChangerClass << u"No OLE connection to Sampel Changer program."_s
            << true;
        QTest::newRow("single-sample interface, go on")
            << qint16(1) << kTubelinkClass << kTubelinkQuestion << false;
        QTest::newRow("single-sample interface, stop")
            << qint16(1) << kTubelinkClass << kTubelinkQuestion << true;
    }
    void connectFailures()
    {
        QFETCH(qint16, mode);
        QFETCH(QString, missing);
        QFETCH(QString, message);
        QFETCH(bool, ends);
        gSampleControl = mode;
        m_lab->running.remove(missing);
        m_lab->broken.insert(missing);
        const bool asks = message == kTubelinkQuestion;
        if (asks)
            m_seams->messageBoxes.queueAnswer(ends ? MsgAnswer::No : MsgAnswer::Yes);
        QCOMPARE(endsProgram(ConnectPrograms), ends);
        QCOMPARE(m_seams->messageBoxes.shown,
                 QList{asks ? box(message, MsgButtons::YesNo, MsgIcon::Question)
                            : box(message, MsgButtons::Ok, MsgIcon::Exclamation)});
        if (missing == kConsoleClass)
            QVERIFY(!log().calls.contains(u"CreateObject(Expedra.BrelixExpedra)"_s));
        QCOMPARE(gTubelinkWnd, 0);
    }

    void experimentSetUp()
    {
        linkPrograms(1);
        addItem(5, 1, u"Idle"_s, u"d2o"_s); // found, case aside
        addItem(5, 0, u"Idle"_s, u"DMSO"_s); // only at the upper bound: not in the list
        addItem(5, 2, u"Idle"_s, u"DMSO"_s); // no lock needed
        gQueue(1).SampleDes = u"in water"_s;
        SetUpExperiment(1);
        gSameSample = true;
        SetUpExperiment(2);
        gSameSample = false;
        SetUpExperiment(3);
        QCOMPARE(actions(),
                 (QStringList{
                     u"Expedra.SetCurrentExperiment(1)"_s,
                     u"Expedra.SetSampleInfo(ann|Chem|Sample 1\\r\\nin water|Solvent: d2o)"_s,
                     u"Expedra.SetSolventIndex(1)"_s, u"Expedra.SetOutputFile(/data/1.kvd)"_s,
                     u"Expedra.SetCurrentExperiment(0)"_s,
                     u"Expedra.SetSampleInfo(ann|Chem|Sample 2\\r\\ndesc|Solvent: DMSO)"_s,
                     u"Expedra.SetLockEnabled(False)"_s, u"Expedra.SetSetupEnabled(False)"_s,
                     u"Expedra.SetLockEnabled(False)"_s, u"Expedra.SetOutputFile(/data/2.kvd)"_s,
                     u"Expedra.SetCurrentExperiment(2)"_s,
                     u"Expedra.SetSampleInfo(ann|Chem|Sample 3\\r\\ndesc|)"_s,
                     u"Expedra.SetOutputFile(/data/3.kvd)"_s}));
    }

    void stepsPollAndWaitWhileTheChangerIsBusy()
    {
        linkPrograms(2);
        addItem(12, 0);
        m_lab->changer->failingLoads = {12};
        LoadStep(1);
        QVERIFY(gStepFailed);
        // The busy flag drops 20 s after the load; it is seen within 50 ms.
        const qint64 seen = kStart.msecsTo(log().timeOf(u"Changer.GetLoadFailed()"_s));
        QVERIFY2(seen >= 20000 && seen <= 20050, qPrintable(QString::number(seen)));
        QCOMPARE(log().times.at(log().calls.indexOf(u"Changer.LoadSample(12)"_s) + 1),
                 kStart.addSecs(5));
        // Between polls the step waits for events in short bounded steps.
        QVERIFY(time().waits >= 20000 / 20);

        // A stop while a step polls is seen within 50 ms. The stopped load goes on in the changer,
        // so an eject first waits while the changer moves, saying so; a stop ends that wait too.
        gStatusBar.setText(StatusBar::OutputFilePanel, u"/data/1.kvd"_s);
        const QDateTime started = time().now();
        time().at(started.addSecs(7), RequestStop);
        LoadStep(1); // the load goes on for 20 s
        QVERIFY(started.addSecs(7).msecsTo(time().now()) <= 50);
        gStopRequested = false;
        QString shown;
        time().at(started.addSecs(12), [&shown] {
            shown = gStatusBar.text(StatusBar::OutputFilePanel);
            RequestStop();
        });
        EjectStep();
        QCOMPARE(shown, u"Waiting for Sample Changer..."_s);
        QVERIFY(started.addSecs(12).msecsTo(time().now()) <= 50);
        gStopRequested = false;
        EjectStep();
        QCOMPARE(started.secsTo(log().timeOf(u"Changer.EjectSample()"_s)), 20);
        QCOMPARE(gStatusBar.text(StatusBar::OutputFilePanel), u"/data/1.kvd"_s);
    }

    // A stop ends at once a fixed wait after which a step only asks its program and returns; the
    // calls stay those of a wait that ran out. A wait between two commands keeps its length.
    void stopEndsTheFixedWaitsBeforeAQuestion()
    {
        linkPrograms(2);
        addItem(4, 2);
        time().afterMs(2000, RequestStop); // in the 5 s after the experiment starts
        ExperimentStep(1);
        QCOMPARE(log().calls.mid(log().calls.indexOf(u"Expedra.RunExperiment()"_s)),
                 (QStringList{u"Expedra.RunExperiment()"_s, u"Expedra.IsExperimentRunning()"_s,
                              u"Expedra.AbortExperiment()"_s}));
        QVERIFY(kStart.addSecs(2).msecsTo(log().times.last()) <= 50);

        // Spin: a stop in the second between rate and spin waits it out; the 10 s after it end.
        gStopRequested = false;
        log().clear();
        time().setNow(kStart);
        time().afterMs(500, RequestStop);
        SpinStep(1);
        QCOMPARE(log().calls.mid(3),
                 (QStringList{u"Changer.SetSpinRate(20)"_s, u"Changer.SetSpin(True)"_s,
                              u"Changer.GetActualSpinRate()"_s}));
        QCOMPARE(log().times.mid(3), (QList{kStart, kStart.addSecs(1), kStart.addSecs(1)}));
    }

    void spinSettles()
    {
        linkPrograms(2);
        addItem(1, 0);
        m_lab->expedra->spinOn = false;
        SpinStep(1);
        QCOMPARE(gStatusBar.text(StatusBar::SpinPanel), u"Spin off"_s);
        QCOMPARE(log().timeOf(u"Changer.SetSpin(False)"_s), kStart.addSecs(1));

        // Settling: the measured rate is shown until it is within 5 Hz of the target.
        m_lab->expedra->spinOn = true;
        QList<double> rates{3.04, 14.96, 19.55};
        m_lab->changer->actualSpinRate = [&rates] { return rates.takeFirst(); };
        QStringList shown;
        QObject watching;
        connect(&gStatusBar, &StatusBar::changed, &watching,
                [&] { shown.append(gStatusBar.text(StatusBar::SpinPanel)); });
        SpinStep(1);
        QCOMPARE(shown, (QStringList{u"Spin on: 3.0"_s, u"Spin on: 15.0"_s, u"Spin on: 19.6"_s}));
        QVERIFY(rates.isEmpty());

        // Never settling is given up after 10 s; a target of 0 is reached at once.
        m_lab->changer->actualSpinRate = [] { return 50.0; };
        const QDateTime start = time().now();
        SpinStep(1);
        const qint64 took = start.msecsTo(time().now());
        QVERIFY2(took > 21000 && took <= 21050, qPrintable(QString::number(took)));
        m_lab->expedra->spinRate = 0;
        log().calls.clear();
        SpinStep(1);
        QVERIFY(!log().calls.contains(u"Changer.GetActualSpinRate()"_s));
    }

    void sampleChangerRun()
    {
        linkPrograms(2);
        addItem(5, 0);
        addItem(5, 1);
        addItem(7, 2);
        RunQueue();
        const QString info = u"Expedra.SetSampleInfo(ann|Chem|Sample %1\\r\\ndesc|%2)"_s;
        QCOMPARE(
            actions(),
            (QStringList{// whatever the changer holds goes out first
                         u"Expedra.ReleaseSample()"_s, u"Changer.EjectSample()"_s,
                         // item 1: load, spin, run; item 2 uses the same sample
                         u"Changer.LoadSample(5)"_s, u"Expedra.SetCurrentExperiment(0)"_s,
                         u"Changer.SetSpinRate(20)"_s, u"Changer.SetSpin(True)"_s,
                         u"Expedra.SetCurrentExperiment(0)"_s,
                         info.arg(u"1"_s, u"Solvent: CDCl3"_s), u"Expedra.SetSolventIndex(0)"_s,
                         u"Expedra.SetOutputFile(/data/1.kvd)"_s, u"Expedra.RunExperiment()"_s,
                         // item 2: no load, no new lock or set-up; ejected for item 3
                         u"Expedra.SetCurrentExperiment(1)"_s, u"Changer.SetSpinRate(20)"_s,
                         u"Changer.SetSpin(True)"_s, u"Expedra.SetCurrentExperiment(1)"_s,
                         info.arg(u"2"_s, u"Solvent: CDCl3"_s), u"Expedra.SetLockEnabled(False)"_s,
                         u"Expedra.SetSetupEnabled(False)"_s, u"Expedra.SetSolventIndex(0)"_s,
                         u"Expedra.SetOutputFile(/data/2.kvd)"_s, u"Expedra.RunExperiment()"_s,
                         u"Expedra.ReleaseSample()"_s, u"Changer.EjectSample()"_s,
                         // item 3: the last sample is ejected too, without a lock to release
                         u"Changer.LoadSample(7)"_s, u"Expedra.SetCurrentExperiment(2)"_s,
                         u"Changer.SetSpinRate(20)"_s, u"Changer.SetSpin(True)"_s,
                         u"Expedra.SetCurrentExperiment(2)"_s, info.arg(u"3"_s, QString()),
                         u"Expedra.SetOutputFile(/data/3.kvd)"_s, u"Expedra.RunExperiment()"_s,
                         u"Changer.EjectSample()"_s,
                         // left spinning at 20 Hz
                         u"Changer.SetSpinRate(20)"_s, u"Changer.SetSpin(True)"_s}));
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s, u"Done"_s}));
        for (qint32 row = 1; row <= 3; ++row) {
            const QueueRow& r = gQueueList.row(row);
            QVERIFY(r.checked && r.bold && !r.ghosted);
            QCOMPARE(r.selected, row == 3); // the item taken up last is the one selected
            QCOMPARE(r.foreColor, kBlue);
        }
        QCOMPARE(gCurrentQueueNum, 3);
        QCOMPARE(gRunControls.startQueueCaption(), kRunAgainCaption);
        QCOMPARE(gRunControls.startQueueToolTip(), u"Only to complete the failed items."_s);
        QVERIFY(gRunControls.startOverVisible());
        QCOMPARE(gStatusBar.progressValue(), 3);
        QCOMPARE(
            logLines(),
            (QStringList{
                u"[Start Spinlane at T by ann]"_s,
                u"No.\tItem S/N\tSample Pos.\tSample Name\tExp. Title\tUser ID\tStatus\tDate/Time"_s,
                u"001\tSN1\t5\tSample 1\tPROTON\tann\tDone\tT"_s,
                u"002\tSN2\t5\tSample 2\tCARBON\tann\tDone\tT"_s,
                u"003\tSN3\t7\tSample 3\tCOSY\tann\tDone\tT"_s, u"[Done Spinlane at T]"_s,
                QString(65, u'$'), QString(), QString()}));
    }

    void failuresAndStops()
    {
        linkPrograms(2);
        addItem(1, 0);
        addItem(2, 2);
        addItem(3, 0);
        addItem(3, 1);
        m_lab->changer->failingLoads = {1};
        m_lab->expedra->failingExperiments = {2};
        // Stop while item 3's experiment runs (from 165 s to 225 s).
        time().at(kStart.addSecs(200), RequestStop);
        RunQueue();
        QCOMPARE(statuses(), (QStringList{u"Failed"_s, u"Failed"_s, u"Stopped"_s, u"Idle"_s}));
        QCOMPARE(gQueueList.row(1).foreColor, kRed);
        QCOMPARE(gQueueList.row(3).foreColor, kYellow);
        QVERIFY(gQueueList.row(3).ghosted);
        QCOMPARE(gCurrentQueueNum, 3);
        QVERIFY(!gStopRequested && !gStepFailed);
        QCOMPARE(gRunControls.startQueueCaption(), kContinueCaption);
        QVERIFY(gRunControls.startOverVisible());
        // A failed load is ejected before the next item.
        const QStringList calls = actions();
        QCOMPARE(calls.mid(2, 2),
                 (QStringList{u"Changer.LoadSample(1)"_s, u"Changer.EjectSample()"_s}));

        // Continue takes up the stopped item; the eject after the last one fails.
        m_lab->changer->ejectFails = true;
        ContinueQueue();
        QCOMPARE(statuses(), (QStringList{u"Failed"_s, u"Failed"_s, u"Done"_s, u"Done"_s}));
        QCOMPARE(gRunControls.startQueueCaption(), kContinueCaption); // fatal: not finished
        QCOMPARE(gCurrentQueueNum, 4);
        QCOMPARE(
            logLines().mid(2),
            (QStringList{
                u"001\tSN1\t1\tSample 1\tPROTON\tann\tFailed\tT"_s,
                u"002\tSN2\t2\tSample 2\tCOSY\tann\tFailed\tT"_s,
                u"003\tSN3\t3\tSample 3\tPROTON\tann\tStopped\tT"_s,
                u"[Stop Spinlane at T by ann]"_s, QString(57, u'*'), QString(),
                u"[Start Spinlane at T by ann]"_s,
                u"No.\tItem S/N\tSample Pos.\tSample Name\tExp. Title\tUser ID\tStatus\tDate/Time"_s,
                u"003\tSN3\t3\tSample 3\tPROTON\tann\tDone\tT"_s,
                u"004\tSN4\t3\tSample 4\tCARBON\tann\tDone\tT"_s,
                u"[Fatal error (ejecting failed)! Quit Spinlane at T]"_s, QString(61, u'!'),
                QString(), QString()}));
    }

    void stopDuringTheFinalEject()
    {
        linkPrograms(2);
        addItem(4, 2);
        m_lab->expedra->experimentSeconds = 10;
        // Prepare 12 s, load 20 s, spin 11 s, experiment 11 s, 2 s before the eject: the
        // eject runs from 56 s to 66 s. A stop in those 2 s does not hurry the eject.
        time().at(kStart.addSecs(55), RequestStop);
        RunQueue();
        QCOMPARE(
            log().times.at(log().calls.lastIndexOf(u"Changer.EjectSample()"_s)),
            log().times.at(log().calls.lastIndexOf(u"Expedra.GetLockRequired()"_s)).addSecs(2));
        QCOMPARE(statuses(), QStringList{u"Done"_s});
        QCOMPARE(logLines().mid(2, 2), (QStringList{u"001\tSN1\t4\tSample 1\tCOSY\tann\tDone\tT"_s,
                                                    u"[Stop Spinlane at T by ann]"_s}));
    }

    void walkingWithoutSampleHandling()
    {
        linkPrograms(0);
        addItem(1, 0, u"Done"_s);
        addItem(2, 1, u"Failed"_s);
        addItem(3, 2, u"Stopped"_s);
        RunQueue();
        QVERIFY(actions().isEmpty());
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s, u"Done"_s}));
        QVERIFY(gQueueList.row(1).checked && !gQueueList.row(1).bold); // skipped, only marked
        QCOMPARE(
            readFile(m_dir.filePath(u"run.log"_s)),
            "[Start Spinlane at 22 Nov 2026 09:00:00 by ann]\r\n"
            "No.\tItem S/N\tSample Pos.\tSample Name\tExp. Title\tUser ID\tStatus\tDate/Time\r\n"
            "002\tSN2\t2\tSample 2\tCARBON\tann\tDone\t22 Nov 2026 09:00:00\r\n"
            "003\tSN3\t3\tSample 3\tCOSY\tann\tDone\t22 Nov 2026 09:00:00\r\n"
            "[Done Spinlane at 22 Nov 2026 09:00:00]\r\n"
                + QByteArray(65, '$') + "\r\n\r\n");

        // At the last number already: the run finishes at once.
        RunQueue();
        QCOMPARE(logLines().mid(7),
                 (QStringList{u"[Start Spinlane at T by ann]"_s, logLines().at(1),
                              u"[Done Spinlane at T]"_s, QString(65, u'$'), QString(), QString()}));
        QCOMPARE(gCurrentQueueNum, 3);
    }

    // At start-up the caption follows the saved current item; start over shows only after a
    // finished queue.
    void captionFromTheSavedProgress()
    {
        struct Case {
            QStringList statuses;
            qint32 current;
            QString caption;
            bool startOver;
        };
        const Case cases[] = {
            {{}, 0, kStartCaption, false},
            {{u"Idle"_s, u"Idle"_s}, 0, kStartCaption, false},
            {{u"Done"_s, u"Stopped"_s, u"Idle"_s}, 2, kContinueCaption, false},
            {{u"Failed"_s, u"Done"_s}, 2, kRunAgainCaption, true},
            {{u"Done"_s, u"Failed"_s}, 2, kRunAgainCaption, true},
            {{u"Done"_s, u"Stopped"_s}, 2, kContinueCaption, false},
        };
        for (const Case& c : cases) {
            gRunControls.reset();
            makeQueue(c.statuses.size(), c.statuses);
            gCurrentQueueNum = c.current;
            RestoreRunControls();
            QCOMPARE(gRunControls.startQueueCaption(), c.caption);
            QCOMPARE(gRunControls.startOverVisible(), c.startOver);
        }
    }

    // The run button, the arrows and a typed number find no item to act on: instead of ending
    // the program with a run-time error they do nothing. Continue after the stopped item was
    // deleted starts from the first item.
    void commandsOnAnEmptyListDoNothing()
    {
        linkPrograms(0);
        addItem(1, 0, u"Stopped"_s);
        addItem(2, 0);
        gCurrentQueueNum = 1;
        gRunControls.setStartQueueCaption(kContinueCaption);
        m_seams->messageBoxes.queueAnswer(MsgAnswer::Yes);
        QVERIFY(DeleteQueueItem(1));
        QCOMPARE(errorNumber(ClickStartQueue), 0);
        QCOMPARE(statuses(), QStringList{u"Done"_s});
        QCOMPARE(gRunControls.startQueueCaption(), kRunAgainCaption);

        m_seams->messageBoxes.queueAnswer(MsgAnswer::Yes);
        QVERIFY(DeleteQueueItem(1));
        const QStringList logged = logLines();
        for (const QString& caption : {kRunAgainCaption, kContinueCaption, kStartCaption}) {
            gRunControls.setStartQueueCaption(caption);
            QCOMPARE(errorNumber(ClickStartQueue), 0);
            QCOMPARE(gRunControls.startQueueCaption(), caption);
        }
        QCOMPARE(errorNumber([] { RenumberSelectedRow(u"5"_s); }), 0);
        QVERIFY(!MoveSelectedRow(-1) && !MoveSelectedRow(+1));
        QCOMPARE(gQueueList.count(), 0);
        QCOMPARE(gCurrentQueueNum, 0);
        QCOMPARE(logLines(), logged);
    }

    void selectionStatus()
    {
        addItem(4, 2);
        addItem(5, 1);
        gQueue(2).OutputFilePath = u"/data/five.kvd"_s;
        gQueueList.setSelected(2, true);
        gCurrentQueueNum = 1;
        UpdateSelectionStatus();
        QCOMPARE(statusBarShows(), u"Sample 2|CARBON|/data/five.kvd|/data/five.kvd|1|2"_s);
        gQueueList.clear();
        UpdateSelectionStatus();
        QCOMPARE(statusBarShows(), u"|||Current Selected Exp Output File Path|0|1"_s);
    }

    void runLogFile()
    {
        const QString path = m_dir.filePath(u"kept.log"_s);
        writeFile(path, "old run\r\n");
        QVERIFY(OpenLogFile(path, true));
        WriteDoneBanner();
        QVERIFY(OpenLogFile(path, false));
        WriteLogHeader();
        CloseLogFile();
        QVERIFY(readFile(path).startsWith("No.\t"));
        QVERIFY(OpenLogFile(path, true));
        QVERIFY(!OpenLogFile(m_dir.filePath(u"no/such/folder.log"_s), false));
        QCOMPARE(errorNumber(WriteStartBanner), RuntimeError::BadFileNameOrNumber);
        QCOMPARE(errorNumber([] { FindQueueRow(1); }), RuntimeError::ObjectNotSet);
    }
};

QTEST_GUILESS_MAIN(TestRunner)
#include "tst_runner.moc"
