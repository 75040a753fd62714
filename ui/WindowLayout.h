#pragma once

#include <QtGlobal>

// How the main window's controls follow its size. The list takes up every change; the run
// controls below it keep their distance from its bottom edge, and the Add and Delete buttons and
// the up/down arrows keep theirs from its right edge. The distances are measured once, at
// start-up, in twips.
namespace spinlane {

class frmSpinlane;

extern double gListHeightSlack; // window height - list height
extern double gListWidthSlack; // window width - list width
extern qint32 gChkEntireQueueGap; // below the list
extern qint32 gStartQueueGap;
extern qint32 gStartOverGap;
extern qint32 gAddGap; // right of the list
extern qint32 gDeleteGap;
extern qint32 gUpDownGap;

void MeasureLayout(const frmSpinlane& form);

// The window's new size: a window smaller than its start-up size minus the list leaves every
// control where it is. The Edit button keeps its design place.
void ArrangeLayout(frmSpinlane& form);

// The login panel covers the window and its frame sits centred, 500 twips above the middle.
void PlaceLoginPanel(frmSpinlane& form);

void resetLayoutState();

} // namespace spinlane
