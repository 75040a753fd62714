#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

namespace spinlane {
struct QueueItem;
}

// Settings files for tests that start the whole program.
namespace spinlane::testing {

struct QueueEntry {
    QString status = QStringLiteral("Idle");
    qint32 sample = 1;
    qint16 experiment = 0;
    QString user = QStringLiteral("ann");
    QString organization = QStringLiteral("Chem");
};

// Items of the given statuses, otherwise as QueueEntry has them.
QList<QueueEntry> queueOf(const QStringList& statuses);

// A settings file of the running program's version holding `items`. The "General" keys given
// replace the defaults (no stay-on-top, single-sample mode, nothing run yet).
QByteArray settingsFile(const QList<QueueEntry>& items,
                        const QList<std::pair<QString, QString>>& general = {});

void writeFile(const QString& path, const QByteArray& bytes);

// While it lives, this process's file writes fail beyond `bytes`, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(quint64 bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    quint64 m_saved = 0;
};
// While it lives, no file can be made in `folder` (a shared console folder), though the files
// already in it can be written: its permission bits say so, and a process run by root takes an
// unprivileged user for the time. HOME points at `home`, a folder of the user's own.
class UnwritableFolder {
public:
    UnwritableFolder(const QString& folder, const QString& home);
    ~UnwritableFolder();
    UnwritableFolder(const UnwritableFolder&) = delete;
    UnwritableFolder& operator=(const UnwritableFolder&) = delete;

private:
    QString m_folder;
    QByteArray m_home;
    bool m_root = false;
};

QByteArray readFile(const QString& path);

// The queue a settings file (or journal) holds, one "ItemSN field" text per item, in order.
QStringList queueInFile(const QString& path, QString QueueItem::*field);

} // namespace spinlane::testing
