#include "facility/FacilityModel.h"

#include "facility/Topics.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

#include <algorithm>

namespace spinlane::facility {

namespace {

QString iso(const QDateTime& time)
{
    return time.isValid() ? time.toString(Qt::ISODateWithMs) : QString();
}

const char* offlineName(FacilityModel::Offline offline)
{
    switch (offline) {
    case FacilityModel::Offline::Will:
        return "will";
    case FacilityModel::Offline::Silent:
        return "silent";
    case FacilityModel::Offline::No:
        break;
    }
    return "";
}

// Splices `raw` (known valid JSON) into the compact object as its last member, so that a state
// of a thousand items is copied, not parsed and written again.
QByteArray withMember(const QJsonObject& object, const char* key, const QByteArray& raw)
{
    QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
    json.chop(1);
    if (json.size() > 1)
        json += ',';
    json += '"';
    json += key;
    json += "\":";
    json += raw;
    json += '}';
    return json;
}

QJsonValue itemJson(const std::optional<StateItem>& item)
{
    if (!item)
        return QJsonValue::Null;
    return QJsonObject{{QStringLiteral("number"), item->number},
                       {QStringLiteral("sample"), item->sample},
                       {QStringLiteral("experiment"), item->experiment},
                       {QStringLiteral("user"), item->user},
                       {QStringLiteral("status"), item->status},
                       {QStringLiteral("started"), item->started},
                       {QStringLiteral("expectedEnd"), item->expectedEnd}};
}

QByteArray summaryJson(const InstrumentState& state, const QString& runState)
{
    const QJsonObject summary{{QStringLiteral("schema"), 1},
                              {QStringLiteral("instrument"), state.instrument},
                              {QStringLiteral("spinlane"), state.spinlane},
                              {QStringLiteral("updated"), state.updated},
                              {QStringLiteral("runState"), runState},
                              {QStringLiteral("queueEnd"), state.queueEnd},
                              {QStringLiteral("current"), itemJson(state.current)},
                              {QStringLiteral("queueLength"), int(state.queue.size())},
                              {QStringLiteral("waiting"), state.waiting}};
    return QJsonDocument(summary).toJson(QJsonDocument::Compact);
}

} // namespace

QByteArray escapedLabel(const QString& value)
{
    QByteArray escaped = value.toUtf8();
    escaped.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return escaped;
}

FacilityModel::FacilityModel(QObject* parent)
    : QObject(parent),
      m_client(QStringLiteral("spinlane-facility-%1")
                   .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0')))
{
    connect(&m_client, &MqttClient::connected, this, [this] {
        m_client.subscribe(allStatesFilter());
        m_client.subscribe(allOnlineFilter());
    });
    connect(&m_client, &MqttClient::messageReceived, this, &FacilityModel::take);
    m_silence.setInterval(1000);
    connect(&m_silence, &QTimer::timeout, this, &FacilityModel::checkSilence);
}

void FacilityModel::start(const BrokerSettings& settings)
{
    setLimits(settings.offlineAfterSeconds, settings.maxPayloadBytes);
    m_client.start(settings);
}

void FacilityModel::setLimits(int offlineAfterSeconds, int maxPayloadBytes)
{
    m_offlineAfterSeconds = offlineAfterSeconds;
    m_maxPayloadBytes = maxPayloadBytes;
    m_silence.start();
}

const FacilityModel::Entry* FacilityModel::entry(const QString& name) const
{
    const auto found = m_entries.constFind(name);
    return found == m_entries.constEnd() ? nullptr : &*found;
}

void FacilityModel::reject(PayloadFault fault, const QString& topic, const QString& why)
{
    ++m_rejected[std::size_t(fault)];
    Q_EMIT messageRejected(topic, QStringLiteral("%1: %2").arg(QLatin1String(faultName(fault)), why));
}

void FacilityModel::take(const QString& topic, const QByteArray& payload)
{
    const TopicParts parts = parseTopic(topic);
    if (parts.kind == TopicParts::Other) {
        reject(PayloadFault::Foreign, topic, QStringLiteral("not an instrument's topic"));
        return;
    }
    const QString& name = parts.instrument;
    if (payload.isEmpty()) {
        // A retained message cleared on the broker: the instrument is being retired.
        const auto found = m_entries.find(name);
        if (found == m_entries.end())
            return;
        if (parts.kind == TopicParts::State)
            found->state.reset();
        else
            found->saidOnline = found->willArrived = false;
        if (!found->state && !found->saidOnline && !found->willArrived)
            m_entries.erase(found);
        else
            refresh(*found);
        changed(name);
        return;
    }
    if (parts.kind == TopicParts::Online) {
        const bool online = payload == kOnlinePayload;
        if (!online && payload != kOfflinePayload) {
            reject(PayloadFault::Malformed, topic, QStringLiteral("neither online nor offline"));
            return;
        }
        Entry& entry = m_entries[name];
        entry.name = name;
        entry.saidOnline = online;
        entry.willArrived = !online;
        entry.lastHeard = QDateTime::currentDateTimeUtc();
        refresh(entry);
        changed(name);
        return;
    }
    PayloadReading reading = readStatePayload(payload, name, m_maxPayloadBytes);
    if (!reading.state) {
        reject(reading.fault, topic, reading.why);
        return;
    }
    Entry& entry = m_entries[name];
    entry.name = name;
    entry.state = std::move(reading.state);
    entry.lastHeard = QDateTime::currentDateTimeUtc();
    refresh(entry);
    changed(name);
}

void FacilityModel::changed(const QString& name)
{
    m_summaries.remove(name);
    Q_EMIT instrumentChanged(name);
}

void FacilityModel::refresh(Entry& entry)
{
    const bool heard = entry.lastHeard.isValid()
                       && entry.lastHeard.secsTo(QDateTime::currentDateTimeUtc()) <= m_offlineAfterSeconds;
    if (entry.willArrived)
        entry.offline = Offline::Will;
    else if (!entry.saidOnline || !heard)
        entry.offline = Offline::Silent;
    else
        entry.offline = Offline::No;
}

void FacilityModel::checkSilence()
{
    for (Entry& entry : m_entries) {
        const Offline before = entry.offline;
        refresh(entry);
        if (entry.offline != before)
            changed(entry.name);
    }
}

QByteArray FacilityModel::entryJson(const QString& name, Detail detail) const
{
    const Entry* found = entry(name);
    if (!found)
        return {};
    const bool online = found->isOnline();
    const QString lastRunState = found->state ? found->state->runState : QString();
    QJsonObject head{{QStringLiteral("name"), name},
                     {QStringLiteral("online"), online},
                     {QStringLiteral("offline"), QLatin1String(offlineName(found->offline))},
                     {QStringLiteral("lastHeard"), iso(found->lastHeard)},
                     {QStringLiteral("runState"), online ? lastRunState : QStringLiteral("offline")},
                     {QStringLiteral("lastRunState"), lastRunState}};
    if (!found->state)
        return withMember(head, "instrument", "null");
    if (detail == Detail::Summary) {
        // The live channel sends every instrument's summary after each change of one: each is
        // written once per change of its own.
        auto cached = m_summaries.constFind(name);
        if (cached == m_summaries.constEnd())
            cached = m_summaries.insert(
                name, withMember(head, "instrument",
                                 summaryJson(*found->state, online ? lastRunState : QStringLiteral("unknown"))));
        return *cached;
    }
    if (online)
        return withMember(head, "instrument", found->state->json);
    // What an offline instrument last said stays readable, but never as a run going on.
    QJsonObject last = QJsonDocument::fromJson(found->state->json).object();
    last.insert(QStringLiteral("runState"), QStringLiteral("unknown"));
    return withMember(head, "instrument", QJsonDocument(last).toJson(QJsonDocument::Compact));
}

QByteArray FacilityModel::facilityJson(Detail detail) const
{
    QJsonObject rejected;
    for (PayloadFault fault : {PayloadFault::Malformed, PayloadFault::Oversized, PayloadFault::Foreign})
        rejected.insert(QLatin1String(faultName(fault)), double(this->rejected(fault)));
    const QJsonObject head{
        {QStringLiteral("schema"), 1},
        {QStringLiteral("generated"), iso(QDateTime::currentDateTimeUtc())},
        {QStringLiteral("broker"),
         QJsonObject{{QStringLiteral("connected"), m_client.isConnected()},
                     {QStringLiteral("problem"), m_client.lastProblem()}}},
        {QStringLiteral("offlineAfterSeconds"), m_offlineAfterSeconds},
        {QStringLiteral("rejected"), rejected}};
    QByteArray list = "[";
    for (auto it = m_entries.cbegin(); it != m_entries.cend(); ++it) {
        if (list.size() > 1)
            list += ',';
        list += entryJson(it.key(), detail);
    }
    list += ']';
    return withMember(head, "instruments", list);
}

QByteArray FacilityModel::samplesJson(const QString& user) const
{
    struct Found {
        const Entry* entry;
        const StateItem* item;
    };
    std::vector<Found> found;
    for (const Entry& entry : m_entries) {
        if (!entry.state)
            continue;
        for (const StateItem& item : entry.state->queue) {
            if (item.status != u"Done" && item.user.compare(user, Qt::CaseInsensitive) == 0)
                found.push_back({&entry, &item});
        }
    }
    // Soonest first; items without an expected start after those with one.
    std::stable_sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
        const QString& x = a.item->expectedStart;
        const QString& y = b.item->expectedStart;
        if (x.isEmpty() != y.isEmpty())
            return y.isEmpty();
        return QDateTime::fromString(x, Qt::ISODateWithMs) < QDateTime::fromString(y, Qt::ISODateWithMs);
    });
    QJsonArray items;
    for (const Found& f : found) {
        items.append(QJsonObject{{QStringLiteral("instrument"), f.entry->name},
                                 {QStringLiteral("online"), f.entry->isOnline()},
                                 {QStringLiteral("number"), f.item->number},
                                 {QStringLiteral("sample"), f.item->sample},
                                 {QStringLiteral("experiment"), f.item->experiment},
                                 {QStringLiteral("status"), f.item->status},
                                 {QStringLiteral("expectedStart"), f.item->expectedStart},
                                 {QStringLiteral("expectedEnd"), f.item->expectedEnd}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("user"), user}, {QStringLiteral("items"), items}})
        .toJson(QJsonDocument::Compact);
}

QByteArray FacilityModel::metricsText() const
{
    QByteArray online, heard, running, items, queueEnd;
    for (const Entry& entry : m_entries) {
        const QByteArray name = "{instrument=\"" + escapedLabel(entry.name) + "\"} ";
        online += "spinlane_instrument_online" + name + (entry.isOnline() ? "1\n" : "0\n");
        if (entry.lastHeard.isValid())
            heard += "spinlane_instrument_last_heard_timestamp_seconds" + name
                     + QByteArray::number(entry.lastHeard.toMSecsSinceEpoch() / 1000.0, 'f', 3) + '\n';
        if (!entry.state)
            continue;
        const bool isRunning = entry.isOnline() && entry.state->runState == u"running";
        running += "spinlane_instrument_running" + name + (isRunning ? "1\n" : "0\n");
        items += "spinlane_instrument_queue_items" + name
                 + QByteArray::number(entry.state->queue.size()) + '\n';
        const QDateTime end = QDateTime::fromString(entry.state->queueEnd, Qt::ISODateWithMs);
        if (end.isValid() && entry.isOnline())
            queueEnd += "spinlane_instrument_queue_end_timestamp_seconds" + name
                        + QByteArray::number(end.toSecsSinceEpoch()) + '\n';
    }
    QByteArray text;
    const auto family = [&text](const char* metric, const char* type, const char* help,
                                const QByteArray& lines) {
        text += QByteArray("# HELP ") + metric + ' ' + help + "\n# TYPE " + metric + ' ' + type
                + '\n' + lines;
    };
    family("spinlane_facility_broker_connected", "gauge", "Whether the facility is connected to the broker.",
           m_client.isConnected() ? "spinlane_facility_broker_connected 1\n"
                                  : "spinlane_facility_broker_connected 0\n");
    QByteArray rejectedLines;
    for (PayloadFault fault : {PayloadFault::Malformed, PayloadFault::Oversized, PayloadFault::Foreign})
        rejectedLines += QByteArray("spinlane_facility_rejected_messages_total{reason=\"")
                         + faultName(fault) + "\"} " + QByteArray::number(rejected(fault)) + '\n';
    family("spinlane_facility_rejected_messages_total", "counter",
           "Messages on the topic tree ignored as malformed, oversized or foreign.", rejectedLines);
    family("spinlane_instrument_online", "gauge", "Whether the instrument is heard (1) or offline (0).", online);
    family("spinlane_instrument_last_heard_timestamp_seconds", "gauge",
           "When the facility last heard from the instrument.", heard);
    family("spinlane_instrument_running", "gauge", "Whether the instrument runs its queue (never while offline).",
           running);
    family("spinlane_instrument_queue_items", "gauge", "Items in the instrument's queue.", items);
    family("spinlane_instrument_queue_end_timestamp_seconds", "gauge",
           "When the instrument expects to finish its queue.", queueEnd);
    return text;
}

} // namespace spinlane::facility
