#pragma once

#include <QString>

// One copy of the program per user, and one per settings file: the first copy holds a lock file
// in the user's runtime folder and another beside its settings file until it ends. The second
// lock also holds off a copy started in a session with another runtime folder.
namespace spinlane {

// Takes the user's instance lock unless another running copy holds it; true when one does. The
// lock is kept until the program ends (or releaseInstanceLock).
bool AnotherCopyRunning();
// The same for the settings file at `iniPath`, whose lock is "<iniPath>.lock".
bool SettingsFileInUse(const QString& iniPath);
// "Cannot run two copies of Spinlane", then the end of the program.
[[noreturn]] void RefuseSecondCopy();

// The lock file: in the user's runtime folder, or the temporary folder when there is none.
QString instanceLockPath();
void setInstanceLockPath(const QString& path); // tests: a lock of their own
void releaseInstanceLock(); // both locks

} // namespace spinlane
