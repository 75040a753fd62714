#include "core/AtomicFile.h"

#include <QFileInfo>
#include <QSaveFile>

#ifdef Q_OS_UNIX
#include <unistd.h>

#include <cerrno>
#include <cstring>
#endif

namespace spinlane {
namespace {

bool fail(QString* reason, const QString& why)
{
    if (reason)
        *reason = why;
    return false;
}

} // namespace

bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* reason)
{
    const QFileInfo info(path);
    if (info.exists() && (!info.isFile() || !info.isWritable()))
        return fail(reason, QStringLiteral("Permission denied"));

    // Unbuffered, so that each write reaches the system and a short one is seen here; a buffered
    // QSaveFile flushes inside commit() and renames a short file without a word.
    QSaveFile file(path);
    // A file the user may write in a folder the user may not write (a shared console folder)
    // is written in place, as the Windows profile functions do; there a failed write can leave
    // the file short.
    file.setDirectWriteFallback(true);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return fail(reason, file.errorString());
    for (qint64 written = 0; written < bytes.size();) {
        // After a short write the next one fails and says why.
        const qint64 n = file.write(bytes.constData() + written, bytes.size() - written);
        if (n <= 0) {
            const QString why = file.errorString();
            file.cancelWriting();
            return fail(reason, why);
        }
        written += n;
    }
#ifdef Q_OS_UNIX
    if (::fsync(file.handle()) != 0) {
        const QString why = QString::fromLocal8Bit(std::strerror(errno));
        file.cancelWriting();
        return fail(reason, why);
    }
#endif
    if (!file.commit())
        return fail(reason, file.errorString());
    return true;
}

} // namespace spinlane
