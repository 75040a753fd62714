#pragma once

#include "runner/RunHistory.h"

#include <QDateTime>
#include <QHash>
#include <QString>

#include <vector>

// The forecast: for every item the next run would take up, in the run loop's order and by its
// rules, when it is expected to go "In progress" and when its outcome is expected. It is a pure
// function of the queue, the run state, the clock and a model of how long each part of an item
// takes; the model learned from the history of runs is HistoryModel.
namespace spinlane {

// Where an estimate comes from: the title's own runs, the lab's default for the title, the
// instrument's recent runs of any title, or nowhere.
enum class Basis { None, Default, History, Typical };
QString basisName(Basis basis); // "none", "default", "history", "typical"

struct Estimate {
    Estimate() = default;
    Estimate(double seconds_, Basis basis_, int runs_, double below_ = 0, double above_ = 0)
        : seconds(seconds_)
        , basis(basis_)
        , runs(runs_)
        , below(below_)
        , above(above_)
    {
    }

    double seconds = -1; // -1: no estimate
    Basis basis = Basis::None;
    int runs = 0; // the past runs it was learned from
    // The mean of the time less `seconds` (a robust mean or a median need not be its mean), and
    // how far its 10th and its 90th percentile lie below and above that mean. Means add up over
    // the items ahead where robust means do not, so the ranges centre on them.
    double shift = 0;
    double below = 0;
    double above = 0;
    // How far the learned mean itself may be off, the same way: an error that every item of the
    // same `source` shares (the same title learned from the same runs, or the same nominal time),
    // so over the items ahead it adds up as a whole, not as independent spreads do. Without a
    // source it counts as the item's own.
    double sharedBelow = 0;
    double sharedAbove = 0;
    QString source;
    // The time left of a running item that has run longer than every past run of its kind.
    bool beyondRuns = false;

    bool known() const { return seconds >= 0; }
};

// How long each part of an item takes, its fixed waits included.
class DurationModel {
public:
    virtual ~DurationModel() = default;
    // The experiment step; `sameSample` when the sample stayed in the magnet from the item before.
    virtual Estimate experiment(const QString& title, bool sameSample) const = 0;
    // The same for a sample in `solvent`; by default the solvent is not told apart.
    virtual Estimate experimentIn(const QString& title, const QString& solvent,
                                  bool sameSample) const
    {
        Q_UNUSED(solvent);
        return experiment(title, sameSample);
    }
    // The time left of an experiment that has run `elapsed` seconds. By default its estimate less
    // the time taken, never below kRemainingFloorSeconds.
    virtual Estimate experimentLeft(const QString& title, bool sameSample, double elapsed) const;
    virtual double load() const = 0;
    virtual double spin() const = 0;
    virtual double eject() const = 0;
};

// An item's remaining time never falls below this while it runs.
inline constexpr double kRemainingFloorSeconds = 30;

struct ForecastQueueItem {
    qint32 queueNumber = 0;
    qint32 samplePosition = 0;
    QString title;
    QString status;
    QString solvent;
};

struct ForecastInput {
    std::vector<ForecastQueueItem> queue; // in queue order, numbered from 1
    RunMode mode = RunMode::None;
    // While a run goes on: the item it runs and when that went "In progress". Otherwise the run
    // starts at `firstItem` now.
    bool running = false;
    qint32 currentQueueNum = 0;
    QDateTime currentTakenUp;
    qint32 firstItem = 1;
    QDateTime now;
};

struct ForecastItem {
    qint32 queueNumber = 0;
    QDateTime expectedStart; // invalid when unknown
    QDateTime expectedEnd;
    qint32 expectedSeconds = -1;
    Basis basis = Basis::None;
    int runs = 0;
    // The 10th and 90th percentiles of the start and the end (invalid when unknown): the items'
    // own spreads add as independent variances do, not as ranges; the errors of the learned
    // means add per source first, as one shared error.
    QDateTime earliestStart;
    QDateTime latestStart;
    QDateTime earliestEnd;
    QDateTime latestEnd;
    bool beyondRuns = false; // running longer than any past run of its kind

    bool operator==(const ForecastItem& o) const;
};

struct Forecast {
    std::vector<ForecastItem> items;
    bool ifStartedNow = false;
};

Forecast forecastQueue(const ForecastInput& input, const DurationModel& model);

// The model learned from the history: an experiment's time is a robust mean (the mean of the
// middle half) of its title's latest runs that were not stopped, those with the same sample
// state when there are enough, and of a freshly loaded sample those in the same solvent when
// there are enough of them (the lock and the shim depend on it); its spread their 10th and 90th
// percentiles, widened as a Student t interval is for the few runs they come from, and the
// standard error of the mean (that spread over the square root of the runs) shared by every item
// of the title. A load, a spin and an eject the same over the changer's latest runs. Without
// history, the fixed waits alone, plus for an experiment its title's default, or else the
// instrument's typical experiment, both of whose ranges are an error every item of the title
// shares.
class HistoryModel : public DurationModel {
public:
    // `defaults`: seconds per experiment title, as the lab sets them. `bySolvent`: whether the
    // runs of a solvent are told apart (the benchmark compares both).
    HistoryModel(const std::vector<RunRecord>& history, QHash<QString, double> defaults,
                 bool bySolvent = true);

    Estimate experiment(const QString& title, bool sameSample) const override;
    Estimate experimentIn(const QString& title, const QString& solvent,
                          bool sameSample) const override;
    Estimate experimentLeft(const QString& title, bool sameSample, double elapsed) const override;
    double load() const override { return m_load; }
    double spin() const override { return m_spin; }
    double eject() const override { return m_eject; }

private:
    struct TitleRuns {
        std::vector<double> fresh; // newest last
        std::vector<double> same;
        std::vector<double> freshBasis; // the latest runs each estimate is learned from
        std::vector<double> sameBasis;
        Estimate freshEstimate;
        Estimate sameEstimate;
        QHash<QString, std::vector<double>> freshBySolvent;
        QHash<QString, Estimate> solventEstimates; // of those with enough runs
    };
    QHash<QString, TitleRuns> m_titles;
    QHash<QString, double> m_defaults;
    Estimate m_typical;
    double m_load;
    double m_spin;
    double m_eject;
};

// The lab's default experiment times: section "Forecast" of the settings file, one key per
// experiment title, its value in seconds. Values that are no positive number are left out.
QHash<QString, double> forecastDefaults(const QString& iniPath);

// The forecast's input from the queue, the run controls and the clock as they are now.
ForecastInput forecastInputNow();
// The forecast of the queue as it is now, learned from the history file. The model is learned
// again only when the history or the settings file changed.
Forecast forecastNow();

} // namespace spinlane
