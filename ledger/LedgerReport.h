#pragma once

#include "ledger/LedgerRecord.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// Usage reports a facility bills from: the ledger's records of a period summed per organization,
// user, experiment or instrument, with amounts when rates are given. An item belongs to the
// period in which it ended, with all of its hours, so that the months of a year add up to the year.
namespace spinlane {

enum class ReportBy { Organization, User, Title, Instrument };
// "organization", "user", "title" or "instrument".
std::optional<ReportBy> reportByFromName(const QString& name);
QString reportByName(ReportBy by);

// What the instrument's time costs: a rate per hour for each organization (named directly or
// through its class), a minimum charge per item, and whether failed items are charged.
struct Rates {
    double perHour = 0; // for an organization the rates do not name
    QHash<QString, double> perHourOf; // by organization
    double minimumCharge = 0;
    bool chargeFailed = false;

    double rateOf(const QString& organization) const { return perHourOf.value(organization, perHour); }
    // What one item costs: its hours from being taken up to its end at its organization's rate,
    // at least the minimum charge; nothing for a failed item unless failed items are charged.
    double charge(const LedgerRecord& record) const;
};
// Reads a rates file:
//   [Rates]          PerHour=40  MinimumCharge=5  ChargeFailed=no
//   [Classes]        internal=25  external=90
//   [Organizations]  Chemistry=internal  Acme Analytics=external  Physics=30
// An organization names a class or a rate of its own. Nothing, with the reason, for a file that
// cannot be read, a number that is not one, or a class that is not defined.
std::optional<Rates> readRates(const QString& path, QString* error);

struct UsageRow {
    QString key;
    int items = 0;
    int done = 0;
    int failed = 0;
    int stopped = 0;
    double instrumentHours = 0; // from taken up to ended
    double experimentHours = 0;
    double amount = 0;
};

struct UsageReport {
    ReportBy by = ReportBy::Organization;
    bool charged = false; // whether rates were given
    std::vector<UsageRow> rows; // sorted by key
    UsageRow total;
};

UsageReport usageReport(const std::vector<LedgerRecord>& records, ReportBy by,
                        const Rates* rates = nullptr);

// The report as a table for a terminal, as CSV and as JSON.
QString reportTable(const UsageReport& report);
QByteArray reportCsv(const UsageReport& report);
QByteArray reportJson(const UsageReport& report);
// The records themselves as CSV, a line each, for a spreadsheet or a billing system.
QByteArray recordsCsv(const std::vector<LedgerRecord>& records);

// One CSV field: quoted when it holds a comma, a quote or a line break; a text that a spreadsheet
// would take for a formula (it starts with =, +, -, @ or a tab) is written with a ' before it.
QByteArray csvField(const QString& text);
// A line of such fields, ending in CRLF.
QByteArray csvLine(const QStringList& fields);
// Spreadsheets take a CSV file for UTF-8 only when it starts with the byte order mark.
inline constexpr char kCsvUtf8Mark[] = "\xEF\xBB\xBF";

} // namespace spinlane
