#include "support/ProgramFixture.h"

#include <QHeaderView>
#include <QStyle>
#include <QStyleOptionViewItem>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

class TestListInteraction : public ProgramTest {
    Q_OBJECT

    QWidget* rows() const { return list()->viewport(); }

private Q_SLOTS:
    void editingCommandsNeedAnItem()
    {
        START_PROGRAM({});
        click(form->cmdEdit);
        click(form->cmdDelete);
        for (int index : {10, 20, 30})
            trigger(u"mnuFile"_s, index);
        for (int index : {5, 10, 20})
            trigger(u"mnuPopup"_s, index);
        QVERIFY(!ItemDialog());
        QVERIFY(seams().messageBoxes.shown.isEmpty());

        trigger(u"mnuPopup"_s, 3);
        QCOMPARE(ItemDialog()->fraDialog->title(), u"Add Spinlane Item"_s);
        click(ItemDialog()->cmdOK);
        trigger(u"mnuPopup"_s, 20);
        QCOMPARE(ItemDialog()->fraDialog->title(), u"Selected Item Properties"_s);
    }

    void popupMenuAfterARowClick()
    {
        START_PROGRAM({{}, {}});
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
        START_PROGRAM(queueOf({u"Done"_s, u"Idle"_s}));
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
        START_PROGRAM(queueOf({u"Done"_s, u"Done"_s, u"Done"_s, u"Stopped"_s, u"Idle"_s, u"Idle"_s,
                               u"Idle"_s, u"Idle"_s}),
                      {{u"Current Queue Num"_s, u"4"_s}});
        const QList unchanged = namesOf({1, 2, 3, 4, 5, 6, 7, 8});
        const auto cursor = [this] { return rows()->cursor().shape(); };

        // Across the checked boundary: refused (the rule's other cases are the core's).
        QTest::mousePress(rows(), Qt::LeftButton, {}, rowPoint(7));
        QTest::mouseMove(rows(), rowPoint(2));
        QVERIFY(list()->isDragging());
        QCOMPARE(list()->dropHighlight(), 0);
        QCOMPARE(cursor(), QueueView::kDropRefusedCursor);
        QTest::mouseRelease(rows(), Qt::LeftButton, {}, rowPoint(2));
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
        QCOMPARE(sampleNames(), namesOf({1, 2, 3, 4, 7, 5, 6, 8}));

        // A stopped item shows the no-drop pointer and never moves.
        QTest::mousePress(rows(), Qt::LeftButton, {}, rowPoint(4));
        QTest::mouseMove(rows(), rowPoint(6));
        QVERIFY(!list()->isDragging());
        QCOMPARE(cursor(), QueueView::kNoDropCursor);
        QTest::mouseRelease(rows(), Qt::LeftButton, {}, rowPoint(6));
        QCOMPARE(sampleNames(), namesOf({1, 2, 3, 4, 7, 5, 6, 8}));
        QCOMPARE(gQueueList.firstSelectedRow(), 4); // a press selects no range
    }

    void arrowsAndTypedNumbersMoveTheSelectedRow()
    {
        START_PROGRAM(QList<QueueEntry>(6));
        select(3); // the moves refused are the core's
        click(form->updQueueItemDown);
        QCOMPARE(sampleNames(), namesOf({1, 2, 4, 3, 5, 6}));
        QCOMPARE(list()->currentIndex().row(), 3); // the selection moves with it

        select(5);
        QTest::keyClick(list(), Qt::Key_F2); // edits the number whatever cell has the focus
        auto* editor = rows()->findChild<QLineEdit*>();
        QVERIFY(editor);
        QCOMPARE(editor->text(), u"005"_s);
        editor->selectAll();
        QTest::keyClicks(editor, u"1"_s);
        QTest::keyClick(editor, Qt::Key_Return);
        // "001" sorts beside the old row 1, on the side it came from.
        QTRY_COMPARE(sampleNames(), namesOf({1, 5, 2, 4, 3, 6}));
        QCOMPARE(gQueueList.selectedIndex(), 2);
    }

    void headerClickSorts()
    {
        START_PROGRAM({{u"Idle"_s, 1, 0, u"carla"_s},
                       {u"Idle"_s, 2, 0, u"ann"_s},
                       {u"Idle"_s, 3, 0, u"bob"_s}});
        QHeaderView* header = list()->header();
        const auto clickHeader = [header](int column) {
            QTest::mouseClick(
                header->viewport(), Qt::LeftButton, {},
                QPoint(header->sectionViewportPosition(column) + 5, header->height() / 2));
        };

        gRunControls.setStartQueueCaption(kStopCaption); // not during a run
        clickHeader(QueueList::UserIDColumn);
        QCOMPARE(texts(), (QStringList{u"001"_s, u"002"_s, u"003"_s}));

        // Another column orders the rows for the eye only: what that keeps is the core's.
        gRunControls.setStartQueueCaption(kStartCaption);
        clickHeader(QueueList::UserIDColumn);
        QCOMPARE(texts(), (QStringList{u"002"_s, u"003"_s, u"001"_s}));
    }
};

SPINLANE_GUI_TEST_MAIN(TestListInteraction)
#include "tst_listinteraction.moc"
