#include "queue/QueueList.h"
#include "queue/QueueStore.h"
#include "runner/RunControls.h"
#include "support/ProgramFixture.h"
#include "ui/ItemDialogControl.h"
#include "ui/QueueView.h"
#include "ui/frmItemDialog.h"
#include "ui/frmSpinlane.h"

#include <QAction>
#include <QGroupBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionViewItem>
#include <QToolButton>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

void click(QWidget* widget) { QTest::mouseClick(widget, Qt::LeftButton); }

QStringList sampleNames()
{
    QStringList result;
    for (qint32 i = 1; i <= gQueueList.count(); ++i)
        result.append(gQueue(i).SampleName);
    return result;
}

QStringList names(std::initializer_list<int> samples)
{
    QStringList result;
    for (int n : samples)
        result.append(u"Sample "_s + QString::number(n));
    return result;
}

QList<QueueEntry> entries(const QStringList& statuses)
{
    QList<QueueEntry> result;
    for (const QString& status : statuses)
        result.append({status});
    return result;
}

} // namespace

class TestListInteraction : public QObject {
    Q_OBJECT

    std::unique_ptr<ProgramFixture> m_program;
    ProgramFixture& program() { return *m_program; }
    ScriptedSeams& seams() { return m_program->seams; }

    frmSpinlane* start(const QList<QueueEntry>& items,
                       const QList<std::pair<QString, QString>>& general = {})
    {
        frmSpinlane* form = program().start(settingsFile(items, general));
        if (form)
            program().logIn(u"ann"_s);
        return form;
    }

    QueueView* list() const { return m_program->form->lvwSpinlane; }
    QWidget* rows() const { return list()->viewport(); }
    QPoint rowPoint(int row) const
    {
        return list()->visualRect(gQueueList.index(row - 1, 1)).center();
    }
    void select(int row) { QTest::mouseClick(rows(), Qt::LeftButton, {}, rowPoint(row)); }

private Q_SLOTS:
    void init() { m_program = std::make_unique<ProgramFixture>(); }
    void cleanup() { m_program.reset(); }

    void editingCommandsNeedAnItem()
    {
        frmSpinlane* form = start({});
        QVERIFY(form);
        click(form->cmdEdit);
        click(form->cmdDelete);
        for (int index : {10, 20, 30})
            form->menuItem(u"mnuFile"_s, index)->trigger();
        for (int index : {5, 10, 20})
            form->menuItem(u"mnuPopup"_s, index)->trigger();
        QVERIFY(!ItemDialog());
        QVERIFY(seams().messageBoxes.shown.isEmpty());

        form->menuItem(u"mnuPopup"_s, 3)->trigger();
        QCOMPARE(ItemDialog()->fraDialog->title(), u"Add Spinlane Item"_s);
        click(ItemDialog()->cmdOK);

        // Each command through its shortcut, its menu item and its popup item.
        form->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(form));
        QTest::keyClick(form, Qt::Key_E, Qt::ControlModifier);
        QCOMPARE(ItemDialog()->fraDialog->title(), u"Edit Selected Item"_s);
        form->menuItem(u"mnuPopup"_s, 20)->trigger();
        QCOMPARE(ItemDialog()->fraDialog->title(), u"Selected Item Properties"_s);
        seams().messageBoxes.queueAnswer(MsgAnswer::No); // "Do you want to insert an item?"
        form->menuItem(u"mnuFile"_s, 5)->trigger();
        QCOMPARE(ItemDialog()->fraDialog->title(), u"Add Spinlane Item"_s);
        ItemDialog()->close();
        seams().messageBoxes.queueAnswer(MsgAnswer::No);
        form->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(form));
        QTest::keyClick(form, Qt::Key_D, Qt::ControlModifier);
        QCOMPARE(seams().messageBoxes.shown.last().text,
                 u"Are you sure that you want to delete Spinlane item 001?"_s);
        QCOMPARE(gQueueList.count(), 1);
    }

    void popupMenuAfterARowClick()
    {
        frmSpinlane* form = start({{}, {}});
        QVERIFY(form);
        QMenu* popup = form->menubarMenu(110);
        QTest::mouseClick(rows(), Qt::RightButton, {}, rowPoint(1));
        QTRY_VERIFY(popup->isVisible());
        QCOMPARE(gQueueList.selectedIndex(), 1);
        popup->hide();

        // Not below the rows.
        QTest::mouseClick(rows(), Qt::RightButton, {}, QPoint(20, rows()->height() - 5));
        QTest::qWait(20);
        QVERIFY(!popup->isVisible());
    }

    void checkMarksBelongToTheRunner()
    {
        frmSpinlane* form = start(entries({u"Done"_s, u"Idle"_s}));
        QVERIFY(form);
        for (int row : {1, 2}) {
            const bool before = gQueueList.row(row).checked;
            // The check box as the style places it in the number cell.
            QStyleOptionViewItem option;
            option.initFrom(rows());
            option.rect = list()->visualRect(gQueueList.index(row - 1, 0));
            option.features =
                QStyleOptionViewItem::HasCheckIndicator | QStyleOptionViewItem::HasDisplay;
            option.text = gQueueList.row(row).text;
            const QRect box = list()->style()->subElementRect(QStyle::SE_ItemViewItemCheckIndicator,
                                                              &option, list());
            QTest::mouseClick(rows(), Qt::LeftButton, {}, box.center());
            QCOMPARE(gQueueList.row(row).checked, before);
            QTest::keyClick(list(), Qt::Key_Space);
            QCOMPARE(gQueueList.row(row).checked, before);
        }
    }

    void draggingRows()
    {
        frmSpinlane* form = start(entries({u"Done"_s, u"Done"_s, u"Done"_s, u"Stopped"_s, u"Idle"_s,
                                           u"Idle"_s, u"Idle"_s, u"Idle"_s}),
                                  {{u"Current Queue Num"_s, u"4"_s}});
        QVERIFY(form);
        const QList unchanged = names({1, 2, 3, 4, 5, 6, 7, 8});
        const auto cursor = [this] { return rows()->cursor().shape(); };

        // Across the checked boundary, and onto the stopped item: refused.
        QTest::mousePress(rows(), Qt::LeftButton, {}, rowPoint(7));
        QTest::mouseMove(rows(), rowPoint(2));
        QVERIFY(list()->isDragging());
        QCOMPARE(list()->dropHighlight(), 0);
        QCOMPARE(cursor(), QueueView::kDropRefusedCursor);
        QTest::mouseMove(rows(), rowPoint(4));
        QCOMPARE(list()->dropHighlight(), 0);
        QTest::mouseRelease(rows(), Qt::LeftButton, {}, rowPoint(4));
        QVERIFY(!list()->isDragging());
        QCOMPARE(sampleNames(), unchanged);
        QCOMPARE(cursor(), Qt::ArrowCursor);

        // Among the waiting items: it lands exactly on the target row.
        QTest::mousePress(rows(), Qt::LeftButton, {}, rowPoint(7));
        QTest::mouseMove(rows(), rowPoint(5));
        QCOMPARE(list()->dropHighlight(), 5);
        QCOMPARE(cursor(), QueueView::kDropAllowedCursor);
        QTest::mouseMove(rows(), QPoint(20, rows()->height() - 5)); // below the rows
        QCOMPARE(list()->dropHighlight(), 0);
        QCOMPARE(cursor(), QueueView::kOutsideRowsCursor);
        QTest::mouseMove(rows(), rowPoint(5));
        QTest::mouseRelease(rows(), Qt::LeftButton, {}, rowPoint(5));
        QCOMPARE(sampleNames(), names({1, 2, 3, 4, 7, 5, 6, 8}));
        QCOMPARE(gQueueList.row(5).text, u"005"_s);

        // A stopped item shows the no-drop pointer and never moves.
        QTest::mousePress(rows(), Qt::LeftButton, {}, rowPoint(4));
        QTest::mouseMove(rows(), rowPoint(6));
        QVERIFY(!list()->isDragging());
        QCOMPARE(cursor(), QueueView::kNoDropCursor);
        QTest::mouseRelease(rows(), Qt::LeftButton, {}, rowPoint(6));
        QCOMPARE(sampleNames(), names({1, 2, 3, 4, 7, 5, 6, 8}));
        QCOMPARE(gQueueList.firstSelectedRow(), 4); // a press selects no range
    }

    void arrowsKeepToTheirSideOfARunningItem()
    {
        frmSpinlane* form = start(entries({u"Idle"_s, u"In progress"_s, u"Idle"_s, u"Idle"_s}),
                                  {{u"Current Queue Num"_s, u"2"_s}});
        QVERIFY(form);
        select(3);
        click(form->updQueueItemUp); // next to the running item
        QCOMPARE(sampleNames(), names({1, 2, 3, 4}));
        click(form->updQueueItemDown);
        QCOMPARE(sampleNames(), names({1, 2, 4, 3}));
        QCOMPARE(list()->currentIndex().row(), 3); // the selection moves with it
    }

    void typingAQueueNumber()
    {
        frmSpinlane* form = start(QList<QueueEntry>(6));
        QVERIFY(form);
        select(5);
        QTest::keyClick(list(), Qt::Key_F2); // edits the number whatever cell has the focus
        auto* editor = rows()->findChild<QLineEdit*>();
        QVERIFY(editor);
        QCOMPARE(editor->text(), u"005"_s);
        editor->selectAll();
        QTest::keyClicks(editor, u"1"_s);
        QTest::keyClick(editor, Qt::Key_Return);
        // "001" sorts beside the old row 1, on the side it came from.
        QTRY_COMPARE(sampleNames(), names({1, 5, 2, 3, 4, 6}));
        QCOMPARE(gQueueList.row(2).text, u"002"_s);
        QCOMPARE(gQueueList.selectedIndex(), 2);
    }

    void headerClickSorts()
    {
        frmSpinlane* form = start({{u"Idle"_s, 1, 0, u"carla"_s},
                                   {u"Idle"_s, 2, 0, u"ann"_s},
                                   {u"Idle"_s, 3, 0, u"bob"_s}});
        QVERIFY(form);
        QHeaderView* header = list()->header();
        const auto clickHeader = [header](int column) {
            QTest::mouseClick(
                header->viewport(), Qt::LeftButton, {},
                QPoint(header->sectionViewportPosition(column) + 5, header->height() / 2));
        };
        const auto texts = [] {
            QStringList result;
            for (qint32 i = 1; i <= gQueueList.count(); ++i)
                result.append(gQueueList.row(i).text);
            return result;
        };

        // Another column orders the rows for the eye only: the run order stays.
        clickHeader(QueueList::UserIDColumn);
        QCOMPARE(texts(), (QStringList{u"002"_s, u"003"_s, u"001"_s}));
        QCOMPARE(sampleNames(), names({1, 2, 3}));
        clickHeader(QueueList::QueueNumColumn);
        QCOMPARE(texts(), (QStringList{u"001"_s, u"002"_s, u"003"_s}));

        gRunControls.setStartQueueCaption(kStopCaption); // not during a run
        clickHeader(QueueList::UserIDColumn);
        QCOMPARE(texts(), (QStringList{u"001"_s, u"002"_s, u"003"_s}));
    }

    void editButtonStaysReachable()
    {
        frmSpinlane* form = start({{}, {}});
        QVERIFY(form);
        QVERIFY(form->cmdEdit->isVisible());
        QCOMPARE(form->cmdEdit->text(), u"&Edit"_s);
        QVERIFY(form->cmdAdd->y() < form->cmdEdit->y()
                && form->cmdEdit->y() < form->cmdDelete->y());
        QCOMPARE(form->cmdEdit->x(), form->cmdAdd->x());

        // The list grows under it; it stays on top and answers clicks.
        form->resize(form->size() + QSize(300, 100));
        QTRY_VERIFY(list()->geometry().contains(form->cmdEdit->geometry()));
        QWidget* client = form->centralWidget();
        QCOMPARE(client->childAt(form->cmdEdit->geometry().center()), form->cmdEdit);
        click(form->cmdEdit);
        QVERIFY(ItemDialog());
    }
};

SPINLANE_GUI_TEST_MAIN(TestListInteraction)
#include "tst_listinteraction.moc"
