// Real runs against the simulated laboratory, on the lab's private bus:
//
//     scripts/with-simulated-lab.sh build/bench/bench_lab
//
// Runs ten items in sample-changer mode three times, with short program durations and a clock 20
// times faster than real time, and prints Spinlane's processor time as a share of the run's wall
// time; then the round trip of one busy poll and the delay from a stop request to the end of the
// run, as medians: once while a step polls its program and once inside a fixed wait, on the real
// clock, so that the wait's length counts in full. With --publish it serves Spinlane's status on
// the bus meanwhile, as Spinlane does, and leaves out the adapter (bench_web runs it so, beside
// spinlane-web's clients).

#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "core/SystemSeams.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "runner/DBusAutomation.h"
#include "runner/LabInterfaces.h"
#include "runner/ProgramLinks.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "status/SpinlaneBus.h"
#include "support/RunningAdapter.h"
#include "support/ScaledClock.h"
#include "support/SimulatedLab.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <QFile>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

using namespace Qt::StringLiterals;
using namespace spinlane;

namespace {

constexpr double kTimeScale = 20;
constexpr int kItems = 10;

const QByteArray kLab = "[Changer]\r\nLoadSeconds=0.8\r\nEjectSeconds=0.5\r\nSpinRamp=100\r\n"
                        "ReadySeconds=0\r\n"
                        "[Experiment 1]\r\nTitle=PROTON\r\nDuration=1.5\r\n"
                        "[Experiment 2]\r\nTitle=CARBON\r\nDuration=2\r\n"
                        "[Experiment 3]\r\nTitle=COSY\r\nSpin=False\r\nDuration=1.5\r\n"
                        "[Experiment 4]\r\nTitle=LONG\r\nDuration=600\r\n";

double processorSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return double(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A process's own processor time, without its children's, from /proc.
double processorSecondsOf(qint64 pid)
{
    QFile stat(u"/proc/"_s + QString::number(pid) + u"/stat"_s);
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    return (fields.value(11).toDouble() + fields.value(12).toDouble()) / ::sysconf(_SC_CLK_TCK);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Milliseconds per call of the changer's IsLoading, `calls` times.
std::vector<double> pollTimes(int calls)
{
    std::vector<double> times;
    for (int i = 0; i < calls; ++i) {
        QElapsedTimer timer;
        timer.start();
        gSampleChanger->IsLoading();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    return times;
}

void printRoundTrip(const char* what, const std::vector<double>& times)
{
    std::printf("%-44s median %7.3f ms over %zu calls\n", what, median(times), times.size());
}

void setQueue(const QList<std::pair<qint32, qint16>>& items)
{
    gQueueList.clear();
    gCurrentQueueNum = 0;
    gQueue.redim(qint32(items.size()));
    for (qint32 n = 1; n <= items.size(); ++n) {
        const QString number = QString::number(n);
        gQueue(n) = {number,
                     items.at(n - 1).first,
                     u"Sample "_s + number,
                     {},
                     u"CDCl3"_s,
                     items.at(n - 1).second,
                     u"ann"_s,
                     u"Chem"_s,
                     u"/data/"_s + number + u".kvd"_s,
                     u"Idle"_s};
        const qint32 row = gQueueList.add();
        gQueueList.setText(row, formatQueueNumber(n));
        gQueueList.setTag(row, n);
        gQueueList.setSubItem(row, QueueList::StatusSubItem, u"Idle"_s);
    }
}

int doneItems()
{
    int done = 0;
    for (qint32 n = 1; n <= gQueue.upperBound(); ++n)
        done += gQueue(n).Status == u"Done"_s;
    return done;
}

// Runs the long experiment alone nine times, Stop pressed about `afterMs` after each start; the
// delays from the stop to the end of the run, in milliseconds.
std::vector<double> stopDelays(int afterMs)
{
    std::vector<double> delays;
    for (int run = 0; run < 9; ++run) {
        setQueue({{1, 3}});
        QElapsedTimer sinceStop;
        QTimer::singleShot(afterMs + 37 * run, [&sinceStop] {
            sinceStop.start();
            RequestStop();
        });
        RunQueue();
        delays.push_back(sinceStop.nsecsElapsed() / 1e6);
    }
    return delays;
}

// Connects in sample-changer mode and runs ten items; prints `label`'s line and returns the
// processor time `processorSeconds` measured over the run as a share of its wall time, in %.
double tenItemRun(const QString& label, const std::function<double()>& processorSeconds)
{
    gSampleControl = 2;
    ConnectPrograms();
    gExpTitles = gExpedra->GetExperimentTitles();
    gSolvents = gExpedra->GetSolvents();
    QList<std::pair<qint32, qint16>> items;
    for (qint32 i = 1; i <= kItems; ++i)
        items.append({i, qint16((i - 1) % 3)});
    setQueue(items);
    QElapsedTimer wall;
    wall.start();
    const double cpuBefore = processorSeconds();
    RunQueue();
    const double cpu = processorSeconds() - cpuBefore;
    const double seconds = wall.nsecsElapsed() / 1e9;
    std::printf("%s: %d of %d items done in %.1f s wall, %.3f s processor = %.2f%%\n",
                qPrintable(label), doneItems(), kItems, seconds, cpu, 100 * cpu / seconds);
    return 100 * cpu / seconds;
}

// The example laboratory through spinlane-adapter in place of the simulators.
bool benchAdapter(const testing::SimulatedLab& lab)
{
    for (const QString& className : labClasses()) {
        if (const qint64 pid = lab.processId(className)) {
            ::kill(pid_t(pid), SIGTERM);
            lab.waitUntilGone(className);
        }
    }
    const QStringList environment{u"SPINLANE_LAB_EXPERIMENT_SECONDS=2"_s,
                                  u"SPINLANE_LAB_LOAD_SECONDS=1"_s};
    const testing::Changes helper =
        testing::changerServedBy(u"helper"_s)
        + testing::Changes{{kSampleChangerClass, u"Helper"_s, u"python3 changer.py"_s}};
    const struct {
        const char* what;
        testing::Changes changes;
        int calls;
    } ways[] = {
        {"round trip of IsLoading: adapter, const:",
         {{kSampleChangerClass, u"IsLoading"_s, u"const: false"_s}},
         2001},
        {"round trip of IsLoading: adapter, helper", helper, 2001},
        {"round trip of IsLoading: adapter, run: echo",
         {{kSampleChangerClass, u"IsLoading"_s, u"run: echo false"_s}},
         201},
    };
    for (const auto& [what, changes, calls] : ways) {
        QTemporaryDir dir;
        testing::RunningAdapter adapter(
            QStringLiteral(SPINLANE_ADAPTER),
            testing::copyExampleLab(QStringLiteral(SPINLANE_EXAMPLES), dir.path(), changes),
            environment);
        if (!adapter.waitUntilServing()) {
            std::fprintf(stderr, "the adapter does not start: %s\n", qPrintable(adapter.errors()));
            return false;
        }
        gSampleChanger =
            std::dynamic_pointer_cast<SampleChanger>(automation().GetObject(kSampleChangerClass));
        printRoundTrip(what, pollTimes(calls));
    }

    QTemporaryDir dir;
    testing::RunningAdapter adapter(
        QStringLiteral(SPINLANE_ADAPTER),
        testing::copyExampleLab(QStringLiteral(SPINLANE_EXAMPLES), dir.path()),
        environment + QStringList{u"SPINLANE_LAB_STATE="_s + dir.filePath(u"state"_s)});
    if (!adapter.waitUntilServing())
        return false;
    const double share = tenItemRun(u"adapter, ten items, the adapter's own"_s,
                                    [&] { return processorSecondsOf(adapter.processId()); });
    std::printf("%-44s %6.2f %% of one core (goal < 2 %%)\n",
                "adapter's processor time in a ten-item run", share);
    ReleasePrograms();
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (!QDBusConnection::sessionBus().isConnected()) {
        std::fprintf(stderr, "no session bus: run me with scripts/with-simulated-lab.sh\n");
        return 1;
    }
    testing::SimulatedLab lab(kLab);
    if (!lab.isReady() || !lab.startConsole()) {
        std::fprintf(stderr, "the simulated lab does not start: is this the lab's bus?\n");
        return 1;
    }
    testing::ScaledClock clock(kTimeScale);
    installSeams({nullptr, nullptr, nullptr, &clock, nullptr, nullptr});
    DBusAutomation automation;
    installAutomation(&automation);
    QTemporaryDir dir;
    gCurrentUserID = u"ann"_s;
    OpenLogFile(dir.filePath(u"run.log"_s), false);
    gLogOn = true;
    const bool publish = app.arguments().contains(u"--publish"_s);
    if (publish)
        PublishOnBus();

    try {
        std::vector<double> shares;
        for (int run = 1; run <= 3; ++run)
            shares.push_back(tenItemRun(u"run "_s + QString::number(run), processorSeconds));
        std::printf("%-44s median %6.2f %% of one core over 3 runs (goal <= 2 %%)\n",
                    "processor time during a ten-item run", median(shares));

        printRoundTrip("round trip of IsLoading: simulator", pollTimes(2001));

        // Experiments only; Stop pressed while the long experiment runs, after its fixed wait.
        gSampleControl = 1;
        std::vector<double> stops = stopDelays(600);
        std::printf("%-44s median %7.3f ms over %zu stops (goal < 50 ms + the abort)\n",
                    "stop while polling to the end of the run", median(stops), stops.size());

        // Stop pressed a second or so into the 5 s wait after the experiment starts.
        SystemClock realClock;
        installSeams({nullptr, nullptr, nullptr, &realClock, nullptr, nullptr});
        stops = stopDelays(1000);
        std::printf("%-44s median %7.3f ms over %zu stops (goal < 50 ms + the abort)\n",
                    "stop in a fixed wait to the end of the run", median(stops), stops.size());
        ReleasePrograms();
        installSeams({nullptr, nullptr, nullptr, &clock, nullptr, nullptr});
        if (publish) {
            WithdrawFromBus();
            return 0;
        }
        if (!benchAdapter(lab))
            return 1;
    } catch (const RuntimeError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
