// Spinlane against the simulated laboratory: real programs on a private session bus, started by
// the bus, driven through the D-Bus backend by the real runner on a clock that runs 20 times
// faster than real time.

#include "app/Conversions.h"
#include "app/ProfileFile.h"
#include "app/RuntimeError.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/Startup.h"
#include "app/SystemSeams.h"
#include "queue/QueueStore.h"
#include "runner/DBusAutomation.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "support/FakePrograms.h"
#include "support/QueueProbe.h"
#include "support/ScaledClock.h"
#include "support/ScriptedSeams.h"
#include "support/SimulatedLab.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <array>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

constexpr double kTimeScale = 20;
constexpr int kCallTimeoutMs = 2000;

// Short durations: a load, an eject or an experiment takes a fraction of a second.
const QByteArray kFastLab =
    "[Changer]\r\nLoadSeconds=0.3\r\nEjectSeconds=0.2\r\nSpinRamp=400\r\n"
    "ReadySeconds=0\r\n"
    "[Expedra]\r\nSolvents=CDCl3, D2O, DMSO\r\n"
    "[Experiment 1]\r\nTitle=PROTON\r\nDuration=0.5\r\n"
    "[Experiment 2]\r\nTitle=CARBON\r\nDuration=0.5\r\n"
    "[Experiment 3]\r\nTitle=COSY\r\nLockRequired=False\r\nDuration=0.5\r\n";

// The fast lab with some settings changed, each {section, key, value}.
QByteArray fastLabWith(std::initializer_list<std::array<QString, 3>> changes)
{
    ProfileDocument settings = ProfileDocument::fromBytes(kFastLab);
    for (const auto& [section, key, value] : changes)
        settings.writeString(section, key, value);
    return settings.toBytes();
}

} // namespace

class TestSimulatedLab : public QObject {
    Q_OBJECT

    std::unique_ptr<ScriptedSeams> m_seams;
    std::unique_ptr<ScaledClock> m_clock;
    QtEventPump m_pump;
    std::unique_ptr<DBusAutomation> m_automation;
    AutomationBackend* m_previousAutomation = nullptr;
    QTemporaryDir m_dir;

    QStringList logLines() const { return runLogLines(m_dir.filePath(u"run.log"_s)); }

    // Connects as start-up does, fetching the lists from the set-up program.
    void connectPrograms(qint16 mode)
    {
        gSampleControl = mode;
        ConnectPrograms();
        QVERIFY(gExpedra);
        gExpTitles = gExpedra->GetExperimentTitles();
        gSolvents = gExpedra->GetSolvents();
    }

    // The run under the guard every event handler has: a run-time error is reported and ends
    // the program.
    void runGuarded()
    {
        guarded([] { RunQueue(); });
    }

private Q_SLOTS:
    void initTestCase()
    {
        QLocale::setDefault(QLocale::c());
        QVERIFY2(QDBusConnection::sessionBus().isConnected(),
                 "needs the private lab bus: run through CTest");
    }

    void init()
    {
        m_seams = std::make_unique<ScriptedSeams>();
        m_clock = std::make_unique<ScaledClock>(kTimeScale);
        installSeams({nullptr, nullptr, nullptr, m_clock.get(), &m_pump, nullptr});
        m_automation = std::make_unique<DBusAutomation>(
            QDBusConnection::sessionBus(), DBusAutomation::Timeouts{kCallTimeoutMs, 10000});
        m_previousAutomation = installAutomation(m_automation.get());
        resetStartupState();
        resetSettingsState();
        resetQueueState();
        resetProgramLinks();
        resetRunState();
        gCurrentUserID = u"ann"_s;
        QVERIFY(OpenLogFile(m_dir.filePath(u"run.log"_s), false));
        gLogOn = true;
    }

    void cleanup()
    {
        gLogOn = false;
        CloseLogFile();
        resetProgramLinks();
        installAutomation(m_previousAutomation);
        m_automation.reset();
        m_seams.reset();
        m_clock.reset();
    }

    void connectingInEachMode_data()
    {
        QTest::addColumn<qint16>("mode");
        QTest::addColumn<QStringList>("sampleCalls");
        QTest::addColumn<QString>("sampleClass");
        QTest::newRow("no sample handling") << qint16(0) << QStringList() << QString();
        QTest::newRow("single-sample interface")
            << qint16(1)
            << QStringList{u"Tubelink.GetWindowHandle()"_s, u"Tubelink.CloseWindow()"_s}
            << kTubelinkClass;
        QTest::newRow("sample changer")
            << qint16(2)
            << QStringList{u"Changer.SetVisible(False)"_s, u"Changer.GetWindowHandle()"_s,
                           u"Changer.ShowWindow(0)"_s}
            << kSampleChangerClass;
    }
    void connectingInEachMode()
    {
        QFETCH(qint16, mode);
        QFETCH(QStringList, sampleCalls);
        QFETCH(QString, sampleClass);
        SimulatedLab lab(kFastLab);
        QVERIFY(lab.isReady());
        QVERIFY(lab.startConsole());

        gSampleControl = mode;
        ConnectPrograms();
        QVERIFY(m_seams->messageBoxes.shown.isEmpty());
        // Each window command reached the program that reported the handle.
        QCOMPARE(lab.calls(),
                 QStringList({u"Expedra.SetShown(False)"_s, u"Expedra.GetWindowHandle()"_s,
                              u"Expedra.ShowWindow(0)"_s})
                     + sampleCalls);
        QCOMPARE(qint64(gExpedraWnd), lab.processId(kExpedraClass));
        for (const QString& other : {kTubelinkClass, kSampleChangerClass})
            QCOMPARE(lab.isRunning(other), other == sampleClass);
        const qint32 sampleWindow = mode == 1 ? gTubelinkWnd : gSampleChangerWnd;
        QCOMPARE(qint64(sampleWindow), sampleClass.isEmpty() ? 0 : lab.processId(sampleClass));

        // At the end the set-up program and the changer quit; the console and the
        // single-sample interface stay.
        lab.clearCalls();
        ReleasePrograms();
        QCOMPARE(lab.calls(), mode == 2 ? QStringList({u"Expedra.Quit()"_s, u"Changer.Quit()"_s})
                                        : QStringList({u"Expedra.Quit()"_s}));
        QVERIFY(lab.waitUntilGone(kExpedraClass));
        if (mode == 2)
            QVERIFY(lab.waitUntilGone(kSampleChangerClass));
        QCOMPARE(lab.isRunning(kTubelinkClass), mode == 1);
        QVERIFY(lab.isRunning(kConsoleClass));
    }

    // A program the bus cannot start, or the console not running (a row without settings does not
    // start it): a message, and nothing started past the failure.
    void programsThatCannotStart_data()
    {
        QTest::addColumn<qint16>("mode");
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("ends");
        QTest::newRow("console not running")
            << qint16(2) << QByteArray() << u"Start Korvo application first."_s << true;
        QTest::newRow("set-up program")
            << qint16(2) << fastLabWith({{u"Expedra"_s, u"Broken"_s, u"True"_s}})
            << u"No OLE connection to Expedra program."_s << true;
        QTest::newRow("single-sample interface, go on")
            << qint16(1) << fastLabWith({{u"Tubelink"_s, u"Broken"_s, u"True"_s}})
            << u"No OLE connection to Tubelink program.\r\nContinue anyway?"_s << false;
    }
    void programsThatCannotStart()
    {
        QFETCH(qint16, mode);
        QFETCH(QByteArray, settings);
        QFETCH(QString, message);
        QFETCH(bool, ends);
        SimulatedLab lab(settings.isEmpty() ? kFastLab : settings);
        QVERIFY(lab.isReady() && (settings.isEmpty() || lab.startConsole()));
        gSampleControl = mode;
        if (!ends)
            m_seams->messageBoxes.queueAnswer(MsgAnswer::Yes);
        QCOMPARE(endsProgram(ConnectPrograms), ends);
        QCOMPARE(m_seams->messageBoxes.texts(), QStringList{message});
        QCOMPARE(gTubelinkWnd, 0);
        QCOMPARE(gSampleChangerWnd, 0);
        if (settings.isEmpty()) {
            QVERIFY(!lab.isRunning(kExpedraClass) && !lab.isRunning(kConsoleClass));
            QVERIFY(lab.calls().isEmpty());
        }
    }

    void sampleChangerRun()
    {
        SimulatedLab lab(kFastLab);
        QVERIFY(lab.isReady() && lab.startConsole());
        connectPrograms(2);
        addItem(5, 0);
        addItem(5, 1);
        addItem(7, 2);
        lab.clearCalls();
        RunQueue();

        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Done"_s, u"Done"_s}));
        QCOMPARE(gRunControls.startQueueCaption(), kRunAgainCaption);
        // The exact calls and the run log are the runner test's; here every step reached its
        // program in order: the same sample stays in the magnet for item 2, and every sample goes
        // out at the end.
        static const QRegularExpression steps(u"LoadSample|EjectSample|SetSpin\\(|RunExperiment"_s);
        QCOMPARE(lab.calls().filter(steps),
                 (QStringList{u"Changer.EjectSample()"_s, u"Changer.LoadSample(5)"_s,
                              u"Changer.SetSpin(True)"_s, u"Expedra.RunExperiment()"_s,
                              u"Changer.SetSpin(True)"_s, u"Expedra.RunExperiment()"_s,
                              u"Changer.EjectSample()"_s, u"Changer.LoadSample(7)"_s,
                              u"Changer.SetSpin(True)"_s, u"Expedra.RunExperiment()"_s,
                              u"Changer.EjectSample()"_s, u"Changer.SetSpin(True)"_s}));
        // Each step waited for its program: every busy flag was seen to drop.
        for (const QString& poll :
             {u"Changer.IsLoading()"_s, u"Changer.IsEjecting()"_s,
              u"Expedra.IsExperimentRunning()"_s, u"Changer.GetActualSpinRate()"_s})
            QVERIFY2(lab.calls().contains(poll), qPrintable(poll));
    }

    // Continue at once after a stop during a load: the stopped load goes on in the changer, and
    // the run waits for it instead of meeting a busy changer.
    void continueAfterAStoppedLoadWaitsForTheChanger()
    {
        SimulatedLab lab(fastLabWith({{u"Changer"_s, u"LoadSeconds"_s, u"2"_s}}));
        QVERIFY(lab.isReady() && lab.startConsole());
        connectPrograms(2);
        addItem(5, 0);
        QTimer stopper;
        connect(&stopper, &QTimer::timeout, this, [&] {
            if (lab.calls().contains(u"Changer.LoadSample(5)"_s)) {
                stopper.stop();
                RequestStop();
            }
        });
        stopper.start(10);
        runGuarded();
        QCOMPARE(statuses(), QStringList{u"Stopped"_s});
        guarded(ContinueQueue);
        QCOMPARE(m_seams->messageBoxes.texts(), QStringList());
        QCOMPARE(statuses(), QStringList{u"Done"_s});
    }

    void injectedFailures_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QStringList>("logEnd");
        QTest::newRow("load") << fastLabWith({{u"Changer"_s, u"FailLoads"_s, u"7"_s}})
                              << QStringList{u"Done"_s, u"Failed"_s, u"Done"_s}
                              << QStringList{u"[Done Spinlane at T]"_s, QString(65, u'$')};
        QTest::newRow("experiment") << fastLabWith({{u"Expedra"_s, u"FailRuns"_s, u"2"_s}})
                                    << QStringList{u"Done"_s, u"Failed"_s, u"Done"_s}
                                    << QStringList{u"[Done Spinlane at T]"_s, QString(65, u'$')};
        QTest::newRow("eject") << fastLabWith({{u"Changer"_s, u"FailEjects"_s, u"5"_s}})
                               << QStringList{u"Done"_s, u"Idle"_s, u"Idle"_s}
                               << QStringList{
                                      u"[Fatal error (ejecting failed)! Quit Spinlane at T]"_s,
                                      QString(61, u'!')};
    }
    void injectedFailures()
    {
        QFETCH(QByteArray, settings);
        QFETCH(QStringList, expected);
        QFETCH(QStringList, logEnd);
        SimulatedLab lab(settings);
        QVERIFY(lab.isReady() && lab.startConsole());
        connectPrograms(2);
        addItem(5, 0);
        addItem(7, 1);
        addItem(9, 2);
        RunQueue();
        QCOMPARE(statuses(), expected);
        // How each failure is handled is the runner test's; here it came from a real program.
        const QStringList lines = logLines();
        QCOMPARE(lines.mid(lines.size() - 4, 2), logEnd);
    }

    // A program that dies or stops answering during a run: the call that finds no answer is an
    // automation error, a silent program's after the call's time limit, during which the window
    // goes on handling its events.
    void programDiesOrStopsAnswering_data()
    {
        QTest::addColumn<QString>("misbehaviour");
        QTest::newRow("killed") << u"Crash"_s;
        QTest::newRow("silent") << u"Hang"_s;
    }
    void programDiesOrStopsAnswering()
    {
        QFETCH(QString, misbehaviour);
        SimulatedLab lab(fastLabWith({{u"Expedra"_s, misbehaviour, u"IsExperimentRunning:1"_s},
                                      {u"Expedra"_s, u"HangSeconds"_s, u"30"_s}}));
        QVERIFY(lab.isReady() && lab.startConsole());
        connectPrograms(1);
        addItem(3, 0);
        addItem(4, 1);
        QElapsedTimer timer;
        timer.start();
        qint64 lastTick = 0;
        qint64 longestPause = 0;
        const auto tick = [&] {
            longestPause = std::max(longestPause, timer.elapsed() - lastTick);
            lastTick = timer.elapsed();
        };
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this, tick);
        ticker.start(20);
        runGuarded();
        tick();
        QVERIFY2(longestPause < kCallTimeoutMs / 2, qPrintable(QString::number(longestPause)));
        QCOMPARE(m_seams->programEnd.ends, 1);
        QCOMPARE(m_seams->messageBoxes.shown.size(), 1);
        const MessageBoxRequest report = m_seams->messageBoxes.shown.first();
        QCOMPARE(report.icon, MsgIcon::Critical);
        QVERIFY2(
            report.text.startsWith(u"Run-time error '-2147467259':\r\n\r\nAutomation error\r\n"_s)
                && report.text.contains(u"org.freedesktop.DBus.Error.NoReply"_s),
            qPrintable(report.text));
        QCOMPARE(statuses(), (QStringList{u"In progress"_s, u"Idle"_s}));
        const bool silent = misbehaviour == u"Hang"_s;
        QCOMPARE(lab.isRunning(kExpedraClass), silent);
        if (!silent)
            return;
        // Long before the silent program would answer again; a window command to it gives up
        // the same way, without an error.
        QVERIFY2(timer.elapsed() >= kCallTimeoutMs && timer.elapsed() < 10000,
                 qPrintable(QString::number(timer.elapsed())));
        timer.restart();
        automation().ShowWindow(gExpedraWnd, WindowCommand::Show);
        QVERIFY(timer.elapsed() < 10000);
    }

    void linksToThePrograms()
    {
        SimulatedLab lab(kFastLab);
        QVERIFY(lab.isReady() && lab.startConsole());
        QCOMPARE(errorNumber([] { automation().GetObject(kExpedraClass); }),
                 RuntimeError::CannotCreateObject);
        QCOMPARE(errorNumber([] { automation().CreateObject(u"Unknown.Program"_s); }),
                 RuntimeError::CannotCreateObject);
        connectPrograms(0);

        // The lists end with one element that is not part of them.
        QCOMPARE(gExpTitles, (QStringList{u"PROTON"_s, u"CARBON"_s, u"COSY"_s, QString()}));
        QCOMPARE(gSolvents, (QStringList{u"CDCl3"_s, u"D2O"_s, u"DMSO"_s, QString()}));
        // Attaching finds the running program rather than starting another one.
        const qint64 pid = lab.processId(kExpedraClass);
        const auto attached =
            std::dynamic_pointer_cast<Expedra>(automation().GetObject(kExpedraClass));
        QVERIFY(attached);
        QCOMPARE(qint64(attached->GetWindowHandle()), pid);

        // A call the program refuses is an automation error that carries its reason.
        try {
            gExpedra->SetCurrentExperiment(3);
            QFAIL("no error raised");
        } catch (const RuntimeError& error) {
            QCOMPARE(error.number(), RuntimeError::AutomationError);
            QVERIFY2(error.description().contains(u"There is no experiment 3."_s),
                     qPrintable(error.description()));
        }

        // A handle nobody reported reaches no program.
        lab.clearCalls();
        automation().ShowWindow(gExpedraWnd + 1, WindowCommand::Show);
        automation().CloseWindow(gExpedraWnd + 1);
        QVERIFY(lab.calls().isEmpty());

        // A link outlives its program only as an error: the bus does not start a new one.
        gExpedra->Quit();
        QVERIFY(lab.waitUntilGone(kExpedraClass));
        QCOMPARE(errorNumber([] { gExpedra->IsExperimentRunning(); }),
                 RuntimeError::AutomationError);
        QVERIFY(!lab.isRunning(kExpedraClass));
        // Creating it again starts a new process, which the old link does not reach.
        automation().CreateObject(kExpedraClass);
        QVERIFY(lab.isRunning(kExpedraClass));
        QVERIFY(lab.processId(kExpedraClass) != pid);
        lab.clearCalls();
        QCOMPARE(errorNumber([] { gExpedra->IsExperimentRunning(); }),
                 RuntimeError::AutomationError);
        QVERIFY(lab.calls().isEmpty());
    }

    void sampleChangerTakesItsTime()
    {
        SimulatedLab lab("[Changer]\r\nReadySeconds=2\r\nLoadSeconds=0.3\r\nPositions=12\r\n"
                         "SpinRamp=10\r\n");
        QVERIFY(lab.isReady());
        auto changer = std::dynamic_pointer_cast<SampleChanger>(
            automation().CreateObject(kSampleChangerClass));
        QVERIFY(changer);
        QVERIFY(!changer->IsReady());
        QTRY_VERIFY_WITH_TIMEOUT(changer->IsReady(), 10000);

        changer->LoadSample(13); // beyond the carousel
        QVERIFY(changer->IsLoading());
        // A second motion while the first one runs is refused.
        QCOMPARE(errorNumber([&] { changer->EjectSample(); }), RuntimeError::AutomationError);
        QTRY_VERIFY(!changer->IsLoading());
        QVERIFY(changer->GetLoadFailed());
        changer->LoadSample(12);
        QTRY_VERIFY(!changer->IsLoading());
        QVERIFY(!changer->GetLoadFailed());

        // The rate ramps towards the one set, 10 Hz per second, and back down when switched off.
        changer->SetSpinRate(20);
        QCOMPARE(changer->GetActualSpinRate(), 0.0);
        changer->SetSpin(true);
        QTest::qWait(100);
        const double early = changer->GetActualSpinRate();
        QVERIFY2(early > 0 && early < 20, qPrintable(QString::number(early)));
        QTRY_COMPARE(changer->GetActualSpinRate(), 20.0);
        changer->SetSpin(false);
        QTRY_COMPARE(changer->GetActualSpinRate(), 0.0);
    }
};

QTEST_GUILESS_MAIN(TestSimulatedLab)
#include "tst_simulatedlab.moc"
