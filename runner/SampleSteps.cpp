#include "runner/SampleSteps.h"

#include "core/Conversions.h"
#include "core/Seams.h"
#include "core/wait_in_seconds.h"
#include "queue/QueueStore.h"
#include "queue/StatusBar.h"
#include "runner/ProgramLinks.h"
#include "runner/RunHistory.h"
#include "runner/RunQueue.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

// Asks `busy` until it answers false, letting the window handle its events in between. Returns
// false, without asking again, as soon as a stop is requested.
template <typename Busy> bool pollUntilIdle(Busy&& busy)
{
    while (busy()) {
        if (!gStopRequested)
            seams().eventPump->waitForEvents(kEventWaitMs);
        if (gStopRequested)
            return false;
    }
    return true;
}

// A fixed wait after which the step only asks its program and leaves on a stop. A stop ends it
// at once; the step then goes on exactly as when the wait runs out.
void waitUnlessStopped(qint16 seconds)
{
    wait_in_seconds(seconds, [] { return gStopRequested; });
}

// A stopped load or eject goes on in the changer, which refuses another motion until it ends.
// Waits until the changer is idle, saying so in the status bar; false on a stop.
bool waitWhileChangerBusy(SampleChanger& changer)
{
    const QString waiting = u"Waiting for Sample Changer..."_s;
    const QString shown = gStatusBar.text(StatusBar::OutputFilePanel);
    bool said = false;
    const bool idle = pollUntilIdle([&] {
        if (!changer.IsLoading() && !changer.IsEjecting())
            return false;
        if (!said)
            gStatusBar.setText(StatusBar::OutputFilePanel, waiting);
        said = true;
        return true;
    });
    if (gStatusBar.text(StatusBar::OutputFilePanel) == waiting) // unless a selection replaced it
        gStatusBar.setText(StatusBar::OutputFilePanel, shown);
    return idle;
}

// The solvent's position in the solvent list (elements 0 .. upper bound - 1), or -1.
qint32 solventIndex(const QString& solvent)
{
    for (qint32 i = 0; i < upperBound(gSolvents); ++i) {
        if (gSolvents.at(i).compare(solvent, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

} // namespace

void LoadStep(qint32 queueNum)
{
    const TimedPart timed(RunPart::Load);
    SampleChanger& changer = linked(gSampleChanger);
    if (!waitWhileChangerBusy(changer))
        return;
    changer.LoadSample(gQueue(queueNum).SampleNum);
    waitUnlessStopped(kWaitAfterMotion);
    if (!pollUntilIdle([&] { return changer.IsLoading(); }))
        return;
    if (changer.GetLoadFailed())
        gStepFailed = true;
}

void EjectStep()
{
    const TimedPart timed(RunPart::Eject);
    SampleChanger& changer = linked(gSampleChanger);
    if (!waitWhileChangerBusy(changer))
        return;
    changer.EjectSample();
    waitUnlessStopped(kWaitAfterMotion);
    if (!pollUntilIdle([&] { return changer.IsEjecting(); }))
        return;
    if (changer.GetEjectFailed())
        gStepFailed = true;
}

void SpinStep(qint32 queueNum)
{
    const TimedPart timed(RunPart::Spin);
    Expedra& expedra = linked(gExpedra);
    SampleChanger& changer = linked(gSampleChanger);
    expedra.SetCurrentExperiment(gQueue(queueNum).ExpTitleIndex);
    const bool spin = expedra.GetSpinOn();
    const double target = expedra.GetSpinRate();
    changer.SetSpinRate(target);
    wait_in_seconds(kWaitBetweenSpinCommands); // between two commands: a stop does not shorten it
    changer.SetSpin(spin);
    waitUnlessStopped(kWaitAfterSpin);
    if (!spin) {
        gStatusBar.setText(StatusBar::SpinPanel, u"Spin off"_s);
        return;
    }
    // Not settling within 10 seconds is no failure: the experiment runs anyway.
    const Seams& s = seams();
    const QDateTime start = s.clock->now();
    double measured = 0;
    while (std::fabs(measured - target) > 5) {
        measured = changer.GetActualSpinRate();
        gStatusBar.setText(StatusBar::SpinPanel, u"Spin on: "_s + formatOneDecimal(measured));
        s.eventPump->waitForEvents(kEventWaitMs);
        if (gStopRequested || start.msecsTo(s.clock->now()) > 10000)
            return;
    }
}

void ExperimentStep(qint32 queueNum)
{
    const TimedPart timed(RunPart::Experiment);
    Expedra& expedra = linked(gExpedra);
    SetUpExperiment(queueNum);
    expedra.RunExperiment();
    waitUnlessStopped(kWaitAfterRunStart);
    if (!pollUntilIdle([&] { return expedra.IsExperimentRunning(); })) {
        expedra.AbortExperiment();
        return;
    }
    waitUnlessStopped(kWaitAfterExperiment);
    if (expedra.GetRunFailed())
        gStepFailed = true;
}

void SetUpExperiment(qint32 queueNum)
{
    Expedra& expedra = linked(gExpedra);
    const QueueItem item = gQueue(queueNum);
    expedra.SetCurrentExperiment(item.ExpTitleIndex);
    SendSampleInfo(queueNum);
    if (gSameSample) {
        // The sample is already in the magnet: no new lock and set-up.
        expedra.SetLockEnabled(false);
        expedra.SetSetupEnabled(false);
    }
    if (expedra.GetLockRequired()) {
        const qint32 solvent = solventIndex(item.Solvent);
        if (solvent >= 0)
            expedra.SetSolventIndex(toInt16(solvent));
        else
            expedra.SetLockEnabled(false); // unknown solvent: run unlocked rather than fail
    }
    expedra.SetOutputFile(item.OutputFilePath);
}

void SendSampleInfo(qint32 queueNum)
{
    Expedra& expedra = linked(gExpedra);
    const QueueItem item = gQueue(queueNum);
    const QString solvent = expedra.GetLockRequired() ? u"Solvent: "_s + item.Solvent : QString();
    expedra.SetSampleInfo(
        {item.UserID, item.Organization, item.SampleName + u"\r\n"_s + item.SampleDes, solvent});
}

} // namespace spinlane
