#pragma once

#include <QtGlobal>

// The steps the run loop takes for one item: load, spin, set up and run the experiment, eject.
// A step reports only through the run flags: it sets gStepFailed when its program says the step
// failed, and it returns early when it sees gStopRequested. Steps never show messages.
namespace spinlane {

// The fixed waits of the steps, in seconds: the least time each part of an item takes.
inline constexpr qint16 kWaitAfterMotion = 5; // after a load or an eject is sent
inline constexpr qint16 kWaitBetweenSpinCommands = 1;
inline constexpr qint16 kWaitAfterSpin = 10;
inline constexpr qint16 kWaitAfterRunStart = 5;
inline constexpr qint16 kWaitAfterExperiment = 1;
inline constexpr qint16 kWaitBeforeEject = 2; // after the sample is released

void LoadStep(qint32 queueNum);
void EjectStep();
void SpinStep(qint32 queueNum);
void ExperimentStep(qint32 queueNum);

// Hands the set-up program the item's experiment, sample information, solvent and output file.
void SetUpExperiment(qint32 queueNum);
void SendSampleInfo(qint32 queueNum);

} // namespace spinlane
