#include "runner/RunHistory.h"

#include "core/AtomicFile.h"
#include "core/ProgramSettings.h"
#include "core/Seams.h"
#include "queue/QueueStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QUrl>

#include <cmath>
#include <utility>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

// A line: the format's mark, then fields separated by tabs, the title and the solvent last and
// percent-encoded so that no tab or line break of theirs can split a record. The first format
// ended with the title.
constexpr char kMark[] = "SLH1";
constexpr int kFields = 13;
constexpr int kFirstFormatFields = 12;
constexpr double kLongestSeconds = 7 * 24 * 3600.0;

const char* const kModeNames[] = {"none", "experiments", "changer"};

struct HistoryState {
    QString path; // the file the records were read from
    bool read = false;
    std::vector<RunRecord> records;
    QHash<QString, int> perTitle; // records per title, to know when to rewrite the file
    bool oversized = false; // the file holds more than is kept: rewrite it at the next record
    quint64 generation = 0;
    bool toldUnwritable = false;
    // The item in progress.
    QDateTime takenUp;
    RunRecord current;
};

HistoryState& state()
{
    static HistoryState s;
    return s;
}

QByteArray formatSeconds(double seconds) { return QByteArray::number(seconds, 'f', 3); }

std::optional<double> parseSeconds(QByteArrayView text)
{
    bool ok = false;
    const double value = QByteArray(text.data(), text.size()).toDouble(&ok);
    if (!ok || !std::isfinite(value) || value < 0 || value > kLongestSeconds)
        return std::nullopt;
    return std::round(value * 1000) / 1000; // to the millisecond, as written
}

std::optional<bool> parseFlag(QByteArrayView text)
{
    if (text == "1")
        return true;
    if (text == "0")
        return false;
    return std::nullopt;
}

QDateTime parseTime(QByteArrayView text)
{
    const QDateTime time =
        QDateTime::fromString(QString::fromLatin1(text.data(), text.size()), Qt::ISODateWithMs);
    return time.isValid() && time.timeSpec() == Qt::UTC ? time : QDateTime();
}

void rebuildTitleCounts(HistoryState& s)
{
    s.perTitle.clear();
    for (const RunRecord& record : s.records)
        ++s.perTitle[record.title];
}

void ensureRead()
{
    HistoryState& s = state();
    const QString path = runHistoryPath();
    if (s.read && s.path == path)
        return;
    s.path = path;
    s.read = true;
    s.records = readRunHistory(path, &s.oversized);
    rebuildTitleCounts(s);
    ++s.generation;
}

void tellUnwritable(HistoryState& s, const QString& reason)
{
    if (std::exchange(s.toldUnwritable, true))
        return;
    qWarning("Spinlane: the run history %s cannot be written (%s); the run goes on without it",
             qPrintable(QDir::toNativeSeparators(s.path)), qPrintable(reason));
}

// Appends one line and hands it to the disk before the run goes on.
void append(HistoryState& s, const QByteArray& line)
{
    if (s.path.isEmpty())
        return;
    // Opening a FIFO to write would wait for a reader; a device or folder is no history either.
    if (const QFileInfo info(s.path); info.exists() && !info.isFile()) {
        tellUnwritable(s, u"not a regular file"_s);
        return;
    }
    QFile file(s.path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        tellUnwritable(s, file.errorString());
        return;
    }
    if (file.write(line) != line.size() || !file.flush()) {
        tellUnwritable(s, file.errorString());
        return;
    }
#ifdef Q_OS_UNIX
    ::fsync(file.handle());
#endif
}

// Keeps the file bounded: once a title, or the whole history, holds a good many records more than
// it keeps, or the file held more than was read, it is rewritten with the newest records.
void trim(HistoryState& s, const QString& title)
{
    if (s.path.isEmpty() || !QFileInfo(s.path).isFile())
        return;
    if (!std::exchange(s.oversized, false)
        && s.perTitle.value(title) <= kHistoryRecordsPerTitle + kHistoryRecordsPerTitle / 4
        && s.records.size() <= std::size_t(kHistoryRecords + kHistoryRecords / 4))
        return;
    s.records = boundedRunHistory(s.records);
    rebuildTitleCounts(s);
    QByteArray content;
    for (const RunRecord& record : s.records)
        content += formatRunRecord(record) + '\n';
    QString reason;
    if (!writeFileAtomically(s.path, content, &reason))
        tellUnwritable(s, reason);
}

RunRecord& current() { return state().current; }

} // namespace

RunMode runModeNow()
{
    if (gSampleControl != 1 && gSampleControl != 2)
        return RunMode::None;
    return gSampleControl == 2 && !gExpQueueOnly ? RunMode::Changer : RunMode::Experiments;
}

bool RunRecord::operator==(const RunRecord& o) const
{
    return takenUp == o.takenUp && ended == o.ended && outcome == o.outcome && mode == o.mode
           && loaded == o.loaded && ejected == o.ejected && loadSeconds == o.loadSeconds
           && spinSeconds == o.spinSeconds && ejectSeconds == o.ejectSeconds
           && experimentSeconds == o.experimentSeconds && title == o.title && solvent == o.solvent;
}

QByteArray formatRunRecord(const RunRecord& r)
{
    const QList<QByteArray> fields{kMark,
                                   r.takenUp.toUTC().toString(Qt::ISODateWithMs).toLatin1(),
                                   r.ended.toUTC().toString(Qt::ISODateWithMs).toLatin1(),
                                   r.outcome.toUtf8().toPercentEncoding(),
                                   kModeNames[int(r.mode)],
                                   r.loaded ? "1" : "0",
                                   r.ejected ? "1" : "0",
                                   formatSeconds(r.loadSeconds),
                                   formatSeconds(r.spinSeconds),
                                   formatSeconds(r.ejectSeconds),
                                   formatSeconds(r.experimentSeconds),
                                   r.title.toUtf8().toPercentEncoding(" "),
                                   r.solvent.toUtf8().toPercentEncoding(" ")};
    return fields.join('\t');
}

std::optional<RunRecord> parseRunRecord(QByteArrayView line)
{
    if (line.endsWith('\r'))
        line.chop(1);
    const QList<QByteArray> f = QByteArray(line.data(), line.size()).split('\t');
    if ((f.size() != kFields && f.size() != kFirstFormatFields) || f[0] != kMark)
        return std::nullopt;
    RunRecord r;
    r.takenUp = parseTime(f[1]);
    r.ended = parseTime(f[2]);
    r.outcome = QString::fromUtf8(QByteArray::fromPercentEncoding(f[3]));
    const auto mode = std::find(std::begin(kModeNames), std::end(kModeNames), f[4]);
    const std::optional<bool> loaded = parseFlag(f[5]);
    const std::optional<bool> ejected = parseFlag(f[6]);
    const std::optional<double> seconds[] = {parseSeconds(f[7]), parseSeconds(f[8]),
                                             parseSeconds(f[9]), parseSeconds(f[10])};
    if (!r.takenUp.isValid() || !r.ended.isValid() || mode == std::end(kModeNames) || !loaded
        || !ejected || !seconds[0] || !seconds[1] || !seconds[2] || !seconds[3])
        return std::nullopt;
    if (r.outcome != u"Done"_s && r.outcome != u"Failed"_s && r.outcome != u"Stopped"_s)
        return std::nullopt;
    r.mode = RunMode(mode - std::begin(kModeNames));
    r.loaded = *loaded;
    r.ejected = *ejected;
    r.loadSeconds = *seconds[0];
    r.spinSeconds = *seconds[1];
    r.ejectSeconds = *seconds[2];
    r.experimentSeconds = *seconds[3];
    r.title = QString::fromUtf8(QByteArray::fromPercentEncoding(f[11]));
    if (f.size() == kFields)
        r.solvent = QString::fromUtf8(QByteArray::fromPercentEncoding(f[12]));
    return r;
}

std::vector<RunRecord> parseRunHistory(const QByteArray& content)
{
    std::vector<RunRecord> records;
    qsizetype start = 0;
    while (start < content.size()) {
        qsizetype end = content.indexOf('\n', start);
        if (end < 0)
            end = content.size();
        if (std::optional<RunRecord> record =
                parseRunRecord(QByteArrayView(content).sliced(start, end - start)))
            records.push_back(std::move(*record));
        start = end + 1;
    }
    return records;
}

std::vector<RunRecord> boundedRunHistory(const std::vector<RunRecord>& records)
{
    QHash<QString, int> kept;
    std::vector<bool> keep(records.size());
    int inAll = 0;
    for (std::size_t i = records.size(); i-- > 0;) {
        keep[i] = inAll < kHistoryRecords && ++kept[records[i].title] <= kHistoryRecordsPerTitle;
        inAll += keep[i];
    }
    std::vector<RunRecord> bounded;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (keep[i])
            bounded.push_back(records[i]);
    }
    return bounded;
}

std::vector<RunRecord> readRunHistory(const QString& path, bool* oversized)
{
    if (oversized)
        *oversized = false;
    // Checked before opening: opening a FIFO to read would wait for a writer.
    if (path.isEmpty() || !QFileInfo(path).isFile())
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return {};
    const qint64 size = file.size();
    const bool cut = size > kHistoryBytesRead;
    if (cut && !file.seek(size - kHistoryBytesRead))
        return {};
    QByteArray content = file.read(kHistoryBytesRead);
    if (cut) // the first line read is most likely a part of one
        content.remove(0, content.indexOf('\n') + 1);
    std::vector<RunRecord> records = parseRunHistory(content);
    std::vector<RunRecord> bounded = boundedRunHistory(records);
    if (oversized)
        *oversized = cut || bounded.size() < records.size();
    return bounded;
}

QString runHistoryPath()
{
    if (gIniPath.isEmpty())
        return {};
    return QFileInfo(gIniPath).dir().filePath(u"Spinlane.history"_s);
}

const std::vector<RunRecord>& runHistory()
{
    ensureRead();
    return state().records;
}

quint64 runHistoryGeneration()
{
    ensureRead();
    return state().generation;
}

double secondsBetween(const QDateTime& from, const QDateTime& to)
{
    if (!from.isValid() || !to.isValid())
        return 0;
    return std::max<qint64>(from.msecsTo(to), 0) / 1000.0;
}

void BeginRunRecord()
{
    HistoryState& s = state();
    s.current = RunRecord();
    s.current.mode = runModeNow();
    s.takenUp = seams().clock->now();
}

void RecordRunHistory(qint32 queueNum, const QString& outcome)
{
    ensureRead();
    HistoryState& s = state();
    RunRecord record = std::exchange(s.current, RunRecord());
    const QDateTime now = seams().clock->now();
    record.takenUp = s.takenUp.toUTC();
    // A clock set back during the item never makes it end before it began.
    record.ended = std::max(now, s.takenUp).toUTC();
    record.outcome = outcome;
    record.title = gExpTitles.value(gQueue(queueNum).ExpTitleIndex);
    record.solvent = gQueue(queueNum).Solvent;
    s.records.push_back(record);
    ++s.perTitle[record.title];
    ++s.generation;
    append(s, formatRunRecord(record) + '\n');
    trim(s, record.title);
}

TimedPart::TimedPart(RunPart part)
    : m_part(part)
    , m_start(seams().clock->now())
{
}

TimedPart::~TimedPart()
{
    RunRecord& r = current();
    const double seconds = secondsBetween(m_start, seams().clock->now());
    switch (m_part) {
    case RunPart::Load:
        r.loaded = true;
        r.loadSeconds += seconds;
        break;
    case RunPart::Spin: r.spinSeconds += seconds; break;
    case RunPart::Experiment: r.experimentSeconds += seconds; break;
    case RunPart::Eject:
        r.ejected = true;
        r.ejectSeconds += seconds;
        break;
    }
}

QDateTime currentItemTakenUp() { return state().takenUp; }

void resetRunHistory()
{
    // The generation goes on growing, so that what was learned from the old records is let go.
    const quint64 generation = state().generation;
    state() = HistoryState();
    state().generation = generation + 1;
}

} // namespace spinlane
