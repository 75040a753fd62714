#include "settings/RecoveryJournal.h"

#include "core/AtomicFile.h"
#include "core/Conversions.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "core/Startup.h"
#include "queue/QueueStore.h"
#include "queue/SettingsFile.h"
#include "runner/RunControls.h"
#include "settings/Settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace spinlane {

RecoveryJournal gRecoveryJournal;
QDateTime gRestoredQueueTime;

namespace {

// The journal's own section: for each item, its section in the settings file on the disk.
const QString kRecovery = u"Recovery"_s;
const QString kSavedSections = u"Saved Sections"_s;

QByteArray journalBytes()
{
    ProfileDocument journal = settingsDocument();
    QStringList sections;
    for (qint32 i = 1; i <= gQueueList.count(); ++i)
        sections << QString::number(gQueue(i).SavedSection);
    journal.writeString(kRecovery, kSavedSections, sections.join(u' '));
    return journal.toBytes();
}

} // namespace

QString recoveryJournalPath() { return gIniPath + u".recovery"_s; }

QString userRecoveryJournalPath()
{
    const QString name = QString::fromLatin1(
        QUrl::toPercentEncoding(QFileInfo(gIniPath).absoluteFilePath()));
    return QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
           + u"/recovery/"_s + name + u".recovery"_s;
}

QString declinedJournalPath(const QString& journalPath) { return journalPath + u"-declined"_s; }

RecoveryJournal::RecoveryJournal()
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(kDelayMs);
    connect(&m_timer, &QTimer::timeout, this, &RecoveryJournal::flush);
    // The journal keeps what it last wrote: the state after a failed step may be half changed,
    // and the run's last moment is already on the disk.
    setBeforeRuntimeErrorReport([] { gRecoveryJournal.stop(); });
}

void RecoveryJournal::start()
{
    const auto follow = Qt::UniqueConnection;
    connect(&gQueueList, &QAbstractItemModel::dataChanged, this, &RecoveryJournal::changed, follow);
    connect(&gQueueList, &QAbstractItemModel::rowsInserted, this, &RecoveryJournal::changed,
            follow);
    connect(&gQueueList, &QAbstractItemModel::rowsRemoved, this, &RecoveryJournal::changed, follow);
    connect(&gQueueList, &QAbstractItemModel::modelReset, this, &RecoveryJournal::changed, follow);
    connect(&gQueueList, &QAbstractItemModel::layoutChanged, this, &RecoveryJournal::changed,
            follow);
    connect(&gRunControls, &RunControls::changed, this, &RecoveryJournal::changed, follow);
    const auto atOnce = Qt::ConnectionType(Qt::UniqueConnection | Qt::DirectConnection);
    connect(&gRunControls, &RunControls::runMoment, this, &RecoveryJournal::flush, atOnce);
    connect(&gQueueList, &QueueList::savedQueueChanged, this, &RecoveryJournal::flush, atOnce);
    m_written.clear();
    m_path.clear();
    m_failureReported = false;
    try {
        m_written = journalBytes();
    } catch (const RuntimeError&) {
    }
    m_active = true;
}

void RecoveryJournal::stop()
{
    m_active = false;
    m_timer.stop();
}

void RecoveryJournal::changed()
{
    if (m_active && !m_timer.isActive())
        m_timer.start();
}

bool RecoveryJournal::flush()
{
    m_timer.stop();
    if (!m_active)
        return false;
    QByteArray bytes;
    try {
        bytes = journalBytes();
    } catch (const RuntimeError&) {
        return false; // the state is between two steps of a change; the next change writes it
    }
    return bytes != m_written && write(bytes);
}

bool RecoveryJournal::keep()
{
    m_timer.stop();
    QByteArray bytes;
    try {
        bytes = journalBytes();
    } catch (const RuntimeError&) {
        return !m_path.isEmpty(); // the last consistent state is what the journal holds
    }
    return (bytes == m_written && !m_path.isEmpty()) || write(bytes);
}

// Beside the settings file when its folder allows it, else in the user's data folder; the other
// place is cleared, so that a journal found in both places is the user's newer one.
bool RecoveryJournal::write(const QByteArray& bytes)
{
    const QString beside = recoveryJournalPath(), own = userRecoveryJournalPath();
    QString reason;
    if (writeFileAtomically(beside, bytes, &reason)) {
        if (m_path == own)
            QFile::remove(own);
        m_path = beside;
    } else {
        QString ownReason;
        if (!QDir().mkpath(QFileInfo(own).path()) || !writeFileAtomically(own, bytes, &ownReason)) {
            if (!m_failureReported) // on standard error, once until a write succeeds again
                qWarning().noquote() << u"spinlane: the recovery journal "_s + beside
                                            + u" cannot be written: "_s + reason;
            m_failureReported = true;
            return false;
        }
        QFile::remove(beside);
        m_path = own;
    }
    m_written = bytes;
    m_failureReported = false;
    return true;
}

void SettingsChanged() { gRecoveryJournal.changed(); }

void RemoveRecoveryJournal()
{
    gRecoveryJournal.stop();
    for (const QString& path : {recoveryJournalPath(), userRecoveryJournalPath()}) {
        // A journal that cannot be removed is emptied, so that no start offers it again.
        if (QFile::exists(path) && !QFile::remove(path))
            writeFileAtomically(path, {});
    }
}

namespace {

void setJournalAside(const QString& path)
{
    QFile::remove(declinedJournalPath(path));
    QFile::rename(path, declinedJournalPath(path));
}

} // namespace

std::optional<ProfileDocument>
OfferRecovery(const std::function<bool(const ProfileDocument&)>& readable)
{
    // Whether the journal holds newer work than the settings file is not a matter of the files'
    // times: a normal close removes it, so a journal that is there is the last session's work.
    QFileInfo journalFile(userRecoveryJournalPath());
    if (!journalFile.isFile() || journalFile.size() == 0)
        journalFile.setFile(recoveryJournalPath());
    if (!journalFile.isFile() || journalFile.size() == 0)
        return std::nullopt;

    const QString path = journalFile.filePath();
    ProfileDocument journal = ProfileDocument::load(path);
    const QString version =
        settings::readText(journal, settings::kGeneral, settings::kVersionNumber, {});
    if (version.compare(gExeVersion, Qt::CaseInsensitive) != 0 || !readable(journal)) {
        setJournalAside(path);
        msgBox(u"Spinlane did not close normally, but the queue it kept for that case cannot be "
               u"read. It was set aside as "_s
                   + declinedJournalPath(path) + u'.',
               MsgButtons::Ok, MsgIcon::Exclamation);
        return std::nullopt;
    }
    const QDateTime savedAt = journalFile.lastModified();
    if (msgBox(u"Spinlane did not close normally. Restore the queue as it was at "_s
                   + generalDate(savedAt) + u'?',
               MsgButtons::YesNo, MsgIcon::Question)
        == MsgAnswer::No) {
        setJournalAside(path);
        return std::nullopt;
    }
    gRestoredQueueTime = savedAt;
    return journal;
}

void RestoreSavedSections(const ProfileDocument& journal)
{
    const QStringList sections =
        journal.value(kRecovery, kSavedSections).value_or(QString()).split(u' ');
    const qint32 items = gQueue.upperBound();
    for (qint32 i = 1; i <= items; ++i) {
        bool ok = false;
        const qint32 section = sections.value(i - 1).toInt(&ok);
        // A journal that does not say leaves the file's items alone when they are deleted.
        gQueue(i).SavedSection = ok && section >= 0 && sections.size() == items ? section : 0;
    }
}

void resetRecoveryState()
{
    gRecoveryJournal.stop();
    gRestoredQueueTime = {};
}

} // namespace spinlane
