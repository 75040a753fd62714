#pragma once

#include "core/ProfileFile.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

// The recovery journal: beside the settings file, a copy of what the close would write, kept up
// to date while the program runs. A normal close removes it; after a crash, a kill or a run-time
// error it is still there, and the next start offers to restore the queue from it.
namespace spinlane {

QString recoveryJournalPath(); // gIniPath + ".recovery"
QString declinedJournalPath(); // gIniPath + ".recovery-declined"

// Writes the journal a moment after the program state changes: bursts of changes give one write,
// and a change that leaves the document as it was last written gives none.
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
    void changed(); // the state may have changed: write it soon
    bool isActive() const { return m_active; }

private:
    QTimer m_timer;
    QByteArray m_written;
    bool m_active = false;
};

extern RecoveryJournal gRecoveryJournal;

// A preference the settings file holds changed in memory.
void SettingsChanged();

// After a successful save: the journal is no longer needed.
void RemoveRecoveryJournal();

// At start-up, once the settings file is located: the journal, when one exists and is newer than
// the settings file. A journal of another version, or one whose settings cannot be read
// (`readable` fails), is set aside as the declined journal with a warning. Otherwise asks whether
// to restore it; No sets it aside as well. Returns the journal to load from, which stays in place
// until the next normal close, or nothing.
std::optional<ProfileDocument>
OfferRecovery(const std::function<bool(const ProfileDocument&)>& readable);

// When the queue came from the journal at start-up: the time the journal was written.
extern QDateTime gRestoredQueueTime;

void resetRecoveryState();

} // namespace spinlane
