#include "queue/Session.h"
#include "queue/StatusBar.h"
#include "runner/ProgramLinks.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "support/ProgramFixture.h"
#include "ui/Twips.h"
#include "ui/WindowLayout.h"
#include "ui/frmAbout.h"

#include <QHelpEvent>
#include <QProgressBar>
#include <QRegularExpression>
#include <QStatusBar>
#include <QToolTip>
#include <QTreeView>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

class TestMainWindow : public ProgramTest {
    Q_OBJECT

    int experimentsRun() { return int(lab().log.calls.count(u"Expedra.RunExperiment()"_s)); }

    // The tooltip the list shows over a row, as the pointer resting there asks for it.
    static QString rowToolTip(frmSpinlane* form, int row)
    {
        QTreeView* list = form->lvwSpinlane;
        const QPoint at = list->visualRect(list->model()->index(row, 0)).center();
        QHelpEvent help(QEvent::ToolTip, at, list->viewport()->mapToGlobal(at));
        QCoreApplication::sendEvent(list->viewport(), &help);
        const QString text = QToolTip::isVisible() ? QToolTip::text() : QString();
        QToolTip::hideText();
        return text;
    }

private Q_SLOTS:
    // Each run executes inside the click on the run button; Stop is clicked on the virtual clock
    // while an experiment runs (an item takes about a minute). The window cannot be closed then.
    // What a run does with each item is the runner test's; here each caption's click.
    void runControlsThroughAWholeCycle()
    {
        START_PROGRAM({{}, {}, {}});
        QPushButton* run = form->cmdStartQueue;
        bool closedDuringRun = true;
        QString titleDuringRun;
        QStringList toolTipsDuringRun;
        seams().time.afterMs(30'000, [&] { closedDuringRun = form->close(); });
        seams().time.afterMs(90'000, [&] {
            // Item 1 is done and has taught the forecast its title: the window says when the
            // queue will end, and each row that is still to run when it will start and end.
            titleDuringRun = form->windowTitle();
            for (int row : {0, 2})
                toolTipsDuringRun.append(rowToolTip(form, row));
            click(run);
        });
        QCOMPARE(form->windowTitle(), u"Spinlane"_s); // no run: nothing expected yet
        click(run);
        QVERIFY(!closedDuringRun && form->isVisible());
        const QString clock = u"\\d\\d:\\d\\d"_s;
        QVERIFY2(QRegularExpression(u"^Spinlane - queue expected to end "_s + clock + u"$"_s)
                     .match(titleDuringRun)
                     .hasMatch(),
                 qPrintable(titleDuringRun));
        QCOMPARE(toolTipsDuringRun.value(0), QString()); // done: the run skips it
        QVERIFY2(QRegularExpression(u"^Expected start "_s + clock + u", expected end "_s + clock
                                    + u"$"_s)
                     .match(toolTipsDuringRun.value(1))
                     .hasMatch(),
                 qPrintable(toolTipsDuringRun.value(1)));
        QCOMPARE(form->windowTitle(), u"Spinlane"_s); // stopped: no run goes on
        QCOMPARE(statuses(), (QStringList{u"Done"_s, u"Stopped"_s, u"Idle"_s}));
        QCOMPARE(run->text(), u"Continue Spinlane!"_s);
        QVERIFY(form->cmdStartOver->isVisible());
        QCOMPARE(form->pgbSpinlane->value(), 2);
        QCOMPARE(form->pgbSpinlane->maximum(), 3);

        click(run); // Continue: the stopped item again, then the rest
        click(run); // every item is done: each is skipped
        QCOMPARE(experimentsRun(), 4);
        QCOMPARE(run->toolTip(), u"Only to complete the failed items."_s);

        click(form->cmdStartOver);
        for (qint32 i = 1; i <= 3; ++i) {
            const QueueRow& row = gQueueList.row(i);
            QVERIFY(!row.checked && !row.bold && !row.ghosted && row.foreColor == kWindowTextColor);
        }
        QCOMPARE(statuses(), (QStringList{u"Idle"_s, u"Idle"_s, u"Idle"_s}));
        QCOMPARE(run->text() + run->toolTip(), u"Start Spinlane!"_s);
        QCOMPARE(form->pgbSpinlane->value(), 0);
        click(run); // from item 1 again
        QCOMPARE(experimentsRun(), 7);
    }

    // Left open while the user configures experiments, the item dialog hands Expedra back first.
    void exitUnloadsTheDialogAndSavesTheWindowPosition()
    {
        START_PROGRAM({});
        form->move(300, 150);
        click(form->cmdAdd);
        click(ItemDialog()->cmdConfig);
        lab().log.clear();
        trigger(u"mnuFile"_s, 50);
        QCOMPARE(seams().programEnd.ends, 1);
        QVERIFY(!ItemDialog());
        QCOMPARE(lab().log.calls, (QStringList{u"Expedra.SetShown(False)"_s,
                                               u"ShowWindow(101, 0)"_s, u"Expedra.Quit()"_s}));
        QCOMPARE(seams().settingsStore.values.value(u"Spinlane/Position/FormLeft"_s), u"4500"_s);
        QCOMPARE(seams().settingsStore.values.value(u"Spinlane/Position/FormTop"_s), u"2250"_s);
    }

    void runEntireQueueCheckBox()
    {
        START_PROGRAM({{u"Done"_s}, {}, {}}, {{u"Current Queue Num"_s, u"1"_s}});
        click(form->chkEntireQueue);
        QCOMPARE(checkMarks(), (QList<bool>{true, true, true}));
        QCOMPARE(form->pgbSpinlane->maximum(), 3);
        click(form->chkEntireQueue);
        QCOMPARE(checkMarks(), (QList<bool>{false, false, false}));
        QCOMPARE(form->pgbSpinlane->maximum(), 1);

        // After a finished run the box changes no row.
        gRunControls.setStartQueueCaption(kRunAgainCaption);
        click(form->chkEntireQueue);
        QCOMPARE(checkMarks(), (QList<bool>{false, false, false}));
    }

    void loggingInAndOut()
    {
        START_PROGRAM(
            {{u"Idle"_s, 1, 0, u"bob"_s, u"Physics"_s}, {u"Idle"_s, 1, 0, u"Bob"_s, u"X"_s}},
            {{u"Password"_s, u"Secret"_s}}, {});
        QMenu* file = form->menubarMenu(10);
        QMenu* prefs = form->menubarMenu(20);

        // The organization comes from the user's first item, whatever the capitals.
        form->txtUserID->setText(u"BOB"_s);
        QCOMPARE(form->txtOrg->text(), u"Physics"_s);
        QVERIFY(!form->txtPW->isEnabled());
        form->txtUserID->setText(u"zed"_s);
        QCOMPARE(form->txtOrg->text(), QString());

        program().logIn(u"Administrator"_s, u"wrong"_s);
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(u"Wrong password!"_s, MsgButtons::Ok, MsgIcon::Critical)});
        QVERIFY(form->picLogin->isVisible());
        QVERIFY(!file->menuAction()->isVisible());
        QCOMPARE(gCurrentUserID, QString());

        program().logIn(u"Administrator"_s, u"sECRET"_s);
        QVERIFY(form->lblPW->isEnabled() && form->txtPW->isEnabled());
        QVERIFY(!form->picLogin->isVisible());
        QVERIFY(file->menuAction()->isVisible() && prefs->menuAction()->isVisible());
        QCOMPARE(gCurrentUserID, u"Administrator"_s);
        QCOMPARE(form->menuItem(u"mnuFile"_s, 46)->text(), u"Log out Administrator"_s);
        QVERIFY(HasPermission()); // the selected item is Bob's

        trigger(u"mnuFile"_s, 46); // what the panel shuts off: nothingBehindTheLoginPanelActs
        QCOMPARE(form->menuItem(u"mnuFile"_s, 46)->text(), u"Log out "_s);
        QCOMPARE(gCurrentUserID, u"Administrator"_s);
        QCOMPARE(form->txtUserID->text(), u"Administrator"_s);

        // A blank before the name: the password box opens while typing, but no password is
        // asked and the user is no administrator.
        form->txtUserID->setText(u" administrator"_s);
        QVERIFY(form->txtPW->isEnabled());
        form->txtPW->setText(u"anything"_s);
        QTest::keyClick(form->txtPW, Qt::Key_Return);
        QVERIFY(!form->picLogin->isVisible());
        QCOMPARE(gCurrentUserID, u" administrator"_s);
        QCOMPARE(form->menuItem(u"mnuFile"_s, 46)->text(), u"Log out  administrator"_s);
        seams().messageBoxes.shown.clear();
        QVERIFY(!HasPermission());
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(u"You do not have permission to perform the action."_s, MsgButtons::Ok,
                           MsgIcon::Exclamation)});
    }

    // Before the first login and after a logout, no key or click reaches the window behind the
    // panel; logged in, the same routes act.
    void nothingBehindTheLoginPanelActs()
    {
        START_PROGRAM({{}, {}}, {}, {});
        QMenu* popup = form->menubarMenu(110);
        const auto tryEveryRoute = [&] {
            form->activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(form));
            for (auto [key, button] :
                 {std::pair{Qt::Key_A, form->cmdAdd}, std::pair{Qt::Key_E, form->cmdEdit},
                  std::pair{Qt::Key_D, form->cmdDelete}}) {
                QTest::keyClick(form, key, Qt::AltModifier);
                QVERIFY(!button->isDown()); // a mnemonic presses at once, clicks 100 ms later
            }
            for (Qt::Key key : {Qt::Key_A, Qt::Key_E, Qt::Key_D, Qt::Key_P, Qt::Key_T})
                QTest::keyClick(form, key, Qt::ControlModifier);
            for (int i = 0; i < 12; ++i) { // Space would press whatever Tab reached
                QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
                QVERIFY2(form->fraLogin->isAncestorOf(QApplication::focusWidget()),
                         qPrintable(QApplication::focusWidget()->objectName()));
            }
            QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, rowPoint(1));
            QTest::mouseDClick(list()->viewport(), Qt::LeftButton, {}, rowPoint(1));
            QTest::mouseClick(list()->viewport(), Qt::RightButton, {}, rowPoint(1));
            QTest::qWait(20); // a popup would show on the next pass of the event loop
            QVERIFY(!ItemDialog() && !popup->isVisible());
            QVERIFY(seams().messageBoxes.shown.isEmpty());
            QCOMPARE(gQueueList.selectedIndex(), 2);
            QCOMPARE(gQueueLayout, 1);
        };
        tryEveryRoute();
        if (QTest::currentTestFailed())
            return;

        program().logIn(u"ann"_s);
        select(1);
        QCOMPARE(gQueueList.selectedIndex(), 1);
        QTest::keyClick(form, Qt::Key_T, Qt::ControlModifier);
        QCOMPARE(gQueueLayout, 2);
        QVERIFY(form->menuItem(u"mnuQueueLayout"_s, 20)->isChecked());
        QVERIFY(!form->menuItem(u"mnuQueueLayout"_s, 10)->isChecked());
        QTest::keyClick(form, Qt::Key_E, Qt::ControlModifier);
        QVERIFY(ItemDialog());
        ItemDialog()->close();

        trigger(u"mnuFile"_s, 46);
        trigger(u"mnuQueueLayout"_s, 10);
        gQueueList.selectOnly(2);
        tryEveryRoute();
    }

    void logPreference()
    {
        START_PROGRAM({{}});
        QAction* enableLog = form->menuItem(u"mnuPrefs"_s, 30);

        seams().fileDialogs.queueChoice({}); // cancelled: the file dialog remembers nothing
        enableLog->trigger();
        QVERIFY(!enableLog->isChecked());
        QVERIFY(!gLogOn);
        // "Spinlane.log" is proposed beside the settings file until a log has been chosen.
        const auto logDialog = [](const QString& folder) {
            return FileDialogRequest{u"Set Log File"_s, u"(*.log)|*.log|(*.*)|*.*"_s, CreatePrompt,
                                     QDir(folder).filePath(u"Spinlane.log"_s)};
        };
        QCOMPARE(seams().fileDialogs.opened, QList{logDialog(QFileInfo(gIniPath).absolutePath())});

        // A name without ".log" gets it; a file of that name is appended to on No.
        const QString chosen = program().path(u"run.txt"_s);
        writeFile(chosen + u".log"_s, "old run\r\n");
        seams().fileDialogs.queueChoice(chosen);
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        enableLog->trigger();
        QVERIFY(enableLog->isChecked() && gLogOn);
        QCOMPARE(gLogFile, chosen + u".log"_s);
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(u"File already exists. Click Yes to overwirte or No to append."_s,
                           MsgButtons::YesNo, MsgIcon::None)});
        WriteDoneBanner();
        QVERIFY(readFile(gLogFile).startsWith("old run\r\n[Done Spinlane at "));

        enableLog->trigger(); // off: the file is closed
        QVERIFY(!gLogOn);
        QCOMPARE(errorNumber(WriteDoneBanner), RuntimeError::BadFileNameOrNumber);
        seams().fileDialogs.queueChoice({}); // on again: proposed in the chosen log's folder
        enableLog->trigger();
        QVERIFY(!gLogOn);
        QCOMPARE(seams().fileDialogs.opened.last(), logDialog(QFileInfo(chosen).absolutePath()));

        trigger(u"mnuPrefs"_s, 40);
        QCOMPARE(seams().desktopPrograms.shownFiles, QStringList{chosen + u".log"_s});
        QVERIFY(QFile::remove(gLogFile));
        trigger(u"mnuPrefs"_s, 40);
        QCOMPARE(gLogFile, QString());
        QCOMPARE(seams().desktopPrograms.shownFiles.size(), 1);
    }

    void expQueueOnlyWithTheSampleChanger()
    {
        START_PROGRAM({{}}, {{u"Sample Control"_s, u"2"_s}});
        QAction* expQueueOnly = form->menuItem(u"mnuPrefs"_s, 20);
        QAction* showChanger = form->menuItem(u"mnuPrefs"_s, 70);

        expQueueOnly->trigger(); // the links it drops and makes again are the runner test's
        QVERIFY(gExpQueueOnly);
        QVERIFY(form->lvwSpinlane->isColumnHidden(QueueList::SampleNumColumn));
        QVERIFY(!showChanger->isVisible());

        // Off again: a new link, and the run waits until the changer is ready.
        lab().changer->notReadyPolls = 50;
        QString shownWhileWaiting;
        bool enabledWhileWaiting = true;
        seams().time.afterMs(1500, [&] { // after the second it takes to link Expedra
            shownWhileWaiting = form->stbPanels[3]->text();
            enabledWhileWaiting = form->cmdStartQueue->isEnabled();
        });
        expQueueOnly->trigger();
        QVERIFY(!gExpQueueOnly);
        QCOMPARE(shownWhileWaiting, u"Waiting for Sample Changer ready..."_s);
        QVERIFY(!enabledWhileWaiting);
        QCOMPARE(lab().changer->notReadyPolls, 0);
        QCOMPARE(form->stbPanels[3]->text(), u"Sample Changer ready."_s);
        QVERIFY(form->cmdStartQueue->isEnabled());
        QVERIFY(!form->lvwSpinlane->isColumnHidden(QueueList::SampleNumColumn));
        QVERIFY(form->lvwSpinlane->columnWidth(QueueList::SampleNumColumn)
                >= hundredthsMmToPixels(1100, form));
        QVERIFY(showChanger->isVisible());
    }

    void windowPreferences()
    {
        START_PROGRAM({{}, {u"Idle"_s, 4, 2}}, {{u"Sample Control"_s, u"2"_s}});

        // Saving the preference is the recovery test's, staying shown the desktop test's.
        trigger(u"mnuPrefs"_s, 50);
        QVERIFY(form->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        click(form->cmdAdd); // the item dialog stays on top as the window does
        QVERIFY(ItemDialog()->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        click(ItemDialog()->cmdCancel);
        lab().log.clear();
        trigger(u"mnuPrefs"_s, 50);
        QVERIFY(!form->windowFlags().testFlag(Qt::WindowStaysOnTopHint));

        for (int index : {60, 60, 70, 70}) // 60: the selected item's experiment, for watching
            trigger(u"mnuPrefs"_s, index);
        QCOMPARE(actions(lab().log.calls),
                 (QStringList{u"Expedra.SetCurrentExperiment(2)"_s,
                              u"Expedra.SetSampleInfo(ann|Chem|Sample 2\\r\\n|)"_s,
                              u"Expedra.SetOutputFile(/data/2.kvd)"_s, u"ShowWindow(101, 5)"_s,
                              u"Expedra.SetShown(False)"_s, u"ShowWindow(101, 0)"_s,
                              u"ShowWindow(202, 5)"_s, u"Changer.SetShown(True)"_s,
                              u"ShowWindow(202, 0)"_s}));
    }

    void resizeRules()
    {
        START_PROGRAM({{}}, {}, {});
        const auto geometries = [form] {
            QList<QRect> result;
            const QList<QWidget*> controls{
                form->lvwSpinlane, form->chkEntireQueue, form->cmdStartQueue, form->cmdStartOver,
                form->cmdAdd,      form->cmdDelete,      form->updQueueItem,  form->cmdEdit};
            for (QWidget* w : controls)
                result.append(w->geometry());
            return result;
        };
        const QList<QRect> design = geometries();
        const QSize designSize = form->size();
        QCOMPARE(twipsToPixels(gListWidthSlack, form), designSize.width() - list()->width());

        for (const QSize change : {QSize(160, 90), QSize(-120, -60)}) {
            form->resize(designSize + change);
            QTRY_COMPARE(list()->size(), design[0].size() + change);
            const QList<QRect> now = geometries();
            for (int i : {1, 2, 3}) // below the list: follow its bottom
                QCOMPARE(now[i], design[i].translated(0, change.height()));
            for (int i : {4, 5, 6}) // right of the list: follow its right edge
                QCOMPARE(now[i], design[i].translated(change.width(), 0));
            QCOMPARE(now[7], design[7]); // the Edit button stays
            QCOMPARE(form->picLogin->size(),
                     QSize(form->width() + twipsToPixels(200, form), form->height()));
            const QRect frame = form->fraLogin->geometry();
            QVERIFY(qAbs(frame.center().x() - form->width() / 2) <= 1);
            QVERIFY(qAbs(frame.center().y() - (form->height() / 2 - twipsToPixels(500, form)))
                    <= 1);
        }

        // Smaller than the window less the list: nothing moves.
        const QList<QRect> before = geometries();
        const QSize tooSmall(designSize.width() - design[0].width() - 20, 200);
        form->resize(tooSmall);
        QTRY_COMPARE(form->size(), tooSmall);
        QCOMPARE(geometries(), before);

        // Logged in, the Edit button stays on top of the list grown under it and answers clicks.
        program().logIn(u"ann"_s);
        form->resize(designSize + QSize(300, 100));
        QTRY_VERIFY(list()->geometry().contains(form->cmdEdit->geometry()));
        QCOMPARE(form->centralWidget()->childAt(form->cmdEdit->geometry().center()), form->cmdEdit);
        click(form->cmdEdit);
        QVERIFY(ItemDialog());
    }

    void statusBarAndAboutBox()
    {
        START_PROGRAM({{}});
        QStatusBar* bar = form->statusBar();
        const QRect progress(form->pgbSpinlane->mapTo(bar, QPoint()), form->pgbSpinlane->size());
        QVERIFY(bar->rect().contains(progress));
        QVERIFY(form->stbPanels[2]->geometry().contains(progress));
        gStatusBar.setText(StatusBar::SpinPanel, u"Spin on: 20.0"_s);
        QCOMPARE(form->stbPanels[4]->text(), u"Spin on: 20.0"_s);

        trigger(u"mnuHelp"_s, 10);
        auto* about = form->findChild<frmAbout*>(u"frmAbout"_s);
        QVERIFY(about);
        QTRY_VERIFY(about->isVisible());
        QVERIFY(about->lblVersion->text().contains(gExeVersion));
        QVERIFY(!about->cmdSysInfo->isEnabled()); // no tool on this platform
        click(about->cmdOK);
        QTRY_VERIFY(!form->findChild<frmAbout*>(u"frmAbout"_s));

        seams().desktopPrograms.tool = u"/usr/bin/sysinfo-tool"_s;
        trigger(u"mnuHelp"_s, 10);
        about = form->findChild<frmAbout*>(u"frmAbout"_s);
        QVERIFY(about && about->cmdSysInfo->isEnabled());
        click(about->cmdSysInfo);
        QCOMPARE(seams().desktopPrograms.started, QStringList{u"/usr/bin/sysinfo-tool"_s});
    }
};

SPINLANE_GUI_TEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
