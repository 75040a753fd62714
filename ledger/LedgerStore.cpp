#include "ledger/LedgerStore.h"

#include <QAtomicInteger>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>
#include <QUuid>
#include <QVariant>

#include <tuple>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

// Each schema version's statements, the first creating the tables. Both SQLite and PostgreSQL
// read them: times are ISO 8601 texts in UTC with milliseconds, which sort as they compare.
const std::vector<QStringList>& migrations()
{
    static const std::vector<QStringList> steps{
        {uR"(CREATE TABLE ledger (
               instrument TEXT NOT NULL,
               ledger TEXT NOT NULL,
               record BIGINT NOT NULL,
               item_serial TEXT NOT NULL,
               queue_number INTEGER NOT NULL,
               user_id TEXT NOT NULL,
               organization TEXT NOT NULL,
               sample_name TEXT NOT NULL,
               sample_position INTEGER NOT NULL,
               solvent TEXT NOT NULL,
               title TEXT NOT NULL,
               data_file TEXT NOT NULL,
               taken_up TEXT NOT NULL,
               ended TEXT NOT NULL,
               outcome TEXT NOT NULL,
               mode TEXT NOT NULL,
               loaded INTEGER NOT NULL,
               ejected INTEGER NOT NULL,
               load_seconds DOUBLE PRECISION NOT NULL,
               spin_seconds DOUBLE PRECISION NOT NULL,
               eject_seconds DOUBLE PRECISION NOT NULL,
               experiment_seconds DOUBLE PRECISION NOT NULL,
               PRIMARY KEY (instrument, ledger, record)))"_s,
         u"CREATE INDEX ledger_ended ON ledger (ended, record)"_s,
         u"CREATE INDEX ledger_record ON ledger (record)"_s},
    };
    return steps;
}

const QString kColumns =
    u"instrument, record, item_serial, queue_number, user_id, organization, sample_name, "
    "sample_position, solvent, title, data_file, taken_up, ended, outcome, mode, loaded, ejected, "
    "load_seconds, spin_seconds, eject_seconds, experiment_seconds, ledger"_s;
constexpr int kColumnCount = 22;

QString placeholders()
{
    QStringList marks;
    for (int i = 0; i < kColumnCount; ++i)
        marks << u"?"_s;
    return marks.join(u", "_s);
}

QString timeText(const QDateTime& time) { return time.toUTC().toString(Qt::ISODateWithMs); }

// The ledger's own form, "2026-11-26T02:14:44.123Z", read by hand: QDateTime's general ISO
// reader costs most of the time of reading the forecast's 20,000 records. Any other form goes to
// that reader.
QDateTime timeOf(const QVariant& value)
{
    const QString text = value.toString();
    const auto digits = [&](int from, int count) {
        int number = 0;
        for (int i = from; i < from + count; ++i) {
            const char16_t c = text[i].unicode();
            if (c < u'0' || c > u'9')
                return -1;
            number = number * 10 + (c - u'0');
        }
        return number;
    };
    if (text.size() == 24 && text[4] == u'-' && text[7] == u'-' && text[10] == u'T'
        && text[13] == u':' && text[16] == u':' && text[19] == u'.' && text[23] == u'Z') {
        const QDate date(digits(0, 4), digits(5, 2), digits(8, 2));
        const QTime time(digits(11, 2), digits(14, 2), digits(17, 2), digits(20, 3));
        if (date.isValid() && time.isValid())
            return QDateTime(date, time, Qt::UTC);
    }
    return QDateTime::fromString(text, Qt::ISODateWithMs).toUTC();
}

void bind(QSqlQuery& query, const LedgerRecord& r)
{
    const RunRecord& run = r.run;
    const QVariantList values{r.instrument,
                              r.number,
                              r.itemSerial,
                              r.queueNumber,
                              r.user,
                              r.organization,
                              r.sampleName,
                              r.samplePosition,
                              run.solvent,
                              run.title,
                              r.dataFile,
                              timeText(run.takenUp),
                              timeText(run.ended),
                              run.outcome,
                              QString::fromLatin1(runModeName(run.mode)),
                              int(run.loaded),
                              int(run.ejected),
                              run.loadSeconds,
                              run.spinSeconds,
                              run.ejectSeconds,
                              run.experimentSeconds,
                              r.ledger};
    for (int i = 0; i < values.size(); ++i)
        // Texts are never NULL in the ledger, even when empty.
        query.bindValue(i, values[i].typeId() == QMetaType::QString && values[i].toString().isNull()
                               ? QVariant(u""_s)
                               : values[i]);
}

LedgerRecord recordOf(const QSqlQuery& q)
{
    LedgerRecord r;
    r.instrument = q.value(0).toString();
    r.number = q.value(1).toLongLong();
    r.itemSerial = q.value(2).toString();
    r.queueNumber = q.value(3).toInt();
    r.user = q.value(4).toString();
    r.organization = q.value(5).toString();
    r.sampleName = q.value(6).toString();
    r.samplePosition = q.value(7).toInt();
    r.run.solvent = q.value(8).toString();
    r.run.title = q.value(9).toString();
    r.dataFile = q.value(10).toString();
    r.run.takenUp = timeOf(q.value(11));
    r.run.ended = timeOf(q.value(12));
    r.run.outcome = q.value(13).toString();
    r.run.mode = runModeFromName(q.value(14).toString().toLatin1()).value_or(RunMode::None);
    r.run.loaded = q.value(15).toInt() != 0;
    r.run.ejected = q.value(16).toInt() != 0;
    r.run.loadSeconds = q.value(17).toDouble();
    r.run.spinSeconds = q.value(18).toDouble();
    r.run.ejectSeconds = q.value(19).toDouble();
    r.run.experimentSeconds = q.value(20).toDouble();
    r.ledger = q.value(21).toString();
    return r;
}

bool fail(QString* error, const QString& reason)
{
    if (error)
        *error = reason;
    return false;
}

bool run(QSqlQuery& query, QString* error)
{
    if (query.exec())
        return true;
    return fail(error, query.lastError().text());
}

bool run(QSqlQuery& query, const QString& statement, QString* error)
{
    if (query.exec(statement))
        return true;
    return fail(error, query.lastError().text());
}

// The records a SELECT of kColumns finds, in its order; nothing, with the reason, when it fails.
std::optional<std::vector<LedgerRecord>> select(const QSqlDatabase& db, const QString& condition,
                                                const QVariantList& values, QString* error)
{
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(u"SELECT %1 FROM ledger %2"_s.arg(kColumns, condition));
    for (const QVariant& value : values)
        query.addBindValue(value);
    if (!run(query, error))
        return std::nullopt;
    std::vector<LedgerRecord> records;
    while (query.next())
        records.push_back(recordOf(query));
    return records;
}

// Rolls back a transaction that was not committed. SQLite's takes the write lock at once: a
// transaction that reads before it writes could otherwise not write once another connection
// (a report, spinlane-web) wrote in between, and would fail at once instead of waiting its turn.
class Transaction {
public:
    explicit Transaction(QSqlDatabase db)
        : m_db(std::move(db))
        , m_sqlite(m_db.driverName() == u"QSQLITE"_s)
    {
    }
    ~Transaction()
    {
        if (m_open)
            statement(u"ROLLBACK"_s, nullptr);
    }
    bool begin(QString* error)
    {
        m_open = statement(m_sqlite ? u"BEGIN IMMEDIATE"_s : u"BEGIN"_s, error);
        return m_open;
    }
    bool commit(QString* error)
    {
        m_open = false;
        return statement(u"COMMIT"_s, error);
    }

private:
    bool statement(const QString& text, QString* error)
    {
        QSqlQuery query(m_db);
        return run(query, text, error);
    }

    QSqlDatabase m_db;
    bool m_sqlite;
    bool m_open = false;
};

QString newConnectionName()
{
    static QAtomicInteger<quint64> next;
    return u"spinlane-ledger-"_s + QString::number(next.fetchAndAddRelaxed(1));
}

} // namespace

LedgerStore::LedgerStore(QString connection)
    : m_connection(std::move(connection))
{
}

LedgerStore::~LedgerStore()
{
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

int LedgerStore::schemaVersion() { return int(migrations().size()); }

std::unique_ptr<LedgerStore> LedgerStore::open(const QString& database, const QString& password,
                                               QString* error)
{
    const QUrl url(database);
    const bool postgres = url.scheme() == u"postgresql"_s || url.scheme() == u"postgres"_s;
    if (!postgres) {
        // Opening a FIFO or a device would wait or read what is no database.
        if (const QFileInfo info(database); info.exists() && !info.isFile()) {
            fail(error, u"not a regular file"_s);
            return nullptr;
        }
    }
    const QString connection = newConnectionName();
    std::unique_ptr<LedgerStore> store(new LedgerStore(connection));
    QSqlDatabase db = QSqlDatabase::addDatabase(postgres ? u"QPSQL"_s : u"QSQLITE"_s, connection);
    if (!db.isValid()) {
        fail(error, postgres ? u"Qt's PostgreSQL driver is not installed"_s
                             : u"Qt's SQLite driver is not installed"_s);
        return nullptr;
    }
    if (postgres) {
        db.setHostName(url.host());
        if (url.port() > 0)
            db.setPort(url.port());
        db.setUserName(url.userName());
        db.setPassword(password);
        db.setDatabaseName(url.path().mid(1));
    } else {
        db.setDatabaseName(database);
        // A report that reads while Spinlane writes never holds a write up for long.
        db.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=2000"_s);
    }
    if (!db.open()) {
        fail(error, db.lastError().text());
        return nullptr;
    }
    if (!postgres) {
        QSqlQuery pragma(db);
        if (!run(pragma, u"PRAGMA journal_mode=WAL"_s, error)
            || !run(pragma, u"PRAGMA synchronous=FULL"_s, error))
            return nullptr;
    }
    if (!store->migrate(error))
        return nullptr;
    // Made once with the ledger: what tells its records from those of a ledger made anew for the
    // same instrument, which numbers from 1 again.
    store->m_identity = store->meta(u"identity"_s);
    if (store->m_identity.isEmpty()) {
        store->m_identity = QUuid::createUuid().toString(QUuid::WithoutBraces);
        if (!store->setMeta(u"identity"_s, store->m_identity, error))
            return nullptr;
    }
    return store;
}

bool LedgerStore::migrate(QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection);
    QSqlQuery query(db);
    if (!run(query,
             u"CREATE TABLE IF NOT EXISTS spinlane_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)"_s,
             error))
        return false;
    const int version = meta(u"schema"_s).toInt();
    if (version > schemaVersion())
        return fail(error, u"the ledger was made by a newer version of Spinlane (schema %1)"_s.arg(
                               version));
    for (int step = version; step < schemaVersion(); ++step) {
        Transaction transaction(db);
        if (!transaction.begin(error))
            return false;
        for (const QString& statement : migrations()[std::size_t(step)]) {
            if (!run(query, statement, error))
                return false;
        }
        if (!setMeta(u"schema"_s, QString::number(step + 1), error) || !transaction.commit(error))
            return false;
    }
    return true;
}

QString LedgerStore::meta(const QString& key)
{
    QSqlQuery query(QSqlDatabase::database(m_connection));
    query.prepare(u"SELECT value FROM spinlane_meta WHERE key = ?"_s);
    query.addBindValue(key);
    if (!query.exec() || !query.next())
        return {};
    return query.value(0).toString();
}

bool LedgerStore::setMeta(const QString& key, const QString& value, QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connection));
    query.prepare(u"INSERT INTO spinlane_meta (key, value) VALUES (?, ?) "
                  "ON CONFLICT (key) DO UPDATE SET value = excluded.value"_s);
    query.addBindValue(key);
    query.addBindValue(value);
    return run(query, error);
}

bool LedgerStore::appendInTransaction(std::vector<LedgerRecord>& records, QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection);
    // Numbered across the whole ledger, so that a workstation renamed since keeps one sequence.
    QSqlQuery highest(db);
    if (!run(highest, u"SELECT COALESCE(MAX(record), 0) FROM ledger"_s, error) || !highest.next())
        return fail(error, highest.lastError().text());
    qint64 number = highest.value(0).toLongLong();
    QSqlQuery insert(db);
    insert.prepare(u"INSERT INTO ledger (%1) VALUES (%2)"_s.arg(kColumns, placeholders()));
    for (LedgerRecord& record : records) {
        record.number = ++number;
        record.ledger = m_identity;
        bind(insert, record);
        if (!run(insert, error))
            return false;
    }
    return true;
}

bool LedgerStore::append(std::vector<LedgerRecord>& records, QString* error)
{
    Transaction transaction(QSqlDatabase::database(m_connection));
    return transaction.begin(error) && appendInTransaction(records, error)
           && transaction.commit(error);
}

bool LedgerStore::appendOnce(std::vector<LedgerRecord>& records, const QString& key,
                             QString* error)
{
    Transaction transaction(QSqlDatabase::database(m_connection));
    if (!transaction.begin(error))
        return false;
    if (!meta(key).isEmpty())
        return true;
    return appendInTransaction(records, error) && setMeta(key, u"1"_s, error)
           && transaction.commit(error);
}

std::optional<int> LedgerStore::insert(const std::vector<LedgerRecord>& records, QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection);
    Transaction transaction(db);
    if (!transaction.begin(error))
        return std::nullopt;
    QSqlQuery insert(db);
    insert.prepare(u"INSERT INTO ledger (%1) VALUES (%2) ON CONFLICT (instrument, ledger, record) DO NOTHING"_s
                       .arg(kColumns, placeholders()));
    int added = 0;
    for (const LedgerRecord& record : records) {
        bind(insert, record);
        if (!run(insert, error))
            return std::nullopt;
        added += insert.numRowsAffected() > 0;
    }
    if (!transaction.commit(error))
        return std::nullopt;
    return added;
}

std::optional<std::vector<LedgerRecord>> LedgerStore::newest(int count, QString* error)
{
    auto records = select(QSqlDatabase::database(m_connection),
                          u"ORDER BY ended DESC, record DESC LIMIT ?"_s, {count}, error);
    if (records)
        std::reverse(records->begin(), records->end());
    return records;
}

std::optional<std::vector<LedgerRecord>> LedgerStore::after(qint64 number, int count,
                                                            QString* error)
{
    return select(QSqlDatabase::database(m_connection), u"WHERE record > ? ORDER BY record LIMIT ?"_s,
                  {number, count}, error);
}

std::optional<qint64> LedgerStore::heldThrough(const QString& instrument, const QString& ledger,
                                              qint64 held, QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connection));
    query.setForwardOnly(true);
    query.prepare(u"SELECT record FROM ledger WHERE instrument = ? AND ledger = ? AND record > ? "
                  "ORDER BY record LIMIT 1000"_s);
    for (;;) {
        query.addBindValue(instrument);
        query.addBindValue(ledger);
        query.addBindValue(held);
        if (!run(query, error))
            return std::nullopt;
        int rows = 0;
        while (query.next()) {
            ++rows;
            if (query.value(0).toLongLong() != held + 1)
                return held;
            ++held;
        }
        if (rows < 1000)
            return held;
    }
}

std::vector<std::pair<QString, QString>> LedgerStore::ledgersByInstrument()
{
    QSqlQuery query(QSqlDatabase::database(m_connection));
    std::vector<std::pair<QString, QString>> ledgers;
    if (query.exec(u"SELECT instrument, ledger FROM ledger GROUP BY instrument, ledger "
                   "ORDER BY MAX(ended)"_s)) {
        while (query.next())
            ledgers.emplace_back(query.value(0).toString(), query.value(1).toString());
    }
    return ledgers;
}

std::optional<std::vector<LedgerRecord>> LedgerStore::endedBetween(const QDateTime& from,
                                                                  const QDateTime& to,
                                                                  QString* error)
{
    return select(QSqlDatabase::database(m_connection),
                  u"WHERE ended >= ? AND ended < ? ORDER BY ended, instrument, record"_s,
                  {timeText(from), timeText(to)}, error);
}

// Summed by the database, so that only a row per organization and instrument comes back: the
// seconds of each item from being taken up to its end, never negative, nothing without a start.
std::optional<std::vector<UsageCell>> LedgerStore::usageBetween(const QDateTime& from,
                                                                const QDateTime& to, QString* error)
{
    const QSqlDatabase db = QSqlDatabase::database(m_connection);
    const QString seconds =
        db.driverName() == u"QSQLITE"_s
            ? u"MAX(0, (julianday(ended) - julianday(taken_up)) * 86400.0)"_s
            : u"GREATEST(0, EXTRACT(EPOCH FROM (ended::timestamptz - taken_up::timestamptz)))"_s;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(u"SELECT organization, instrument, COUNT(*), "
                  "SUM(CASE WHEN taken_up = '' THEN 0 ELSE %1 END) FROM ledger "
                  "WHERE ended >= ? AND ended < ? GROUP BY organization, instrument"_s.arg(seconds));
    query.addBindValue(timeText(from));
    query.addBindValue(timeText(to));
    if (!run(query, error))
        return std::nullopt;
    std::vector<UsageCell> usage;
    while (query.next())
        usage.push_back({query.value(0).toString(), query.value(1).toString(),
                         query.value(2).toInt(), query.value(3).toDouble() / 3600});
    // In the program's order, whatever the database's collation.
    std::sort(usage.begin(), usage.end(), [](const UsageCell& a, const UsageCell& b) {
        return std::tie(a.organization, a.instrument) < std::tie(b.organization, b.instrument);
    });
    return usage;
}

} // namespace spinlane
