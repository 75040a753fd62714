#pragma once

#include <QtGlobal>

// The run loop: takes the items one after another in queue order, runs the steps of the
// sample-control mode for each and records every outcome in the item's row, in the queue and in
// the run log. It runs on the window's thread; its waits let the window handle events, so Stop
// lands in the middle of a run and is noticed through gStopRequested.
namespace spinlane {

extern bool gStopRequested; // set by Stop; cleared by the loop when it acts on it
extern bool gStepFailed; // set by a step whose program reports failure; cleared by the loop
extern bool gSameSample; // the item's sample is already in the magnet

// A click on the run button: its caption says whether it starts, stops, continues or runs the
// queue again. With no item in the list only Stop acts; the others do nothing.
void ClickStartQueue();
void RunQueue();
// RunQueue is under way; a handler that runs inside its waits sees true.
bool RunInProgress();
// Stop: the run goes on until the running step notices the flag.
void RequestStop();
// Takes up the stopped item again (the first item when the stopped one was deleted).
void ContinueQueue();
void PrepareRun();
void FinishRun();

// The row whose text is the queue number `queueNum`.
qint32 FindQueueRow(qint32 queueNum);

void resetRunState();

} // namespace spinlane
