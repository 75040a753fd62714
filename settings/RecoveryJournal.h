#pragma once

#include "core/ProfileFile.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

// The recovery journal: a copy of what the close would write, kept up to date while the program
// runs. A normal close removes it; after a crash, a kill or a run-time error it is still there,
// and the next start offers to restore the queue from it. It lives beside the settings file, or,
// where that folder cannot be written, in the user's own data folder.
namespace spinlane {

QString recoveryJournalPath(); // gIniPath + ".recovery"
// Where the journal goes when the settings file's folder cannot be written.
QString userRecoveryJournalPath();
QString declinedJournalPath(const QString& journalPath); // journalPath + "-declined"

// Writes the journal a moment after the program state changes: bursts of changes give one write,
// and a change that leaves the document as it was last written gives none. The run's own
// moments (an item taken up, an outcome recorded, the run's end) and a delete, which changes the
// settings file at once, are written at once.
class RecoveryJournal : public QObject {
    Q_OBJECT
public:
    static constexpr int kDelayMs = 250;

    RecoveryJournal();

    // Follows the queue list, the run controls and SettingsChanged from now on; the state now
    // is taken as already saved.
    void start();
    // No more writes; the file stays as it is.
    void stop();
    // Writes the journal now if the state differs from what it last wrote. Returns whether it
    // wrote.
    bool flush();
    // Writes the journal now unless it already holds the state. Returns whether a journal on the
    // disk holds the state now.
    bool keep();
    void changed(); // the state may have changed: write it soon
    bool isActive() const { return m_active; }
    // Where the journal was last written; empty when it was not written in this session.
    QString path() const { return m_path; }

private:
    bool write(const QByteArray& bytes);

    QTimer m_timer;
    QByteArray m_written; // what the journal holds, or the state at the start before any write
    QString m_path;
    bool m_active = false;
    bool m_failureReported = false;
};

extern RecoveryJournal gRecoveryJournal;

// A preference the settings file holds changed in memory.
void SettingsChanged();

// After a successful save: the journal is no longer needed.
void RemoveRecoveryJournal();

// At start-up, once the settings file is located: the journal of a session that did not close
// normally, whatever the files' times say. A journal of another version, or one whose settings
// cannot be read (`readable` fails), is set aside as the declined journal with a warning.
// Otherwise asks whether to restore it; No sets it aside as well. Returns the journal to load
// from, which stays in place until the next normal close, or nothing.
std::optional<ProfileDocument>
OfferRecovery(const std::function<bool(const ProfileDocument&)>& readable);

// After the queue was read from a journal: which of its items the settings file on the disk
// holds, and in which section.
void RestoreSavedSections(const ProfileDocument& journal);

// When the queue came from the journal at start-up: the time the journal was written.
extern QDateTime gRestoredQueueTime;

void resetRecoveryState();

} // namespace spinlane
