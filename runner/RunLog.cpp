#include "runner/RunLog.h"

#include "core/Conversions.h"
#include "core/ProgramSettings.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "queue/QueueStore.h"
#include "queue/Session.h"

#include <QFile>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace spinlane {

bool gLogOn = false;

namespace {

QFile& logFile()
{
    static QFile file;
    return file;
}

QString now() { return generalDate(seams().clock->now()); }

void writeLine(const QString& line)
{
    QFile& file = logFile();
    if (!file.isOpen())
        throw RuntimeError(RuntimeError::BadFileNameOrNumber);
    const QByteArray bytes = (line + u"\r\n"_s).toLocal8Bit();
    if (file.write(bytes) != bytes.size() || !file.flush())
        throw RuntimeError(RuntimeError::DeviceIOError);
#ifdef Q_OS_UNIX
    // An outcome the log tells of is on the disk before the run's next step; a log that cannot
    // be synced (a pipe, a device) has had its line all the same.
    ::fdatasync(file.handle());
#endif
}

void writeBanner(const QString& banner, char separator, int length)
{
    writeLine(banner);
    writeLine(QString(length, QLatin1Char(separator)));
    writeLine({});
}

} // namespace

bool OpenLogFile(const QString& path, bool append)
{
    QFile& file = logFile();
    file.close();
    file.setFileName(path);
    return file.open(QIODevice::WriteOnly | (append ? QIODevice::Append : QIODevice::Truncate));
}

void CloseLogFile() { logFile().close(); }

void WriteStartBanner()
{
    writeLine(u"[Start Spinlane at "_s + now() + u" by "_s + gCurrentUserID + u']');
}

void WriteLogHeader()
{
    writeLine(u"No.\tItem S/N\tSample Pos.\tSample Name\tExp. Title\tUser ID\tStatus\tDate/Time"_s);
}

void WriteItemLogLine(const QString& rowText, qint32 queueNum)
{
    const QueueItem& item = gQueue(queueNum);
    writeLine(QStringList{rowText, item.ItemSN, QString::number(item.SampleNum), item.SampleName,
                          experimentTitle(item.ExpTitleIndex), item.UserID, item.Status, now()}
                  .join(u'\t'));
}

void WriteDoneBanner() { writeBanner(u"[Done Spinlane at "_s + now() + u']', '$', 65); }

void WriteStopBanner()
{
    writeBanner(u"[Stop Spinlane at "_s + now() + u" by "_s + gCurrentUserID + u']', '*', 57);
}

void WriteFatalBanner()
{
    writeBanner(u"[Fatal error (ejecting failed)! Quit Spinlane at "_s + now() + u']', '!', 61);
}

void WriteRestoredLine(const QDateTime& savedAt)
{
    QFile file(gLogFile);
    if (gLogFile.isEmpty() || !file.exists()
        || !file.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    file.write((u"[Restore Spinlane at "_s + now() + u": the queue as it was at "_s
                + generalDate(savedAt) + u"]\r\n"_s)
                   .toLocal8Bit());
}

} // namespace spinlane
