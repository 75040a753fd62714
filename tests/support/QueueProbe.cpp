#include "support/QueueProbe.h"

#include "core/Conversions.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/StatusBar.h"

#include <QFile>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane::testing {
namespace {

template <typename Column> auto perRow(Column column)
{
    QList<decltype(column(1))> result;
    for (qint32 i = 1; i <= gQueueList.count(); ++i)
        result.append(column(i));
    return result;
}

QStringList prefixed(const QString& prefix, std::initializer_list<int> numbers)
{
    QStringList result;
    for (int n : numbers)
        result.append(prefix + QString::number(n));
    return result;
}

} // namespace

void makeQueue(qint32 n, const QStringList& statuses, const QStringList& owners)
{
    resetQueueState();
    gQueue.redim(std::max(n, 1));
    for (qint32 i = 1; i <= n; ++i) {
        QueueItem& item = gQueue(i);
        item.ItemSN = u"SN"_s + QString::number(i);
        item.SampleNum = i * 10;
        item.SampleName = u"Sample "_s + QString::number(i);
        item.UserID = owners.value(i - 1, u"ann"_s);
        item.Organization = u"Org of "_s + item.UserID;
        item.OutputFilePath = u"/data/"_s + QString::number(i) + u".kvd"_s;
        item.Status = statuses.value(i - 1, u"Idle"_s);
        item.SavedSection = i; // as read from a settings file
        FillQueueRow(gQueueList.add(), i);
    }
    if (n > 0)
        gQueueList.selectOnly(n);
}

void addItem(qint32 sample, qint16 experiment, const QString& status, const QString& solvent)
{
    const qint32 n = gQueueList.count() + 1;
    gQueue.redimPreserve(n);
    const QString number = QString::number(n);
    gQueue(n) = {u"SN"_s + number,
                 sample,
                 u"Sample "_s + number,
                 u"desc"_s,
                 solvent,
                 experiment,
                 u"ann"_s,
                 u"Chem"_s,
                 u"/data/"_s + number + u".kvd"_s,
                 status};
    addRow(n);
}

void addRow(qint32 n)
{
    const qint32 row = gQueueList.add();
    gQueueList.setText(row, formatQueueNumber(n));
    gQueueList.setTag(row, n);
    gQueueList.setSubItem(row, QueueList::StatusSubItem, gQueue(n).Status);
}

QStringList serials()
{
    return perRow([](qint32 i) { return gQueue(i).ItemSN; });
}
QStringList sampleNames()
{
    return perRow([](qint32 i) { return gQueue(i).SampleName; });
}
QStringList texts()
{
    return perRow([](qint32 i) { return gQueueList.row(i).text; });
}
QList<bool> checkMarks()
{
    return perRow([](qint32 i) { return gQueueList.row(i).checked; });
}

QStringList statuses()
{
    return perRow([](qint32 i) {
        const QString row = gQueueList.subItem(i, QueueList::StatusSubItem);
        return row == gQueue(i).Status ? row : row + u" != "_s + gQueue(i).Status;
    });
}

QString recordOf(qint32 n)
{
    const QueueItem& item = gQueue(n);
    return QStringList{item.ItemSN,         QString::number(item.SampleNum),
                       item.SampleName,     item.SampleDes,
                       item.Solvent,        QString::number(item.ExpTitleIndex),
                       item.UserID,         item.Organization,
                       item.OutputFilePath, item.Status}
        .join(u'|');
}

QStringList serialsOf(std::initializer_list<int> numbers) { return prefixed(u"SN"_s, numbers); }
QStringList namesOf(std::initializer_list<int> numbers) { return prefixed(u"Sample "_s, numbers); }

QString statusBarShows()
{
    return QStringList{
        gStatusBar.text(StatusBar::SamplePanel),     gStatusBar.text(StatusBar::ExperimentPanel),
        gStatusBar.text(StatusBar::OutputFilePanel), gStatusBar.outputFileToolTip(),
        QString::number(gStatusBar.progressValue()), QString::number(gStatusBar.progressMaximum())}
        .join(u'|');
}

QStringList runLogLines(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression time(u"\\d+ \\w+ \\d{4} \\d\\d:\\d\\d:\\d\\d"_s);
    return QString::fromLocal8Bit(file.readAll()).replace(time, u"T"_s).split(u"\r\n"_s);
}

bool rowsNumbered()
{
    for (qint32 i = 1; i <= gQueueList.count(); ++i) {
        const QueueRow& row = gQueueList.row(i);
        if (row.text != formatQueueNumber(i) || row.tag != i || row.subItems[0] != gQueue(i).ItemSN)
            return false;
    }
    return true;
}

} // namespace spinlane::testing
