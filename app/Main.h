#pragma once

#include <QStringList>

// Start-up: from the program's start to the prepared main window. From then on the program is
// driven by the main window's events.
namespace spinlane {

class frmSpinlane;

// Refuses a second copy, records the program's version and drive, loads the settings and the
// queue, connects the laboratory programs, fetches the experiment and solvent lists, and shows and
// prepares the main window. `arguments` is the command line without the program; it changes
// nothing ("nowindow" is only recorded). Ends the program when start-up cannot go on.
void Main(const QStringList& arguments);

// The main window from the loaded state: stay-on-top, position, layout margins, menu marks, the
// queue list and status bar, the run button, the login panel and, with a sample changer, the wait
// until it is ready; the run button is enabled last.
void InitMainWindow(frmSpinlane& form);

// From now on SIGTERM, SIGHUP and SIGINT (a logout, a system shutdown, Ctrl+C in a terminal)
// close the main window as File/Exit does, so the settings file is written: a running queue is
// stopped first, and the window closes once the run has returned. Before the main window is up,
// there is nothing to save and the program ends at once.
void CloseOnShutdownSignals();

// Back to the state before Main: every shared variable, the main window, the log and the lock.
void resetProgramState();

} // namespace spinlane
