#include "app/Main.h"
#include "core/SingleInstance.h"
#include "support/ProgramFixture.h"

#include <QLockFile>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

// Expedra and the changer, noting how far the window had come when start-up called them.
struct WindowState {
    bool shown = false;
    bool loginPanelShown = false;
    qint32 rows = -1;
    bool startEnabled = true;
    QString caption;
};

WindowState windowState()
{
    WindowState state;
    if (frmSpinlane* form = MainForm()) {
        state.shown = form->isVisible();
        state.loginPanelShown = form->picLogin->isVisible();
        state.startEnabled = form->cmdStartQueue->isEnabledTo(form->centralWidget());
        state.caption = form->cmdStartQueue->text();
    }
    state.rows = gQueueList.count();
    return state;
}

class WatchedExpedra : public FakeExpedra {
public:
    using FakeExpedra::FakeExpedra;
    QStringList GetSolvents() override
    {
        atSolvents = windowState();
        return FakeExpedra::GetSolvents();
    }
    WindowState atSolvents;
};

class WatchedChanger : public FakeSampleChanger {
public:
    using FakeSampleChanger::FakeSampleChanger;
    bool IsReady() override
    {
        atFirstPoll = atFirstPoll.value_or(windowState());
        return FakeSampleChanger::IsReady();
    }
    std::optional<WindowState> atFirstPoll;
};

} // namespace

class TestStartup : public ProgramTest {
    Q_OBJECT

    QStringList& calls() { return lab().log.calls; }

private Q_SLOTS:
    // Each refusal ends the program before any window. Its boxes are the settings and runner
    // tests'; here the last one names the refusal. The settings file's lock stands for every
    // refusal of the settings load, which the settings tests go through.
    void refusalsEndBeforeAnyWindow_data()
    {
        QTest::addColumn<QString>("refusal");
        QTest::addColumn<QString>("message");
        QTest::newRow("second copy") << u"copy"_s << u"Cannot run two copies of Spinlane"_s;
        // A copy in a session with another runtime folder: only the settings file's lock is held.
        QTest::newRow("second copy on the settings file")
            << u"file"_s << u"Cannot run two copies of Spinlane"_s;
        QTest::newRow("console not running") << u"console"_s << u"Start Korvo application first."_s;
    }
    void refusalsEndBeforeAnyWindow()
    {
        QFETCH(QString, refusal);
        QFETCH(QString, message);
        writeFile(program().iniPath(), settingsFile({{}}));
        QLockFile firstCopy(refusal == u"file"_s ? program().iniPath() + u".lock"_s
                                                 : instanceLockPath());
        if (refusal == u"copy"_s || refusal == u"file"_s)
            QVERIFY(firstCopy.tryLock(0));
        if (refusal != u"copy"_s) {
            seams().messageBoxes.queueAnswer(MsgAnswer::Ok);
            seams().fileDialogs.queueChoice(program().iniPath());
        }
        if (refusal == u"console"_s)
            lab().running.clear();

        QVERIFY(endsProgram([] { Main({}); }));
        QCOMPARE(seams().messageBoxes.texts().last(), message);
        QVERIFY(!MainForm());
        // The settings come before the links: a refused load links nothing.
        QCOMPARE(calls(), refusal == u"console"_s ? QStringList{u"GetObject(Korvo.Application)"_s}
                                                  : QStringList());
        // A second copy reads and asks nothing, and the first one keeps its lock.
        if (refusal == u"copy"_s)
            QVERIFY(seams().messageBoxes.shown.size() == 1 && firstCopy.isLocked());
        if (refusal == u"file"_s)
            QVERIFY(gIniVersion.isEmpty() && firstCopy.isLocked());
    }

    void startsInOrder()
    {
        auto expedra = std::make_shared<WatchedExpedra>(lab().log, "Expedra");
        auto changer = std::make_shared<WatchedChanger>(lab().log, "Changer");
        changer->notReadyPolls = 3;
        lab().expedra = expedra;
        lab().changer = changer;
        seams().settingsStore.setValue(u"Spinlane"_s, u"Position"_s, u"FormTop"_s, u"1500"_s);
        seams().settingsStore.setValue(u"Spinlane"_s, u"Position"_s, u"FormLeft"_s, u"3000"_s);

        frmSpinlane* form = program().start(
            settingsFile({{u"Done"_s}, {u"Idle"_s}}, {{u"Sample Control"_s, u"2"_s},
                                                      {u"Current Queue Num"_s, u"1"_s},
                                                      {u"AlwaysOnTop"_s, u"True"_s},
                                                      {u"Queue Layout"_s, u"2"_s}}));
        QVERIFY(form);
        // The links first (in the runner test's order), then the lists, then the changer polled.
        QCOMPARE(calls().first(), u"GetObject(Korvo.Application)"_s);
        QCOMPARE(calls().mid(calls().size() - 4),
                 (QStringList{u"ShowWindow(202, 0)"_s, u"Expedra.GetExperimentTitles()"_s,
                              u"Expedra.GetSolvents()"_s, u"Changer.IsReady()"_s}));
        QCOMPARE(gExpTitles, expedra->titles);
        QCOMPARE(gSolvents, expedra->solvents);
        QVERIFY(!expedra->atSolvents.shown);

        // The changer is polled with the window prepared but the run button still disabled,
        // until it reports ready.
        QVERIFY(changer->atFirstPoll);
        QVERIFY(changer->atFirstPoll->shown && changer->atFirstPoll->loginPanelShown);
        QCOMPARE(changer->atFirstPoll->rows, 2);
        QCOMPARE(changer->atFirstPoll->caption, kContinueCaption);
        QVERIFY(!changer->atFirstPoll->startEnabled);
        QCOMPARE(changer->notReadyPolls, 0);
        QVERIFY(form->cmdStartQueue->isEnabledTo(form->centralWidget())); // behind the login panel
        QVERIFY(!gStarting);
        // The current item is selected, and the list shows it so.
        QCOMPARE(form->lvwSpinlane->selectionModel()->selectedRows(),
                 QModelIndexList{gQueueList.index(0, 0)});

        QCOMPARE(form->pos(), QPoint(200, 100));
        QVERIFY(form->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(form->menuItem(u"mnuPrefs"_s, 50)->isChecked());
        QVERIFY(form->menuItem(u"mnuQueueLayout"_s, 20)->isChecked());
        QVERIFY(form->menubarMenu(100)->menuAction()->isVisible()); // Help, even logged out
        QCOMPARE(gProgramDrive, u"/"_s);
        QVERIFY(gShowWindow);
    }

    void noWindowIsOnlyRecorded()
    {
        frmSpinlane* form = program().start(settingsFile({{}}), {u"-x"_s, u"/NoWindow"_s});
        QVERIFY(form);
        QVERIFY(!gShowWindow);
        QVERIFY(form->isVisible() && form->picLogin->isVisible());
        QVERIFY(form->cmdStartQueue->isEnabledTo(form->centralWidget()));
    }

    void sampleColumnByMode_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("expQueueOnly");
        QTest::addColumn<bool>("shown");
        QTest::newRow("single-sample interface") << u"1"_s << u"False"_s << false;
        QTest::newRow("sample changer") << u"2"_s << u"False"_s << true;
        QTest::newRow("sample changer, experiments only") << u"2"_s << u"True"_s << false;
        QTest::newRow("no sample handling") << u"0"_s << u"False"_s << true;
    }
    void sampleColumnByMode()
    {
        QFETCH(QString, mode);
        QFETCH(QString, expQueueOnly);
        QFETCH(bool, shown);
        START_PROGRAM({{}}, {{u"Sample Control"_s, mode}, {u"ExpQueueOnly"_s, expQueueOnly}});
        QCOMPARE(form->lvwSpinlane->isColumnHidden(QueueList::SampleNumColumn), !shown);
        QCOMPARE(form->menuItem(u"mnuPrefs"_s, 70)->isVisible(), shown);
        QCOMPARE(form->menuItem(u"mnuPrefs"_s, 20)->isChecked(), expQueueOnly == u"True"_s);
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        click(form->cmdAdd); // the item dialog's sample position follows the same rule
        QCOMPARE(ItemDialog()->txtSampleNum->isVisible(), shown);
        QCOMPARE(ItemDialog()->lblSampleNum->isEnabled(), shown);
    }
};

SPINLANE_GUI_TEST_MAIN(TestStartup)
#include "tst_startup.moc"
