// Spinlane against the simulated laboratory: real programs on a private session bus, started by
// the bus, driven through the D-Bus backend by the real runner on a clock that runs 20 times
// faster than real time.

#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "core/Startup.h"
#include "core/SystemSeams.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "runner/DBusAutomation.h"
#include "runner/ProgramLinks.h"
#include "runner/RunQueue.h"
#include "support/QueueProbe.h"
#include "support/ScaledClock.h"
#include "support/ScriptedSeams.h"
#include "support/SimulatedLab.h"

#include <QElapsedTimer>
#include <QLocale>
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

    // Connects as start-up does, fetching the lists from the set-up program.
    void connectPrograms(qint16 mode)
    {
        gSampleControl = mode;
        ConnectPrograms();
        QVERIFY(gExpedra);
        gExpTitles = gExpedra->GetExperimentTitles();
        gSolvents = gExpedra->GetSolvents();
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
    }

    void cleanup()
    {
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
        QTest::newRow("no sample handling") << qint16(0) << QStringList();
        QTest::newRow("single-sample interface")
            << qint16(1)
            << QStringList{u"Tubelink.GetWindowHandle()"_s, u"Tubelink.CloseWindow()"_s};
        QTest::newRow("sample changer")
            << qint16(2)
            << QStringList{u"Changer.SetVisible(False)"_s, u"Changer.GetWindowHandle()"_s,
                           u"Changer.ShowWindow(0)"_s};
    }
    void connectingInEachMode()
    {
        QFETCH(qint16, mode);
        QFETCH(QStringList, sampleCalls);
        const QString sampleClass = QList{QString(), kTubelinkClass, kSampleChangerClass}[mode];
        SimulatedLab lab(kFastLab);
        QVERIFY(lab.isReady() && lab.startConsole());
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
        QVERIFY(lab.waitUntilGone(kExpedraClass)
                && (mode != 2 || lab.waitUntilGone(kSampleChangerClass)));
        QCOMPARE(lab.isRunning(kTubelinkClass), mode == 1);
        QVERIFY(lab.isRunning(kConsoleClass));
    }

    // A program that stops answering during a run: the call is an automation error after the
    // call's time limit, during which the window goes on handling its events. (A program that
    // dies is tst_statusbus's lost program.)
    void programStopsAnswering()
    {
        SimulatedLab lab(fastLabWith({{u"Expedra"_s, u"Hang"_s, u"IsExperimentRunning:1"_s},
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
        guarded([] { RunQueue(); }); // as every event handler: a run-time error ends the program
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
        QVERIFY(lab.isRunning(kExpedraClass));
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
        SimulatedLab lab(fastLabWith({{u"Tubelink"_s, u"Broken"_s, u"True"_s}}));
        QVERIFY(lab.isReady() && lab.startConsole());
        // Not running, unknown to the bus, or failing to start: no link.
        for (const auto& link : {std::function([] { automation().GetObject(kExpedraClass); }),
                                 std::function([] { automation().CreateObject(u"Unknown.P"_s); }),
                                 std::function([] { automation().CreateObject(kTubelinkClass); })})
            QCOMPARE(errorNumber(link), RuntimeError::CannotCreateObject);
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
        guarded(RunQueue);
        QCOMPARE(statuses(), QStringList{u"Stopped"_s});
        guarded(ContinueQueue);
        QCOMPARE(m_seams->messageBoxes.texts(), QStringList());
        QCOMPARE(statuses(), QStringList{u"Done"_s});
    }

    void sampleChangerTakesItsTime()
    {
        SimulatedLab lab("[Changer]\r\nReadySeconds=2\r\nLoadSeconds=0.3\r\nPositions=12\r\n"
                         "EjectSeconds=0.2\r\nSpinRamp=10\r\nFailLoads=11\r\nFailEjects=12\r\n");
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
        changer->LoadSample(11); // set to fail
        QTRY_VERIFY(!changer->IsLoading());
        QVERIFY(changer->GetLoadFailed());
        changer->LoadSample(12);
        QTRY_VERIFY(!changer->IsLoading());
        QVERIFY(!changer->GetLoadFailed());
        changer->EjectSample(); // set to fail
        QTRY_VERIFY(!changer->IsEjecting());
        QVERIFY(changer->GetEjectFailed());

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
