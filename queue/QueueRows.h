#pragma once

#include <QString>

// How the queue list shows the queue: one row per item, with its queue number, six sub-items and
// the marks of its status.
namespace spinlane {

// Row marks by status: "Idle" unchecked in the window-text colour; "In progress" (green), "Done"
// (blue), "Failed" (red) and "Stopped" (yellow) checked and bold. Any other text leaves the marks
// as they are.
void MarkRowByStatus(qint32 row, const QString& status);

// Fills list row `row` from gQueue(queueNum): text "000", tag, the six sub-items and the marks.
// The experiment title is shown only while the title list has an upper bound above 0; an index
// past its end is SubscriptOutOfRange.
void FillQueueRow(qint32 row, qint32 queueNum);

// The start-up fill: one row per item of gQueue (none when the settings file holds fewer than
// one), then the current item's row selected, or the last row when no item was run yet.
void PopulateQueueList();

} // namespace spinlane
