// Runs the queue of a settings file as the Start button does, without a window, against the
// laboratory programs on the session bus, with a clock 20 times faster than real time, and
// prints the run log. Checks an installed simulated laboratory from a script:
//
//     spinlane-simulated-lab --settings LAB.INI run_queue_on_lab Spinlane.INI
//
// Exits with 0 when the run log ends with the done banner. With --publish it serves Spinlane's
// status on the bus as Spinlane does, from before the run until SIGTERM or SIGINT, for the
// clients of the status interface (spinlane-web's tests and package check). With --real-time the
// runner keeps real time, so the forecast's times are true ones (scripts/try-facility.sh).

#include "core/RuntimeError.h"
#include "core/ShutdownSignals.h"
#include "core/Startup.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "runner/DBusAutomation.h"
#include "runner/ProgramLinks.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "settings/Settings.h"
#include "status/SpinlaneBus.h"
#include "support/ScaledClock.h"
#include "support/ScriptedSeams.h"
#include "support/SettingsFiles.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace spinlane;

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    const bool publish = arguments.removeAll(u"--publish"_s) > 0;
    const bool realTime = arguments.removeAll(u"--real-time"_s) > 0;
    if (arguments.size() != 1) {
        std::fprintf(stderr, "usage: run_queue_on_lab [--publish] [--real-time] SETTINGS-FILE\n");
        return 2;
    }
    // The settings file is chosen as a person would, in the dialog after the first question.
    testing::ScriptedMessageBoxes boxes;
    boxes.queueAnswer(MsgAnswer::Ok);
    testing::ScriptedFileDialogs dialogs;
    dialogs.queueChoice(arguments.first());
    testing::MemorySettingsStore store;
    testing::ScaledClock clock(realTime ? 1 : 20);
    installSeams({&boxes, &dialogs, &store, &clock, nullptr, nullptr});
    DBusAutomation automation;
    installAutomation(&automation);
    gExeVersion = QStringLiteral(SPINLANE_VERSION);

    QTemporaryDir dir;
    const QString logPath = dir.filePath(u"Spinlane.log"_s);
    try {
        LoadSettings();
        ConnectPrograms();
        gExpTitles = linked(gExpedra).GetExperimentTitles();
        gSolvents = linked(gExpedra).GetSolvents();
        PopulateQueueList();
        if (publish)
            PublishOnBus();
        gCurrentUserID = u"administrator"_s;
        gLogOn = OpenLogFile(logPath, false);
        RunQueue();
        CloseLogFile();
        ReleasePrograms();
    } catch (const RuntimeError& error) {
        std::fprintf(stderr, "run_queue_on_lab: %s\n", error.what());
        return 1;
    }
    const QByteArray text = testing::readFile(logPath);
    std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    std::fflush(stdout);
    const qsizetype lastBanner = text.lastIndexOf("\r\n[");
    const int status =
        lastBanner >= 0 && text.mid(lastBanner + 2).startsWith("[Done Spinlane at ") ? 0 : 1;
    if (publish) {
        ShutdownSignals signals;
        QObject::connect(&signals, &ShutdownSignals::received, &app, &QCoreApplication::quit);
        QCoreApplication::exec();
        WithdrawFromBus();
    }
    return status;
}
