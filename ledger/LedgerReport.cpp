#include "ledger/LedgerReport.h"

#include "core/ProfileFile.h"
#include "core/TextTable.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <map>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

const QStringList kByNames{u"organization"_s, u"user"_s, u"title"_s, u"instrument"_s};

QString keyOf(const LedgerRecord& r, ReportBy by)
{
    switch (by) {
    case ReportBy::Organization: return r.organization;
    case ReportBy::User: return r.user;
    case ReportBy::Title: return r.run.title;
    case ReportBy::Instrument: return r.instrument;
    }
    return {};
}

void add(UsageRow& row, const LedgerRecord& r, const Rates* rates)
{
    ++row.items;
    row.done += r.run.outcome == u"Done"_s;
    row.failed += r.run.outcome == u"Failed"_s;
    row.stopped += r.run.outcome == u"Stopped"_s;
    row.instrumentHours += secondsBetween(r.run.takenUp, r.run.ended) / 3600;
    row.experimentHours += r.run.experimentSeconds / 3600;
    if (rates)
        row.amount += rates->charge(r);
}

std::optional<double> numberOf(const QString& text)
{
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(value) || value < 0)
        return std::nullopt;
    return value;
}

QString hours(double value) { return QString::number(value, 'f', 2); }
QString money(double value) { return QString::number(value, 'f', 2); }

QStringList header(const UsageReport& report)
{
    QStringList names{reportByName(report.by), u"items"_s, u"done"_s, u"failed"_s, u"stopped"_s,
                      u"instrument_hours"_s, u"experiment_hours"_s};
    if (report.charged)
        names << u"amount"_s;
    return names;
}

QStringList cells(const UsageReport& report, const UsageRow& row)
{
    QStringList cells{row.key,
                      QString::number(row.items),
                      QString::number(row.done),
                      QString::number(row.failed),
                      QString::number(row.stopped),
                      hours(row.instrumentHours),
                      hours(row.experimentHours)};
    if (report.charged)
        cells << money(row.amount);
    return cells;
}

QJsonObject jsonRow(const UsageReport& report, const UsageRow& row)
{
    QJsonObject object{{reportByName(report.by), row.key},
                       {u"items"_s, row.items},
                       {u"done"_s, row.done},
                       {u"failed"_s, row.failed},
                       {u"stopped"_s, row.stopped},
                       {u"instrument_hours"_s, std::round(row.instrumentHours * 1e4) / 1e4},
                       {u"experiment_hours"_s, std::round(row.experimentHours * 1e4) / 1e4}};
    if (report.charged)
        object.insert(u"amount"_s, std::round(row.amount * 100) / 100);
    return object;
}

} // namespace

std::optional<ReportBy> reportByFromName(const QString& name)
{
    const qsizetype index = kByNames.indexOf(name);
    if (index < 0)
        return std::nullopt;
    return ReportBy(index);
}

QString reportByName(ReportBy by) { return kByNames[int(by)]; }

double Rates::charge(const LedgerRecord& record) const
{
    if (record.run.outcome == u"Failed"_s && !chargeFailed)
        return 0;
    const double hours = secondsBetween(record.run.takenUp, record.run.ended) / 3600;
    return std::max(hours * rateOf(record.organization), minimumCharge);
}

std::optional<Rates> readRates(const QString& path, QString* error)
{
    const auto fail = [&](const QString& reason) {
        *error = reason;
        return std::nullopt;
    };
    if (!QFileInfo(path).isFile())
        return fail(u"%1 is not a readable file"_s.arg(path));
    const ProfileDocument document = ProfileDocument::load(path);
    Rates rates;
    QHash<QString, double> classes;
    QHash<QString, QString> organizations;
    for (const ProfileDocument::Item& item : document.items()) {
        if (item.header || !item.value)
            continue;
        const QString section = item.section.toLower();
        const QString key = item.key.trimmed();
        const QString value = item.value->trimmed();
        const auto where = u"line %1: %2"_s.arg(item.line);
        if (section == u"organizations"_s) {
            organizations.insert(key, value);
            continue;
        }
        if (section == u"rates"_s && key.compare(u"ChargeFailed"_s, Qt::CaseInsensitive) == 0) {
            const QString yes = value.toLower();
            if (yes != u"yes"_s && yes != u"no"_s && yes != u"true"_s && yes != u"false"_s)
                return fail(where.arg(u"ChargeFailed needs yes or no"_s));
            rates.chargeFailed = yes == u"yes"_s || yes == u"true"_s;
            continue;
        }
        const std::optional<double> number = numberOf(value);
        if (!number)
            return fail(where.arg(u"%1 needs a number of 0 or more"_s.arg(key)));
        if (section == u"classes"_s)
            classes.insert(key, *number);
        else if (section == u"rates"_s && key.compare(u"PerHour"_s, Qt::CaseInsensitive) == 0)
            rates.perHour = *number;
        else if (section == u"rates"_s && key.compare(u"MinimumCharge"_s, Qt::CaseInsensitive) == 0)
            rates.minimumCharge = *number;
        else
            return fail(where.arg(u"[%1] %2 is not a setting of a rates file"_s.arg(item.section, key)));
    }
    for (auto it = organizations.cbegin(); it != organizations.cend(); ++it) {
        if (const std::optional<double> own = numberOf(it.value()))
            rates.perHourOf.insert(it.key(), *own);
        else if (classes.contains(it.value()))
            rates.perHourOf.insert(it.key(), classes.value(it.value()));
        else
            return fail(u"the organization %1 has the class %2, which [Classes] does not define"_s.arg(
                it.key(), it.value()));
    }
    return rates;
}

UsageReport usageReport(const std::vector<LedgerRecord>& records, ReportBy by, const Rates* rates)
{
    UsageReport report;
    report.by = by;
    report.charged = rates != nullptr;
    std::map<QString, UsageRow> rows;
    for (const LedgerRecord& record : records) {
        const QString key = keyOf(record, by);
        UsageRow& row = rows[key];
        row.key = key;
        add(row, record, rates);
        add(report.total, record, rates);
    }
    report.total.key = u"Total"_s;
    for (auto& [key, row] : rows)
        report.rows.push_back(std::move(row));
    return report;
}

QString reportTable(const UsageReport& report)
{
    std::vector<QStringList> lines{header(report)};
    for (const UsageRow& row : report.rows) {
        lines.push_back(cells(report, row));
        if (lines.back().constFirst().isEmpty())
            lines.back().first() = u"(none)"_s;
    }
    lines.push_back(cells(report, report.total));
    return textTable(lines);
}

QByteArray reportCsv(const UsageReport& report)
{
    QByteArray csv = kCsvUtf8Mark + csvLine(header(report));
    for (const UsageRow& row : report.rows)
        csv += csvLine(cells(report, row));
    csv += csvLine(cells(report, report.total));
    return csv;
}

QByteArray reportJson(const UsageReport& report)
{
    QJsonArray rows;
    for (const UsageRow& row : report.rows)
        rows.append(jsonRow(report, row));
    QJsonObject total = jsonRow(report, report.total);
    total.remove(reportByName(report.by));
    return QJsonDocument(QJsonObject{{u"by"_s, reportByName(report.by)},
                                     {u"rows"_s, rows},
                                     {u"total"_s, total}})
        .toJson(QJsonDocument::Indented);
}

QByteArray recordsCsv(const std::vector<LedgerRecord>& records)
{
    QByteArray csv = kCsvUtf8Mark
                     + csvLine({u"instrument"_s, u"record"_s, u"item_serial"_s,
                                u"queue_number"_s, u"user_id"_s, u"organization"_s,
                                u"sample_name"_s, u"sample_position"_s, u"solvent"_s, u"title"_s,
                                u"data_file"_s, u"taken_up"_s, u"ended"_s, u"outcome"_s,
                                u"mode"_s, u"handling_seconds"_s, u"experiment_seconds"_s});
    for (const LedgerRecord& r : records) {
        csv += csvLine({r.instrument, QString::number(r.number), r.itemSerial,
                        QString::number(r.queueNumber), r.user, r.organization, r.sampleName,
                        QString::number(r.samplePosition), r.run.solvent, r.run.title, r.dataFile,
                        r.run.takenUp.toString(Qt::ISODateWithMs),
                        r.run.ended.toString(Qt::ISODateWithMs), r.run.outcome,
                        QString::fromLatin1(runModeName(r.run.mode)),
                        QString::number(r.run.handlingSeconds(), 'f', 3),
                        QString::number(r.run.experimentSeconds, 'f', 3)});
    }
    return csv;
}

QByteArray csvField(const QString& text)
{
    QString field = text;
    static const QString kFormulaStarts = u"=+-@\t\r"_s;
    bool ok = false;
    field.toDouble(&ok);
    if (!field.isEmpty() && kFormulaStarts.contains(field.front()) && !ok)
        field.prepend(u'\'');
    if (field.contains(u',') || field.contains(u'"') || field.contains(u'\n')
        || field.contains(u'\r'))
        field = u'"' + QString(field).replace(u'"', u"\"\""_s) + u'"';
    return field.toUtf8();
}

QByteArray csvLine(const QStringList& fields)
{
    QByteArrayList encoded;
    for (const QString& field : fields)
        encoded << csvField(field);
    return encoded.join(',') + "\r\n";
}

} // namespace spinlane
