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

QJsonObject instrumentJson(const StatusMirror& mirror, const JsonOptions& options)
{
    const bool running = mirror.state().spinlane;
    const InstrumentState& state = running ? mirror.state() : mirror.lastSeen();
    const auto sample = [&options](const QString& name) {
        return options.hideSampleNames ? QString() : name;
    };
    const auto user = [&options](const QString& id) { return options.hideUsers ? QString() : id; };
    QHash<int, QVariantMap> forecast;
    if (running) {
        for (const QVariantMap& entry : state.forecast)
            forecast.insert(entry.value(u"QueueNumber"_s).toInt(), entry);
    }

    QJsonArray queue;
    for (const QStringList& row : state.queue) {
        if (row.size() < QueueList::ColumnCount)
            continue;
        const int number = shownNumber(row.at(QueueList::QueueNumColumn));
        const QString status = row.at(QueueList::StatusColumn);
        const QVariantMap expected = forecast.value(number);
        const QString basis = expected.value(u"Basis"_s, u"none"_s).toString();
        const bool ended = status == u"Done"_s || status == u"Failed"_s;
        queue.append(QJsonObject{
            {u"number"_s, number},
            {u"position"_s, shownNumber(row.at(QueueList::SampleNumColumn))},
            {u"sample"_s, sample(row.at(QueueList::SampleNameColumn))},
            {u"experiment"_s, row.at(QueueList::ExpTitleColumn)},
            {u"user"_s, user(row.at(QueueList::UserIDColumn))},
            {u"status"_s, status},
            {u"expectedStart"_s, isoTime(expected.value(u"ExpectedStart"_s).toString())},
            {u"expectedEnd"_s, isoTime(expected.value(u"ExpectedEnd"_s).toString())},
            {u"earliestStart"_s, isoTime(expected.value(u"EarliestStart"_s).toString())},
            {u"latestStart"_s, isoTime(expected.value(u"LatestStart"_s).toString())},
            {u"earliestEnd"_s, isoTime(expected.value(u"EarliestEnd"_s).toString())},
            {u"latestEnd"_s, isoTime(expected.value(u"LatestEnd"_s).toString())},
            {u"longerThanAnyRun"_s, expected.value(u"LongerThanAnyRun"_s).toBool()},
            {u"expectedSeconds"_s, expected.value(u"ExpectedSeconds"_s, -1).toInt()},
            {u"basis"_s, basis},
            {u"runs"_s, expected.value(u"Runs"_s, 0).toInt()},
            {u"ended"_s, ended ? isoDateTimeWithOffset(mirror.ended().value(number)) : QString()}});
    }

    QJsonValue current = QJsonValue::Null;
    const int currentNumber = state.current.value(u"QueueNumber"_s).toInt();
    if (running && currentNumber != 0) {
        const QVariantMap expected = forecast.value(currentNumber);
        current =
            QJsonObject{{u"number"_s, currentNumber},
                        {u"position"_s, state.current.value(u"SamplePosition"_s).toInt()},
                        {u"sample"_s, sample(state.current.value(u"SampleName"_s).toString())},
                        {u"experiment"_s, state.current.value(u"Experiment"_s).toString()},
                        {u"user"_s, user(state.current.value(u"User"_s).toString())},
                        {u"status"_s, state.current.value(u"Status"_s).toString()},
                        {u"started"_s, isoTime(state.current.value(u"Started"_s).toString())},
                        {u"expectedEnd"_s, isoTime(expected.value(u"ExpectedEnd"_s).toString())},
                        {u"basis"_s, expected.value(u"Basis"_s, u"none"_s).toString()}};
    }

    const QVariantMap last =
        !running || state.forecast.isEmpty() ? QVariantMap() : state.forecast.last();
    return {{u"schema"_s, kSchema},
            {u"instrument"_s, options.instrument},
            {u"spinlane"_s, running},
            {u"runState"_s, running ? state.runState : u"unknown"_s},
            {u"ifStartedNow"_s, running && !state.forecast.isEmpty()
                                    && state.forecast.first().value(u"IfStartedNow"_s).toBool()},
            {u"queueEnd"_s, isoTime(last.value(u"ExpectedEnd"_s).toString())},
            {u"asOf"_s, running || state.queue.isEmpty()
                            ? QString()
                            : isoDateTimeWithOffset(mirror.lastSeenAt())},
            {u"sampleNamesHidden"_s, options.hideSampleNames},
            {u"usersHidden"_s, options.hideUsers},
            {u"current"_s, current},
            {u"queue"_s, queue}};
}

QJsonObject userItemsJson(const StatusMirror& mirror, const QString& user)
{
    const InstrumentState& state = mirror.state().spinlane ? mirror.state() : mirror.lastSeen();
    QJsonArray numbers;
    for (const QStringList& row : state.queue) {
        if (row.size() >= QueueList::ColumnCount && !user.isEmpty()
            && row.at(QueueList::UserIDColumn).compare(user, Qt::CaseInsensitive) == 0)
            numbers.append(shownNumber(row.at(QueueList::QueueNumColumn)));
    }
    return {{u"user"_s, user}, {u"numbers"_s, numbers}};
}

} // namespace spinlane::web
