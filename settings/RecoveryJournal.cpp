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

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace spinlane {

RecoveryJournal gRecoveryJournal;
QDateTime gRestoredQueueTime;

QString recoveryJournalPath() { return gIniPath + u".recovery"_s; }
QString declinedJournalPath() { return gIniPath + u".recovery-declined"_s; }

RecoveryJournal::RecoveryJournal()
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(kDelayMs);
    connect(&m_timer, &QTimer::timeout, this, &RecoveryJournal::flush);
    // The journal keeps what it last wrote: the state after a failed step may be half changed.
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
    m_written.clear();
    try {
        m_written = settingsDocument().toBytes();
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
        bytes = settingsDocument().toBytes();
    } catch (const RuntimeError&) {
        return false; // the state is between two steps of a change; the next change writes it
    }
    if (bytes == m_written || !writeFileAtomically(recoveryJournalPath(), bytes))
        return false;
    m_written = bytes;
    return true;
}

void SettingsChanged() { gRecoveryJournal.changed(); }

void RemoveRecoveryJournal()
{
    gRecoveryJournal.stop();
    QFile::remove(recoveryJournalPath());
}

namespace {

void setJournalAside()
{
    QFile::remove(declinedJournalPath());
    QFile::rename(recoveryJournalPath(), declinedJournalPath());
}

} // namespace

std::optional<ProfileDocument>
OfferRecovery(const std::function<bool(const ProfileDocument&)>& readable)
{
    const QFileInfo journalFile(recoveryJournalPath());
    const QFileInfo settingsFile(gIniPath);
    if (!journalFile.isFile()
        || (settingsFile.exists() && journalFile.lastModified() <= settingsFile.lastModified()))
        return std::nullopt;

    ProfileDocument journal = ProfileDocument::load(journalFile.filePath());
    const QString version =
        settings::readText(journal, settings::kGeneral, settings::kVersionNumber, {});
    if (version.compare(gExeVersion, Qt::CaseInsensitive) != 0 || !readable(journal)) {
        setJournalAside();
        msgBox(u"Spinlane did not close normally, but the queue it kept for that case cannot be "
               u"read. It was set aside as "_s
                   + declinedJournalPath() + u'.',
               MsgButtons::Ok, MsgIcon::Exclamation);
        return std::nullopt;
    }
    const QDateTime savedAt = journalFile.lastModified();
    if (msgBox(u"Spinlane did not close normally. Restore the queue as it was at "_s
                   + generalDate(savedAt) + u'?',
               MsgButtons::YesNo, MsgIcon::Question)
        == MsgAnswer::No) {
        setJournalAside();
        return std::nullopt;
    }
    gRestoredQueueTime = savedAt;
    return journal;
}

void resetRecoveryState()
{
    gRecoveryJournal.stop();
    gRestoredQueueTime = {};
}

} // namespace spinlane
