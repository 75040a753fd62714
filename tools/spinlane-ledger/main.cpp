// spinlane-ledger: what the instruments were used for, from a ledger (a workstation's SQLite file
// or a facility's database), as usage reports by organization, user, experiment or instrument,
// with amounts from a rates file, or as the raw records for a spreadsheet or a billing system.

#include "core/CommandLine.h"
#include "core/Console.h"
#include "ledger/LedgerReport.h"
#include "ledger/LedgerStore.h"

#include <QCoreApplication>
#include <QDate>
#include <QFile>
#include <QFileInfo>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::console;

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

const char kUsage[] =
    "usage: spinlane-ledger report --database DB --from DATE --to DATE\n"
    "                              [--by organization|user|title|instrument]\n"
    "                              [--format table|csv|json] [--rates FILE]\n"
    "       spinlane-ledger export --database DB --from DATE --to DATE\n"
    "       spinlane-ledger --help | --version\n"
    "\n"
    "report  items, outcomes, instrument and experiment hours per organization (or\n"
    "        user, experiment title, instrument) of the items that ended from the\n"
    "        first DATE to the last DATE, both included; with --rates, what they cost\n"
    "export  the records themselves as CSV\n"
    "\n"
    "DB      a ledger file (Spinlane.ledger beside the settings file), or\n"
    "        postgresql://USER@HOST[:PORT]/NAME with the password in PGPASSWORD\n"
    "        or ~/.pgpass\n"
    "DATE    YYYY-MM-DD, a day of this computer's time zone\n";

int fail(const QString& message)
{
    err() << "spinlane-ledger: " << message << Qt::endl;
    return Failure;
}

int usage()
{
    err() << kUsage;
    return Usage;
}

struct Options {
    QString command;
    QString database;
    QDate from;
    QDate to;
    ReportBy by = ReportBy::Organization;
    QString format = u"table"_s;
    QString rates;
};

// Reads the options; nothing, after saying why, when they are not a command's.
std::optional<Options> parse(const QStringList& args)
{
    Options options;
    options.command = args.value(0);
    if (options.command != u"report"_s && options.command != u"export"_s)
        return std::nullopt;
    for (qsizetype i = 1; i < args.size(); i += 2) {
        const QString& name = args[i];
        if (i + 1 >= args.size()) {
            err() << "spinlane-ledger: " << name << " needs a value" << Qt::endl;
            return std::nullopt;
        }
        const QString& value = args[i + 1];
        const auto bad = [&] {
            err() << "spinlane-ledger: " << name << " " << value << " is not understood"
                  << Qt::endl;
            return std::nullopt;
        };
        const bool report = options.command == u"report"_s;
        if (name == u"--database"_s) {
            options.database = value;
        } else if (name == u"--from"_s || name == u"--to"_s) {
            const QDate date = QDate::fromString(value, Qt::ISODate);
            if (!date.isValid())
                return bad();
            (name == u"--from"_s ? options.from : options.to) = date;
        } else if (report && name == u"--by"_s) {
            const std::optional<ReportBy> by = reportByFromName(value);
            if (!by)
                return bad();
            options.by = *by;
        } else if (report && name == u"--format"_s) {
            if (value != u"table"_s && value != u"csv"_s && value != u"json"_s)
                return bad();
            options.format = value;
        } else if (report && name == u"--rates"_s) {
            options.rates = value;
        } else {
            err() << "spinlane-ledger: " << name << " is not an option of "
                  << options.command << Qt::endl;
            return std::nullopt;
        }
    }
    if (options.database.isEmpty() || !options.from.isValid() || !options.to.isValid()) {
        err() << "spinlane-ledger: --database, --from and --to are needed" << Qt::endl;
        return std::nullopt;
    }
    if (options.to < options.from) {
        err() << "spinlane-ledger: --to is before --from" << Qt::endl;
        return std::nullopt;
    }
    return options;
}

// CSV and JSON go out as the bytes they are, the CSV's byte order mark included.
int writeOut(const QByteArray& bytes)
{
    QFile output;
    if (!output.open(stdout, QIODevice::WriteOnly) || output.write(bytes) != bytes.size()
        || !output.flush())
        return fail(u"cannot write the output: "_s + output.errorString());
    return Success;
}

QDateTime startOfDay(const QDate& date) { return date.startOfDay(QTimeZone::systemTimeZone()); }

int run(const QStringList& args)
{
    const std::optional<Options> options = parse(args);
    if (!options)
        return usage();
    std::optional<Rates> rates;
    QString error;
    if (!options->rates.isEmpty() && !(rates = readRates(options->rates, &error)))
        return fail(options->rates + u": "_s + error);
    const bool postgres = options->database.startsWith(u"postgres"_s);
    // A report never makes a ledger: a misspelt path is not an empty month.
    if (!postgres && !QFileInfo(options->database).isFile())
        return fail(options->database + u": no such ledger"_s);
    const std::unique_ptr<LedgerStore> ledger =
        LedgerStore::open(options->database, qEnvironmentVariable("PGPASSWORD"), &error);
    if (!ledger)
        return fail(options->database + u": "_s + error);
    const auto records = ledger->endedBetween(startOfDay(options->from),
                                              startOfDay(options->to.addDays(1)), &error);
    if (!records)
        return fail(options->database + u": "_s + error);

    if (options->command == u"export"_s)
        return writeOut(recordsCsv(*records));
    const UsageReport report = usageReport(*records, options->by, rates ? &*rates : nullptr);
    if (options->format == u"csv"_s)
        return writeOut(reportCsv(report));
    if (options->format == u"json"_s)
        return writeOut(reportJson(report));
    out() << reportTable(report);
    return Success;
}

} // namespace

int main(int argc, char* argv[])
{
    if (const auto answered =
            answerHelpOrVersion(argc, argv, u"spinlane-ledger"_s, QString::fromUtf8(kUsage)))
        return *answered;
    QCoreApplication app(argc, argv);
    return run(QCoreApplication::arguments().mid(1));
}
