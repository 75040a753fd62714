#include "facility/StatePayload.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace spinlane::facility {

namespace {

const QStringList kRunStates = {QStringLiteral("idle"), QStringLiteral("running"),
                                QStringLiteral("stopped"), QStringLiteral("finished"),
                                QStringLiteral("unknown")};

PayloadReading fault(PayloadFault kind, const QString& why)
{
    PayloadReading reading;
    reading.fault = kind;
    reading.why = why;
    return reading;
}

// A field that must be a string when present; absent reads as "".
bool optionalText(const QJsonObject& object, const QString& key, QString* out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        out->clear();
        return true;
    }
    if (!value.isString())
        return false;
    *out = value.toString();
    return true;
}

std::optional<StateItem> readItem(const QJsonValue& value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QJsonValue number = object.value(QLatin1String("number"));
    const double n = number.toDouble(-1);
    if (!number.isDouble() || n < 0 || n > 1e6 || n != double(int(n)))
        return std::nullopt;
    StateItem item;
    item.number = int(n);
    const bool texts = optionalText(object, QStringLiteral("sample"), &item.sample)
                       && optionalText(object, QStringLiteral("experiment"), &item.experiment)
                       && optionalText(object, QStringLiteral("user"), &item.user)
                       && optionalText(object, QStringLiteral("status"), &item.status)
                       && optionalText(object, QStringLiteral("expectedStart"), &item.expectedStart)
                       && optionalText(object, QStringLiteral("expectedEnd"), &item.expectedEnd)
                       && optionalText(object, QStringLiteral("started"), &item.started);
    if (!texts)
        return std::nullopt;
    return item;
}

} // namespace

PayloadReading readStatePayload(const QByteArray& payload, const QString& topicInstrument,
                                qsizetype maxBytes)
{
    if (payload.size() > maxBytes)
        return fault(PayloadFault::Oversized,
                     QStringLiteral("%1 bytes, more than %2").arg(payload.size()).arg(maxBytes));
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(payload, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return fault(PayloadFault::Malformed, QStringLiteral("not a JSON object"));
    const QJsonObject object = document.object();

    const QJsonValue schema = object.value(QLatin1String("schema"));
    if (!schema.isDouble())
        return fault(PayloadFault::Malformed, QStringLiteral("no schema"));
    if (schema.toDouble() != 1)
        return fault(PayloadFault::Foreign, QStringLiteral("schema %1").arg(schema.toDouble()));
    const QJsonValue name = object.value(QLatin1String("instrument"));
    if (!name.isString())
        return fault(PayloadFault::Malformed, QStringLiteral("no instrument"));
    if (name.toString() != topicInstrument)
        return fault(PayloadFault::Foreign, QStringLiteral("says it is %1").arg(name.toString()));

    InstrumentState state;
    state.instrument = topicInstrument;
    const QJsonValue spinlane = object.value(QLatin1String("spinlane"));
    const QJsonValue runState = object.value(QLatin1String("runState"));
    if (!spinlane.isBool() || !runState.isString() || !kRunStates.contains(runState.toString()))
        return fault(PayloadFault::Malformed, QStringLiteral("no valid spinlane or runState"));
    state.spinlane = spinlane.toBool();
    state.runState = runState.toString();
    if (!optionalText(object, QStringLiteral("updated"), &state.updated)
        || !optionalText(object, QStringLiteral("queueEnd"), &state.queueEnd))
        return fault(PayloadFault::Malformed, QStringLiteral("updated or queueEnd is not a text"));

    const QJsonValue current = object.value(QLatin1String("current"));
    if (current.isObject()) {
        state.current = readItem(current);
        if (!state.current)
            return fault(PayloadFault::Malformed, QStringLiteral("current is not an item"));
    } else if (!current.isNull() && !current.isUndefined()) {
        return fault(PayloadFault::Malformed, QStringLiteral("current is not an item"));
    }
    const QJsonValue queue = object.value(QLatin1String("queue"));
    if (!queue.isArray())
        return fault(PayloadFault::Malformed, QStringLiteral("no queue"));
    const QJsonArray items = queue.toArray();
    state.queue.reserve(items.size());
    for (const QJsonValue& value : items) {
        std::optional<StateItem> item = readItem(value);
        if (!item)
            return fault(PayloadFault::Malformed,
                         QStringLiteral("queue item %1 is not an item").arg(state.queue.size() + 1));
        if (item->status != u"Done" && item->status != u"In progress")
            ++state.waiting;
        state.queue.append(std::move(*item));
    }
    state.json = payload;
    PayloadReading reading;
    reading.state = std::move(state);
    return reading;
}

const char* faultName(PayloadFault fault)
{
    switch (fault) {
    case PayloadFault::Malformed:
        return "malformed";
    case PayloadFault::Oversized:
        return "oversized";
    case PayloadFault::Foreign:
        return "foreign";
    case PayloadFault::None:
        break;
    }
    return "";
}

} // namespace spinlane::facility
