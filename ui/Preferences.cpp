// The Preferences menu of the main window: each item is a check item whose new state is copied
// into a setting and acted on at once.
#include "ui/frmSpinlane.h"

#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "core/reg_docs.h"
#include "queue/QueueStore.h"
#include "queue/StatusBar.h"
#include "runner/ProgramLinks.h"
#include "runner/RunLog.h"
#include "runner/SampleSteps.h"
#include "runner/WaitForSampleChanger.h"
#include "settings/RecoveryJournal.h"
#include "settings/Settings.h"
#include "ui/desktop/DesktopSeams.h"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace spinlane {

namespace {

constexpr int kSampleColumnWidth = 1100;

bool sampleChangerMode() { return gSampleControl == 2; }

// "Spinlane.log", proposed in the folder of the log last used, or else beside the settings file.
QString proposedLogFile()
{
    const QFileInfo near(gLogFile.isEmpty() ? gIniPath : gLogFile);
    return QDir(near.absolutePath()).filePath(u"Spinlane.log"_s);
}

} // namespace

void frmSpinlane::mnuPrefs_Click(int index)
{
    guarded([this, index] {
        QAction* item = menuItem(u"mnuPrefs"_s, index);
        const bool on = item->isChecked();
        switch (index) {
        case 20: setExpQueueOnly(on); break;
        case 30: setLogEnabled(item); break;
        case 40:
            if (gLogFile.isEmpty())
                break;
            if (QFileInfo::exists(gLogFile))
                seams().desktopPrograms->showTextFile(gLogFile);
            else
                gLogFile.clear();
            break;
        case 50:
            gAlwaysOnTop = on;
            stay_on_top(this, on);
            break;
        case 60:
            if (on) {
                // Expedra shows the selected item's experiment, for watching, not configuring.
                if (const qint32 row = gQueueList.selectedIndex(); row > 0)
                    SetUpExperiment(toInt32(leadingNumber(gQueueList.row(row).text)));
                automation().ShowWindow(gExpedraWnd, WindowCommand::Show);
                linked(gExpedra).SetShown(false);
            } else {
                automation().ShowWindow(gExpedraWnd, WindowCommand::Hide);
            }
            break;
        case 70:
            if (on) {
                automation().ShowWindow(gSampleChangerWnd, WindowCommand::Show);
                if (gSampleChanger)
                    gSampleChanger->SetShown(true);
            } else {
                automation().ShowWindow(gSampleChangerWnd, WindowCommand::Hide);
            }
            break;
        default: break;
        }
        SettingsChanged();
    });
}

// Experiments only drops the sample program's link; switched off again in sample-changer mode,
// a new link is made and the run waits until the changer is ready.
void frmSpinlane::setExpQueueOnly(bool on)
{
    gExpQueueOnly = on;
    ConnectPrograms();
    if (!sampleChangerMode())
        return;
    QAction* showChanger = menuItem(u"mnuPrefs"_s, 70);
    if (on) {
        setSampleColumnWidth(0);
        showChanger->setVisible(false);
        return;
    }
    cmdStartQueue->setEnabled(false);
    gStatusBar.setText(StatusBar::OutputFilePanel, u"Waiting for Sample Changer ready..."_s);
    WaitForSampleChanger();
    gStatusBar.setText(StatusBar::OutputFilePanel, u"Sample Changer ready."_s);
    cmdStartQueue->setEnabled(true);
    setSampleColumnWidth(kSampleColumnWidth);
    showChanger->setVisible(true);
}

// Choosing the log file and opening it; errors here leave logging as the user set it.
void frmSpinlane::setLogEnabled(QAction* item)
{
    gLogOn = item->isChecked();
    try {
        if (gLogOn) {
            QString path = reg_docs(u"Spinlane"_s, u"Path"_s, u"Spinlane.log"_s, u"Set Log File"_s,
                                    CreatePrompt, u"log"_s, u"*"_s, proposedLogFile());
            if (path.compare(kCancelled, Qt::CaseInsensitive) == 0) {
                gLogOn = false;
                item->setChecked(false);
            } else {
                if (!path.contains(u".log"_s, Qt::CaseInsensitive))
                    path += u".log"_s;
                gLogFile = path;
                bool append = false;
                if (QFileInfo::exists(path))
                    append =
                        msgBox(u"File already exists. Click Yes to overwirte or No to append."_s,
                               MsgButtons::YesNo, MsgIcon::None)
                        == MsgAnswer::No;
                OpenLogFile(path, append);
            }
        }
    } catch (const RuntimeError&) {
    }
    if (!gLogOn)
        CloseLogFile();
}

} // namespace spinlane
