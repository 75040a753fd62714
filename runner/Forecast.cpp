#include "runner/Forecast.h"

#include "core/ProfileFile.h"
#include "core/ProgramSettings.h"
#include "core/Seams.h"
#include "queue/QueueStore.h"
#include "runner/RunControls.h"
#include "runner/SampleSteps.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

// How many of the latest runs an estimate looks at, and how many of one sample state it needs
// before it prefers them to the title's other runs.
constexpr std::size_t kRecentRuns = 30;
constexpr std::size_t kEnoughRuns = 3;
// A solvent's own runs of a title are preferred once there are this many.
constexpr std::size_t kEnoughSolventRuns = 5;
// Fewer runs than this say little of the spread: it is then at least this share of the estimate.
constexpr int kSpreadRuns = 5;
constexpr double kFewRunsSpread = 0.25;
// A lab's default is a nominal time, and real runs overrun nominal times more than they
// underrun them: its range goes from a quarter below to a half above it.
// The error is the nominal time's, so every item of the title shares it.
constexpr double kDefaultBelow = 0.25;
constexpr double kDefaultAbove = 0.5;

// The 90th percentile of Student's t distribution by degrees of freedom (1 to 29), over the
// normal distribution's (1.2816): how much wider a range must be when the spread it comes from is
// itself estimated from so many runs.
double fewRunsWidening(int runs)
{
    static constexpr double kT90[] = {3.078, 1.886, 1.638, 1.533, 1.476, 1.440, 1.415, 1.397,
                                      1.383, 1.372, 1.363, 1.356, 1.350, 1.345, 1.341, 1.337,
                                      1.333, 1.330, 1.328, 1.325, 1.323, 1.321, 1.319, 1.318,
                                      1.316, 1.315, 1.314, 1.313, 1.311};
    constexpr int kRows = int(std::size(kT90));
    if (runs < 2)
        return 1; // no spread to widen: the floor for few runs sets it
    return kT90[std::min(runs - 1, kRows) - 1] / 1.2816;
}

// The latest values, sorted.
std::vector<double> latestSorted(const std::vector<double>& values)
{
    const std::size_t n = std::min(values.size(), kRecentRuns);
    std::vector<double> recent(values.end() - std::ptrdiff_t(n), values.end());
    std::sort(recent.begin(), recent.end());
    return recent;
}

// The mean of the middle half of sorted values; the median of fewer than four.
double robustMean(const std::vector<double>& sorted)
{
    const std::size_t n = sorted.size();
    if (n < 4)
        return (sorted[(n - 1) / 2] + sorted[n / 2]) / 2;
    const std::size_t cut = n / 4;
    double sum = 0;
    for (std::size_t i = cut; i < n - cut; ++i)
        sum += sorted[i];
    return sum / double(n - 2 * cut);
}

// The p-th quantile of sorted values, between neighbours linearly.
double quantile(const std::vector<double>& sorted, double p)
{
    const double rank = p * double(sorted.size() - 1);
    const std::size_t low = std::size_t(rank);
    const std::size_t high = std::min(low + 1, sorted.size() - 1);
    return sorted[low] + (sorted[high] - sorted[low]) * (rank - double(low));
}

// An estimate from sorted runs: `centre` of them, its range their 10th and 90th percentiles.
Estimate fromRuns(const std::vector<double>& sorted, Basis basis,
                  double (*centre)(const std::vector<double>&))
{
    if (sorted.empty())
        return {};
    Estimate e{centre(sorted), basis, int(sorted.size())};
    double sum = 0;
    for (double seconds : sorted)
        sum += seconds;
    const double mean = sum / double(sorted.size());
    e.shift = mean - e.seconds;
    const double few = e.runs < kSpreadRuns ? kFewRunsSpread * mean : 0;
    e.below = std::min(std::max(mean - quantile(sorted, 0.1), few), mean);
    e.above = std::max(quantile(sorted, 0.9) - mean, few);
    return e;
}

// A title's estimate from its runs: the spread widened for their number, and the error of their
// mean, the spread over the square root of their number, shared by the items of `source`.
Estimate learnedFrom(const std::vector<double>& sorted, const QString& source)
{
    Estimate e = fromRuns(sorted, Basis::History, robustMean);
    if (!e.known())
        return e;
    const double widen = fewRunsWidening(e.runs);
    const double root = std::sqrt(double(e.runs));
    e.below *= widen;
    e.above *= widen;
    e.sharedBelow = e.below / root;
    e.sharedAbove = e.above / root;
    e.source = source;
    return e;
}

// An estimate whose whole range is an error every item of `source` shares.
Estimate sharedWholly(Estimate e, const QString& source)
{
    e.sharedBelow = e.below;
    e.sharedAbove = e.above;
    e.below = e.above = 0;
    e.source = source;
    return e;
}

double median(const std::vector<double>& sorted) { return quantile(sorted, 0.5); }

double learnedOr(const std::vector<double>& runs, double fixedWaits)
{
    return runs.empty() ? fixedWaits : robustMean(latestSorted(runs));
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
    case Basis::Typical: return u"typical"_s;
    case Basis::None: break;
    }
    return u"none"_s;
}

bool ForecastItem::operator==(const ForecastItem& o) const
{
    return queueNumber == o.queueNumber && expectedStart == o.expectedStart
           && expectedEnd == o.expectedEnd && expectedSeconds == o.expectedSeconds
           && basis == o.basis && runs == o.runs && earliestStart == o.earliestStart
           && latestStart == o.latestStart && earliestEnd == o.earliestEnd
           && latestEnd == o.latestEnd && beyondRuns == o.beyondRuns;
}

Estimate DurationModel::experimentLeft(const QString& title, bool sameSample, double elapsed) const
{
    Estimate e = experiment(title, sameSample);
    if (!e.known())
        return e;
    e.seconds = std::max(e.seconds - elapsed, kRemainingFloorSeconds);
    e.shift = std::max(e.shift, -e.seconds);
    e.below = std::min(e.below, e.seconds + e.shift);
    e.sharedBelow = std::min(e.sharedBelow, e.seconds + e.shift);
    return e;
}

Forecast forecastQueue(const ForecastInput& in, const DurationModel& model)
{
    const bool changer = in.mode == RunMode::Changer;
    const qint32 count = qint32(in.queue.size());
    const auto sampleAt = [&](qint32 n) {
        return n >= 1 && n <= count ? in.queue[std::size_t(n - 1)].samplePosition : 0;
    };
    // The whole item as the run loop takes it: load unless the sample is in, spin, run, and
    // eject unless the next item in the queue is at the same position. For an item that has run
    // `elapsed` seconds (negative: not yet taken up), the time it has left. The handling counts
    // as fixed: the spread is the experiment's.
    const auto itemEstimate = [&](qint32 n, qint32 previousSample, double elapsed) {
        if (in.mode == RunMode::None)
            return Estimate{0, Basis::Default, 0};
        const ForecastQueueItem& item = in.queue[std::size_t(n - 1)];
        const bool load = changer && item.samplePosition != previousSample;
        const double before = changer ? model.spin() + (load ? model.load() : 0) : 0;
        const double afterwards = changer && item.samplePosition != sampleAt(n + 1)
                                      ? kWaitBeforeEject + model.eject()
                                      : 0;
        Estimate estimate =
            elapsed < 0 ? model.experimentIn(item.title, item.solvent, changer && !load)
                        : model.experimentLeft(item.title, changer && !load,
                                               std::max(elapsed - before, 0.0));
        if (estimate.known())
            estimate.seconds += std::max(before - std::max(elapsed, 0.0), 0.0) + afterwards;
        return estimate;
    };

    Forecast forecast;
    forecast.ifStartedNow = !in.running;
    QDateTime clock = in.now; // when the next item is taken up; invalid once unknown
    // Over the items ahead: the sum of their means less their estimates, and the sums of the
    // squared distances from their means to their 10th and 90th percentiles, as independent
    // times add their variances. The errors of the learned means add up per source first (the
    // same error, ten items of a title make it ten times as large), and those sums add as
    // independent ones do.
    double shift = 0;
    double below2 = 0;
    double above2 = 0;
    QHash<QString, std::pair<double, double>> sharedBySource;
    const auto add = [&](const Estimate& e) {
        shift += e.shift;
        below2 += e.below * e.below;
        above2 += e.above * e.above;
        if (e.source.isEmpty()) {
            below2 += e.sharedBelow * e.sharedBelow;
            above2 += e.sharedAbove * e.sharedAbove;
            return;
        }
        std::pair<double, double>& sum = sharedBySource[e.source];
        below2 += e.sharedBelow * (2 * sum.first + e.sharedBelow);
        above2 += e.sharedAbove * (2 * sum.second + e.sharedAbove);
        sum.first += e.sharedBelow;
        sum.second += e.sharedAbove;
    };
    const auto range = [&](const QDateTime& time, QDateTime& earliest, QDateTime& latest) {
        if (!time.isValid())
            return;
        earliest = std::max(after(time, shift - std::sqrt(below2)), in.now);
        latest = after(time, shift + std::sqrt(above2));
    };
    qint32 previousSample = 0;
    qint32 first = std::max(in.firstItem, 1);
    const qint32 current = in.currentQueueNum;
    if (in.running && current >= 1 && current <= count
        && in.queue[std::size_t(current - 1)].status == u"In progress"_s) {
        // A clock set back since the item began gives it no time in the future.
        const QDateTime start =
            std::min(in.currentTakenUp.isValid() ? in.currentTakenUp : in.now, in.now);
        const Estimate left =
            itemEstimate(current, sampleAt(current - 1), secondsBetween(start, in.now));
        ForecastItem item;
        item.queueNumber = current;
        item.expectedStart = start;
        item.basis = left.basis;
        item.runs = left.runs;
        item.earliestStart = item.latestStart = start;
        item.beyondRuns = left.beyondRuns;
        if (left.known()) {
            item.expectedEnd = after(in.now, left.seconds);
            item.expectedSeconds = qint32(std::lround(secondsBetween(start, item.expectedEnd)));
            add(left);
            range(item.expectedEnd, item.earliestEnd, item.latestEnd);
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
        const Estimate estimate = itemEstimate(n, previousSample, -1);
        ForecastItem item;
        item.queueNumber = n;
        item.expectedStart = clock;
        item.basis = estimate.basis;
        item.runs = estimate.runs;
        range(clock, item.earliestStart, item.latestStart);
        if (estimate.known()) {
            item.expectedSeconds = qint32(std::lround(estimate.seconds));
            add(estimate);
            if (clock.isValid())
                item.expectedEnd = after(clock, estimate.seconds);
            range(item.expectedEnd, item.earliestEnd, item.latestEnd);
        }
        clock = item.expectedEnd;
        forecast.items.push_back(item);
        previousSample = queued.samplePosition;
    }
    return forecast;
}

HistoryModel::HistoryModel(const std::vector<RunRecord>& history, QHash<QString, double> defaults,
                           bool bySolvent)
    : m_defaults(std::move(defaults))
{
    std::vector<double> loads, spins, ejects, experiments;
    for (const RunRecord& r : history) {
        if (r.mode == RunMode::None)
            continue;
        if (r.outcome != u"Stopped"_s) {
            TitleRuns& runs = m_titles[r.title];
            const bool same = r.mode == RunMode::Changer && !r.loaded;
            (same ? runs.same : runs.fresh).push_back(r.experimentSeconds);
            if (!same && bySolvent && !r.solvent.isEmpty())
                runs.freshBySolvent[r.solvent].push_back(r.experimentSeconds);
            experiments.push_back(r.experimentSeconds);
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
        runs.freshBasis = latestSorted(runs.fresh.size() >= kEnoughRuns ? runs.fresh : all);
        runs.sameBasis = latestSorted(runs.same.size() >= kEnoughRuns ? runs.same : all);
        // Two states learned from the same runs share their error.
        const QString title = it.key() + u'\n';
        runs.freshEstimate = learnedFrom(
            runs.freshBasis, title + (runs.fresh.size() >= kEnoughRuns ? u"fresh"_s : u"all"_s));
        runs.sameEstimate = learnedFrom(
            runs.sameBasis, title + (runs.same.size() >= kEnoughRuns ? u"same"_s : u"all"_s));
        for (auto solvent = runs.freshBySolvent.cbegin(); solvent != runs.freshBySolvent.cend();
             ++solvent) {
            if (solvent->size() >= kEnoughSolventRuns)
                runs.solventEstimates.insert(
                    solvent.key(),
                    learnedFrom(latestSorted(*solvent), title + u"fresh\n"_s + solvent.key()));
        }
        runs.freshBySolvent.clear();
    }
    // A title never run: the instrument's recent experiments of any title, whose spread is wide.
    // Where in that spread the title lies is one unknown for all its items.
    m_typical = fromRuns(latestSorted(experiments), Basis::Typical, median);
}

Estimate HistoryModel::experiment(const QString& title, bool sameSample) const
{
    const auto runs = m_titles.constFind(title);
    if (runs != m_titles.constEnd())
        return sameSample ? runs->sameEstimate : runs->freshEstimate;
    const auto preset = m_defaults.constFind(title.toCaseFolded());
    if (preset == m_defaults.constEnd())
        return m_typical.known() ? sharedWholly(m_typical, u"typical\n"_s + title) : m_typical;
    return sharedWholly({*preset + kWaitAfterRunStart + kWaitAfterExperiment, Basis::Default, 0,
                         kDefaultBelow * *preset, kDefaultAbove * *preset},
                        u"default\n"_s + title);
}

Estimate HistoryModel::experimentIn(const QString& title, const QString& solvent,
                                    bool sameSample) const
{
    const auto runs = m_titles.constFind(title);
    if (runs != m_titles.constEnd() && !sameSample) {
        const auto own = runs->solventEstimates.constFind(solvent);
        if (own != runs->solventEstimates.constEnd())
            return *own;
    }
    return experiment(title, sameSample);
}

Estimate HistoryModel::experimentLeft(const QString& title, bool sameSample, double elapsed) const
{
    const auto runs = m_titles.constFind(title);
    if (runs == m_titles.constEnd())
        return DurationModel::experimentLeft(title, sameSample, elapsed);
    // The time left, given that it is still running: from the runs that lasted at least as long.
    const std::vector<double>& sorted = sameSample ? runs->sameBasis : runs->freshBasis;
    std::vector<double> left;
    for (double seconds : sorted) {
        if (seconds >= elapsed)
            left.push_back(seconds - elapsed);
    }
    if (!left.empty())
        return learnedFrom(left, QString());
    Estimate beyond = sameSample ? runs->sameEstimate : runs->freshEstimate;
    beyond.seconds = kRemainingFloorSeconds;
    beyond.shift = 0;
    beyond.below = kRemainingFloorSeconds;
    beyond.above = std::max(beyond.above, kRemainingFloorSeconds);
    beyond.sharedBelow = beyond.sharedAbove = 0;
    beyond.source.clear();
    beyond.beyondRuns = true;
    return beyond;
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
            in.queue.push_back({n, item.SampleNum, gExpTitles.value(item.ExpTitleIndex),
                                item.Status, item.Solvent});
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
    // Learning the model costs more than the walk: it is kept while neither the history nor the
    // settings file changed.
    struct Learned {
        quint64 generation = 0;
        QString iniPath;
        QDateTime iniModified;
        qint64 iniSize = -1;
        std::optional<HistoryModel> model;
    };
    static Learned learned;
    const quint64 generation = runHistoryGeneration();
    const QFileInfo ini(gIniPath);
    const QDateTime modified = ini.lastModified();
    const qint64 size = ini.exists() ? ini.size() : -1;
    if (!learned.model || learned.generation != generation || learned.iniPath != gIniPath
        || learned.iniModified != modified || learned.iniSize != size) {
        learned.model.emplace(runHistory(), forecastDefaults(gIniPath));
        learned.generation = generation;
        learned.iniPath = gIniPath;
        learned.iniModified = modified;
        learned.iniSize = size;
    }
    return forecastQueue(forecastInputNow(), *learned.model);
}

} // namespace spinlane
