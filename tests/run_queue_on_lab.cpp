// Runs the queue of a settings file as the Start button does, without a window, against the
// laboratory programs on the session bus, with a clock 20 times faster than real time, and
// prints the run log. Checks an installed simulated laboratory from a script:
//
//     spinlane-simulated-lab --settings LAB.INI run_queue_on_lab Spinlane.INI
//
// Exits with 0 when the run log ends with the done banner.

#include "core/RuntimeError.h"
#include "core/Startup.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "runner/DBusAutomation.h"
#include "runner/ProgramLinks.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "settings/Settings.h"
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
    if (app.arguments().size() != 2) {
        std::fprintf(stderr, "usage: run_queue_on_lab SETTINGS-FILE\n");
        return 2;
    }
    // The settings file is chosen as a person would, in the dialog after the first question.
    testing::ScriptedMessageBoxes boxes;
    boxes.queueAnswer(MsgAnswer::Ok);
    testing::ScriptedFileDialogs dialogs;
    dialogs.queueChoice(app.arguments().at(1));
    testing::MemorySettingsStore store;
    testing::ScaledClock clock(20);
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
    const qsizetype lastBanner = text.lastIndexOf("\r\n[");
    return lastBanner >= 0 && text.mid(lastBanner + 2).startsWith("[Done Spinlane at ") ? 0 : 1;
}
