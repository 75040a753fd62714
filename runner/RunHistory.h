#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>
#include <vector>

// The history of runs: one record for every item the run loop took up and finished, kept in
// `Spinlane.history` beside the settings file, one line per record, appended and flushed as the
// outcome is recorded. The forecast learns from it how long this lab's items really take. A line
// that cannot be read is skipped; a file that cannot be written is said once on standard error
// and never stops a run.
namespace spinlane {

// How the run handles samples: not at all, experiments only, or with the sample changer.
enum class RunMode : quint8 { None, Experiments, Changer };

// The mode the run loop uses with the present preferences.
RunMode runModeNow();

struct RunRecord {
    QDateTime takenUp; // when the item went "In progress" (UTC)
    QDateTime ended; // when its outcome was recorded (UTC)
    QString outcome; // "Done", "Failed" or "Stopped"
    RunMode mode = RunMode::None;
    bool loaded = false;
    bool ejected = false;
    // Seconds each part took, its fixed waits included. Handling is load + spin + eject.
    double loadSeconds = 0;
    double spinSeconds = 0;
    double ejectSeconds = 0;
    double experimentSeconds = 0;
    QString title;
    QString solvent; // empty in the records of the first format, which did not keep it

    double handlingSeconds() const { return loadSeconds + spinSeconds + ejectSeconds; }
    bool operator==(const RunRecord& o) const;
};

// One line of the file, without its line break, and back. A line of another shape, a time that
// is not one, a duration that is negative or beyond a week is nothing. A line of the first
// format, which ended with the title, is read with no solvent.
QByteArray formatRunRecord(const RunRecord& record);
std::optional<RunRecord> parseRunRecord(QByteArrayView line);
// Every readable record of a file's content, in file order.
std::vector<RunRecord> parseRunHistory(const QByteArray& content);

// A title keeps at most this many records, and the history this many in all; older ones go when
// the file is next rewritten.
inline constexpr int kHistoryRecordsPerTitle = 300;
inline constexpr int kHistoryRecords = 20000;
// Only the newest this many bytes of the file are read: more than kHistoryRecords lines of the
// usual length, so that a file grown by other means costs no more than the largest kept one.
inline constexpr qint64 kHistoryBytesRead = 4 * 1024 * 1024;
// The newest kHistoryRecordsPerTitle records of each title, of them the newest kHistoryRecords,
// in their order.
std::vector<RunRecord> boundedRunHistory(const std::vector<RunRecord>& records);
// The records of the newest kHistoryBytesRead bytes of a regular file, bounded; nothing when
// `path` names no regular file (a FIFO, a device or a folder is never opened). `oversized` tells
// whether the file held more than was kept.
std::vector<RunRecord> readRunHistory(const QString& path, bool* oversized = nullptr);

// The history file of the settings file in use: `Spinlane.history` in its folder; none (empty)
// while no settings file is named.
QString runHistoryPath();
// The records of runHistoryPath(), read once and then kept up to date by RecordRunHistory.
const std::vector<RunRecord>& runHistory();
// Grows with every record added or file re-read, so a reader can tell that it changed.
quint64 runHistoryGeneration();

// The run loop's hooks. BeginRunRecord when an item goes "In progress"; the steps add the time
// each part takes (TimedPart); RecordRunHistory when the outcome is set appends the record.
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

// Seconds from `from` to `to`, never negative.
double secondsBetween(const QDateTime& from, const QDateTime& to);

// Forgets the records read and the item in progress; the file is read again when needed.
void resetRunHistory();

} // namespace spinlane
