#include "app/SingleInstance.h"

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

bool AnotherCopyRunning()
{
    if (heldLock())
        return false;
    auto lock = std::make_unique<QLockFile>(instanceLockPath());
    // Age never makes the lock stale (the program runs for weeks); the lock of a copy that
    // crashed is taken over because its process no longer runs.
    lock->setStaleLockTime(0);
    // A lock that cannot be made at all (an unwritable folder) does not keep the program from
    // running.
    if (!lock->tryLock(0))
        return lock->error() == QLockFile::LockFailedError;
    heldLock() = std::move(lock);
    return false;
}

void releaseInstanceLock() { heldLock().reset(); }

} // namespace spinlane
