#pragma once

#include <QString>

// Moving items within the queue by hand. Every move gives the moving row a new number text and
// lets SyncQueueFromList sort and renumber the rows: the sort keeps rows with equal texts in
// their order, so a row given its neighbour's number lands beside it, on the side it came from.
// Items the runner has taken up (checked rows) stay before the current item and waiting ones
// after it; a running or stopped item never moves by drag or arrow.
namespace spinlane {

// "In progress" and "Stopped" rows cannot be dragged, dropped onto or moved past.
bool IsPinnedRow(qint32 row);

// While a row is dragged: whether `target` may receive it (same check mark, not pinned).
bool DropTargetAccepts(qint32 dragged, qint32 target);

// Drops row `dragged` onto row `target`, which it then takes the place of. Refused, returning
// false, for a drop onto itself, a waiting item dropped at or before the current one, or a taken
// item dropped after it.
bool DropRow(qint32 dragged, qint32 target);

// The up/down arrows: the selected row swaps with the one above (step -1) or below (step +1),
// unless either is pinned or their check marks differ. Returns whether it moved.
bool MoveSelectedRow(int step);

// A queue number typed over the selected row's number: the row moves to that place.
void RenumberSelectedRow(const QString& typed);

} // namespace spinlane
