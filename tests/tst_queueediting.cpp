#include "core/Conversions.h"
#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "queue/QueueEditing.h"
#include "queue/QueueReorder.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "queue/StatusBar.h"
#include "support/QueueProbe.h"
#include "support/ScriptedSeams.h"
#include "support/SettingsFiles.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

const QString kInsertQuestion =
    u"Do you want to insert an item?\r\nClick No to add an item at last."_s;

QString deleteQuestion(const QString& row)
{
    return u"Are you sure that you want to delete Spinlane item "_s + row + u'?';
}

} // namespace

class TestQueueEditing : public QObject {
    Q_OBJECT

    std::unique_ptr<ScriptedSeams> m_seams;
    ScriptedSeams& seams() { return *m_seams; }

private Q_SLOTS:
    void init()
    {
        m_seams = std::make_unique<ScriptedSeams>();
        resetQueueState();
        resetEditingState();
        resetSession();
        gCurrentUserID = u"ann"_s; // the owner of the items unless a test says otherwise
        gStatusBar.reset();
    }
    void cleanup() { m_seams.reset(); }

    void newItemPosition()
    {
        struct Case {
            int rows, selected, current;
            const char* answer; // "" when no question may be asked
            int position;
        };
        const Case cases[] = {{0, 0, 0, "", 1},    {1, 1, 0, "Yes", 1}, // one item: before it
                              {1, 1, 1, "Yes", 2}, // unless it is the current one
                              {1, 1, 0, "No", 2},  {3, 1, 0, "Yes", 2}, // after the selected
                              {3, 1, 2, "Yes", 3}, // or after the current
                              {3, 2, 0, "No", 4},  {3, 3, 0, "", 4}}; // the last row asks not
        for (const Case& c : cases) {
            makeQueue(c.rows);
            if (c.selected > 0)
                gQueueList.selectOnly(c.selected);
            gCurrentQueueNum = c.current;
            const QString answer = QString::fromLatin1(c.answer);
            if (!answer.isEmpty())
                seams().messageBoxes.queueAnswer(answer == u"Yes"_s ? MsgAnswer::Yes
                                                                    : MsgAnswer::No);
            seams().messageBoxes.shown.clear();
            QCOMPARE(NewItemPosition(), c.position);
            QCOMPARE(seams().messageBoxes.shown,
                     answer.isEmpty()
                         ? QList<MessageBoxRequest>{}
                         : QList{box(kInsertQuestion, MsgButtons::YesNo, MsgIcon::Question)});
        }
    }

    void queueNumberRule()
    {
        struct Case {
            int rows, current;
            QString typed, shown;
        };
        const Case cases[] = {
            {10, 4, u"3"_s, u"005"_s}, // at or before the current item: after it
            {10, 4, u"25"_s, u"011"_s}, // beyond the end: one after the last row
            {10, 4, u"4.4"_s, u"005"_s}, // deliberate: a fraction compared as shown
            {10, 4, u"6.5"_s, u"007"_s}, // a fraction rounded inside the queue
            {0, 0, u"5"_s, u"001"_s}, // empty queue: the first place
            {2, 7, u"1"_s, u"003"_s}, // current past the end of a damaged file: the end
        };
        for (const Case& c : cases) {
            makeQueue(c.rows);
            gCurrentQueueNum = c.current;
            QCOMPARE(ClampQueueNumber(c.typed), c.shown);
        }
    }

    void serialNumbersFromTheClock()
    {
        // Day number plus the fraction of the day in hundred-thousandths, in plain digits.
        seams().time.setNow(QDateTime(QDate(2000, 1, 1), QTime(12, 0)));
        QCOMPARE(GenerateItemSN(), u"86526"_s); // 36526 + 50000
        seams().time.setNow(QDateTime(QDate(2026, 11, 22), QTime(9, 0)));
        QCOMPARE(GenerateItemSN(), u"83848"_s); // 46348 + 37500
        // Neighbouring days can share a number, as intended.
        seams().time.setNow(QDateTime(QDate(2026, 11, 23), QTime(0, 0, 0, 864)));
        QCOMPARE(GenerateItemSN(), u"46350"_s);
        seams().time.setNow(QDateTime(QDate(2026, 11, 22), QTime(0, 0, 1, 728)));
        QCOMPARE(GenerateItemSN(), u"46350"_s);
    }

    void sampleLookUpFindsTheFirstQueuedItem()
    {
        makeQueue(4);
        gQueue(2).SampleNum = 7;
        gQueue(4).SampleNum = 7;
        QCOMPARE(FirstItemWithSample(7)->ItemSN, u"SN2"_s);
        QVERIFY(!FirstItemWithSample(8));
        // Only the items of the list: the blank record of an empty queue is none.
        makeQueue(0);
        QVERIFY(!FirstItemWithSample(0));
    }

    void newItemsAreInsertedIdleAndSelected()
    {
        QueueItem fields;
        fields.ItemSN = u"NEW"_s;
        fields.Status = u"Done"_s; // never taken over
        fields.ExpTitleIndex = -1; // no experiment chosen: the first

        makeQueue(0);
        CommitNewItem(1, fields);
        QCOMPARE(serials(), QStringList{u"NEW"_s});
        QVERIFY(rowsNumbered());
        QCOMPARE(gQueue(1).Status, u"Idle"_s);
        QCOMPARE(gQueue(1).ExpTitleIndex, qint16(0));

        makeQueue(3, {u"Done"_s, u"Done"_s});
        gQueueList.setSelected(1, true);
        CommitNewItem(2, fields);
        QCOMPARE(serials(), (QStringList{u"SN1"_s, u"NEW"_s, u"SN2"_s, u"SN3"_s}));
        QVERIFY(rowsNumbered());
        const QueueRow& added = gQueueList.row(2);
        QVERIFY(!added.checked && !added.bold && added.selected);
        QCOMPARE(added.subItems[QueueList::StatusSubItem - 1], u"Idle"_s);
        QVERIFY(gQueueList.row(3).checked); // the item that moved down keeps its marks
        QCOMPARE(gQueueList.selectedIndex(), 2);
        QCOMPARE(gQueueList.firstSelectedRow(), 2); // the only selected row

        CommitNewItem(5, fields); // at the end
        QCOMPARE(serials().last(), u"NEW"_s);
        QCOMPARE(gQueueList.selectedIndex(), 5);
    }

    void editingKeepsTheStatusAndMarks()
    {
        makeQueue(3, {u"Done"_s});
        gExpTitles = QStringList{u"PROTON"_s, u"CARBON"_s, u"(end)"_s};
        gQueueList.selectOnly(1);
        QueueItem fields = gQueue(1);
        fields.SampleName = u"Renamed"_s;
        fields.SampleNum = 42;
        fields.ExpTitleIndex = 1;
        fields.Status = u"Idle"_s;
        CommitEditedItem(fields);
        QCOMPARE(gQueue(1).SampleName, u"Renamed"_s);
        QCOMPARE(gQueue(1).Status, u"Done"_s);
        const QueueRow& row = gQueueList.row(1);
        QCOMPARE(row.subItems[QueueList::SampleNumSubItem - 1], u"42"_s);
        QCOMPARE(row.subItems[QueueList::ExpTitleSubItem - 1], u"CARBON"_s);
        QVERIFY(row.checked && row.bold);

        // An experiment the list no longer shows stays the item's own.
        fields.ExpTitleIndex = -1;
        CommitEditedItem(fields);
        QCOMPARE(gQueue(1).ExpTitleIndex, qint16(1));
    }

    void deletingShiftsTheCurrentItem()
    {
        QTemporaryDir dir;
        gIniPath = dir.filePath(u"Spinlane.INI"_s);
        writeFile(gIniPath, settingsFile({{}, {}, {}, {}, {}}, {{u"Current Queue Num"_s, u"4"_s}}));
        makeQueue(5, {u"Done"_s, u"Done"_s, u"Done"_s, u"Stopped"_s});
        gCurrentQueueNum = 4;
        gQueueList.selectOnly(2);
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);

        DeleteSelectedItems();
        QCOMPARE(seams().messageBoxes.shown,
                 QList{box(deleteQuestion(u"002"_s), MsgButtons::YesNo, MsgIcon::Exclamation)});
        QCOMPARE(gCurrentQueueNum, 3);
        QCOMPARE(serials(), serialsOf({1, 3, 4, 5}));
        QVERIFY(rowsNumbered());
        QCOMPARE(gQueueList.selectedIndex(), 2); // the next row takes the selection
        QCOMPARE(gStatusBar.text(StatusBar::SamplePanel), u"Sample 3"_s);
        // The file's queue loses the item at once, and its current number follows.
        QCOMPARE(queueInFile(gIniPath, &QueueItem::ItemSN),
                 (QStringList{u"SN1 SN1"_s, u"SN3 SN3"_s, u"SN4 SN4"_s, u"SN5 SN5"_s}));
        QCOMPARE(ProfileFile::readString(gIniPath, u"General", u"Current Queue Num", {}), u"3"_s);

        // Deleting the current item itself moves the current number back too.
        gQueueList.selectOnly(3);
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
        DeleteSelectedItems();
        QCOMPARE(gCurrentQueueNum, 2);

        // The last item: an empty list and status bar, and one blank record.
        makeQueue(1);
        gStatusBar.setProgress(1, 1);
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
        DeleteSelectedItems();
        QCOMPARE(gQueueList.count(), 0);
        QCOMPARE(gQueue.upperBound(), 1);
        QCOMPARE(gQueue(1), QueueItem{});
        QCOMPARE(gStatusBar.progressValue(), 0); // the empty status bar is the runner's test
    }

    // Whatever moves and additions came since the file was saved, a delete takes exactly the
    // deleted item out of the file: a start from it finds every other saved item, no blank one.
    void deletingKeepsTheFilesOtherItems()
    {
        QTemporaryDir dir;
        gIniPath = dir.filePath(u"Spinlane.INI"_s);
        writeFile(gIniPath, settingsFile({{}, {}, {}, {}}));
        makeQueue(4);
        const auto remove = [this](qint32 row) {
            gQueueList.selectOnly(row);
            seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
            DeleteSelectedItems();
        };
        const auto fileQueue = [] { return queueInFile(gIniPath, &QueueItem::ItemSN); };

        gQueueList.selectOnly(4);
        QVERIFY(MoveSelectedRow(-1) && MoveSelectedRow(-1));
        QCOMPARE(serials(), serialsOf({1, 4, 2, 3}));
        remove(2);
        QCOMPARE(fileQueue(), (QStringList{u"SN1 SN1"_s, u"SN2 SN2"_s, u"SN3 SN3"_s}));

        // An item added in this session is not in the file: deleting it leaves the file alone.
        QueueItem added;
        added.ItemSN = u"NEW"_s;
        added.SavedSection = 7; // a copy of another item's fields does not make it saved
        CommitNewItem(1, added);
        const QByteArray before = readFile(gIniPath);
        remove(1);
        QCOMPARE(readFile(gIniPath), before);

        // The items after a deleted one moved up in the file; later deletes still find theirs.
        gQueueList.selectOnly(3);
        QVERIFY(MoveSelectedRow(-1) && MoveSelectedRow(-1));
        QCOMPARE(serials(), serialsOf({3, 1, 2}));
        remove(3);
        QCOMPARE(fileQueue(), (QStringList{u"SN1 SN1"_s, u"SN3 SN3"_s}));
        remove(1);
        QCOMPARE(fileQueue(), (QStringList{u"SN1 SN1"_s}));
        QCOMPARE(serials(), serialsOf({1}));
    }

    // A declined row is asked for again after each deletion; a refused item ends them.
    void deletionQuestions()
    {
        makeQueue(5);
        gQueueList.selectOnly(2);
        gQueueList.setSelected(4, true);
        for (MsgAnswer answer : {MsgAnswer::No, MsgAnswer::Yes, MsgAnswer::No})
            seams().messageBoxes.queueAnswer(answer);
        DeleteSelectedItems();
        QCOMPARE(seams().messageBoxes.texts(),
                 (QStringList{deleteQuestion(u"002"_s), deleteQuestion(u"004"_s),
                              deleteQuestion(u"002"_s)}));
        QCOMPARE(serials(), serialsOf({1, 2, 3, 5}));
        QVERIFY(!gDeleteDeclined);
        QCOMPARE(gQueueList.selectedIndex(), 2); // the declined row stays selected

        makeQueue(3, {}, {u"ann"_s, u"bob"_s, u"ann"_s});
        for (qint32 row : {1, 2, 3})
            gQueueList.setSelected(row, true);
        seams().messageBoxes.shown.clear();
        seams().messageBoxes.queueAnswer(MsgAnswer::Yes);
        DeleteSelectedItems();
        QCOMPARE(seams().messageBoxes.texts(),
                 (QStringList{deleteQuestion(u"001"_s),
                              u"You do not have permission to perform the action."_s}));
        QCOMPARE(serials(), serialsOf({2, 3}));
    }

    void dragAndDropRules()
    {
        // Rows 1-3 taken, 4-8 waiting, 5 running.
        makeQueue(8, {u"Done"_s, u"Failed"_s, u"Done"_s, u"Idle"_s, u"In progress"_s});
        gCurrentQueueNum = 3;
        QVERIFY(IsPinnedRow(5));
        QVERIFY(!DropTargetAccepts(7, 2)); // across the checked boundary
        QVERIFY(!DropTargetAccepts(4, 5)); // onto the running item
        QVERIFY(DropTargetAccepts(7, 4));

        QVERIFY(DropRow(7, 4)); // up: it takes the target's place
        QCOMPARE(serials(), serialsOf({1, 2, 3, 7, 4, 5, 6, 8}));
        QVERIFY(rowsNumbered());
        QVERIFY(DropRow(3, 1)); // taken items move before the current one
        QCOMPARE(serials(), serialsOf({3, 1, 2, 7, 4, 5, 6, 8}));
        QVERIFY(!DropRow(1, 3)); // but never to it or after it
        QVERIFY(!DropRow(6, 6)); // onto itself
        gCurrentQueueNum = 5;
        QVERIFY(!DropRow(8, 4)); // waiting items stay at or after it
        QCOMPARE(serials(), serialsOf({3, 1, 2, 7, 4, 5, 6, 8}));
    }

    void arrowMoves()
    {
        makeQueue(6, {u"Done"_s, u"Done"_s, u"Idle"_s, u"Idle"_s, u"In progress"_s});
        const auto moved = [](qint32 row, int step) {
            gQueueList.selectOnly(row);
            return MoveSelectedRow(step);
        };
        QVERIFY(!moved(6, +1)); // the last row
        QVERIFY(!moved(1, -1)); // the first row
        QVERIFY(!moved(4, +1)); // next to the running item
        QVERIFY(!moved(6, -1));
        QVERIFY(!moved(2, +1)); // across the check marks
        QCOMPARE(serials(), serialsOf({1, 2, 3, 4, 5, 6}));

        QVERIFY(moved(3, +1));
        QCOMPARE(serials(), serialsOf({1, 2, 4, 3, 5, 6}));
        QCOMPARE(gQueueList.selectedIndex(), 4); // the selection moves with it
        QVERIFY(MoveSelectedRow(-1));
        QVERIFY(moved(2, -1));
        QCOMPARE(serials(), serialsOf({2, 1, 3, 4, 5, 6}));
        QVERIFY(rowsNumbered());

        makeQueue(0);
        QVERIFY(!MoveSelectedRow(+1));
    }

    void typedQueueNumbers()
    {
        makeQueue(6);
        gQueueList.selectOnly(5);
        RenumberSelectedRow(u"1"_s); // beside the old row 1, on the side it came from
        QCOMPARE(serials(), serialsOf({1, 5, 2, 3, 4, 6}));
        gQueueList.selectOnly(1);
        RenumberSelectedRow(u"4.6"_s); // "005", before the old row 5
        QCOMPARE(serials(), serialsOf({5, 2, 3, 1, 4, 6}));
        gQueueList.selectOnly(1);
        RenumberSelectedRow(u"last"_s); // no number: the text sorts after every number
        QCOMPARE(serials(), serialsOf({2, 3, 1, 4, 6, 5}));
        QVERIFY(rowsNumbered());
    }
};

QTEST_GUILESS_MAIN(TestQueueEditing)
#include "tst_queueediting.moc"
