#include "facility/StatePayload.h"

#include "facility/JsonMember.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <cmath>

using namespace Qt::StringLiterals;

namespace spinlane::facility {

namespace {

const QStringList kRunStates = {u"idle"_s, u"running"_s, u"stopped"_s, u"finished"_s,
                                u"unknown"_s};

PayloadReading fault(PayloadFault kind, const QString& why)
{
    PayloadReading reading;
    reading.fault = kind;
    reading.why = why;
    return reading;
}

// What is wrong with one object's fields; empty when nothing is. Fields not named are ignored,
// and left out of what the facility serves.
class Fields {
public:
    explicit Fields(const QJsonObject& object)
        : m_object(object)
    {
    }
    // A string when present, bounded, without control characters; absent or null reads as "".
    Fields& text(const char* key, QString* out)
    {
        const QJsonValue value = m_object.value(QLatin1StringView(key));
        out->clear();
        if (value.isUndefined() || value.isNull())
            return *this;
        if (!value.isString())
            return fail(key, "is not a text");
        *out = value.toString();
        if (out->size() > kMaxTextLength)
            return fail(key, "is too long");
        for (const QChar c : std::as_const(*out)) {
            if (c.unicode() < 0x20 || c.unicode() == 0x7f)
                return fail(key, "holds a control character");
        }
        return *this;
    }
    // A whole number from `least` to `most`; absent reads as `fallback` unless `required`.
    Fields& number(const char* key, int* out, int least, int most, bool required = false)
    {
        const QJsonValue value = m_object.value(QLatin1StringView(key));
        if (value.isUndefined() && !required)
            return *this;
        const double n = value.toDouble(std::nan(""));
        if (!value.isDouble() || !(n >= least && n <= most) || n != std::floor(n))
            return fail(key, "is not a whole number in range");
        *out = int(n);
        return *this;
    }
    Fields& flag(const char* key, bool* out)
    {
        const QJsonValue value = m_object.value(QLatin1StringView(key));
        if (value.isUndefined())
            return *this;
        if (!value.isBool())
            return fail(key, "is not true or false");
        *out = value.toBool();
        return *this;
    }
    bool ok() const { return m_problem.isEmpty(); }
    QString problem() const { return m_problem; }

private:
    Fields& fail(const char* key, const char* why)
    {
        if (m_problem.isEmpty())
            m_problem = QLatin1StringView(key) + u' ' + QLatin1StringView(why);
        return *this;
    }

    const QJsonObject& m_object;
    QString m_problem;
};

// The item, or why not.
std::optional<StateItem> readItem(const QJsonValue& value, QString* why)
{
    if (!value.isObject()) {
        *why = u"not an object"_s;
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    StateItem item;
    Fields fields(object);
    fields.number("number", &item.number, 0, 1000000, true)
        .number("position", &item.position, 0, 1000000)
        .text("sample", &item.sample)
        .text("experiment", &item.experiment)
        .text("user", &item.user)
        .text("status", &item.status)
        .text("expectedStart", &item.expectedStart)
        .text("expectedEnd", &item.expectedEnd)
        .number("expectedSeconds", &item.expectedSeconds, -1, 1000000000)
        .text("basis", &item.basis)
        .number("runs", &item.runs, 0, 1000000000)
        .text("started", &item.started);
    if (!fields.ok()) {
        *why = fields.problem();
        return std::nullopt;
    }
    return item;
}

void appendMember(QByteArray& out, const char* key)
{
    out += '"';
    out += key;
    out += "\":";
}

void appendItem(QByteArray& out, const StateItem& item, bool current)
{
    const auto text = [&out](const char* key, const QString& value) {
        out += ',';
        appendMember(out, key);
        appendJsonString(out, value);
    };
    out += "{\"number\":";
    out += QByteArray::number(item.number);
    out += ",\"position\":";
    out += QByteArray::number(item.position);
    text("sample", item.sample);
    text("experiment", item.experiment);
    text("user", item.user);
    text("status", item.status);
    if (current) {
        text("started", item.started);
        text("expectedEnd", item.expectedEnd);
    } else {
        text("expectedStart", item.expectedStart);
        text("expectedEnd", item.expectedEnd);
        out += ",\"expectedSeconds\":";
        out += QByteArray::number(item.expectedSeconds);
        text("basis", item.basis);
        out += ",\"runs\":";
        out += QByteArray::number(item.runs);
    }
    out += '}';
}

} // namespace

void appendJsonString(QByteArray& out, const QString& text)
{
    out += '"';
    // Most texts are plain ASCII: copied as they are, without a UTF-8 copy of their own.
    bool plain = true;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= 0x7f || u < 0x20 || u == u'"' || u == u'\\') {
            plain = false;
            break;
        }
    }
    if (plain) {
        const qsizetype at = out.size();
        out.resize(at + text.size());
        char* to = out.data() + at;
        for (const QChar c : text)
            *to++ = char(c.unicode());
        out += '"';
        return;
    }
    const QByteArray utf8 = text.toUtf8();
    for (const char c : utf8) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        default:
            if (uchar(c) < 0x20 || c == 0x7f) {
                static const char hex[] = "0123456789abcdef";
                out += "\\u00";
                out += hex[(uchar(c) >> 4) & 0xf];
                out += hex[uchar(c) & 0xf];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

namespace {

// The queue's items into `state` and their JSON as the facility writes it into `json`; the fault
// when any.
PayloadReading readQueue(const QJsonArray& items, InstrumentState* state, QByteArray* json)
{
    if (items.size() > kMaxQueueItems)
        return fault(PayloadFault::Oversized,
                     u"%1 queue items, more than %2"_s.arg(items.size()).arg(kMaxQueueItems));
    state->queue.reserve(items.size());
    QString why;
    for (const QJsonValue& value : items) {
        std::optional<StateItem> item = readItem(value, &why);
        if (!item)
            return fault(PayloadFault::Malformed,
                         u"queue item %1: %2"_s.arg(state->queue.size() + 1).arg(why));
        if (item->status != u"Done" && item->status != u"In progress")
            ++state->waiting;
        state->queue.append(std::move(*item));
    }
    json->reserve(state->queue.size() * 256);
    *json = "[";
    for (qsizetype i = 0; i < state->queue.size(); ++i) {
        if (i > 0)
            *json += ',';
        appendItem(*json, state->queue[i], false);
    }
    *json += ']';
    return {};
}

// The state's JSON around the queue's, already written; `queueAt` is told where that begins.
QByteArray writeState(const InstrumentState& state, const QString& runState,
                      QByteArrayView queueJson, qsizetype* queueAt)
{
    QByteArray out;
    out.reserve(1024 + queueJson.size());
    out += "{\"schema\":1,\"instrument\":";
    appendJsonString(out, state.instrument);
    out += state.spinlane ? ",\"spinlane\":true" : ",\"spinlane\":false";
    out += ",\"updated\":";
    appendJsonString(out, state.updated);
    out += ",\"runState\":";
    appendJsonString(out, runState.isEmpty() ? state.runState : runState);
    out += state.ifStartedNow ? ",\"ifStartedNow\":true" : ",\"ifStartedNow\":false";
    out += ",\"queueEnd\":";
    appendJsonString(out, state.queueEnd);
    out += ",\"current\":";
    if (state.current)
        appendItem(out, *state.current, true);
    else
        out += "null";
    out += ",\"queue\":";
    if (queueAt)
        *queueAt = out.size();
    out += queueJson;
    out += '}';
    return out;
}

} // namespace

PayloadReading readStatePayload(const QByteArray& payload, const QString& topicInstrument,
                                qsizetype maxBytes, const InstrumentState* previous)
{
    if (payload.size() > maxBytes)
        return fault(PayloadFault::Oversized,
                     u"%1 bytes, more than %2"_s.arg(payload.size()).arg(maxBytes));
    // The queue is nearly all of a state and seldom changes: the rest is read on its own, and
    // the queue only when its bytes differ from the last valid state's.
    const MemberSpan queueSpan = memberSpan(payload, "queue");
    QByteArray head = payload;
    QByteArrayView queueText;
    if (queueSpan.found()) {
        queueText = QByteArrayView(payload).sliced(queueSpan.begin,
                                                   queueSpan.end - queueSpan.begin);
        head = payload.left(queueSpan.begin) + "[]" + payload.mid(queueSpan.end);
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(head, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return fault(PayloadFault::Malformed, u"not a JSON object"_s);
    const QJsonObject object = document.object();

    const QJsonValue schema = object.value(QLatin1String("schema"));
    if (!schema.isDouble())
        return fault(PayloadFault::Malformed, u"no schema"_s);
    if (schema.toDouble() != 1)
        return fault(PayloadFault::Foreign, u"schema %1"_s.arg(schema.toDouble()));
    const QJsonValue name = object.value(QLatin1String("instrument"));
    if (!name.isString())
        return fault(PayloadFault::Malformed, u"no instrument"_s);
    if (name.toString() != topicInstrument)
        return fault(PayloadFault::Foreign, u"says it is %1"_s.arg(name.toString().left(64)));

    InstrumentState state;
    state.instrument = topicInstrument;
    const QJsonValue spinlane = object.value(QLatin1String("spinlane"));
    const QJsonValue runState = object.value(QLatin1String("runState"));
    if (!spinlane.isBool() || !runState.isString() || !kRunStates.contains(runState.toString()))
        return fault(PayloadFault::Malformed, u"no valid spinlane or runState"_s);
    state.spinlane = spinlane.toBool();
    state.runState = runState.toString();
    Fields fields(object);
    fields.text("updated", &state.updated).text("queueEnd", &state.queueEnd)
        .flag("ifStartedNow", &state.ifStartedNow);
    if (!fields.ok())
        return fault(PayloadFault::Malformed, fields.problem());

    QString why;
    const QJsonValue current = object.value(QLatin1String("current"));
    if (current.isObject()) {
        state.current = readItem(current, &why);
        if (!state.current)
            return fault(PayloadFault::Malformed, u"current: "_s + why);
    } else if (!current.isNull() && !current.isUndefined()) {
        return fault(PayloadFault::Malformed, u"current is not an item"_s);
    }
    QJsonValue queue = object.value(QLatin1String("queue"));
    QByteArray freshQueueJson;
    QByteArrayView queueJson;
    if (queueSpan.found() && previous && previous->queueText == queueText) {
        state.queue = previous->queue;
        queueJson = previous->queueJson();
        state.queueText = previous->queueText;
        state.waiting = previous->waiting;
    } else {
        if (queueSpan.found()) {
            state.queueText = queueText.toByteArray();
            const QJsonDocument items = QJsonDocument::fromJson(state.queueText, &error);
            if (error.error != QJsonParseError::NoError)
                return fault(PayloadFault::Malformed, u"the queue is not JSON"_s);
            queue = items.isArray() ? QJsonValue(items.array()) : QJsonValue(items.object());
        }
        if (!queue.isArray())
            return fault(PayloadFault::Malformed, u"no queue"_s);
        PayloadReading items = readQueue(queue.toArray(), &state, &freshQueueJson);
        if (items.fault != PayloadFault::None)
            return items;
        queueJson = freshQueueJson;
    }
    state.json = writeState(state, {}, queueJson, &state.queueAt);
    PayloadReading reading;
    reading.state = std::move(state);
    return reading;
}

QByteArray writeStateJson(const InstrumentState& state, const QString& runState)
{
    return writeState(state, runState, state.queueJson(), nullptr);
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
