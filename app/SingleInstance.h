#pragma once

#include <QString>

// One copy of the program per user: the first copy holds a lock file until it ends.
namespace spinlane {

// Takes the user's instance lock unless another running copy holds it; true when one does. The
// lock is kept until the program ends (or releaseInstanceLock).
bool AnotherCopyRunning();

// The lock file: in the user's runtime folder, or the temporary folder when there is none.
QString instanceLockPath();
void setInstanceLockPath(const QString& path); // tests: a lock of their own
void releaseInstanceLock();

} // namespace spinlane
