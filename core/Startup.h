#pragma once

#include <QString>

// What start-up records about the running program.
namespace spinlane {

extern bool gStarting; // true while start-up runs
extern QString gExeVersion; // major.minor.revision of the running program
extern QString gProgramDrive; // on Windows the executable's drive letter; elsewhere the root "/"
extern bool gShowWindow; // false when the command line holds "nowindow"; read by nothing else

QString programVersion();

// A path below the lab's "korvo" folder on the program's drive, for example
// korvoPath(u"config/Spinlane.INI") is C:\korvo\config\Spinlane.INI on Windows and
// /korvo/config/Spinlane.INI elsewhere.
QString korvoPath(const QString& relativePath);

void resetStartupState();

} // namespace spinlane
