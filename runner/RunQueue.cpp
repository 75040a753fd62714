#include "runner/RunQueue.h"

#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "core/wait_in_seconds.h"
#include "queue/QueueStore.h"
#include "queue/StatusBar.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunHistory.h"
#include "runner/RunLog.h"
#include "runner/SampleSteps.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane {

bool gStopRequested = false;
bool gStepFailed = false;
bool gSameSample = false;

namespace {

enum class Outcome { Done, Failed, Stopped, DoneThenStop, Fatal };

bool sampleChangerRun() { return runModeNow() == RunMode::Changer; }

void setStatus(qint32 row, qint32 queueNum, const QString& status, quint32 color)
{
    gQueueList.setSubItem(row, QueueList::StatusSubItem, status);
    gQueue(queueNum).Status = status;
    gQueueList.setForeColor(row, color);
}

Outcome outcomeAfterStep()
{
    if (gStopRequested)
        return Outcome::Stopped;
    return gStepFailed ? Outcome::Failed : Outcome::Done;
}

// Load (unless the sample is already in), spin, run, and eject when the next item needs
// another sample. `previousSample` is the sample of the last item completed in this run.
Outcome runWithSampleChanger(qint32 n, qint32& previousSample)
{
    const qint32 sample = gQueue(n).SampleNum;
    gSameSample = sample == previousSample;
    if (!gSameSample)
        LoadStep(n);
    if (gStopRequested)
        return Outcome::Stopped;
    if (gStepFailed) {
        EjectStep();
        return Outcome::Failed;
    }
    for (auto step : {SpinStep, ExperimentStep}) {
        step(n);
        if (const Outcome outcome = outcomeAfterStep(); outcome != Outcome::Done)
            return outcome;
    }
    const qint32 next = n < gQueue.upperBound() ? gQueue(n + 1).SampleNum : 0;
    if (sample != next) {
        Expedra& expedra = linked(gExpedra);
        if (expedra.GetLockRequired())
            expedra.ReleaseSample();
        wait_in_seconds(kWaitBeforeEject); // before the eject is sent: a stop does not shorten it
        EjectStep();
    }
    if (gStopRequested)
        return Outcome::DoneThenStop;
    if (gStepFailed)
        return Outcome::Fatal;
    previousSample = sample;
    return Outcome::Done;
}

Outcome runItem(qint32 n, qint32& previousSample)
{
    if (gSampleControl == 1 || gSampleControl == 2) {
        if (sampleChangerRun())
            return runWithSampleChanger(n, previousSample);
        ExperimentStep(n);
        return outcomeAfterStep();
    }
    return Outcome::Done; // no sample handling: the run only walks the queue
}

// Records the outcome in the row, the queue and the log. Returns whether the run goes on.
bool record(Outcome outcome, qint32 row, qint32 n)
{
    switch (outcome) {
    case Outcome::Done: setStatus(row, n, u"Done"_s, kBlue); break;
    case Outcome::Failed:
        gStepFailed = false;
        setStatus(row, n, u"Failed"_s, kRed);
        break;
    case Outcome::Stopped:
        gStopRequested = false;
        setStatus(row, n, u"Stopped"_s, kYellow);
        break;
    case Outcome::DoneThenStop:
        gStopRequested = false;
        setStatus(row, n, u"Done"_s, kBlue);
        break;
    case Outcome::Fatal:
        // The experiment itself completed; only the eject after it failed.
        gStepFailed = false;
        RequestStop();
        gStopRequested = false;
        setStatus(row, n, u"Done"_s, kBlue);
        break;
    }
    // The outcome reaches the recovery journal and the run history before the log, so that a
    // log line never tells of an outcome that a restore would not bring back.
    Q_EMIT gRunControls.runMoment();
    RecordRunHistory(n, gQueue(n).Status);
    if (gLogOn)
        WriteItemLogLine(gQueueList.row(row).text, n);
    switch (outcome) {
    case Outcome::Done:
    case Outcome::Failed: return true;
    case Outcome::Stopped:
    case Outcome::DoneThenStop:
        if (gLogOn)
            WriteStopBanner();
        return false;
    case Outcome::Fatal:
        if (gLogOn)
            WriteFatalBanner();
        return false;
    }
    return false;
}

// Marks the run as under way for as long as RunQueue has not returned, error or not.
struct RunUnderWay {
    RunUnderWay() { gRunControls.setRunUnderWay(true); }
    ~RunUnderWay() { gRunControls.setRunUnderWay(false); }
};

} // namespace

qint32 FindQueueRow(qint32 queueNum)
{
    for (qint32 row = 1; row <= gQueueList.count(); ++row) {
        if (leadingNumber(gQueueList.row(row).text) == queueNum)
            return row;
    }
    throw RuntimeError(RuntimeError::ObjectNotSet);
}

bool RunInProgress() { return gRunControls.runUnderWay(); }

void ClickStartQueue()
{
    const QString caption = gRunControls.startQueueCaption();
    if (caption == kStopCaption) {
        RequestStop();
        return;
    }
    if (gQueueList.count() == 0)
        return;
    if (caption == kStartCaption) {
        for (qint32 row = 1; row <= gQueueList.count(); ++row)
            gQueueList.setBold(row, false);
        gStatusBar.resetProgressValue();
        RunQueue();
    } else if (caption == kContinueCaption) {
        ContinueQueue();
    } else if (caption == kRunAgainCaption) {
        gCurrentQueueNum = 0;
        gStatusBar.resetProgressValue();
        gRunControls.setStartQueueToolTip({});
        RunQueue();
    }
}

void RunQueue()
{
    const RunUnderWay underWay;
    if (gLogOn) {
        WriteStartBanner();
        WriteLogHeader();
    }
    PrepareRun();
    qint32 previousSample = 0;
    for (;;) {
        if (gCurrentQueueNum >= gQueue.upperBound()) {
            FinishRun();
            if (gLogOn)
                WriteDoneBanner();
            return;
        }
        const qint32 n = ++gCurrentQueueNum;
        const qint32 row = FindQueueRow(n);
        gQueueList.setChecked(row, true);
        gQueueList.selectOnly(row);
        UpdateSelectionStatus();
        if (gQueueList.subItem(row, QueueList::StatusSubItem) == u"Done"_s)
            continue;

        BeginRunRecord();
        setStatus(row, n, u"In progress"_s, kGreen);
        gQueueList.setBold(row, true);
        gQueueList.setGhosted(row, true);
        Q_EMIT gRunControls.runMoment();
        if (!record(runItem(n, previousSample), row, n))
            return;
    }
}

void RequestStop()
{
    gRunControls.setStartQueueCaption(kContinueCaption);
    gStopRequested = true;
    gRunControls.setStartOverVisible(true);
    gStatusBar.setText(StatusBar::SpinPanel, {});
}

void ContinueQueue()
{
    gCurrentQueueNum = std::max(gCurrentQueueNum - 1, 0);
    RunQueue();
}

void PrepareRun()
{
    SyncQueueFromList(0);
    gRunControls.setStartOverVisible(false);
    gRunControls.setStartQueueCaption(kStopCaption);
    if (sampleChangerRun()) {
        // Whatever the changer holds goes out first; how that eject ends does not matter.
        linked(gExpedra).ReleaseSample();
        wait_in_seconds(kWaitBeforeEject);
        EjectStep();
        gStepFailed = false;
    }
}

void FinishRun()
{
    gRunControls.setStartQueueCaption(kRunAgainCaption);
    gRunControls.setStartQueueToolTip(u"Only to complete the failed items."_s);
    gRunControls.setStartOverVisible(true);
    for (qint32 row = 1; row <= gQueueList.count(); ++row)
        gQueueList.setGhosted(row, false);
    gStatusBar.setText(StatusBar::SpinPanel, {});
    Q_EMIT gRunControls.runMoment();
    if (sampleChangerRun()) {
        // The changer is left spinning at 20 Hz after a finished run.
        SampleChanger& changer = linked(gSampleChanger);
        changer.SetSpinRate(20.0);
        wait_in_seconds(1);
        changer.SetSpin(true);
    }
}

void resetRunState()
{
    gStopRequested = gStepFailed = gSameSample = false;
    gRunControls.reset();
    gStatusBar.reset();
}

} // namespace spinlane
