#include "core/SingleInstance.h"

#include "core/Seams.h"

#include <QDir>
#include <QLockFile>
#include <QStandardPaths>

#include <memory>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

std::unique_ptr<QLockFile>& heldLock()
{
    static std::unique_ptr<QLockFile> lock;
    return lock;
}

std::unique_ptr<QLockFile>& heldSettingsLock()
{
    static std::unique_ptr<QLockFile> lock;
    return lock;
}

// True when another running copy holds the lock at `path`; otherwise `held` keeps it.
bool lockedByAnotherCopy(std::unique_ptr<QLockFile>& held, const QString& path)
{
    if (held)
        return false;
    auto lock = std::make_unique<QLockFile>(path);
    // Age never makes the lock stale (the program runs for weeks); the lock of a copy that
    // crashed is taken over because its process no longer runs.
    lock->setStaleLockTime(0);
    // A lock that cannot be made at all (an unwritable folder) does not keep the program from
    // running.
    if (!lock->tryLock(0))
        return lock->error() == QLockFile::LockFailedError;
    held = std::move(lock);
    return false;
}

QString& lockPathOverride()
{
    static QString path;
    return path;
}

} // namespace

QString instanceLockPath()
{
    if (!lockPathOverride().isEmpty())
        return lockPathOverride();
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    return QDir(folder).filePath(u"Spinlane.lock"_s);
}

void setInstanceLockPath(const QString& path) { lockPathOverride() = path; }

bool AnotherCopyRunning() { return lockedByAnotherCopy(heldLock(), instanceLockPath()); }

bool SettingsFileInUse(const QString& iniPath)
{
    return lockedByAnotherCopy(heldSettingsLock(), iniPath + u".lock"_s);
}

void RefuseSecondCopy()
{
    msgBox(u"Cannot run two copies of "_s + programTitle(), MsgButtons::Ok, MsgIcon::Exclamation);
    EndProgram();
}

void releaseInstanceLock()
{
    heldLock().reset();
    heldSettingsLock().reset();
}

} // namespace spinlane
