#include "queue/QueueEditing.h"

#include "core/Conversions.h"
#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "queue/SettingsFile.h"
#include "queue/StatusBar.h"

#include <cmath>
#include <limits>
#include <vector>

using namespace Qt::StringLiterals;

namespace spinlane {

bool gDeleteDeclined = false;

namespace {

qint32 selectedQueueNumber()
{
    const qint32 row = gQueueList.selectedIndex();
    if (row == 0)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    return toInt32(leadingNumber(gQueueList.row(row).text));
}

bool userWantsToInsert()
{
    return msgBox(u"Do you want to insert an item?\r\nClick No to add an item at last."_s,
                  MsgButtons::YesNo, MsgIcon::Question)
           == MsgAnswer::Yes;
}

std::vector<QueueItem> queueCopy(qint32 count)
{
    std::vector<QueueItem> items;
    items.reserve(std::size_t(count));
    for (qint32 i = 1; i <= count; ++i)
        items.push_back(gQueue(i));
    return items;
}

} // namespace

qint32 NewItemPosition()
{
    SyncQueueFromList(0);
    const qint32 n = gQueueList.count();
    if (n == 0)
        return 1;
    const qint32 selected = selectedQueueNumber();
    // One row: Yes puts the new item before it, unless it is the current item.
    if (n == 1) {
        if (!userWantsToInsert())
            return n + 1;
        return selected == gCurrentQueueNum ? gCurrentQueueNum + 1 : selected;
    }
    // Several rows: Yes puts it after the selected row, and never before the current item.
    if (selected >= n || !userWantsToInsert())
        return n + 1;
    return std::max(selected, gCurrentQueueNum) + 1;
}

QString ClampQueueNumber(const QString& text)
{
    // Compared as the field will show it: a fraction is rounded by the format.
    const double typed = std::round(leadingNumber(text));
    const double current = gCurrentQueueNum;
    const double end = double(gQueueList.count()) + 1;
    double position = typed;
    if (typed <= current)
        position = current + 1;
    else if (typed >= end)
        position = end;
    return formatQueueNumber(std::min(position, end));
}

QString GenerateItemSN()
{
    const QDateTime now = seams().clock->now();
    const qint32 day = dateSerial(now.date());
    const qint64 serial = qint64(day) + toInt32((dateSerial(now) - day) * 100000);
    if (serial > std::numeric_limits<qint32>::max())
        throw RuntimeError(RuntimeError::Overflow);
    return QString::number(serial);
}

std::optional<QueueItem> FirstItemWithSample(qint32 sampleNum)
{
    for (qint32 i = 1; i <= gQueueList.count(); ++i) {
        if (gQueue(i).SampleNum == sampleNum)
            return gQueue(i);
    }
    return std::nullopt;
}

void CommitNewItem(qint16 position, QueueItem item)
{
    item.Status = u"Idle"_s;
    item.SavedSection = 0;
    // An item always names an experiment: without a choice a new item takes the first.
    if (item.ExpTitleIndex < 0)
        item.ExpTitleIndex = 0;
    const qint32 n = gQueueList.count();
    if (n == 0) {
        const qint32 row = gQueueList.add();
        gQueue.redimPreserve(gQueueList.count());
        gQueue(position) = item;
        FillQueueRow(row, position);
    } else {
        SyncQueueFromList(0);
        const std::vector<QueueItem> before = queueCopy(n);
        gQueueList.insert(position);
        const qint32 m = gQueueList.count();
        gQueue.redimPreserve(m);
        // The rows after the new one keep their old numbers for now: the sort below leaves each
        // of them after the new row that shares its number, and renumbers them.
        std::size_t next = 0;
        for (qint32 i = 1; i <= m; ++i) {
            if (i == position) {
                gQueue(i) = item;
                FillQueueRow(i, i);
            } else {
                gQueue(i) = before[next++];
            }
            gQueueList.setTag(i, i);
        }
        SyncQueueFromList(0);
    }
    gQueueList.setChecked(position, false);
    gQueueList.selectOnly(position);
    UpdateSelectionStatus();
}

void CommitEditedItem(const QueueItem& item)
{
    const qint32 row = gQueueList.selectedIndex();
    if (row == 0) // the item was deleted while its dialog was open
        return;
    QueueItem& stored = gQueue(toInt32(leadingNumber(gQueueList.row(row).text)));
    const QString status = stored.Status;
    const qint16 experiment = item.ExpTitleIndex < 0 ? stored.ExpTitleIndex : item.ExpTitleIndex;
    stored = item;
    stored.Status = status;
    stored.ExpTitleIndex = experiment;

    gQueueList.setSubItem(row, QueueList::ItemSNSubItem, stored.ItemSN);
    gQueueList.setSubItem(row, QueueList::SampleNumSubItem, QString::number(stored.SampleNum));
    gQueueList.setSubItem(row, QueueList::SampleNameSubItem, stored.SampleName);
    if (upperBound(gExpTitles) > 0)
        gQueueList.setSubItem(row, QueueList::ExpTitleSubItem,
                              experimentTitle(stored.ExpTitleIndex));
    gQueueList.setSubItem(row, QueueList::UserIDSubItem, stored.UserID);
}

namespace {

// The settings file loses the deleted item's own section, wherever moves have put the item since
// the file was saved, and the items after it there move up: a start from that file after a crash
// finds neither a blank item nor the deleted one, and keeps every other.
void forgetSavedItem(qint32 section)
{
    if (section == 0)
        return; // added in this session: the file does not hold it
    const auto removed = [section](ProfileDocument& file) {
        try {
            return settings::removeQueueItem(file, section);
        } catch (const RuntimeError&) {
            return false; // a queue the file cannot give back is left as it is
        }
    };
    if (!ProfileFile::change(gIniPath, removed))
        return;
    for (qint32 i = 1; i <= gQueueList.count(); ++i) {
        if (gQueue(i).SavedSection > section)
            --gQueue(i).SavedSection;
    }
    Q_EMIT gQueueList.savedQueueChanged();
}

} // namespace

bool DeleteQueueItem(qint32 index)
{
    // The row asked about is the one the permission check and the status bar look at.
    gQueueList.setSelected(index, true);
    if (!HasPermission())
        return false;
    SyncQueueFromList(0);
    if (msgBox(u"Are you sure that you want to delete Spinlane item "_s + gQueueList.row(index).text
                   + u'?',
               MsgButtons::YesNo, MsgIcon::Exclamation)
        == MsgAnswer::No) {
        gDeleteDeclined = true;
        return true;
    }

    // Deleting the current item itself also moves the current number back.
    if (gCurrentQueueNum >= index)
        --gCurrentQueueNum;
    const qint32 n = gQueueList.count();
    const std::vector<QueueItem> before = queueCopy(n);
    const qint32 savedSection = gQueue(index).SavedSection;
    gQueueList.remove(index);
    const qint32 m = gQueueList.count();
    if (m == 0) {
        gQueue.redim(1);
    } else {
        gQueue.redim(m);
        qint32 j = 0;
        for (qint32 i = 1; i <= n; ++i) {
            if (i == index)
                continue;
            ++j;
            gQueue(j) = before[std::size_t(i - 1)];
            gQueueList.setTag(j, j);
        }
        SyncQueueFromList(0);
        if (gQueueList.selectedIndex() == 0) {
            if (const qint32 stillSelected = gQueueList.firstSelectedRow())
                gQueueList.setSelected(stillSelected, true);
        }
    }
    if (m == 0 || gQueueList.selectedIndex() != 0)
        UpdateSelectionStatus();

    forgetSavedItem(savedSection);
    return true;
}

void DeleteSelectedItems()
{
    if (gQueueList.firstSelectedRow() == 0)
        return;
    // Rows shown in another column's order are put back in queue order first, so that every
    // question names the row that goes.
    SyncQueueFromList(0);

    qint32 lastDeleted = 0;
    bool scanAgain = true;
    while (scanAgain) {
        scanAgain = false;
        const qint32 rows = gQueueList.count();
        for (qint32 i = 1; i <= rows; ++i) {
            if (!gQueueList.row(i).selected)
                continue;
            if (!DeleteQueueItem(i))
                break;
            if (gDeleteDeclined) {
                gDeleteDeclined = false;
                continue;
            }
            lastDeleted = i;
            scanAgain = gQueueList.firstSelectedRow() != 0;
            break;
        }
    }

    const qint32 rows = gQueueList.count();
    if (rows > 0 && gQueueList.selectedIndex() == 0) {
        gQueueList.selectOnly(std::min(std::max(lastDeleted, 1), rows));
        UpdateSelectionStatus();
    }
}

void resetEditingState() { gDeleteDeclined = false; }

} // namespace spinlane
