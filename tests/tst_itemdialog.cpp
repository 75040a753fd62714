#include "core/Conversions.h"
#include "queue/StatusBar.h"
#include "support/ProgramFixture.h"

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

QStringList entries(const QComboBox* list)
{
    QStringList result;
    for (int i = 0; i < list->count(); ++i)
        result.append(list->itemText(i));
    return result;
}

// The dialog's fields, "|" between them: queue number, serial, status, sample number, name,
// description, experiment index, solvent, user, organization, output file.
QString fields(const frmItemDialog* d)
{
    return QStringList{d->txtSpinlaneNum->text(),
                       d->txtItemSN->text(),
                       d->txtStatus->text(),
                       d->txtSampleNum->text(),
                       d->txtSampleName->text(),
                       d->txtSampleDes->text(),
                       QString::number(d->cboExpList->currentIndex()),
                       d->cboSolList->currentText(),
                       d->txtUserID->text(),
                       d->txtOrg->text(),
                       d->txtOutputFile->text()}
        .join(u'|');
}

const QString kConfigureMessage =
    u"Jump to Expedra program for experiment configurations. \r\n"
    u"After completing each experiment configuration, \r\n"
    u"be sure to click on Finish to save it individually at the end."_s;

} // namespace

class TestItemDialog : public ProgramTest {
    Q_OBJECT

    frmItemDialog* openFromMenu(int index)
    {
        trigger(u"mnuFile"_s, index);
        return ItemDialog();
    }

private Q_SLOTS:
    void addingInsertingAndRestarting()
    {
        START_PROGRAM({});
        form->txtOrg->setText(u"  Chem Lab  "_s);
        seams().time.setNow(QDateTime(QDate(2026, 11, 22), QTime(9, 0)));

        click(form->cmdAdd); // an empty queue: no question
        frmItemDialog* dialog = ItemDialog();
        QVERIFY(dialog && dialog->isVisible() && !dialog->isModal());
        QCOMPARE(dialog->windowTitle(), u"Spinlane Item Dialog"_s);
        QCOMPARE(dialog->fraDialog->title(), u"Add Spinlane Item"_s);
        QCOMPARE(fields(dialog), u"001|83848|Idle||||0||ann|Chem Lab|"_s);
        QVERIFY(!dialog->txtStatus->isEnabled() && dialog->txtUserID->isReadOnly());

        typeInto(dialog->txtSampleName, u"Menthol"_s);
        dialog->cboExpList->setCurrentIndex(1);
        dialog->cboSolList->setCurrentIndex(1);
        dialog->txtOutputFile->setText(u"/data/menthol.kvd"_s);
        click(dialog->cmdOK);
        QVERIFY(!ItemDialog());
        QCOMPARE(recordOf(1), u"83848|0|Menthol||D2O|1|ann|Chem Lab|/data/menthol.kvd|Idle"_s);
        QCOMPARE(form->stbPanels[0]->text(), u"Menthol"_s);

        // Cancel adds nothing (where a new item goes is the core's).
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        click(form->cmdAdd);
        typeInto(ItemDialog()->txtSampleName, u"Dropped"_s);
        click(ItemDialog()->cmdCancel);
        QVERIFY(!ItemDialog());
        QCOMPARE(sampleNames(), QStringList{u"Menthol"_s});
    }

    void queueNumberField()
    {
        START_PROGRAM(QList<QueueEntry>(10), {{u"Current Queue Num"_s, u"4"_s}});
        seams().messageBoxes.queueAnswer(MsgAnswer::No); // row 4 of 10: add at the end
        click(form->cmdAdd);
        frmItemDialog* dialog = ItemDialog();
        QLineEdit* number = dialog->txtSpinlaneNum;
        QCOMPARE(number->text(), u"011"_s);

        typeInto(number, u"3"_s); // the rule's cases are the core's
        QTest::keyClick(number, Qt::Key_Return);
        QCOMPARE(number->text(), u"005"_s);
        QVERIFY(dialog->isVisible()); // Enter presses no button

        // Leaving the field tidies a new item's number too.
        dialog->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(dialog));
        number->setFocus();
        typeInto(number, u"25"_s);
        dialog->txtSampleName->setFocus();
        QCOMPARE(number->text(), u"011"_s);

        // Editing: only Enter tidies the (locked) number; leaving the field does not.
        select(2);
        dialog = openFromMenu(10);
        QCOMPARE(dialog->fraDialog->title(), u"Edit Selected Item"_s);
        dialog->txtSpinlaneNum->setText(u"1"_s);
        QFocusEvent leave(QEvent::FocusOut, Qt::TabFocusReason);
        QApplication::sendEvent(dialog->txtSpinlaneNum, &leave);
        QCOMPARE(dialog->txtSpinlaneNum->text(), u"1"_s);
        dialog->txtSpinlaneNum_KeyPress(13);
        QCOMPARE(dialog->txtSpinlaneNum->text(), u"005"_s);
    }

    void sampleNumberLookUp()
    {
        START_PROGRAM({{u"Idle"_s, 7, 0, u"bob"_s, u"Physics"_s},
                       {u"Idle"_s, 3, 0, u"ann"_s, u"Chem"_s},
                       {u"Idle"_s, 7, 0, u"carla"_s, u"Bio"_s}},
                      {{u"Sample Control"_s, u"2"_s}});
        form->txtOrg->setText(u"Chem Lab"_s);
        click(form->cmdAdd);
        frmItemDialog* dialog = ItemDialog();
        QVERIFY(!dialog->txtSampleNum->isHidden()); // a sample changer and its positions

        QTest::keyClicks(dialog->txtSampleNum, u"7"_s); // the first item of sample 7
        QCOMPARE(fields(dialog), u"004|83849|Idle|7|Sample 1||0||bob|Physics|"_s);

        // Letters cannot be typed, nor a number too large for a position.
        typeInto(dialog->txtSampleNum, u"12x34567890123"_s);
        QCOMPARE(dialog->txtSampleNum->text(), u"123456789"_s);
    }

    void outputFileChoice()
    {
        START_PROGRAM({{}, {}});
        click(form->cmdAdd);
        frmItemDialog* dialog = ItemDialog();
        dialog->txtOutputFile->setText(u"/data/old.kvd"_s);

        seams().fileDialogs.queueChoice({}); // cancelled
        click(dialog->cmdOutputFile);
        const FileDialogRequest request{u"Choose a Location & Enter a File Name:"_s,
                                        u"(*.kvd)|*.kvd|(*.*)|*.*"_s, OverwritePrompt,
                                        korvoPath(u"Data/*.kvd"_s)};
        QCOMPARE(seams().fileDialogs.saved, QList{request});
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(u"No new file was entered."_s, MsgButtons::Ok, MsgIcon::Exclamation)});
        QCOMPARE(dialog->txtOutputFile->text(), QString());

        seams().fileDialogs.queueChoice(u"/data/new.kvd"_s);
        click(dialog->cmdOutputFile);
        QCOMPARE(dialog->txtOutputFile->text(), u"/data/new.kvd"_s);

        // An existing item offers its own file first.
        select(1);
        dialog = openFromMenu(10);
        seams().fileDialogs.queueChoice(u"/data/other.kvd"_s);
        click(dialog->cmdOutputFile);
        QCOMPARE(seams().fileDialogs.saved.last().fileName, u"/data/1.kvd"_s);
        QCOMPARE(dialog->txtOutputFile->text(), u"/data/other.kvd"_s);
    }

    void experimentListsAndConfiguring()
    {
        lab().expedra->lockRequired = {0};
        START_PROGRAM({});
        click(form->cmdAdd);
        frmItemDialog* dialog = ItemDialog();
        // The element at each list's upper bound is never shown.
        QCOMPARE(entries(dialog->cboExpList), (QStringList{u"PROTON"_s, u"CARBON"_s}));
        QCOMPARE(entries(dialog->cboSolList), (QStringList{u"CDCl3"_s, u"D2O"_s}));
        QCOMPARE(dialog->cboExpList->currentIndex(), 0);
        QCOMPARE(dialog->cboSolList->currentIndex(), -1);
        QVERIFY(dialog->lblSolRequired->isVisible());
        QVERIFY(dialog->lblSolSel->font().bold());

        dialog->cboExpList->setCurrentIndex(1);
        QVERIFY(!dialog->lblSolRequired->isVisible());
        QVERIFY(!dialog->lblSolSel->font().bold());
        QCOMPARE(
            lab().log.calls.mid(lab().log.calls.size() - 2),
            (QStringList{u"Expedra.SetCurrentExperiment(1)"_s, u"Expedra.GetLockRequired()"_s}));

        click(dialog->cmdDetail);
        const MessageBoxRequest details{u"CARBON"_s, MsgButtons::Ok, MsgIcon::Information,
                                        u"Details of CARBON"_s};
        QCOMPARE(seams().messageBoxes.shown, QList{details});

        // Configuring in Expedra, and back.
        lab().log.clear();
        click(dialog->cmdConfig);
        QCOMPARE(dialog->cmdConfig->text(), u"Update"_s);
        QCOMPARE(dialog->cmdConfig->toolTip(),
                 u"Click to update the exp. list and/or hide Expedra program."_s);
        QCOMPARE(seams().messageBoxes.shown.last(),
                 box(kConfigureMessage, MsgButtons::Ok, MsgIcon::Exclamation));
        QCOMPARE(lab().log.calls,
                 (QStringList{u"ShowWindow(101, 5)"_s, u"Expedra.SetShown(True)"_s}));

        // Back with a longer list: the chosen position is chosen again.
        lab().expedra->titles = {u"A"_s, u"B"_s, u"C"_s, u"(end)"_s};
        lab().log.clear();
        click(dialog->cmdConfig);
        QCOMPARE(dialog->cmdConfig->text(), u"Configure"_s);
        QCOMPARE(dialog->cmdConfig->toolTip(),
                 u"Jump to Expedra program to configure exp. list."_s);
        QCOMPARE(
            lab().log.calls,
            (QStringList{u"Expedra.SetShown(False)"_s, u"ShowWindow(101, 0)"_s,
                         u"Expedra.GetExperimentTitles()"_s, u"Expedra.SetCurrentExperiment(1)"_s,
                         u"Expedra.GetLockRequired()"_s}));
        QCOMPARE(entries(dialog->cboExpList), (QStringList{u"A"_s, u"B"_s, u"C"_s}));
        QCOMPARE(dialog->cboExpList->currentIndex(), 1);
        QCOMPARE(gExpTitles.size(), 4);

        // Update alone fetches the list; a list shorter than the choice leaves none chosen.
        dialog->cboExpList->setCurrentIndex(2);
        lab().expedra->titles = {u"X"_s, u"(end)"_s};
        lab().log.clear();
        click(dialog->cmdUpdate);
        QCOMPARE(lab().log.calls, QStringList{u"Expedra.GetExperimentTitles()"_s});
        QCOMPARE(entries(dialog->cboExpList), QStringList{u"X"_s});
        QCOMPARE(dialog->cboExpList->currentIndex(), -1);
    }

    // The status bar keeps its design text where there is no title to show.
    void anEmptyExperimentListStoresTheFirstExperiment()
    {
        lab().expedra->titles = {u"(end)"_s};
        START_PROGRAM({{}});
        QCOMPARE(form->stbPanels[0]->text(), u"Sample 1"_s);
        QCOMPARE(form->stbPanels[1]->text(), u"Experiment"_s);
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        click(form->cmdAdd);
        seams().messageBoxes.shown.clear();
        frmItemDialog* dialog = ItemDialog();
        QCOMPARE(dialog->cboExpList->count(), 0);
        click(dialog->cmdDetail);
        QVERIFY(seams().messageBoxes.shown.isEmpty());
        QVERIFY(!lab().log.calls.contains(u"Expedra.SetCurrentExperiment(-1)"_s));
        click(dialog->cmdOK);
        QCOMPARE(gQueue(2).ExpTitleIndex, qint16(0));
        QCOMPARE(gQueueList.row(2).subItems[QueueList::ExpTitleSubItem - 1], QString());
    }

    void leavingWhileConfiguring()
    {
        START_PROGRAM({{}});
        form->menuItem(u"mnuPrefs"_s, 60)->trigger(); // Expedra's window shows the progress

        seams().messageBoxes.queueAnswer(MsgAnswer::No); // one item: at the end
        click(form->cmdAdd);
        click(ItemDialog()->cmdConfig);
        lab().log.clear();
        click(ItemDialog()->cmdOK); // the item, then the list fetched again
        QCOMPARE(gQueueList.count(), 2);
        QCOMPARE(lab().log.calls.mid(0, 2),
                 (QStringList{u"Expedra.SetShown(False)"_s, u"Expedra.GetExperimentTitles()"_s}));
        // Leaving by Cancel or the close box is the dialog's unload, as when the window closes.
    }

    void editingAnItem()
    {
        START_PROGRAM({{u"Idle"_s, 1, 0, u"ann"_s, u"Chem"_s},
                       {u"Done"_s, 2, 1, u"ANN"_s, u"Chem"_s},
                       {u"Idle"_s, 3, 0, u"bob"_s, u"Physics"_s},
                       {u"Idle"_s, 4, 0, QString(), QString()}},
                      {{u"Current Queue Num"_s, u"2"_s}});
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        click(form->cmdAdd);
        QPointer<frmItemDialog> adding = ItemDialog();
        select(2);
        click(form->cmdEdit); // one dialog at a time: the edit replaces the new item's
        frmItemDialog* dialog = ItemDialog();
        QVERIFY(dialog && dialog != adding);
        QTRY_VERIFY(!adding);
        QCOMPARE(form->findChildren<frmItemDialog*>().size(), 1);
        QCOMPARE(dialog->fraDialog->title(), u"Edit Selected Item"_s);
        // The user's own item, whatever the capitals.
        QCOMPARE(fields(dialog), u"002|SN2|Done|2|Sample 2||1|CDCl3|ANN|Chem|/data/2.kvd"_s);
        for (QLineEdit* fixed : {dialog->txtSpinlaneNum, dialog->txtItemSN, dialog->txtStatus})
            QVERIFY(!fixed->isEnabled());
        QVERIFY(dialog->txtUserID->isReadOnly());

        typeInto(dialog->txtSampleName, u"Renamed"_s);
        click(dialog->cmdOK); // what an edit stores and keeps is the core's
        QCOMPARE(gQueueList.row(2).subItems[QueueList::SampleNameSubItem - 1], u"Renamed"_s);

        select(3); // bob's
        click(form->cmdEdit);
        QVERIFY(!ItemDialog());
        QCOMPARE(seams().messageBoxes.shown.last().text,
                 u"You do not have permission to perform the action."_s);

        select(4); // nobody's: an owner may be typed
        click(form->cmdEdit);
        QVERIFY(!ItemDialog()->txtUserID->isReadOnly());
        QTest::keyClick(ItemDialog(), Qt::Key_Escape); // as its close box
        QVERIFY(!ItemDialog());
        QCOMPARE(gQueueList.count(), 4);
    }

    void propertiesView()
    {
        START_PROGRAM({{}, {}, {u"Idle"_s, 3, 0, u"bob"_s}});
        select(3); // another user's item can be looked at
        frmItemDialog* dialog = openFromMenu(30);
        QVERIFY(dialog);
        QCOMPARE(dialog->fraDialog->title(), u"Selected Item Properties"_s);
        QCOMPARE(fields(dialog), u"003|SN3|Idle|3|Sample 3||0|CDCl3|bob|Chem|/data/3.kvd"_s);
        for (QWidget* hidden :
             QList<QWidget*>{dialog->cmdCancel, dialog->cmdConfig, dialog->cmdOutputFile})
            QVERIFY(!hidden->isVisible());
        for (QLineEdit* box : dialog->fraDialog->findChildren<QLineEdit*>())
            QVERIFY2(box->isReadOnly(), qPrintable(box->objectName()));
        QVERIFY(!dialog->cboExpList->isEnabled() && !dialog->cboSolList->isEnabled());

        // Closed by its close box, it selects its item's row again.
        select(1);
        QVERIFY(dialog->close());
        QCOMPARE(gQueueList.selectedIndex(), 3);
        QCOMPARE(form->stbPanels[0]->text(), u"Sample 3"_s);
        QVERIFY(!ItemDialog());
    }

    void deletingFromTheWindow()
    {
        START_PROGRAM(QList<QueueEntry>(5));
        select(2);
        select(4, Qt::ControlModifier);
        QCOMPARE(gQueueList.firstSelectedRow(), 2);
        QCOMPARE(gQueueList.selectedIndex(), 4);
        for (MsgAnswer answer : {MsgAnswer::No, MsgAnswer::Yes, MsgAnswer::No})
            seams().messageBoxes.queueAnswer(answer);
        click(form->cmdDelete); // the questions are the core's
        QCOMPARE(sampleNames(), namesOf({1, 2, 3, 5}));
        // The list shows the one row still selected.
        QCOMPARE(form->lvwSpinlane->selectionModel()->selectedRows(),
                 QModelIndexList{gQueueList.index(1, 0)});
    }
};

SPINLANE_GUI_TEST_MAIN(TestItemDialog)
#include "tst_itemdialog.moc"
