#include "queue/QueueReorder.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "queue/QueueStore.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace spinlane {

bool IsPinnedRow(qint32 row)
{
    const QString status = gQueueList.subItem(row, QueueList::StatusSubItem);
    return status == u"In progress"_s || status == u"Stopped"_s;
}

bool DropTargetAccepts(qint32 dragged, qint32 target)
{
    return gQueueList.row(target).checked == gQueueList.row(dragged).checked
           && !IsPinnedRow(target);
}

bool DropRow(qint32 dragged, qint32 target)
{
    if (gQueueList.row(target).text == gQueueList.row(dragged).text)
        return false;
    const bool taken = gQueueList.row(dragged).checked;
    const bool allowed = taken ? target < gCurrentQueueNum : target >= gCurrentQueueNum;
    if (!allowed)
        return false;
    const qint32 number = target < dragged ? target - 1 : target + 1;
    gQueueList.setText(dragged, formatQueueNumber(number));
    SyncQueueFromList(0);
    return true;
}

bool MoveSelectedRow(int step)
{
    if (gQueueList.count() < 1)
        return false;
    SyncQueueFromList(0);
    const qint32 selected = gQueueList.selectedIndex();
    if (selected == 0)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    const qint32 neighbour = selected + step;
    if (neighbour < 1 || neighbour > gQueueList.count())
        return false;
    if (IsPinnedRow(selected) || IsPinnedRow(neighbour))
        return false;
    if (gQueueList.row(selected).checked != gQueueList.row(neighbour).checked)
        return false;
    gQueueList.setText(selected, formatQueueNumber(selected + 2 * step));
    SyncQueueFromList(0);
    return true;
}

void RenumberSelectedRow(const QString& typed)
{
    if (gQueueList.count() < 1)
        return;
    const qint32 row = gQueueList.selectedIndex();
    if (row == 0)
        throw RuntimeError(RuntimeError::ObjectNotSet);
    // A number is written as three digits; any other text stays as typed and sorts as text.
    bool isNumber = false;
    const double value = typed.trimmed().toDouble(&isNumber);
    const bool formattable = isNumber && std::fabs(value) < 1e15;
    gQueueList.setText(row, formattable ? formatQueueNumber(value) : typed);
    SyncQueueFromList(0);
}

} // namespace spinlane
