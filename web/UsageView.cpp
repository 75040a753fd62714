#include "web/UsageView.h"

#include "ledger/LedgerReport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <map>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

std::optional<std::vector<UsageCell>> cellsOf(LedgerStore& ledger, QDate month, QString* error)
{
    return ledger.usageBetween(month.startOfDay(), month.addMonths(1).startOfDay(), error);
}

double rounded(double hours) { return std::round(hours * 1e4) / 1e4; }

} // namespace

std::optional<QDate> parseMonth(const QString& text)
{
    static const QRegularExpression form(u"^(\\d{4})-(\\d{2})$"_s);
    const QRegularExpressionMatch match = form.match(text);
    const QDate first = match.hasMatch()
                            ? QDate(match.captured(1).toInt(), match.captured(2).toInt(), 1)
                            : QDate();
    return first.isValid() ? std::optional(first) : std::nullopt;
}

std::optional<QByteArray> usageJson(LedgerStore& ledger, QDate month, QString* error)
{
    const auto cells = cellsOf(ledger, month, error);
    if (!cells)
        return std::nullopt;
    std::map<QString, double> hoursOf;
    QStringList instruments;
    QJsonArray cellArray;
    int items = 0;
    double hours = 0;
    for (const UsageCell& cell : *cells) {
        hoursOf[cell.organization] += cell.instrumentHours;
        if (!instruments.contains(cell.instrument))
            instruments.append(cell.instrument);
        items += cell.items;
        hours += cell.instrumentHours;
        cellArray.append(QJsonObject{{u"organization"_s, cell.organization},
                                     {u"instrument"_s, cell.instrument},
                                     {u"items"_s, cell.items},
                                     {u"hours"_s, rounded(cell.instrumentHours)}});
    }
    instruments.sort();
    std::vector<std::pair<QString, double>> byHours(hoursOf.begin(), hoursOf.end());
    std::stable_sort(byHours.begin(), byHours.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    QJsonArray organizations;
    for (const auto& [organization, sum] : byHours)
        organizations.append(organization);
    const QJsonObject usage{{u"month"_s, month.toString(u"yyyy-MM"_s)},
                            {u"instruments"_s, QJsonArray::fromStringList(instruments)},
                            {u"organizations"_s, organizations},
                            {u"cells"_s, cellArray},
                            {u"items"_s, items},
                            {u"hours"_s, rounded(hours)}};
    return QJsonDocument(usage).toJson(QJsonDocument::Compact);
}

std::optional<QByteArray> usageCsv(LedgerStore& ledger, QDate month, QString* error)
{
    const auto cells = cellsOf(ledger, month, error);
    if (!cells)
        return std::nullopt;
    QByteArray csv = kCsvUtf8Mark
                     + csvLine({u"organization"_s, u"instrument"_s, u"items"_s,
                                u"instrument_hours"_s});
    for (const UsageCell& cell : *cells)
        csv += csvLine({cell.organization, cell.instrument, QString::number(cell.items),
                        QString::number(cell.instrumentHours, 'f', 2)});
    return csv;
}

} // namespace spinlane::web
