#pragma once

#include "queue/QueueItem.h"

#include <QString>

#include <optional>

// The queue's editing operations that need no window: where a new item goes, the queue-number
// rule of the item dialog, serial numbers, look-ups, and adding, changing and deleting items on
// the list and gQueue together.
namespace spinlane {

extern bool gDeleteDeclined; // the user answered No to a delete question

// Where Add puts a new item: at the end, or, when the user answers Yes to the insert question,
// before the one selected row (unless it is the current item) or after the selected row of
// several (never before the current item).
qint32 NewItemPosition();

// The queue-number field's rule: never at or before the current item, never beyond the end;
// letters count as 0. Answers in the format "000".
QString ClampQueueNumber(const QString& text);

// The day number since 30 December 1899 plus the fraction of the day in hundred-thousandths,
// from the clock.
QString GenerateItemSN();

// The first queued item for a sample position.
std::optional<QueueItem> FirstItemWithSample(qint32 sampleNum);

// A new "Idle" item at queue number `position` (1 .. row count + 1), unchecked and selected.
// Without an experiment chosen (index -1) it takes the first.
void CommitNewItem(qint16 position, QueueItem item);

// Stores the fields of `item` (its status aside) into the selected row's item; without an
// experiment chosen the item keeps its own.
void CommitEditedItem(const QueueItem& item);

// Asks about list row `index` and deletes it on Yes: the current number moves back when the item
// stood at or before it, and the item leaves the settings file's queue at once. A No
// sets gDeleteDeclined. Returns false, changing nothing, when the user may not change the item.
bool DeleteQueueItem(qint32 index);

// Asks about every selected row, in order. After each deletion the rows that are still selected
// are asked about again from the first, so a row declined earlier is asked once more. Stops when
// the user may not change an item. A row stays selected.
void DeleteSelectedItems();

void resetEditingState();

} // namespace spinlane
