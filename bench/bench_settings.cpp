// Times the whole-queue operations: loading and saving a 999-item settings file, parsing a file
// of 100000 sections, rebuilding the queue from a 999-row list, the recovery journal written at a
// run's moment and a delete's write of the file. Prints medians over runs.

#include "core/AtomicFile.h"
#include "core/Conversions.h"
#include "core/ProfileFile.h"
#include "core/Startup.h"
#include "queue/QueueStore.h"
#include "queue/SettingsFile.h"
#include "runner/RunControls.h"
#include "settings/RecoveryJournal.h"
#include "settings/Settings.h"
#include "support/ScriptedSeams.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

using namespace Qt::StringLiterals;
using namespace spinlane;

namespace {

constexpr int kItems = 999;

QByteArray settingsFile()
{
    QByteArray bytes = "[General]\r\nVersion Number=" + programVersion().toLatin1()
                       + "\r\nAlwaysOnTop=True\r\nExpQueueOnly=False\r\nPassword=\r\n"
                         "Sample Control=2\r\nQueue Layout=1\r\nCurrent Queue Num=0\r\n"
                         "Total Queue Items="
                       + QByteArray::number(kItems) + "\r\nLogFile=/korvo/config/Spinlane.log\r\n";
    for (int i = 1; i <= kItems; ++i) {
        const QByteArray n = QByteArray::number(i);
        bytes += "[Item " + n + "]\r\nItem S/N=" + QByteArray::number(46348000 + i)
                 + "\r\nSample Num=" + n + "\r\nSample Name=Sample " + n
                 + "\r\nSample Des=Crude product, batch " + n
                 + "\r\nSolvent=CDCl3\r\nExp Title Index=2\r\nUser ID=ann\r\n"
                   "Organization=Chemistry\r\nOutput File Path=/korvo/Data/ann/sample"
                 + n + ".kvd\r\nStatus=Idle\r\n";
    }
    return bytes;
}

// Median wall time of `runs` calls, in milliseconds; `prepare` runs untimed before each call.
double medianMs(int runs, const std::function<void()>& prepare, const std::function<void()>& work)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        prepare();
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void report(const char* what, double ms, double goalMs, int runs)
{
    std::printf("%-44s median %7.3f ms over %3d runs (goal < %g ms)\n", what, ms, runs, goalMs);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir root;
    testing::MemorySettingsStore store;
    testing::RecordingProgramEnd programEnd;
    installSeams({nullptr, nullptr, &store, nullptr, nullptr, &programEnd});

    resetStartupState();
    gProgramDrive = root.path() + u'/';
    const QString path = defaultSettingsPath();
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(settingsFile()) < 0)
        return 1;
    file.close();
    store.setValue(u"Spinlane"_s, u"Path"_s, u"Spinlane.INI"_s, path);

    const auto nothing = [] {};
    constexpr int runs = 51;
    report("load, 999 items", medianMs(runs, nothing, LoadSettings), 20, runs);
    gQueueList.clear();
    for (int i = 1; i <= kItems; ++i)
        gQueueList.setTag(gQueueList.add(), i);

    report("save, nothing changed", medianMs(runs, nothing, [] { SaveSettings(std::nullopt); }), 20,
           runs);
    int round = 0;
    const auto changeEveryStatus = [&round] {
        const QString status = ++round % 2 ? u"Done"_s : u"Idle"_s;
        for (int i = 1; i <= kItems; ++i)
            gQueue(i).Status = status;
    };
    report("save, every item's status changed",
           medianMs(runs, changeEveryStatus, [] { SaveSettings(std::nullopt); }), 20, runs);

    // A move in the middle of the list: row 700 given the number of row 300.
    const auto moveOneRow = [] {
        for (int i = 1; i <= kItems; ++i) {
            gQueueList.setText(i, formatQueueNumber(i));
            gQueueList.setTag(i, i);
        }
        gQueueList.setText(700, formatQueueNumber(299));
    };
    QByteArray sections;
    for (int i = 0; i < 100000; ++i)
        sections += "[Item " + QByteArray::number(i) + "]\nk=" + QByteArray::number(i) + '\n';
    report("parse and write back, 100000 sections",
           medianMs(5, nothing, [&sections] { ProfileDocument::fromBytes(sections).toBytes(); }),
           3000, 5);
    report("SyncQueueFromList(0), 999 rows",
           medianMs(201, moveOneRow, [] { SyncQueueFromList(0); }), 2, 201);

    // The run's moments reach the recovery journal synchronously, synced to the disk.
    gRecoveryJournal.start();
    int item = 0;
    const auto takeUpNextItem = [&item] {
        item = item % kItems + 1;
        gQueue(item).Status = gQueue(item).Status == u"Done"_s ? u"Idle"_s : u"Done"_s;
    };
    report("journal at a run moment, 999 items",
           medianMs(runs, takeUpNextItem, [] { Q_EMIT gRunControls.runMoment(); }), 5, runs);
    gRecoveryJournal.stop();

    // A delete takes the item out of the file at once: the first item moves all the others.
    const QByteArray original = settingsFile();
    const auto restoreFile = [&path, &original] { writeFileAtomically(path, original); };
    const auto removeFirst = [&path] {
        ProfileFile::change(path, [](ProfileDocument& doc) {
            return settings::removeQueueItem(doc, 1);
        });
    };
    report("delete's file write, first of 999 items", medianMs(runs, restoreFile, removeFirst), 20,
           runs);
    return 0;
}
