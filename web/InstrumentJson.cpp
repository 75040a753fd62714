#include "web/InstrumentJson.h"

#include "core/Conversions.h"
#include "queue/QueueList.h"

#include <QDateTime>
#include <QJsonArray>

#include <cmath>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

// A number the list shows ("007"); 0 for a text without one.
int shownNumber(const QString& text)
{
    const double value = leadingNumber(text);
    return std::abs(value) < 2147483648.0 ? int(value) : 0;
}

} // namespace

QString isoTime(const QString& text)
{
    if (text.isEmpty())
        return {};
    QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!time.isValid())
        return {};
    return time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

QJsonObject instrumentJson(const InstrumentState& state, const QString& instrument,
                           bool hideSampleNames)
{
    const auto sample = [hideSampleNames](const QString& name) {
        return hideSampleNames ? QString() : name;
    };
    QHash<int, QVariantMap> forecast;
    for (const QVariantMap& entry : state.forecast)
        forecast.insert(entry.value(u"QueueNumber"_s).toInt(), entry);

    QJsonArray queue;
    for (const QStringList& row : state.queue) {
        if (row.size() < QueueList::ColumnCount)
            continue;
        const int number = shownNumber(row.at(QueueList::QueueNumColumn));
        const QVariantMap expected = forecast.value(number);
        const QString basis = expected.value(u"Basis"_s, u"none"_s).toString();
        queue.append(QJsonObject{
            {u"number"_s, number},
            {u"position"_s, shownNumber(row.at(QueueList::SampleNumColumn))},
            {u"sample"_s, sample(row.at(QueueList::SampleNameColumn))},
            {u"experiment"_s, row.at(QueueList::ExpTitleColumn)},
            {u"user"_s, row.at(QueueList::UserIDColumn)},
            {u"status"_s, row.at(QueueList::StatusColumn)},
            {u"expectedStart"_s, isoTime(expected.value(u"ExpectedStart"_s).toString())},
            {u"expectedEnd"_s, isoTime(expected.value(u"ExpectedEnd"_s).toString())},
            {u"earliestStart"_s, isoTime(expected.value(u"EarliestStart"_s).toString())},
            {u"latestStart"_s, isoTime(expected.value(u"LatestStart"_s).toString())},
            {u"earliestEnd"_s, isoTime(expected.value(u"EarliestEnd"_s).toString())},
            {u"latestEnd"_s, isoTime(expected.value(u"LatestEnd"_s).toString())},
            {u"longerThanAnyRun"_s, expected.value(u"LongerThanAnyRun"_s).toBool()},
            {u"expectedSeconds"_s, expected.value(u"ExpectedSeconds"_s, -1).toInt()},
            {u"basis"_s, basis},
            {u"runs"_s, expected.value(u"Runs"_s, 0).toInt()}});
    }

    QJsonValue current = QJsonValue::Null;
    const int currentNumber = state.current.value(u"QueueNumber"_s).toInt();
    if (state.spinlane && currentNumber != 0) {
        current = QJsonObject{
            {u"number"_s, currentNumber},
            {u"position"_s, state.current.value(u"SamplePosition"_s).toInt()},
            {u"sample"_s, sample(state.current.value(u"SampleName"_s).toString())},
            {u"experiment"_s, state.current.value(u"Experiment"_s).toString()},
            {u"user"_s, state.current.value(u"User"_s).toString()},
            {u"status"_s, state.current.value(u"Status"_s).toString()},
            {u"started"_s, isoTime(state.current.value(u"Started"_s).toString())},
            {u"expectedEnd"_s,
             isoTime(forecast.value(currentNumber).value(u"ExpectedEnd"_s).toString())}};
    }

    const QVariantMap last = state.forecast.isEmpty() ? QVariantMap() : state.forecast.last();
    return {{u"schema"_s, kSchema},
            {u"instrument"_s, instrument},
            {u"spinlane"_s, state.spinlane},
            {u"runState"_s, state.spinlane ? state.runState : u"unknown"_s},
            {u"ifStartedNow"_s, !state.forecast.isEmpty()
                                    && state.forecast.first().value(u"IfStartedNow"_s).toBool()},
            {u"queueEnd"_s, isoTime(last.value(u"ExpectedEnd"_s).toString())},
            {u"current"_s, current},
            {u"queue"_s, queue}};
}

} // namespace spinlane::web
