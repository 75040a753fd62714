#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "support/QueueProbe.h"
#include "support/ScriptedSeams.h"

#include <QAbstractItemModelTester>
#include <QColor>
#include <QSignalSpy>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

class TestQueue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { resetQueueState(); }

    void indexErrorsMarksAndRoles()
    {
        QueueList list;
        QCOMPARE(list.add(), 1);
        QCOMPARE(list.insert(2), 2);
        QCOMPARE(list.insert(1), 1);
        for (qint32 bad : {0, 4}) {
            QCOMPARE(errorNumber([&] { list.row(bad); }), RuntimeError::IndexOutOfBounds);
            QCOMPARE(errorNumber([&] { list.remove(bad); }), RuntimeError::IndexOutOfBounds);
            QCOMPARE(errorNumber([&] { list.subItem(1, bad == 4 ? 7 : 0); }),
                     RuntimeError::IndexOutOfBounds);
        }
        QCOMPARE(errorNumber([&] { list.insert(5); }), RuntimeError::IndexOutOfBounds);
        for (int badKey : {-1, 7})
            QCOMPARE(errorNumber([&] { list.sortByColumn(badKey); }),
                     RuntimeError::InvalidPropertyValue);
        QueueArray queue;
        for (qint32 bad : {0, 2})
            QCOMPARE(errorNumber([&] { queue(bad); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(errorNumber([&] { queue.redim(0); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(errorNumber([&] { queue.redimPreserve(0); }), RuntimeError::SubscriptOutOfRange);
        queue.redim(3);
        queue(3).ItemSN = u"SN3"_s;
        queue.redimPreserve(4);
        QCOMPARE(queue(3).ItemSN, u"SN3"_s);
        queue.redim(4);
        QCOMPARE(queue(3).ItemSN, QString());

        for (qint32 badTag : {0, 4}) {
            makeQueue(3);
            gQueueList.setTag(2, badTag);
            QCOMPARE(errorNumber([] { SyncQueueFromList(0); }), RuntimeError::SubscriptOutOfRange);
        }

        // More rows than records: stopped before anything moves.
        makeQueue(3);
        gQueueList.add();
        QCOMPARE(errorNumber([] { SyncQueueFromList(0); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(texts(), (QStringList{u"001"_s, u"002"_s, u"003"_s, u""_s}));

        // Every mark reaches the views as a change of its whole row.
        QSignalSpy changed(&list, &QAbstractItemModel::dataChanged);
        list.setSubItem(2, QueueList::StatusSubItem, u"Done"_s);
        list.setChecked(2, true);
        list.setBold(2, true);
        list.setGhosted(2, true);
        list.setForeColor(2, 0x00336699);
        list.setSelected(2, true);
        QCOMPARE(changed.size(), 6);
        QCOMPARE(changed.last().at(0).value<QModelIndex>(), list.index(1, 0));
        QCOMPARE(changed.last().at(1).value<QModelIndex>(), list.index(1, 6));

        const QModelIndex marked = list.index(1, 0);
        const QModelIndex plain = list.index(0, 0);
        QCOMPARE(list.data(marked, Qt::CheckStateRole).toInt(), int(Qt::Checked));
        QCOMPARE(list.data(plain, Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
        QVERIFY(!list.data(list.index(1, 1), Qt::CheckStateRole).isValid());
        QCOMPARE(list.data(marked, Qt::ForegroundRole).value<QColor>(), QColor(0x99, 0x66, 0x33));
        QVERIFY(!list.data(plain, Qt::ForegroundRole).isValid()); // window text: the palette's
    }

    void sortIsStableAndIgnoresCase()
    {
        // Hundreds of rows with many texts equal but for case: an unstable sort scrambles them.
        const QStringList words = {u"beta"_s, u"Alpha"_s, u"alpha"_s, u"ALPHA"_s,
                                   u"Beta"_s, u"gamma"_s, u"010"_s,   u"9"_s};
        QueueList list;
        for (qint32 i = 1; i <= 400; ++i) {
            list.setText(list.add(), words.at((i * 7) % words.size()));
            list.setTag(i, i);
        }
        list.sortByColumn(QueueList::QueueNumColumn);
        for (qint32 i = 2; i <= list.count(); ++i) {
            const QueueRow& prev = list.row(i - 1);
            const QueueRow& cur = list.row(i);
            const int cmp = QString::compare(prev.text, cur.text, Qt::CaseInsensitive);
            // Tags hold the rows' places before the sort.
            QVERIFY2(cmp < 0 || (cmp == 0 && prev.tag < cur.tag),
                     qPrintable(u"row %1: %2 before %3"_s.arg(i).arg(prev.text, cur.text)));
        }
    }

    void selectionAndPersistentIndexesFollowTheirRows()
    {
        QueueList list;
        QAbstractItemModelTester tester(&list,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        for (const QString& text : {u"004"_s, u"001"_s, u"005"_s, u"002"_s, u"003"_s}) {
            list.setText(list.add(), text);
            list.setSubItem(list.count(), QueueList::SampleNameSubItem, text + u"-name"_s);
        }
        const QPersistentModelIndex name(list.index(0, QueueList::SampleNameColumn));
        list.setSelected(2, true);
        list.setSelected(4, true);
        list.sortByColumn(0);
        QCOMPARE(name.data().toString(), u"004-name"_s);
        QCOMPARE(list.selectedIndex(), 2);
        QVERIFY(list.row(1).selected); // the earlier selection keeps its mark

        const std::pair<std::function<void()>, qint32> steps[] = {
            {[&] { list.insert(1); }, 3},
            {[&] { list.insert(3); }, 4},
            {[&] { list.insert(6); }, 4},
            {[&] { list.remove(1); }, 3},
            {[&] { list.remove(4); }, 3},
            {[&] { list.setSelected(1, false); }, 3},
            {[&] { list.setSelected(3, false); }, 0},
            {[&] { list.setSelected(2, true); }, 2},
            {[&] { list.remove(2); }, 0},
            {[&] { list.setSelected(1, true); }, 1},
            {[&] { list.clear(); }, 0},
        };
        for (const auto& [step, expected] : steps) {
            step();
            QCOMPARE(list.selectedIndex(), expected);
        }
    }

    void syncRebuildsQueueFromRows()
    {
        // An empty list: not even the sort key is looked at.
        QCOMPARE(errorNumber([] { SyncQueueFromList(99); }), 0);

        // A swap; the record beyond the list stays. Views learn of the new texts.
        makeQueue(2);
        gQueue.redimPreserve(3);
        gQueue(3).ItemSN = u"SN3"_s;
        gQueueList.setText(1, u"002"_s);
        gQueueList.setText(2, u"001"_s);
        QSignalSpy changed(&gQueueList, &QAbstractItemModel::dataChanged);
        SyncQueueFromList(0);
        QCOMPARE(serials() << gQueue(3).ItemSN, serialsOf({2, 1, 3}));
        QVERIFY(rowsNumbered());
        QCOMPARE(changed.size(), 1); // every row, every column
        QCOMPARE(changed.first().at(1).value<QModelIndex>(), gQueueList.index(1, 6));

        // Moves up and down by a neighbour's number: the moved row lands after that neighbour.
        makeQueue(8);
        gQueueList.setText(7, u"004"_s);
        gQueueList.setText(2, u"006"_s);
        SyncQueueFromList(0);
        QCOMPARE(serials(), serialsOf({1, 3, 4, 7, 5, 2, 6, 8}));
        QVERIFY(rowsNumbered());

        // Any other sort key reorders the rows only; the tags still name each row's record.
        makeQueue(3);
        for (const auto& [row, name] : {std::pair{1, u"Zeta"_s}, {2, u"alpha"_s}, {3, u"Mu"_s}})
            gQueueList.setSubItem(row, QueueList::SampleNameSubItem, name);
        SyncQueueFromList(QueueList::SampleNameColumn);
        QCOMPARE(texts(), (QStringList{u"002"_s, u"003"_s, u"001"_s}));
        QCOMPARE(serials(), serialsOf({1, 2, 3}));
        SyncQueueFromList(0);
        QVERIFY(rowsNumbered());

        // Past 999 items the order is the texts': "1000" right after "100".
        makeQueue(1000);
        SyncQueueFromList(0);
        QCOMPARE(serials().mid(99, 3), serialsOf({100, 1000, 101}));
    }

    void populatingTheList()
    {
        const auto load = [](qint32 current) {
            makeQueue(6, {u"Idle"_s, u"In progress"_s, u"Done"_s, u"Failed"_s, u"Stopped"_s,
                          u"Waiting"_s});
            gQueueList.clear();
            gExpTitles = {u"PROTON"_s, u"CARBON"_s, u"COSY"_s};
            for (qint32 i = 1; i <= 6; ++i)
                gQueue(i).ExpTitleIndex = qint16(i % 3);
            gTotalQueueItems = 6;
            gCurrentQueueNum = current;
            PopulateQueueList();
        };

        load(0);
        QCOMPARE(texts(),
                 (QStringList{u"001"_s, u"002"_s, u"003"_s, u"004"_s, u"005"_s, u"006"_s}));
        QVERIFY(rowsNumbered());
        QCOMPARE(gQueueList.row(2).subItems,
                 (std::array<QString, 6>{u"SN2"_s, u"20"_s, u"Sample 2"_s, u"COSY"_s, u"ann"_s,
                                         u"In progress"_s}));
        // Idle and an unknown word ("Waiting") plain, the others checked, bold and coloured.
        QCOMPARE(checkMarks(), (QList<bool>{false, true, true, true, true, false}));
        const quint32 colors[] = {kWindowTextColor, kGreen, kBlue, kRed, kYellow, kWindowTextColor};
        for (qint32 i = 1; i <= 6; ++i) {
            QCOMPARE(gQueueList.row(i).bold, gQueueList.row(i).checked);
            QCOMPARE(gQueueList.row(i).foreColor, colors[i - 1]);
        }
        QCOMPARE(gQueueList.selectedIndex(), 6); // nothing run yet: the last row

        load(2);
        QCOMPARE(gQueueList.selectedIndex(), 2);

        // No item in the file: no row, whatever gQueue holds.
        gQueueList.clear();
        gTotalQueueItems = 0;
        PopulateQueueList();
        QCOMPARE(gQueueList.count(), 0);

        // A title list of one has nothing to show; an index past the end stops the fill.
        resetQueueState();
        gQueue(1).ExpTitleIndex = 5;
        gTotalQueueItems = 1;
        gExpTitles = {u"PROTON"_s};
        PopulateQueueList();
        QCOMPARE(gQueueList.subItem(1, QueueList::ExpTitleSubItem), QString());
        resetQueueState();
        gQueue(1).ExpTitleIndex = 3;
        gExpTitles = {u"PROTON"_s, u"CARBON"_s, u"COSY"_s};
        QCOMPARE(errorNumber(PopulateQueueList), RuntimeError::SubscriptOutOfRange);
    }
};

QTEST_MAIN(TestQueue)
#include "tst_queue.moc"
