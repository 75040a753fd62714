// How good the forecast is, and how fast:
//
//     build/bench/bench_forecast [SEED]
//
// Runs the real run loop (RunQueue, its steps and the run history) for a simulated week in virtual
// time against the fake laboratory programs of the tests, in sample-changer mode. At every item's
// start after the week's first it takes two forecasts of every later item: Spinlane's, learned
// from the history, and the one walk-up systems give today (the fixed waits, one nominal constant
// per title, a fixed sample-change time, and the current item's remaining time). When that item
// starts, each forecast's expected start is compared with the real one. Printed side by side: the
// median and the 90th percentile of |error| as a share of the time the item really waited, for
// items at least 30 minutes ahead, after the first 20 items of history; beside them, for scale, an
// oracle that knows the model's true mean times, and Spinlane's forecast without telling the
// solvents apart (to show whether that pays). Also the share of waits with an expected start,
// and the share of real starts inside Spinlane's 80 % range (after 20 items of history) for items
// expected under 30 minutes, 30 minutes to 2 hours and more ahead; beside it the same by how far
// ahead they really were, which is no fair test of a range (an item that started early is
// counted among the near ones, so near items seem to start early too often and far ones late).
//
// Two weeks: a lab that states every title's nominal time in the settings file, then one that
// states none and whose users first submit HMBC on day 3 and NOESY on day 5 (the walk-up forecast
// still knows every nominal time). Then the time to compute the forecast of 999 items with
// ranges, and the time to read and learn from the largest history kept and from a damaged one of
// a million titles, and to forecast from them (medians).
//
// The laboratory, modelled on how an NMR lab's week goes and never fitted to the forecast:
// - Six experiment titles. A title's nominal constant is its acquisition time as its parameter
//   set states it (scans times the time per scan). In the first week the lab writes the same
//   numbers into the settings file's [Forecast] section, so both forecasts know them from the
//   start.
// - A real run takes the acquisition time with a log-normal spread of 20 %, plus what the
//   parameter set does not know: for a freshly loaded sample, locking, shimming and tuning (2.5 to
//   4 minutes by solvent: chloroform shims fastest, DMSO slowest, times a log-normal factor of 30 %
//   for the sample's quality, drawn once per sample), and processing (20 s for a 1D spectrum,
//   60 s for a 2D one, 20 % spread). A sample that stays in the magnet is neither locked nor
//   shimmed again, as the run loop turns both off.
// - One run in thirty fails or is aborted, after a uniformly drawn share of its time.
// - The changer loads in 12 s plus 0.4 s per position the carousel turns (the distance from the
//   last position), with a 10 % spread; an eject takes 8 s with a 10 % spread. The walk-up
//   forecast counts a fixed 60 s per sample change, as the changer's manual says.
// - Users submit one to four items for one sample at a time (same-position neighbours), by day
//   on weekdays (2.4 submissions an hour from 8:00 to 19:00), five times fewer at night and at
//   weekends; 15 submissions wait on Monday morning. They add to the queue while it runs; a run
//   that reaches the end is started again ("Run The Queue Again!", which also retries the failed
//   items) at the next submission.
// - Virtual time advances one second per wait for events, so a poll notices a finished program
//   up to a second late, as a real poll would notice it some milliseconds late.
// All draws come from one seeded generator (default seed 1), so a run can be repeated.

#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "core/Seams.h"
#include "queue/QueueStore.h"
#include "runner/Forecast.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunHistory.h"
#include "runner/RunQueue.h"
#include "runner/SampleSteps.h"
#include "support/FakePrograms.h"
#include "support/SettingsFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

namespace {

struct Title {
    QString name;
    double acquisitionSeconds; // as the parameter set states it
    bool twoD;
    double share; // of the items submitted
};

const std::vector<Title> kTitles{{u"PROTON"_s, 90, false, 0.35}, {u"CARBON"_s, 1800, false, 0.20},
                                 {u"COSY"_s, 720, true, 0.15},   {u"HSQC"_s, 1500, true, 0.15},
                                 {u"HMBC"_s, 2700, true, 0.10},  {u"NOESY"_s, 5400, true, 0.05}};

struct Solvent {
    QString name;
    double setUpSeconds; // lock, shim and tune
    double share;
};
const std::vector<Solvent> kSolvents{
    {u"CDCl3"_s, 150, 0.55}, {u"DMSO"_s, 240, 0.20}, {u"D2O"_s, 200, 0.15}, {u"C6D6"_s, 170, 0.10}};

constexpr double kWalkUpSampleChange = 60;
constexpr int kHistoryFirst = 20;
constexpr double kAheadSeconds = 1800;

std::mt19937_64 rng;
double uniform(double a = 0, double b = 1) { return std::uniform_real_distribution<>(a, b)(rng); }
double spread(double sigma) { return std::lognormal_distribution<>(0, sigma)(rng); }
template <typename T> std::size_t pick(const std::vector<T>& options)
{
    double r = uniform();
    for (std::size_t i = 0; i < options.size(); ++i) {
        r -= options[i].share;
        if (r <= 0)
            return i;
    }
    return options.size() - 1;
}

// What an item will really take, drawn when it is submitted.
struct Draw {
    std::size_t title = 0;
    double acquisitionFactor = 1;
    double setUpSeconds = 0; // for a freshly loaded sample
    double processingSeconds = 0;
};
std::map<qint32, Draw> gDraws;

class BenchExpedra : public FakeExpedra {
public:
    using FakeExpedra::FakeExpedra;
    void RunExperiment() override
    {
        const Draw& d = gDraws.at(gCurrentQueueNum);
        double seconds = kTitles[d.title].acquisitionSeconds * d.acquisitionFactor
                         + d.processingSeconds + (gSameSample ? 0 : d.setUpSeconds);
        // Each run, a retry too, fails or is aborted with the same chance.
        m_fails = uniform() < 1.0 / 30;
        if (m_fails)
            seconds *= uniform();
        experimentSeconds = qint32(std::lround(seconds));
        FakeExpedra::RunExperiment();
    }
    bool GetRunFailed() override
    {
        FakeExpedra::GetRunFailed();
        return m_fails;
    }

private:
    bool m_fails = false;
};

class BenchChanger : public FakeSampleChanger {
public:
    using FakeSampleChanger::FakeSampleChanger;
    void LoadSample(qint32 position) override
    {
        loadSeconds = qint32(std::lround((12 + 0.4 * std::abs(position - m_last)) * spread(0.1)));
        m_last = position;
        FakeSampleChanger::LoadSample(position);
    }
    void EjectSample() override
    {
        ejectSeconds = qint32(std::lround(8 * spread(0.1)));
        FakeSampleChanger::EjectSample();
    }

private:
    qint32 m_last = 1;
};

// A clock and event pump in virtual time: each wait moves on one second and hands out the
// submissions that came due.
class WeekClock : public Clock, public EventPump {
public:
    QDateTime now() const override { return m_now; }
    void waitForEvents(int) override
    {
        m_now = m_now.addSecs(1);
        deliver();
    }
    void deliver();
    void jumpToNextSubmission();
    bool submissionsLeft() const { return m_next < m_submissions.size(); }

    QDateTime m_now;
    std::vector<QDateTime> m_submissions;
    std::size_t m_next = 0;
};

// The week's two labs: one that states every title's nominal time in the settings file from the
// start; one that states none, and whose users first submit HMBC on day 3 and NOESY on day 5.
enum class Lab { Defaults, NewTitles };
// The week's first morning. A second week begins on the Monday after the first, as the fake
// programs keep the times they were last busy until.
QDateTime gMonday(QDate(2026, 11, 23), QTime(8, 0), Qt::UTC);
Lab gLab = Lab::Defaults;

// Whether users submit a title yet.
bool offered(std::size_t title, const QDateTime& now)
{
    if (gLab == Lab::Defaults)
        return true;
    const std::size_t hmbc = 4;
    const std::size_t noesy = 5;
    const qint64 day = gMonday.daysTo(now) + 1;
    return (title != hmbc || day >= 3) && (title != noesy || day >= 5);
}

// A sample of one user with one to four experiments, appended to the queue.
void submit()
{
    static qint32 position = 0;
    position = position % 60 + 1 + qint32(uniform(0, 5));
    position = (position - 1) % 60 + 1;
    const std::size_t solvent = pick(kSolvents);
    const double sampleQuality = spread(0.3);
    const int experiments = 1 + int(uniform(0, 4));
    for (int i = 0; i < experiments; ++i) {
        const qint32 n = gQueueList.count() + 1;
        Draw d;
        d.title = i == 0 && experiments > 1 ? 0 : pick(kTitles);
        while (!offered(d.title, seams().clock->now()))
            d.title = pick(kTitles);
        d.acquisitionFactor = spread(0.2);
        d.setUpSeconds = kSolvents[solvent].setUpSeconds * sampleQuality;
        d.processingSeconds = (kTitles[d.title].twoD ? 60 : 20) * spread(0.2);
        gDraws[n] = d;
        gQueue.redimPreserve(n);
        const QString number = QString::number(n);
        gQueue(n) = {number,
                     position,
                     u"Sample "_s + number,
                     {},
                     kSolvents[solvent].name,
                     qint16(d.title),
                     u"user"_s + QString::number(position % 8),
                     u"Chem"_s,
                     u"/data/"_s + number + u".kvd"_s,
                     u"Idle"_s};
        const qint32 row = gQueueList.add();
        gQueueList.setText(row, formatQueueNumber(n));
        gQueueList.setTag(row, n);
        gQueueList.setSubItem(row, QueueList::StatusSubItem, u"Idle"_s);
    }
}

void WeekClock::deliver()
{
    while (m_next < m_submissions.size() && m_submissions[m_next] <= m_now) {
        ++m_next;
        submit();
    }
}

void WeekClock::jumpToNextSubmission()
{
    if (submissionsLeft())
        m_now = std::max(m_now, m_submissions[m_next]);
    deliver();
}

std::vector<QDateTime> submissionTimes(const QDateTime& monday)
{
    std::vector<QDateTime> times(15, monday);
    const double perHour = 2.4;
    double t = 0;
    for (;;) {
        const QDateTime at = monday.addMSecs(qint64(t * 1000));
        const int hour = at.time().hour();
        const bool day = at.date().dayOfWeek() <= 5 && hour >= 8 && hour < 19;
        const double rate = (day ? perHour : perHour / 5) / 3600;
        // Thinned Poisson arrivals at the day rate.
        t += -std::log(1 - uniform()) / (perHour / 3600);
        if (t >= 7 * 24 * 3600.0)
            return times;
        if (uniform() < rate / (perHour / 3600))
            times.push_back(monday.addMSecs(qint64(t * 1000)));
    }
}

// The walk-up forecast: nominal acquisition time plus the step's fixed waits, a fixed
// sample-change time split over the load and the eject.
class NominalModel : public DurationModel {
public:
    Estimate experiment(const QString& title, bool) const override
    {
        for (const Title& t : kTitles) {
            if (t.name == title)
                return {t.acquisitionSeconds + kWaitAfterRunStart + kWaitAfterExperiment,
                        Basis::Default, 0};
        }
        return {};
    }
    double load() const override { return kWaitAfterMotion + kWalkUpSampleChange / 2; }
    double spin() const override { return kWaitBetweenSpinCommands + kWaitAfterSpin; }
    double eject() const override { return kWaitAfterMotion + kWalkUpSampleChange / 2; }
};

// For comparison only, a forecast no real one can make: it knows the model above, so it gives
// every part its true mean time. Its error is what the spread of the runs alone leaves.
class OracleModel : public DurationModel {
public:
    Estimate experiment(const QString& title, bool sameSample) const override
    {
        const auto mean = [](double median, double sigma) {
            return median * std::exp(sigma * sigma / 2);
        };
        double setUp = 0;
        for (const Solvent& s : kSolvents)
            setUp += s.share * mean(s.setUpSeconds, 0.3);
        for (const Title& t : kTitles) {
            if (t.name == title)
                return {mean(t.acquisitionSeconds, 0.2) + mean(t.twoD ? 60 : 20, 0.2)
                            + (sameSample ? 0 : setUp) + kWaitAfterExperiment,
                        Basis::Default, 0};
        }
        return {};
    }
    // The carousel turns three positions on average between two samples.
    double load() const override { return (12 + 0.4 * 3) * std::exp(0.005); }
    double spin() const override { return kWaitBetweenSpinCommands + kWaitAfterSpin; }
    double eject() const override { return 8 * std::exp(0.005); }
};

struct Prediction {
    QDateTime madeAt;
    qint32 item;
    std::size_t history; // runs recorded when it was made
    ForecastItem spinlane;
    QDateTime plain; // Spinlane's, the solvents not told apart
    QDateTime walkUp;
    QDateTime oracle;
};

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return NAN;
    std::sort(values.begin(), values.end());
    const double rank = p * double(values.size() - 1);
    const std::size_t low = std::size_t(rank);
    const std::size_t high = std::min(low + 1, values.size() - 1);
    return values[low] + (values[high] - values[low]) * (rank - double(low));
}

double median(std::vector<double> values) { return percentile(std::move(values), 0.5); }

double share(int part, int all) { return all > 0 ? 100.0 * part / all : NAN; }

struct WeekResult {
    std::vector<Prediction> predictions;
    std::map<qint32, std::vector<QDateTime>> takenUp;
};

// One simulated week of the run loop on a fresh queue and history; at each item's start the
// three forecasts of every later item.
WeekResult runWeek(WeekClock& clock, const QString& folder, Lab lab)
{
    gLab = lab;
    resetQueueState();
    resetRunState();
    resetRunHistory();
    gDraws.clear();
    QDir().mkpath(folder);
    gIniPath = QDir(folder).filePath(u"Spinlane.INI"_s);
    QByteArray defaults = "[Forecast]\r\n";
    for (const Title& t : kTitles) {
        if (lab == Lab::Defaults)
            defaults += t.name.toUtf8() + '=' + QByteArray::number(t.acquisitionSeconds) + "\r\n";
    }
    writeFile(gIniPath, defaults);
    gExpTitles.clear();
    for (const Title& t : kTitles)
        gExpTitles.append(t.name);
    while (gMonday < clock.m_now)
        gMonday = gMonday.addDays(7);
    clock.m_now = gMonday;
    clock.m_next = 0;
    clock.m_submissions = submissionTimes(gMonday);

    WeekResult week;
    const NominalModel walkUp;
    const OracleModel oracle;
    // Any change of the list (a submission too) is signalled; an item starts when it goes "In
    // progress", not each time the list changes while it is.
    qint32 running = 0;
    const QMetaObject::Connection watch =
        QObject::connect(&gQueueList, &QAbstractItemModel::dataChanged, [&] {
            const auto inProgress = [](qint32 n) {
                return n >= 1 && n <= gQueue.upperBound() && gQueue(n).Status == u"In progress"_s;
            };
            if (!inProgress(running))
                running = 0;
            const qint32 n = gCurrentQueueNum;
            if (!inProgress(n) || n == running)
                return;
            running = n;
            std::vector<QDateTime>& starts = week.takenUp[n];
            starts.push_back(clock.now());
            const std::size_t history = runHistory().size();
            if (history == 0) // the first item of the week
                return;
            const ForecastInput input = forecastInputNow();
            const Forecast ours = forecastNow();
            const Forecast plain = forecastQueue(
                input, HistoryModel(runHistory(), forecastDefaults(gIniPath), false));
            const Forecast theirs = forecastQueue(input, walkUp);
            const Forecast best = forecastQueue(input, oracle);
            for (std::size_t i = 0; i < ours.items.size(); ++i) {
                if (ours.items[i].queueNumber != n)
                    week.predictions.push_back({clock.now(), ours.items[i].queueNumber, history,
                                                ours.items[i], plain.items[i].expectedStart,
                                                theirs.items[i].expectedStart,
                                                best.items[i].expectedStart});
            }
        });

    clock.deliver();
    for (;;) {
        // A run that reached the end is started again once something new waits.
        const bool submitted = [] {
            for (qint32 n = 1; n <= gQueueList.count(); ++n) {
                if (gQueue(n).Status == u"Idle"_s)
                    return true;
            }
            return false;
        }();
        if (submitted) {
            ClickStartQueue();
            continue;
        }
        if (!clock.submissionsLeft())
            break;
        clock.jumpToNextSubmission();
    }
    QObject::disconnect(watch);
    return week;
}

void report(const char* name, const WeekResult& week)
{
    std::vector<double> ours, plain, theirs, best;
    // By how far ahead the item was: under 30 minutes, 30 minutes to 2 hours, more.
    const char* const kBands[] = {"< 30 min", "30 min - 2 h", "> 2 h"};
    // [0]: by the expected wait, as the forecast was made; [1]: by the real one.
    int inRange[2][3] = {}, ranged[2][3] = {}, early[2][3] = {};
    int waits = 0, withStart = 0, withStartLater = 0, waitsLater = 0;
    for (const Prediction& p : week.predictions) {
        const std::vector<QDateTime>& starts = week.takenUp.at(p.item);
        const auto real = std::find_if(starts.begin(), starts.end(),
                                       [&](const QDateTime& t) { return t > p.madeAt; });
        if (real == starts.end())
            continue;
        const ForecastItem& f = p.spinlane;
        ++waits;
        withStart += f.expectedStart.isValid();
        if (p.history >= std::size_t(kHistoryFirst)) {
            ++waitsLater;
            withStartLater += f.expectedStart.isValid();
        }
        const double waited = p.madeAt.msecsTo(*real) / 1000.0;
        if (p.history >= std::size_t(kHistoryFirst) && f.earliestStart.isValid()) {
            const double expected = p.madeAt.msecsTo(f.expectedStart) / 1000.0;
            for (int by = 0; by < 2; ++by) {
                const double ahead = by == 0 ? expected : waited;
                const int band = ahead < 1800 ? 0 : ahead < 7200 ? 1 : 2;
                ++ranged[by][band];
                inRange[by][band] += f.earliestStart <= *real && *real <= f.latestStart;
                early[by][band] += *real < f.earliestStart;
            }
        }
        if (waited < kAheadSeconds || p.history < std::size_t(kHistoryFirst)
            || !f.expectedStart.isValid() || !p.walkUp.isValid())
            continue;
        ours.push_back(std::abs(f.expectedStart.msecsTo(*real)) / 1000.0 / waited);
        plain.push_back(std::abs(p.plain.msecsTo(*real)) / 1000.0 / waited);
        theirs.push_back(std::abs(p.walkUp.msecsTo(*real)) / 1000.0 / waited);
        best.push_back(std::abs(p.oracle.msecsTo(*real)) / 1000.0 / waited);
    }

    const std::vector<RunRecord>& history = runHistory();
    int failed = 0;
    for (const RunRecord& r : history)
        failed += r.outcome == u"Failed"_s;
    std::printf("== %s\n", name);
    std::printf("Simulated %.1f days: %d items submitted, %zu runs (%d failed)\n",
                gMonday.msecsTo(seams().clock->now()) / 86400000.0, gQueueList.count(),
                history.size(), failed);
    std::printf("Waits with an expected start, after the first item: %.1f %% of %d; after %d "
                "items: %.1f %% of %d (goal >= 99 %%)\n",
                share(withStart, waits), waits, kHistoryFirst, share(withStartLater, waitsLater),
                waitsLater);
    std::printf("Expected start vs real start, items >= 30 min ahead, after %d items of history: "
                "%zu comparisons\n",
                kHistoryFirst, ours.size());
    std::printf("|error| / wait       %10s %10s %10s %10s\n", "Spinlane", "no solvent", "walk-up",
                "(oracle)");
    std::printf("median               %9.1f%% %9.1f%% %9.1f%% %9.1f%%\n", 100 * median(ours),
                100 * median(plain), 100 * median(theirs), 100 * median(best));
    std::printf("90th percentile      %9.1f%% %9.1f%% %9.1f%% %9.1f%%\n",
                100 * percentile(ours, 0.9), 100 * percentile(plain, 0.9),
                100 * percentile(theirs, 0.9), 100 * percentile(best, 0.9));
    const char* const kBy[] = {"expected", "really"};
    for (int by = 0; by < 2; ++by) {
        std::printf("Real starts inside the 80 %% range (goal 75-85 %%), by how far ahead %s:\n",
                    kBy[by]);
        for (int band = 0; band < 3; ++band) {
            const int all = ranged[by][band];
            const int in = inRange[by][band];
            const int before = early[by][band];
            std::printf("  %-14s %5.1f %% of %d (%.1f %% before it, %.1f %% after)\n", kBands[band],
                        share(in, all), all, share(before, all), share(all - in - before, all));
        }
    }
    std::printf("\n");
}

// Median milliseconds of `runs` calls of `f`.
template <typename F> double medianMs(int runs, F f)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        f();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    return median(times);
}

// A queue of 999 items as users submit them, not yet run.
void fillQueue()
{
    resetQueueState();
    gExpTitles.clear();
    for (const Title& t : kTitles)
        gExpTitles.append(t.name);
    gRunControls.reset();
    while (gQueueList.count() < 999)
        submit();
    while (gQueueList.count() > 999)
        gQueueList.remove(gQueueList.count());
    gQueue.redimPreserve(999);
}

// A history file of `lines` records, each of a title of its own.
void writeDistinctTitles(const QString& path, int lines)
{
    RunRecord r;
    r.takenUp = gMonday;
    r.ended = gMonday.addSecs(300);
    r.outcome = u"Done"_s;
    r.mode = RunMode::Changer;
    r.loaded = r.ejected = true;
    r.experimentSeconds = 300;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return;
    for (int i = 0; i < lines; ++i) {
        r.title = u"Title "_s + QString::number(i);
        file.write(formatRunRecord(r) + '\n');
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const quint64 seed = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    QTemporaryDir dir;
    WeekClock clock;
    installSeams({nullptr, nullptr, nullptr, &clock, &clock, nullptr});
    FakeLab lab;
    lab.expedra = std::make_shared<BenchExpedra>(lab.log, "Expedra");
    lab.changer = std::make_shared<BenchChanger>(lab.log, "Changer");
    resetSettingsState();
    gSampleControl = 2;
    ConnectPrograms();
    for (const Title& t : kTitles)
        lab.expedra->titles.append(t.name);
    lab.expedra->lockRequired = {0, 1, 2, 3, 4, 5};
    gSolvents.clear();
    for (const Solvent& s : kSolvents)
        gSolvents.append(s.name);

    rng.seed(seed);
    report("A lab that states every title's time", runWeek(clock, dir.filePath(u"a"_s), Lab::Defaults));

    // The forecast of a queue of 999 items, as the status interface computes it when asked,
    // learned from the week's history.
    fillQueue();
    std::size_t items = 0;
    const double ms = medianMs(201, [&] { items = forecastNow().items.size(); });
    std::printf("Forecast of %zu items with ranges (history of %zu runs): median %.3f ms "
                "(goal < 5 ms)\n\n",
                items, runHistory().size(), ms);

    rng.seed(seed);
    report("A lab that states no times; HMBC first on day 3, NOESY on day 5",
           runWeek(clock, dir.filePath(u"b"_s), Lab::NewTitles));

    // The largest history kept (every record a title of its own, the worst case for learning),
    // and a damaged one of a million titles of which only the newest part is read.
    for (const int lines : {kHistoryRecords, 1000000}) {
        const QString folder = dir.filePath(u"history-"_s + QString::number(lines));
        QDir().mkpath(folder);
        gIniPath = QDir(folder).filePath(u"Spinlane.INI"_s);
        writeDistinctTitles(runHistoryPath(), lines);
        const double bytes = double(QFileInfo(runHistoryPath()).size());
        // The first read imports the file into the ledger; later ones read the ledger.
        const double importMs = medianMs(1, [] {
            resetRunHistory();
            runHistory();
        });
        const double readMs = medianMs(5, [] {
            resetRunHistory();
            runHistory();
        });
        fillQueue();
        // Learned once per change of the history, then kept.
        const double learnMs = medianMs(5, [] {
            resetRunHistory();
            forecastNow();
        }) - readMs;
        const double askMs = medianMs(201, [] { forecastNow(); });
        std::printf("History file of %d titles (%.1f MB) imported into the ledger in %.0f ms; "
                    "%zu records kept: read from the ledger %.1f ms, model learned %.1f ms, "
                    "forecast of 999 items %.3f ms (medians; goal < 5 ms)\n",
                    lines, bytes / 1e6, importMs, runHistory().size(), readMs, learnMs, askMs);
    }
    return 0;
}
