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

enum class Basis { None, Default, History };
QString basisName(Basis basis); // "none", "default", "history"

struct Estimate {
    double seconds = -1; // -1: no estimate
    Basis basis = Basis::None;
    int runs = 0; // the past runs it was learned from

    bool known() const { return seconds >= 0; }
};

// How long each part of an item takes, its fixed waits included.
class DurationModel {
public:
    virtual ~DurationModel() = default;
    // The experiment step; `sameSample` when the sample stayed in the magnet from the item before.
    virtual Estimate experiment(const QString& title, bool sameSample) const = 0;
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

    bool operator==(const ForecastItem& o) const;
};

struct Forecast {
    std::vector<ForecastItem> items;
    bool ifStartedNow = false;
};

Forecast forecastQueue(const ForecastInput& input, const DurationModel& model);

// The model learned from the history: an experiment's time is a robust mean (the mean of the
// middle half) of its title's latest runs that were not stopped, those with the same sample
// state when there are enough; a load, a spin and an eject the same over the changer's latest
// runs. Without history, the fixed waits alone, plus for an experiment its title's default.
class HistoryModel : public DurationModel {
public:
    // `defaults`: seconds per experiment title, as the lab sets them.
    HistoryModel(const std::vector<RunRecord>& history, QHash<QString, double> defaults);

    Estimate experiment(const QString& title, bool sameSample) const override;
    double load() const override { return m_load; }
    double spin() const override { return m_spin; }
    double eject() const override { return m_eject; }

private:
    struct TitleRuns {
        std::vector<double> fresh; // newest last
        std::vector<double> same;
        Estimate freshEstimate;
        Estimate sameEstimate;
    };
    QHash<QString, TitleRuns> m_titles;
    QHash<QString, double> m_defaults;
    double m_load;
    double m_spin;
    double m_eject;
};

// The lab's default experiment times: section "Forecast" of the settings file, one key per
// experiment title, its value in seconds. Values that are no positive number are left out.
QHash<QString, double> forecastDefaults(const QString& iniPath);

// The forecast's input from the queue, the run controls and the clock as they are now.
ForecastInput forecastInputNow();
// The forecast of the queue as it is now, learned from the history file.
Forecast forecastNow();

} // namespace spinlane
