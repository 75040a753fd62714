#include "queue/QueueRows.h"

#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "queue/QueueStore.h"

using namespace Qt::StringLiterals;

namespace spinlane {

void MarkRowByStatus(qint32 row, const QString& status)
{
    quint32 color = 0;
    if (status == u"Idle"_s) {
        gQueueList.setChecked(row, false);
        gQueueList.setBold(row, false);
        gQueueList.setForeColor(row, kWindowTextColor);
        return;
    }
    if (status == u"In progress"_s)
        color = kGreen;
    else if (status == u"Done"_s)
        color = kBlue;
    else if (status == u"Failed"_s)
        color = kRed;
    else if (status == u"Stopped"_s)
        color = kYellow;
    else
        return;
    gQueueList.setChecked(row, true);
    gQueueList.setBold(row, true);
    gQueueList.setForeColor(row, color);
}

void FillQueueRow(qint32 row, qint32 queueNum)
{
    const QueueItem& item = gQueue(queueNum);
    gQueueList.setText(row, formatQueueNumber(queueNum));
    gQueueList.setTag(row, queueNum);
    gQueueList.setSubItem(row, QueueList::ItemSNSubItem, item.ItemSN);
    gQueueList.setSubItem(row, QueueList::SampleNumSubItem, QString::number(item.SampleNum));
    gQueueList.setSubItem(row, QueueList::SampleNameSubItem, item.SampleName);
    if (upperBound(gExpTitles) > 0)
        gQueueList.setSubItem(row, QueueList::ExpTitleSubItem, experimentTitle(item.ExpTitleIndex));
    gQueueList.setSubItem(row, QueueList::UserIDSubItem, item.UserID);
    gQueueList.setSubItem(row, QueueList::StatusSubItem, item.Status);
    MarkRowByStatus(row, item.Status);
}

void PopulateQueueList()
{
    if (gTotalQueueItems < 1)
        return;
    for (qint32 i = 1; i <= gQueue.upperBound(); ++i)
        FillQueueRow(gQueueList.add(), i);
    gQueueList.setSelected(gCurrentQueueNum != 0 ? gCurrentQueueNum : gQueueList.count(), true);
}

} // namespace spinlane
