// Start-up's loader on arbitrary settings-file bytes, with scripted seams that answer every
// question Yes, so nothing blocks. Loading either fills the program state or ends with a
// run-time error report; anything else (a crash, undefined behaviour, a leak) is a fault.
#include "core/RuntimeError.h"
#include "core/Startup.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "settings/Settings.h"
#include "support/ScriptedSeams.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::testing;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir root;
    static const QString iniPath = [] {
        gProgramDrive = root.path() + u'/';
        QDir().mkpath(root.path() + u"/korvo/config"_s);
        return defaultSettingsPath();
    }();
    QFile file(iniPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char*>(data), qint64(size));
    file.close();

    ScriptedMessageBoxes boxes;
    ScriptedFileDialogs dialogs;
    MemorySettingsStore store;
    VirtualTime time;
    RecordingProgramEnd programEnd;
    RecordingDesktopPrograms desktop;
    const Seams previous =
        installSeams({&boxes, &dialogs, &store, &time, &time, &programEnd, &desktop});
    store.setValue(u"Spinlane"_s, u"Path"_s, u"Spinlane.INI"_s, iniPath);
    boxes.queueAnswer(MsgAnswer::Yes);

    resetSettingsState();
    resetQueueState();
    gExeVersion = u"1.0.0"_s;
    gExpTitles = {u"PROTON"_s, u"CARBON"_s, u"COSY"_s};
    try {
        LoadSettings();
        PopulateQueueList();
    } catch (const RuntimeError&) {
        // The program reports it and ends: defined behaviour.
    } catch (const ProgramEnded&) {
    }
    installSeams(previous);
    return 0;
}
