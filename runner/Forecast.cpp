#include "runner/Forecast.h"

#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"
#include "core/Seams.h"
#include "queue/QueueStore.h"
#include "runner/RunControls.h"
#include "runner/SampleSteps.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

// How many of the latest runs an estimate looks at, and how many of one sample state it needs
// before it prefers them to the title's other runs.
constexpr std::size_t kRecentRuns = 30;
constexpr std::size_t kEnoughRuns = 3;

// The mean of the middle half of the latest values; the median of fewer than four.
double robustMean(const std::vector<double>& values)
{
    const std::size_t n = std::min(values.size(), kRecentRuns);
    std::vector<double> recent(values.end() - std::ptrdiff_t(n), values.end());
    std::sort(recent.begin(), recent.end());
    if (n < 4)
        return (recent[(n - 1) / 2] + recent[n / 2]) / 2;
    const std::size_t cut = n / 4;
    double sum = 0;
    for (std::size_t i = cut; i < n - cut; ++i)
        sum += recent[i];
    return sum / double(n - 2 * cut);
}

Estimate learned(const std::vector<double>& runs)
{
    if (runs.empty())
        return {};
    return {robustMean(runs), Basis::History, int(std::min(runs.size(), kRecentRuns))};
}

double learnedOr(const std::vector<double>& runs, double fixedWaits)
{
    return runs.empty() ? fixedWaits : robustMean(runs);
}

QDateTime after(const QDateTime& time, double seconds)
{
    return time.addMSecs(qint64(std::llround(seconds * 1000)));
}

} // namespace

QString basisName(Basis basis)
{
    switch (basis) {
    case Basis::History: return u"history"_s;
    case Basis::Default: return u"default"_s;
    case Basis::None: break;
    }
    return u"none"_s;
}

bool ForecastItem::operator==(const ForecastItem& o) const
{
    return queueNumber == o.queueNumber && expectedStart == o.expectedStart
           && expectedEnd == o.expectedEnd && expectedSeconds == o.expectedSeconds
           && basis == o.basis && runs == o.runs;
}

Forecast forecastQueue(const ForecastInput& in, const DurationModel& model)
{
    const bool changer = in.mode == RunMode::Changer;
    const qint32 count = qint32(in.queue.size());
    const auto sampleAt = [&](qint32 n) {
        return n >= 1 && n <= count ? in.queue[std::size_t(n - 1)].samplePosition : 0;
    };
    // The whole item as the run loop takes it: load unless the sample is in, spin, run, and
    // eject unless the next item in the queue is at the same position.
    const auto itemEstimate = [&](qint32 n, qint32 previousSample) {
        if (in.mode == RunMode::None)
            return Estimate{0, Basis::Default, 0};
        const ForecastQueueItem& item = in.queue[std::size_t(n - 1)];
        const bool load = changer && item.samplePosition != previousSample;
        Estimate estimate = model.experiment(item.title, changer && !load);
        if (!estimate.known() || !changer)
            return estimate;
        estimate.seconds += model.spin();
        if (load)
            estimate.seconds += model.load();
        if (item.samplePosition != sampleAt(n + 1))
            estimate.seconds += kWaitBeforeEject + model.eject();
        return estimate;
    };

    Forecast forecast;
    forecast.ifStartedNow = !in.running;
    QDateTime clock = in.now; // when the next item is taken up; invalid once unknown
    qint32 previousSample = 0;
    qint32 first = std::max(in.firstItem, 1);
    const qint32 current = in.currentQueueNum;
    if (in.running && current >= 1 && current <= count
        && in.queue[std::size_t(current - 1)].status == u"In progress"_s) {
        const Estimate estimate = itemEstimate(current, sampleAt(current - 1));
        // A clock set back since the item began gives it no time in the future.
        const QDateTime start =
            std::min(in.currentTakenUp.isValid() ? in.currentTakenUp : in.now, in.now);
        ForecastItem item{current, start, {}, -1, estimate.basis, estimate.runs};
        if (estimate.known()) {
            const double remaining =
                std::max(estimate.seconds - secondsBetween(start, in.now), kRemainingFloorSeconds);
            item.expectedEnd = after(in.now, remaining);
            item.expectedSeconds = qint32(std::lround(secondsBetween(start, item.expectedEnd)));
        }
        clock = item.expectedEnd;
        forecast.items.push_back(item);
        previousSample = sampleAt(current);
        first = current + 1;
    } else if (!in.running && changer && first <= count) {
        // A run first releases and ejects whatever the changer holds.
        clock = after(clock, kWaitBeforeEject + model.eject());
    }
    for (qint32 n = first; n <= count; ++n) {
        const ForecastQueueItem& queued = in.queue[std::size_t(n - 1)];
        if (queued.status == u"Done"_s)
            continue;
        const Estimate estimate = itemEstimate(n, previousSample);
        ForecastItem item{n, clock, {}, -1, estimate.basis, estimate.runs};
        if (estimate.known()) {
            item.expectedSeconds = qint32(std::lround(estimate.seconds));
            if (clock.isValid())
                item.expectedEnd = after(clock, estimate.seconds);
        }
        clock = item.expectedEnd;
        forecast.items.push_back(item);
        previousSample = queued.samplePosition;
    }
    return forecast;
}

HistoryModel::HistoryModel(const std::vector<RunRecord>& history, QHash<QString, double> defaults)
    : m_defaults(std::move(defaults))
{
    std::vector<double> loads, spins, ejects;
    for (const RunRecord& r : history) {
        if (r.mode == RunMode::None)
            continue;
        if (r.outcome != u"Stopped"_s) {
            TitleRuns& runs = m_titles[r.title];
            (r.mode == RunMode::Changer && !r.loaded ? runs.same : runs.fresh)
                .push_back(r.experimentSeconds);
        }
        if (r.mode != RunMode::Changer)
            continue;
        if (r.loaded)
            loads.push_back(r.loadSeconds);
        if (r.spinSeconds > 0)
            spins.push_back(r.spinSeconds);
        if (r.ejected)
            ejects.push_back(r.ejectSeconds);
    }
    m_load = learnedOr(loads, kWaitAfterMotion);
    m_spin = learnedOr(spins, kWaitBetweenSpinCommands + kWaitAfterSpin);
    m_eject = learnedOr(ejects, kWaitAfterMotion);
    for (auto it = m_titles.begin(); it != m_titles.end(); ++it) {
        TitleRuns& runs = it.value();
        // An estimate of one sample state needs enough runs of it; else all the title's runs.
        std::vector<double> all = runs.fresh;
        all.insert(all.end(), runs.same.begin(), runs.same.end());
        runs.freshEstimate = learned(runs.fresh.size() >= kEnoughRuns ? runs.fresh : all);
        runs.sameEstimate = learned(runs.same.size() >= kEnoughRuns ? runs.same : all);
    }
}

Estimate HistoryModel::experiment(const QString& title, bool sameSample) const
{
    const auto runs = m_titles.constFind(title);
    if (runs != m_titles.constEnd())
        return sameSample ? runs->sameEstimate : runs->freshEstimate;
    const auto preset = m_defaults.constFind(title.toCaseFolded());
    if (preset == m_defaults.constEnd())
        return {};
    return {*preset + kWaitAfterRunStart + kWaitAfterExperiment, Basis::Default, 0};
}

QHash<QString, double> forecastDefaults(const QString& iniPath)
{
    QHash<QString, double> defaults;
    for (const ProfileDocument::Item& item : ProfileDocument::load(iniPath).items()) {
        if (item.header || !item.value || item.section.compare(u"Forecast"_s, Qt::CaseInsensitive))
            continue;
        bool ok = false;
        const double seconds = item.value->trimmed().toDouble(&ok);
        const QString key = item.key.trimmed().toCaseFolded();
        // The first entry of a key counts, as the engine reads it.
        if (ok && std::isfinite(seconds) && seconds > 0 && seconds <= 7 * 24 * 3600.0
            && !defaults.contains(key))
            defaults.insert(key, seconds);
    }
    return defaults;
}

ForecastInput forecastInputNow()
{
    ForecastInput in;
    in.mode = runModeNow();
    in.now = seams().clock->now();
    if (gQueueList.count() > 0) {
        for (qint32 n = 1; n <= gQueue.upperBound(); ++n) {
            const QueueItem& item = gQueue(n);
            in.queue.push_back(
                {n, item.SampleNum, gExpTitles.value(item.ExpTitleIndex), item.Status});
        }
    }
    in.running = gRunControls.runUnderWay();
    in.currentQueueNum = gCurrentQueueNum;
    in.currentTakenUp = currentItemTakenUp();
    // A run under way takes up the item after the current one; its caption may already say what
    // the next click does (the end of a run sets "Run The Queue Again!" before its last wait).
    const QString caption = gRunControls.startQueueCaption();
    if (in.running)
        in.firstItem = gCurrentQueueNum + 1;
    else if (caption == kRunAgainCaption)
        in.firstItem = 1;
    else if (caption == kContinueCaption)
        in.firstItem = std::max(gCurrentQueueNum - 1, 0) + 1;
    else
        in.firstItem = gCurrentQueueNum + 1;
    return in;
}

Forecast forecastNow()
{
    const HistoryModel model(runHistory(), forecastDefaults(gIniPath));
    return forecastQueue(forecastInputNow(), model);
}

} // namespace spinlane
