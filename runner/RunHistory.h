#pragma once

#include "ledger/LedgerRecord.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

// The history of runs: the ledger's newest records, from which the forecast learns how long this
// lab's items really take. The ledger, `Spinlane.ledger` beside the settings file (or in the
// user's own data folder when that folder cannot be written), gets a record for every item the
// run loop took up and finished, at the moment its outcome is recorded, synced to the disk before
// the run goes on. A ledger that cannot be written is said once on standard error and never stops
// a run; its records are kept and written as soon as it can be. The history file of earlier
// versions, `Spinlane.history`, is imported into the ledger once.
namespace spinlane {

// The mode the run loop uses with the present preferences.
RunMode runModeNow();

// One line of a history file, without its line break, and back. A line of another shape, a time that
// is not one, a duration that is negative or beyond a week is nothing. A line of the first
// format, which ended with the title, is read with no solvent.
QByteArray formatRunRecord(const RunRecord& record);
std::optional<RunRecord> parseRunRecord(QByteArrayView line);
// Every readable record of a history file's content, in file order.
std::vector<RunRecord> parseRunHistory(const QByteArray& content);

// The forecast learns from at most this many records of a title, and this many in all.
inline constexpr int kHistoryRecordsPerTitle = 300;
inline constexpr int kHistoryRecords = 20000;
// Only the newest this many bytes of a history file are read: more than kHistoryRecords lines of
// the usual length, so that a file grown by other means costs no more than the largest kept one.
inline constexpr qint64 kHistoryBytesRead = 4 * 1024 * 1024;
// The newest kHistoryRecordsPerTitle records of each title, of them the newest kHistoryRecords,
// in their order.
std::vector<RunRecord> boundedRunHistory(const std::vector<RunRecord>& records);
// The records of the newest kHistoryBytesRead bytes of a regular history file; nothing when
// `path` names no regular file (a FIFO, a device or a folder is never opened). `oversized` tells
// whether the file held more than was read.
std::vector<RunRecord> readRunHistory(const QString& path, bool* oversized = nullptr);

// The history file of earlier versions beside the settings file in use: `Spinlane.history` in
// its folder; none (empty) while no settings file is named. It is renamed to
// `Spinlane.history.imported` once the ledger holds its records.
QString runHistoryPath();
// The ledger of the settings file in use, `Spinlane.ledger` in its folder, and where it is kept
// when that folder cannot be written; none (empty) while no settings file is named.
QString ledgerPath();
QString userLedgerPath();
// The ledger in use (one of the two above), empty while none could be opened.
QString ledgerInUse();
// Why the ledger cannot be written now, empty while it can.
QString ledgerProblem();
// Calls `changed` whenever that reason comes or goes (a retry can clear it between outcomes);
// an empty function stops the calls.
void onLedgerProblemChanged(std::function<void()> changed);
// The instrument the ledger's records name: this computer's host name.
QString ledgerInstrument();
// The newest records of the ledger (or, when none can be opened, of the history file), read once
// and then kept up to date by RecordRunHistory.
const std::vector<RunRecord>& runHistory();
// Grows with every record added or file re-read, so a reader can tell that it changed.
quint64 runHistoryGeneration();

// The run loop's hooks. BeginRunRecord when an item goes "In progress"; the steps add the time
// each part takes (TimedPart); RecordRunHistory when the outcome is set writes the ledger record.
void BeginRunRecord();
void RecordRunHistory(qint32 queueNum, const QString& outcome);

enum class RunPart { Load, Spin, Experiment, Eject };
// Adds the time from its construction to its end to the item's part, and marks a load or an
// eject as done. A clock that is set back counts as no time.
class TimedPart {
public:
    explicit TimedPart(RunPart part);
    ~TimedPart();
    TimedPart(const TimedPart&) = delete;
    TimedPart& operator=(const TimedPart&) = delete;

private:
    RunPart m_part;
    QDateTime m_start;
};

// The moment the item being run was taken up; invalid before the first.
QDateTime currentItemTakenUp();

// Closes the ledger and forgets the records read and the item in progress; the ledger is opened
// again when needed.
void resetRunHistory();

} // namespace spinlane
