#pragma once

#include "ledger/LedgerRecord.h"

#include <QDateTime>
#include <QString>

#include <memory>
#include <utility>
#include <optional>
#include <vector>

namespace spinlane {

// An organization's use of one instrument in a period: its items and their hours from being
// taken up to their end.
struct UsageCell {
    QString organization;
    QString instrument;
    int items = 0;
    double instrumentHours = 0;
};

// A ledger database: an SQLite file on a workstation or a small facility, PostgreSQL for a
// facility. Records are never changed or removed; the schema carries a version, and opening a
// ledger of an older version migrates it. SQLite runs in WAL mode with full sync, so a record
// that was added is on the disk, and a report can read while Spinlane writes.
class LedgerStore {
public:
    ~LedgerStore();
    LedgerStore(const LedgerStore&) = delete;
    LedgerStore& operator=(const LedgerStore&) = delete;

    // Opens, creating or migrating it when needed, the ledger `database` names:
    // "postgresql://USER@HOST[:PORT]/NAME" a PostgreSQL database (with `password`, or libpq's own
    // ways to find one when it is empty), anything else an SQLite file. Nothing on failure, with
    // the reason in `error`. A path that is there but is not a regular file is refused.
    static std::unique_ptr<LedgerStore> open(const QString& database, const QString& password,
                                             QString* error);

    // Adds records of this workstation, numbered on from the ledger's highest number, in one
    // transaction; on success each record carries its number and this ledger's identity.
    bool append(std::vector<LedgerRecord>& records, QString* error);
    // Appends records once: with the mark `key` in the same transaction, and nothing when the
    // ledger holds the mark already. For what is imported from elsewhere.
    bool appendOnce(std::vector<LedgerRecord>& records, const QString& key, QString* error);
    // Adds records that carry their number; a record whose instrument, ledger and number are
    // stored already changes nothing. One transaction; how many were new.
    std::optional<int> insert(const std::vector<LedgerRecord>& records, QString* error);
    // The newest `count` records, oldest first.
    std::optional<std::vector<LedgerRecord>> newest(int count, QString* error);
    // At most `count` records numbered above `number`, by number: what a workstation sends on.
    std::optional<std::vector<LedgerRecord>> after(qint64 number, int count, QString* error);
    // The highest number up to which the ledger holds every record of `instrument` from its
    // ledger `ledger`, from number `held` on (`held` when it holds not the next one).
    std::optional<qint64> heldThrough(const QString& instrument, const QString& ledger, qint64 held,
                                      QString* error);
    // Every instrument and ledger with records, the one with the latest record last.
    std::vector<std::pair<QString, QString>> ledgersByInstrument();
    // This ledger's identity, made with it; the records it numbers carry it.
    QString identity() const { return m_identity; }
    // The records that ended from `from` up to before `to`, in the order they ended.
    std::optional<std::vector<LedgerRecord>> endedBetween(const QDateTime& from,
                                                          const QDateTime& to, QString* error);

    // What each organization used of each instrument with the items that ended from `from` up to
    // before `to`, by organization and instrument.
    std::optional<std::vector<UsageCell>> usageBetween(const QDateTime& from, const QDateTime& to,
                                                       QString* error);

    // A value the program keeps beside the records (the schema's version, what was imported);
    // empty when there is none.
    QString meta(const QString& key);
    bool setMeta(const QString& key, const QString& value, QString* error);

    // The version of the schema this program writes.
    static int schemaVersion();

private:
    explicit LedgerStore(QString connection);
    bool migrate(QString* error);
    bool appendInTransaction(std::vector<LedgerRecord>& records, QString* error);

    QString m_connection;
    QString m_identity;
};

} // namespace spinlane
