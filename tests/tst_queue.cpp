#include "app/Conversions.h"
#include "app/RuntimeError.h"
#include "queue/QueueStore.h"

#include <QAbstractItemModelTester>
#include <QColor>
#include <QFont>
#include <QSet>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace spinlane;

namespace {

template <typename F> qint32 errorNumber(F&& action)
{
    try {
        action();
    } catch (const RuntimeError& error) {
        return error.number();
    }
    return 0;
}

QueueItem record(qint32 i)
{
    const QString n = QString::number(i);
    return {u"SN"_s + n, i, u"Sample "_s + n, u"Des "_s + n, u"CDCl3"_s, qint16(i % 5),
            u"user"_s + n, u"Org "_s + n, u"/data/"_s + n + u".kvd"_s, u"Idle"_s};
}

// A consistent queue of records SN1..SNn and their rows.
void fillQueue(qint32 n)
{
    gQueueList.clear();
    gQueue.redim(n);
    for (qint32 i = 1; i <= n; ++i) {
        gQueue(i) = record(i);
        gQueueList.setText(gQueueList.add(), formatQueueNumber(i));
        gQueueList.setTag(i, i);
        gQueueList.setSubItem(i, QueueList::ItemSNSubItem, gQueue(i).ItemSN);
    }
}

QStringList serials()
{
    QStringList result;
    for (qint32 i = 1; i <= gQueue.upperBound(); ++i)
        result.append(gQueue(i).ItemSN);
    return result;
}

QStringList texts(const QueueList& list)
{
    QStringList result;
    for (qint32 i = 1; i <= list.count(); ++i)
        result.append(list.row(i).text);
    return result;
}

// Every row i reads formatQueueNumber(i) and carries tag i.
bool rowsNumbered()
{
    for (qint32 i = 1; i <= gQueueList.count(); ++i) {
        if (gQueueList.row(i).text != formatQueueNumber(i) || gQueueList.row(i).tag != i)
            return false;
    }
    return true;
}

} // namespace

class TestQueue : public QObject {
    Q_OBJECT

    std::unique_ptr<QAbstractItemModelTester> m_tester;

    void watchQueueList()
    {
        m_tester = std::make_unique<QAbstractItemModelTester>(
            &gQueueList, QAbstractItemModelTester::FailureReportingMode::QtTest);
    }

private Q_SLOTS:
    void init()
    {
        resetQueueState();
        watchQueueList();
    }
    void cleanup() { m_tester.reset(); }

    void queueItemAndArray()
    {
        for (int field = 0; field < 10; ++field) {
            QueueItem other = record(1);
            QString* texts[] = {&other.ItemSN, &other.SampleName, &other.SampleDes, &other.Solvent,
                                &other.UserID, &other.Organization, &other.OutputFilePath,
                                &other.Status};
            if (field == 8)
                ++other.SampleNum;
            else if (field == 9)
                ++other.ExpTitleIndex;
            else
                texts[field]->append(u'x');
            QVERIFY2(other != record(1), qPrintable(QString::number(field)));
        }
        QVERIFY(record(1) == record(1));

        QueueArray queue;
        QCOMPARE(queue.upperBound(), 1);
        QCOMPARE(queue(1), QueueItem());
        QCOMPARE(errorNumber([&] { queue(0); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(errorNumber([&] { queue(2); }), RuntimeError::SubscriptOutOfRange);
        queue.redim(3);
        queue(3) = record(3);
        queue(1) = record(1);
        queue.redimPreserve(5);
        QCOMPARE(queue(3), record(3));
        QCOMPARE(queue(4), QueueItem());
        queue.redimPreserve(2);
        QCOMPARE(queue(1), record(1));
        QCOMPARE(errorNumber([&] { std::as_const(queue)(3); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(errorNumber([&] { queue.redim(0); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(errorNumber([&] { queue.redimPreserve(-1); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(queue.upperBound(), 2);
        queue.redim(2);
        QCOMPARE(queue(1), QueueItem());

        fillQueue(4);
        gQueueList.setSelected(2, true);
        gCurrentQueueNum = 3;
        gExpTitles = gSolvents = QStringList{u"PROTON"_s, u""_s};
        resetQueueState();
        QCOMPARE(gQueue.upperBound(), 1);
        QCOMPARE(gQueue(1), QueueItem());
        QCOMPARE(gQueueList.count(), 0);
        QCOMPARE(gQueueList.selectedIndex(), 0);
        QCOMPARE(gCurrentQueueNum, 0);
        QVERIFY(gExpTitles.isEmpty() && gSolvents.isEmpty());
    }

    void listRowApiAndMarks()
    {
        QueueList list;
        QCOMPARE(list.add(), 1);
        QCOMPARE(list.insert(2), 2);
        QCOMPARE(list.insert(1), 1);
        for (qint32 bad : {0, 4}) {
            QCOMPARE(errorNumber([&] { list.row(bad); }), RuntimeError::IndexOutOfBounds);
            QCOMPARE(errorNumber([&] { list.remove(bad); }), RuntimeError::IndexOutOfBounds);
            QCOMPARE(errorNumber([&] { list.setSelected(bad, true); }),
                     RuntimeError::IndexOutOfBounds);
            QCOMPARE(errorNumber([&] { list.subItem(1, bad == 4 ? 7 : 0); }),
                     RuntimeError::IndexOutOfBounds);
        }
        QCOMPARE(errorNumber([&] { list.insert(5); }), RuntimeError::IndexOutOfBounds);
        QCOMPARE(errorNumber([&] { list.setSubItem(1, 7, u"x"_s); }),
                 RuntimeError::IndexOutOfBounds);
        QCOMPARE(errorNumber([&] { list.sortByColumn(7); }), RuntimeError::InvalidPropertyValue);
        QCOMPARE(errorNumber([&] { list.sortByColumn(-1); }), RuntimeError::InvalidPropertyValue);
        QCOMPARE(list.count(), 3);
        QCOMPARE(list.selectedIndex(), 0);

        QSignalSpy changed(&list, &QAbstractItemModel::dataChanged);
        list.setText(2, u"002"_s);
        list.setTag(2, 7);
        list.setSubItem(2, QueueList::StatusSubItem, u"Done"_s);
        list.setChecked(2, true);
        list.setBold(2, true);
        list.setGhosted(2, true);
        list.setForeColor(2, kBlue);
        list.setSelected(2, true);
        QCOMPARE(changed.size(), 8);
        for (const QList<QVariant>& args : changed) {
            QCOMPARE(args.at(0).value<QModelIndex>(), list.index(1, 0));
            QCOMPARE(args.at(1).value<QModelIndex>(), list.index(1, QueueList::ColumnCount - 1));
        }

        const QModelIndex marked = list.index(1, 0);
        const QModelIndex plain = list.index(0, 0);
        QCOMPARE(list.data(marked).toString(), u"002"_s);
        QCOMPARE(list.data(list.index(1, QueueList::StatusColumn)).toString(), u"Done"_s);
        QCOMPARE(list.data(marked, Qt::CheckStateRole).toInt(), int(Qt::Checked));
        QCOMPARE(list.data(plain, Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
        QVERIFY(!list.data(list.index(1, 1), Qt::CheckStateRole).isValid());
        QVERIFY(list.data(list.index(1, 3), Qt::FontRole).value<QFont>().bold());
        QVERIFY(!list.data(plain, Qt::FontRole).isValid());
        QCOMPARE(list.data(marked, Qt::ForegroundRole).value<QColor>(), QColor(0, 0, 255));
        QVERIFY(!list.data(plain, Qt::ForegroundRole).isValid()); // window text: the palette's
        list.setForeColor(1, 0x00336699);
        QCOMPARE(list.data(plain, Qt::ForegroundRole).value<QColor>(), QColor(0x99, 0x66, 0x33));
        QCOMPARE(list.data(marked, QueueList::TagRole).toInt(), 7);
        QCOMPARE(list.data(marked, QueueList::SelectedRole).toBool(), true);
        QCOMPARE(list.data(marked, QueueList::GhostedRole).toBool(), true);
        QCOMPARE(list.data(marked, QueueList::ForeColorRole).toUInt(), kBlue);

        QStringList headers;
        for (int c = 0; c < list.columnCount(); ++c)
            headers.append(list.headerData(c, Qt::Horizontal).toString());
        QCOMPARE(headers, (QStringList{u"No."_s, u"Item S/N"_s, u"Sample Pos."_s,
                                       u"Sample Name"_s, u"Experiment Title"_s, u"User ID"_s,
                                       u"Status"_s}));
        QCOMPARE(list.flags(plain),
                 Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        QCOMPARE(list.flags(list.index(0, 6)), Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    }

    void modelContractUnderChanges()
    {
        QueueList list;
        QAbstractItemModelTester tester(&list,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        for (const QString& text : {u"c"_s, u"a"_s, u"d"_s}) {
            const qint32 r = list.add();
            list.setText(r, text);
            list.setSubItem(r, QueueList::SampleNameSubItem, text + u"-name"_s);
        }
        list.setText(list.insert(2), u"b"_s);
        list.remove(4);
        QCOMPARE(texts(list), (QStringList{u"c"_s, u"b"_s, u"a"_s}));

        const QPersistentModelIndex a(list.index(2, QueueList::SampleNameColumn));
        const QPersistentModelIndex c(list.index(0, 0));
        list.sortByColumn(QueueList::QueueNumColumn);
        QCOMPARE(texts(list), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
        QCOMPARE(a.row(), 0);
        QCOMPARE(a.data().toString(), u"a-name"_s);
        QCOMPARE(c.row(), 2);

        list.clear();
        QCOMPARE(list.rowCount(), 0);
        QVERIFY(!a.isValid());
    }

    void sortIsStableAndIgnoresCase()
    {
        // Hundreds of rows with many texts equal but for case: std::sort would scramble them.
        const QStringList words = {u"beta"_s, u"Alpha"_s, u"alpha"_s, u"ALPHA"_s,
                                   u"Beta"_s, u"gamma"_s, u"010"_s,   u"9"_s};
        const qint32 n = 400;
        for (int column : {int(QueueList::QueueNumColumn), int(QueueList::StatusColumn)}) {
            QueueList list;
            for (qint32 i = 1; i <= n; ++i) {
                list.setText(list.add(), words.at((i * 7) % words.size()));
                list.setSubItem(i, QueueList::StatusSubItem, words.at((i * 3) % words.size()));
                list.setTag(i, i);
            }
            list.sortByColumn(column);

            QSet<qint32> seen;
            for (qint32 i = 1; i <= n; ++i) {
                const qint32 tag = list.row(i).tag; // the row's place before the sort
                seen.insert(tag);
                QCOMPARE(list.row(i).text, words.at((tag * 7) % words.size()));
                QCOMPARE(list.subItem(i, QueueList::StatusSubItem),
                         words.at((tag * 3) % words.size()));
                if (i == 1)
                    continue;
                const QString prev = list.data(list.index(i - 2, column)).toString();
                const QString cur = list.data(list.index(i - 1, column)).toString();
                const int cmp = QString::compare(prev, cur, Qt::CaseInsensitive);
                QVERIFY2(cmp < 0 || (cmp == 0 && list.row(i - 1).tag < tag),
                         qPrintable(u"row %1: %2 before %3"_s.arg(i).arg(prev, cur)));
            }
            QCOMPARE(seen.size(), n);
            QCOMPARE(list.data(list.index(0, column)).toString(), u"010"_s);
        }
    }

    void selectedRowFollowsItsRow()
    {
        QueueList list;
        for (const QString& text : {u"005"_s, u"004"_s, u"003"_s, u"002"_s, u"001"_s})
            list.setText(list.add(), text);
        list.setSelected(2, true);
        list.setSelected(4, true);
        QCOMPARE(list.selectedIndex(), 4);
        QVERIFY(list.row(2).selected);

        list.sortByColumn(0);
        QCOMPARE(list.selectedIndex(), 2);
        QCOMPARE(list.row(2).text, u"002"_s);
        QVERIFY(list.row(4).selected);

        const std::pair<std::function<void()>, qint32> steps[] = {
            {[&] { list.insert(1); }, 3},
            {[&] { list.insert(3); }, 4}, // at the selected row: it moves down
            {[&] { list.insert(6); }, 4},
            {[&] { list.remove(1); }, 3},
            {[&] { list.remove(2); }, 2},
            {[&] { list.remove(4); }, 2},
            {[&] { list.setSelected(1, false); }, 2},
            {[&] { list.setSelected(2, false); }, 0},
            {[&] { list.setSelected(3, true); }, 3},
            {[&] { list.remove(3); }, 0},
            {[&] { list.setSelected(1, true); }, 1},
            {[&] { list.clear(); }, 0},
        };
        for (const auto& [step, expected] : steps) {
            step();
            QCOMPARE(list.selectedIndex(), expected);
        }
    }

    void syncOnEmptyListTouchesNothing()
    {
        gQueue.redim(2);
        gQueue(2) = record(2);
        QSignalSpy layout(&gQueueList, &QAbstractItemModel::layoutChanged);
        SyncQueueFromList(0);
        SyncQueueFromList(99); // not even the sort key is looked at
        QCOMPARE(gQueue.upperBound(), 2);
        QCOMPARE(gQueue(1), QueueItem());
        QCOMPARE(gQueue(2), record(2));
        QCOMPARE(layout.size(), 0);
    }

    void syncSwapsRecords()
    {
        fillQueue(2);
        gQueue.redimPreserve(3);
        gQueue(3) = record(3); // beyond the list: not part of the rebuild
        gQueueList.setText(1, u"002"_s);
        gQueueList.setText(2, u"001"_s);
        QSignalSpy changed(&gQueueList, &QAbstractItemModel::dataChanged);

        SyncQueueFromList(0);
        QCOMPARE(gQueue(1), record(2));
        QCOMPARE(gQueue(2), record(1));
        QCOMPARE(gQueue(3), record(3));
        QCOMPARE(texts(gQueueList), (QStringList{u"001"_s, u"002"_s}));
        QVERIFY(rowsNumbered());
        QCOMPARE(gQueueList.subItem(1, QueueList::ItemSNSubItem), u"SN2"_s);

        // Views learn of the new texts: the reported changes cover every row's first column.
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.first().at(0).value<QModelIndex>(), gQueueList.index(0, 0));
        QCOMPARE(changed.first().at(1).value<QModelIndex>().row(), 1);
    }

    void syncMovesRowToItsNewNumber()
    {
        fillQueue(8);
        gQueueList.setText(7, u"004"_s);
        SyncQueueFromList(0);
        QCOMPARE(serials(), (QStringList{u"SN1"_s, u"SN2"_s, u"SN3"_s, u"SN4"_s, u"SN7"_s,
                                         u"SN5"_s, u"SN6"_s, u"SN8"_s}));
        QCOMPARE(gQueue(5), record(7));
        QVERIFY(rowsNumbered());
        QCOMPARE(gQueueList.subItem(5, QueueList::ItemSNSubItem), u"SN7"_s);
    }

    void syncBySortKeyOnlyReordersRows()
    {
        fillQueue(3);
        gQueueList.setSubItem(1, QueueList::SampleNameSubItem, u"Zeta"_s);
        gQueueList.setSubItem(2, QueueList::SampleNameSubItem, u"alpha"_s);
        gQueueList.setSubItem(3, QueueList::SampleNameSubItem, u"Mu"_s);

        SyncQueueFromList(QueueList::SampleNameColumn);
        QCOMPARE(texts(gQueueList), (QStringList{u"002"_s, u"003"_s, u"001"_s}));
        QCOMPARE(gQueueList.row(1).tag, 2);
        QCOMPARE(gQueueList.row(3).tag, 1);
        QCOMPARE(serials(), (QStringList{u"SN1"_s, u"SN2"_s, u"SN3"_s}));

        // Back by queue number: the tags still name each row's record.
        SyncQueueFromList(0);
        QVERIFY(rowsNumbered());
        QCOMPARE(serials(), (QStringList{u"SN1"_s, u"SN2"_s, u"SN3"_s}));
        QCOMPARE(gQueueList.subItem(1, QueueList::SampleNameSubItem), u"Zeta"_s);
    }

    void syncPast999ItemsOrdersByText()
    {
        // The model tester rechecks the whole model after every inserted row: fill without it.
        m_tester.reset();
        fillQueue(1000);
        watchQueueList();

        SyncQueueFromList(0);
        QCOMPARE(gQueue(100), record(100));
        QCOMPARE(gQueue(101), record(1000)); // "1000" right after "100"
        QCOMPARE(gQueue(102), record(101));
        QCOMPARE(gQueue(1000), record(999));
        QCOMPARE(gQueueList.subItem(101, QueueList::ItemSNSubItem), u"SN1000"_s);
        QVERIFY(rowsNumbered());
    }

    void syncIndexErrors()
    {
        for (qint32 badTag : {0, 4}) {
            fillQueue(3);
            gQueueList.setTag(2, badTag);
            QCOMPARE(errorNumber([] { SyncQueueFromList(0); }), RuntimeError::SubscriptOutOfRange);
        }

        // More rows than records: stopped before anything moves.
        fillQueue(3);
        gQueueList.add();
        QCOMPARE(errorNumber([] { SyncQueueFromList(0); }), RuntimeError::SubscriptOutOfRange);
        QCOMPARE(texts(gQueueList), (QStringList{u"001"_s, u"002"_s, u"003"_s, u""_s}));
        QCOMPARE(serials(), (QStringList{u"SN1"_s, u"SN2"_s, u"SN3"_s}));

        gQueueList.remove(4);
        QCOMPARE(errorNumber([] { SyncQueueFromList(7); }), RuntimeError::InvalidPropertyValue);
    }
};

QTEST_MAIN(TestQueue)
#include "tst_queue.moc"
