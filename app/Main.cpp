#include "app/Main.h"

#include "core/ShutdownSignals.h"
#include "core/Seams.h"
#include "core/SingleInstance.h"
#include "core/Startup.h"
#include "core/wait_in_seconds.h"
#include "queue/QueueEditing.h"
#include "queue/QueueRows.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"
#include "queue/StatusBar.h"
#include "runner/ProgramLinks.h"
#include "runner/RunControls.h"
#include "runner/RunLog.h"
#include "runner/RunQueue.h"
#include "runner/WaitForSampleChanger.h"
#include "settings/RecoveryJournal.h"
#include "settings/Settings.h"
#include "status/SpinlaneBus.h"
#include "ui/ItemDialogControl.h"
#include "ui/Login.h"
#include "ui/Twips.h"
#include "ui/WindowLayout.h"
#include "ui/desktop/DesktopSeams.h"
#include "ui/frmSpinlane.h"

#include <QAction>
#include <QCoreApplication>
#include <QPushButton>
#include <QThread>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace spinlane {

void Main(const QStringList& arguments)
{
    gStarting = true;
    if (AnotherCopyRunning())
        RefuseSecondCopy();
    gExeVersion = programVersion();
    gProgramDrive = QCoreApplication::applicationDirPath().left(1);
    gShowWindow = !arguments.join(u' ').contains(u"nowindow"_s, Qt::CaseInsensitive);
    LoadSettings(); // also refuses a copy that another one's settings-file lock keeps out
    PublishOnBus();
    if (gRestoredQueueTime.isValid())
        WriteRestoredLine(gRestoredQueueTime);
    ConnectPrograms();
    RefreshExperimentTitles();
    RefreshSolvents();
    frmSpinlane& form = LoadMainForm();
    form.show();
    InitMainWindow(form);
    gStarting = false;
}

void InitMainWindow(frmSpinlane& form)
{
    stay_on_top(&form, gAlwaysOnTop);
    form.move(twipsToPixels(gFormLeft, &form), twipsToPixels(gFormTop, &form));
    MeasureLayout(form);

    // A layout number without a menu item marks none.
    if (QAction* layout = form.menuItem(u"mnuQueueLayout"_s, gQueueLayout * 10))
        layout->setChecked(true);
    form.menuItem(u"mnuPrefs"_s, 50)->setChecked(gAlwaysOnTop);
    form.menuItem(u"mnuPrefs"_s, 20)->setChecked(gExpQueueOnly);
    if (gSampleControl == 1 || gExpQueueOnly) {
        form.setSampleColumnWidth(0);
        form.menuItem(u"mnuPrefs"_s, 70)->setVisible(false);
    }

    PopulateQueueList();
    UpdateSelectionStatus();
    RestoreRunControls();
    // From here on the window can be used, the wait for the changer included.
    gRecoveryJournal.start();
    ShowLoginPanel(form);
    if (gSampleControl == 2 && !gExpQueueOnly)
        WaitForSampleChanger();
    form.cmdStartQueue->setEnabled(true);
}

namespace {

void closeAfterRun()
{
    guarded([] {
        // Before the window there is nothing to save; once it is shown (the wait for the sample
        // changer included) the program closes as File/Exit closes it.
        frmSpinlane* form = MainForm();
        if (!form || !form->isVisible())
            EndProgram();
        // Closing from inside a nested event loop (a run's waits, a lab call waiting for its answer,
        // a message box) would unload the window under the handler that runs it: wait until
        // only the main loop is left.
        const bool nested = QThread::currentThread()->loopLevel() > 1;
        if (RunInProgress() || nested) {
            if (RunInProgress() && gRunControls.startQueueCaption() == kStopCaption)
                RequestStop();
            QTimer::singleShot(kEventWaitMs, form, closeAfterRun);
            return;
        }
        form->close();
    });
}

} // namespace

void CloseOnShutdownSignals()
{
    auto* shutdown = new ShutdownSignals(QCoreApplication::instance());
    QObject::connect(shutdown, &ShutdownSignals::received, shutdown, closeAfterRun);
}

void resetProgramState()
{
    WithdrawFromBus();
    DeleteMainForm();
    gLogOn = false;
    CloseLogFile();
    releaseInstanceLock();
    resetStartupState();
    resetSettingsState();
    resetRecoveryState();
    resetQueueState();
    resetEditingState();
    resetProgramLinks();
    resetRunState();
    resetSession();
    resetLayoutState();
}

} // namespace spinlane
