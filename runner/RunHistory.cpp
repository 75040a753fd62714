#include "runner/RunHistory.h"

#include "core/ProgramSettings.h"
#include "core/Seams.h"
#include "ledger/LedgerStore.h"
#include "queue/QueueStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTimer>
#include <QUrl>

#include <cmath>
#include <utility>

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
constexpr int kLedgerRetryMs = 3000;

struct HistoryState {
    bool read = false;
    QString iniPath; // the settings file the ledger belongs to
    std::unique_ptr<LedgerStore> ledger;
    QString ledgerPath;
    QString problem; // why the ledger cannot be written, empty while it can
    std::vector<LedgerRecord> unwritten; // records waiting for the ledger, oldest first
    bool retryScheduled = false;
    std::vector<RunRecord> records; // the forecast's, bounded
    QHash<QString, int> perTitle; // records per title, to know when to bound them again
    quint64 generation = 0;
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

// Once a title, or the whole history, holds a good many records more than the forecast learns
// from, only the newest are kept in memory.
void bound(HistoryState& s, const QString& title)
{
    if (s.perTitle.value(title) <= kHistoryRecordsPerTitle + kHistoryRecordsPerTitle / 4
        && s.records.size() <= std::size_t(kHistoryRecords + kHistoryRecords / 4))
        return;
    s.records = boundedRunHistory(s.records);
    rebuildTitleCounts(s);
}

std::function<void()>& problemListener()
{
    static std::function<void()> listener;
    return listener;
}

void problemChanged()
{
    if (problemListener())
        problemListener()();
}

void tellProblem(HistoryState& s, const QString& reason)
{
    if (!s.problem.isEmpty())
        return;
    s.problem = reason;
    problemChanged();
    qWarning("Spinlane: the ledger %s cannot be written (%s); the run goes on, and its records "
             "are written as soon as it can be",
             qPrintable(QDir::toNativeSeparators(s.ledgerPath.isEmpty() ? ledgerPath()
                                                                        : s.ledgerPath)),
             qPrintable(reason));
}

// Opens the ledger beside the settings file, or else the user's own; says why neither opens.
bool openLedger(HistoryState& s)
{
    if (s.ledger)
        return true;
    QString reason;
    for (const QString& path : {ledgerPath(), userLedgerPath()}) {
        if (path.isEmpty())
            return false;
        if (path == userLedgerPath()) // the settings file's folder is never made
            QDir().mkpath(QFileInfo(path).path());
        if ((s.ledger = LedgerStore::open(path, {}, &reason))) {
            s.ledgerPath = path;
            // Qt's database connections end before the application does.
            static const bool closedAtExit = (qAddPostRoutine([] { state().ledger.reset(); }), true);
            Q_UNUSED(closedAtExit);
            return true;
        }
        if (path == ledgerPath())
            s.ledgerPath = path; // the one named when neither opens
    }
    tellProblem(s, reason);
    return false;
}

LedgerRecord importedRecord(const RunRecord& run)
{
    LedgerRecord record;
    record.instrument = ledgerInstrument();
    record.run = run;
    return record;
}

// Brings the records of an earlier version's history file into the ledger, once.
void importHistoryFile(HistoryState& s)
{
    const QString path = runHistoryPath();
    if (!QFileInfo(path).isFile())
        return;
    std::vector<LedgerRecord> records;
    for (const RunRecord& run : readRunHistory(path))
        records.push_back(importedRecord(run));
    QString reason;
    if (!s.ledger->appendOnce(records, u"imported "_s + QFileInfo(path).fileName(), &reason)) {
        tellProblem(s, reason);
        return;
    }
    QFile::remove(path + u".imported"_s);
    QFile::rename(path, path + u".imported"_s);
}

void writeUnwritten(HistoryState& s);

// While records wait, the ledger is tried again every few seconds, not only at the next outcome:
// a disk that was full may have room again long before the next item ends.
void retryLater(HistoryState& s)
{
    if (s.retryScheduled || !QCoreApplication::instance())
        return;
    s.retryScheduled = true;
    QTimer::singleShot(kLedgerRetryMs, QCoreApplication::instance(), [] {
        state().retryScheduled = false;
        writeUnwritten(state());
    });
}

// Writes the records that wait for the ledger; they wait on when it cannot be written.
void writeUnwritten(HistoryState& s)
{
    if (s.unwritten.empty())
        return;
    if (!openLedger(s)) {
        retryLater(s);
        return;
    }
    QString reason;
    if (!s.ledger->append(s.unwritten, &reason)) {
        tellProblem(s, reason);
        // A ledger that failed is opened anew next time: its file may have been replaced.
        s.ledger.reset();
        retryLater(s);
        return;
    }
    s.unwritten.clear();
    if (!std::exchange(s.problem, QString()).isEmpty()) {
        qWarning("Spinlane: the ledger %s is written again",
                 qPrintable(QDir::toNativeSeparators(s.ledgerPath)));
        problemChanged();
    }
}

void ensureRead()
{
    HistoryState& s = state();
    if (s.read && s.iniPath == gIniPath)
        return;
    // The item in progress and the records still to be written stay.
    HistoryState fresh;
    fresh.generation = s.generation + 1;
    fresh.takenUp = s.takenUp;
    fresh.current = s.current;
    fresh.unwritten = std::move(s.unwritten);
    fresh.retryScheduled = s.retryScheduled;
    s = std::move(fresh);
    s.read = true;
    s.iniPath = gIniPath;
    if (openLedger(s)) {
        importHistoryFile(s);
        QString reason;
        if (const auto newest = s.ledger->newest(kHistoryRecords, &reason)) {
            for (const LedgerRecord& record : *newest)
                s.records.push_back(record.run);
            s.records = boundedRunHistory(s.records);
        }
    } else {
        s.records = boundedRunHistory(readRunHistory(runHistoryPath()));
    }
    rebuildTitleCounts(s);
}

RunRecord& current() { return state().current; }

} // namespace

RunMode runModeNow()
{
    if (gSampleControl != 1 && gSampleControl != 2)
        return RunMode::None;
    return gSampleControl == 2 && !gExpQueueOnly ? RunMode::Changer : RunMode::Experiments;
}

QByteArray formatRunRecord(const RunRecord& r)
{
    const QList<QByteArray> fields{kMark,
                                   r.takenUp.toUTC().toString(Qt::ISODateWithMs).toLatin1(),
                                   r.ended.toUTC().toString(Qt::ISODateWithMs).toLatin1(),
                                   r.outcome.toUtf8().toPercentEncoding(),
                                   runModeName(r.mode),
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
    const std::optional<RunMode> mode = runModeFromName(f[4]);
    const std::optional<bool> loaded = parseFlag(f[5]);
    const std::optional<bool> ejected = parseFlag(f[6]);
    const std::optional<double> seconds[] = {parseSeconds(f[7]), parseSeconds(f[8]),
                                             parseSeconds(f[9]), parseSeconds(f[10])};
    if (!r.takenUp.isValid() || !r.ended.isValid() || !mode || !loaded
        || !ejected || !seconds[0] || !seconds[1] || !seconds[2] || !seconds[3])
        return std::nullopt;
    if (!isRunOutcome(r.outcome))
        return std::nullopt;
    r.mode = *mode;
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
    if (oversized)
        *oversized = cut;
    return parseRunHistory(content);
}

QString runHistoryPath()
{
    if (gIniPath.isEmpty())
        return {};
    return QFileInfo(gIniPath).dir().filePath(u"Spinlane.history"_s);
}

QString ledgerPath()
{
    if (gIniPath.isEmpty())
        return {};
    return QFileInfo(gIniPath).dir().filePath(u"Spinlane.ledger"_s);
}

QString userLedgerPath()
{
    if (gIniPath.isEmpty())
        return {};
    const QString name = QString::fromLatin1(
        QUrl::toPercentEncoding(QFileInfo(gIniPath).absoluteFilePath()));
    return QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation) + u"/ledger/"_s
           + name + u".ledger"_s;
}

QString ledgerInUse()
{
    ensureRead();
    return state().ledger ? state().ledgerPath : QString();
}

QString ledgerProblem() { return state().problem; }

void onLedgerProblemChanged(std::function<void()> changed) { problemListener() = std::move(changed); }

QString ledgerInstrument() { return QSysInfo::machineHostName(); }

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
    LedgerRecord record;
    RunRecord& run = record.run;
    run = std::exchange(s.current, RunRecord());
    const QDateTime now = seams().clock->now();
    run.takenUp = s.takenUp.toUTC();
    // A clock set back during the item never makes it end before it began.
    run.ended = std::max(now, s.takenUp).toUTC();
    run.outcome = outcome;
    run.title = gExpTitles.value(gQueue(queueNum).ExpTitleIndex);
    run.solvent = gQueue(queueNum).Solvent;
    const QueueItem& item = gQueue(queueNum);
    record.instrument = ledgerInstrument();
    record.itemSerial = item.ItemSN;
    record.queueNumber = queueNum;
    record.user = item.UserID;
    record.organization = item.Organization;
    record.sampleName = item.SampleName;
    record.samplePosition = item.SampleNum;
    record.dataFile = item.OutputFilePath;
    s.records.push_back(run);
    ++s.perTitle[run.title];
    ++s.generation;
    s.unwritten.push_back(record);
    writeUnwritten(s);
    bound(s, run.title);
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
