#include "support/SettingsFiles.h"

#include "core/ProfileFile.h"
#include "core/Startup.h"
#include "queue/SettingsFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

using namespace Qt::StringLiterals;

namespace spinlane::testing {

QList<QueueEntry> queueOf(const QStringList& statuses)
{
    QList<QueueEntry> result;
    for (const QString& status : statuses)
        result.append({status});
    return result;
}

QByteArray settingsFile(const QList<QueueEntry>& items,
                        const QList<std::pair<QString, QString>>& general)
{
    QList<std::pair<QString, QString>> keys{
        {u"Version Number"_s, programVersion()},
        {u"AlwaysOnTop"_s, u"False"_s},
        {u"ExpQueueOnly"_s, u"False"_s},
        {u"Sample Control"_s, u"1"_s},
        {u"Queue Layout"_s, u"1"_s},
        {u"Current Queue Num"_s, u"0"_s},
        {u"Total Queue Items"_s, QString::number(items.size())}};
    for (const auto& entry : general) {
        auto it = std::find_if(keys.begin(), keys.end(),
                               [&entry](const auto& k) { return k.first == entry.first; });
        if (it != keys.end())
            it->second = entry.second;
        else
            keys.append(entry);
    }
    QString text = u"[General]\r\n"_s;
    for (const auto& [key, value] : keys)
        text += key + u'=' + value + u"\r\n"_s;
    for (int i = 0; i < items.size(); ++i) {
        const QueueEntry& item = items[i];
        const QString n = QString::number(i + 1);
        text += u"[Item "_s + n + u"]\r\nItem S/N=SN"_s + n + u"\r\nSample Num="_s
                + QString::number(item.sample) + u"\r\nSample Name=Sample "_s + n
                + u"\r\nSample Des=\r\nSolvent=CDCl3\r\nExp Title Index="_s
                + QString::number(item.experiment) + u"\r\nUser ID="_s + item.user
                + u"\r\nOrganization="_s + item.organization + u"\r\nOutput File Path=/data/"_s + n
                + u".kvd\r\nStatus="_s + item.status + u"\r\n"_s;
    }
    return text.toUtf8();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

FileSizeLimit::FileSizeLimit(quint64 bytes)
{
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    m_saved = limit.rlim_cur;
    limit.rlim_cur = rlim_t(bytes);
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

FileSizeLimit::~FileSizeLimit()
{
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = rlim_t(m_saved);
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

UnwritableFolder::UnwritableFolder(const QString& folder, const QString& home)
    : m_folder(folder)
    , m_home(qgetenv("HOME"))
    , m_root(::geteuid() == 0)
{
    constexpr auto all = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup
                         | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    constexpr auto enter = QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    // The unprivileged user reaches the folders and writes the files it holds.
    for (QDir up(folder); up.cdUp() && up.path() != QDir::tempPath() && up.path() != u"/"_s;)
        QFile::setPermissions(up.path(), QFile::permissions(up.path()) | enter);
    for (const QString& name : QDir(folder).entryList(QDir::Files))
        QFile::setPermissions(QDir(folder).filePath(name), all);
    QFile::setPermissions(home, all | enter);
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther | enter);
    qputenv("HOME", QFile::encodeName(home));
    if (m_root) {
        constexpr uid_t kNobody = 65534;
        QVERIFY(::setegid(kNobody) == 0 && ::seteuid(kNobody) == 0);
    }
}

UnwritableFolder::~UnwritableFolder()
{
    if (m_root && (::seteuid(0) != 0 || ::setegid(0) != 0))
        qFatal("cannot take the root user back");
    QFile::setPermissions(m_folder, QFile::permissions(m_folder) | QFile::WriteOwner);
    qputenv("HOME", m_home);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList queueInFile(const QString& path, QString QueueItem::*field)
{
    const ProfileDocument file = ProfileDocument::load(path);
    QStringList items;
    for (qint32 i = 1; i <= settings::readTotalQueueItems(file); ++i) {
        const QueueItem item = settings::readQueueItem(file, i);
        items.append(item.ItemSN + u' ' + item.*field);
    }
    return items;
}

} // namespace spinlane::testing
