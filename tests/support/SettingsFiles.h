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
QByteArray readFile(const QString& path);

// The queue a settings file (or journal) holds, one "ItemSN field" text per item, in order.
QStringList queueInFile(const QString& path, QString QueueItem::*field);

} // namespace spinlane::testing
