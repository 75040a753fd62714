#include "facility/FacilityModel.h"

#include "facility/Topics.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

#include <algorithm>
#include <limits>

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
        brokerBack();
        m_client.subscribe(allStatesFilter());
        m_client.subscribe(allOnlineFilter());
    });
    connect(&m_client, &MqttClient::disconnected, this, &FacilityModel::brokerLost);
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

void FacilityModel::take(const QString& topic, const QByteArray& payload, bool retained)
{
    const TopicParts parts = parseTopic(topic);
    if (parts.kind == TopicParts::Other) {
        reject(PayloadFault::Foreign, topic, QStringLiteral("not an instrument's topic"));
        return;
    }
    if (parts.kind == TopicParts::Ledger || parts.kind == TopicParts::LedgerReceived)
        return; // the ledger's, which the collector takes
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
        const bool stale = retained && entry.heardBeforeLoss;
        const QDateTime now = QDateTime::currentDateTimeUtc();
        if (online) {
            entry.saidOnline = true;
            entry.willArrived = false;
        } else if (stale && !entry.willArrived) {
            // Kept by the broker from while this facility did not hear it: the instrument may
            // have left, or the broker's own restart sent its will. Not heard, at least.
            entry.saidOnline = false;
        } else {
            entry.saidOnlineBeforeWill = entry.saidOnline;
            entry.saidOnline = false;
            entry.willArrived = true;
            entry.willAt = now;
        }
        if (!stale)
            entry.lastHeard = now;
        refresh(entry);
        changed(name);
        return;
    }
    const auto known = m_entries.constFind(name);
    const InstrumentState* previous =
        known != m_entries.constEnd() && known->state ? &*known->state : nullptr;
    PayloadReading reading = readStatePayload(payload, name, m_maxPayloadBytes, previous);
    if (!reading.state) {
        reject(reading.fault, topic, reading.why);
        return;
    }
    Entry& entry = m_entries[name];
    entry.name = name;
    entry.state = std::move(reading.state);
    entry.offlineState.clear();
    if (!retained || !entry.heardBeforeLoss)
        entry.lastHeard = QDateTime::currentDateTimeUtc();
    refresh(entry);
    changed(name);
}

void FacilityModel::changed(const QString& name)
{
    const auto found = m_entries.find(name);
    if (found != m_entries.end())
        prepare(*found);
    Q_EMIT instrumentChanged(name);
}

void FacilityModel::brokerLost()
{
    m_brokerLost = true;
    // The broker sends every client's will as it shuts down, just before the connection goes:
    // a will heard that late says nothing about the instrument.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (Entry& entry : m_entries) {
        entry.heardBeforeLoss = true;
        if (entry.willArrived && entry.willAt.msecsTo(now) < kShutdownWillMs) {
            entry.willArrived = false;
            entry.saidOnline = entry.saidOnlineBeforeWill;
        }
    }
    checkSilence();
}

void FacilityModel::brokerBack()
{
    m_brokerLost = false;
    checkSilence();
}

void FacilityModel::refresh(Entry& entry)
{
    const bool heard = entry.lastHeard.isValid()
                       && entry.lastHeard.secsTo(QDateTime::currentDateTimeUtc()) <= m_offlineAfterSeconds;
    if (entry.willArrived)
        entry.offline = Offline::Will;
    else if (!entry.saidOnline || !heard || m_brokerLost)
        entry.offline = Offline::Silent;
    else
        entry.offline = Offline::No;
}

void FacilityModel::checkSilence()
{
    QStringList changedNames;
    for (Entry& entry : m_entries) {
        const Offline before = entry.offline;
        refresh(entry);
        if (entry.offline != before)
            changedNames.append(entry.name);
    }
    for (const QString& name : std::as_const(changedNames))
        changed(name);
}

void FacilityModel::prepare(Entry& entry)
{
    const bool online = entry.isOnline();
    const QString lastRunState = entry.state ? entry.state->runState : QString();
    const QJsonObject head{{QStringLiteral("name"), entry.name},
                           {QStringLiteral("online"), online},
                           {QStringLiteral("offline"), QLatin1String(offlineName(entry.offline))},
                           {QStringLiteral("lastHeard"), iso(entry.lastHeard)},
                           {QStringLiteral("runState"), online ? lastRunState : QStringLiteral("offline")},
                           {QStringLiteral("lastRunState"), lastRunState}};
    entry.samples.reset();
    if (!entry.state) {
        entry.offlineState.clear();
        entry.full = entry.summary = withMember(head, "instrument", "null");
        return;
    }
    // What an offline instrument last said stays readable, but never as a run going on.
    if (online)
        entry.offlineState.clear();
    else if (entry.offlineState.isEmpty())
        entry.offlineState = writeStateJson(*entry.state, QStringLiteral("unknown"));
    entry.full = withMember(head, "instrument", online ? entry.state->json : entry.offlineState);
    entry.summary = withMember(head, "instrument",
                               summaryJson(*entry.state, online ? lastRunState : QStringLiteral("unknown")));
}

QByteArray FacilityModel::entryJson(const QString& name, Detail detail) const
{
    const Entry* found = entry(name);
    if (!found)
        return {};
    return detail == Detail::Full ? found->full : found->summary;
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

const QVector<FacilityModel::Entry::Sample>& FacilityModel::samplesOf(const Entry& entry,
                                                                      const QString& user) const
{
    static const QVector<Entry::Sample> none;
    if (!entry.state)
        return none;
    if (!entry.samples) {
        // Once per change of the instrument, not per request: each item's time read once.
        QHash<QString, QVector<Entry::Sample>> byUser;
        for (const StateItem& item : entry.state->queue) {
            if (item.status == u"Done")
                continue;
            const QDateTime start = QDateTime::fromString(item.expectedStart, Qt::ISODateWithMs);
            QByteArray json = "{\"instrument\":";
            appendJsonString(json, entry.name);
            json += entry.isOnline() ? ",\"online\":true" : ",\"online\":false";
            json += ",\"number\":" + QByteArray::number(item.number) + ",\"sample\":";
            appendJsonString(json, item.sample);
            json += ",\"experiment\":";
            appendJsonString(json, item.experiment);
            json += ",\"status\":";
            appendJsonString(json, item.status);
            json += ",\"expectedStart\":";
            appendJsonString(json, item.expectedStart);
            json += ",\"expectedEnd\":";
            appendJsonString(json, item.expectedEnd);
            json += '}';
            byUser[item.user.toCaseFolded()].append(
                {start.isValid() ? start.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max(),
                 json});
        }
        for (QVector<Entry::Sample>& samples : byUser)
            std::stable_sort(samples.begin(), samples.end(),
                             [](const auto& a, const auto& b) { return a.start < b.start; });
        entry.samples = std::move(byUser);
    }
    const auto found = entry.samples->constFind(user.toCaseFolded());
    return found == entry.samples->constEnd() ? none : *found;
}

QByteArray FacilityModel::samplesJson(const QString& user) const
{
    // Every instrument's list is sorted already: this only merges them, in instrument order
    // where the times are equal.
    std::vector<const Entry::Sample*> found;
    for (const Entry& entry : m_entries) {
        for (const Entry::Sample& sample : samplesOf(entry, user))
            found.push_back(&sample);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto* a, const auto* b) { return a->start < b->start; });
    QByteArray json = "{\"user\":";
    appendJsonString(json, user);
    json += ",\"items\":[";
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (i > 0)
            json += ',';
        json += found[i]->json;
    }
    json += "]}";
    return json;
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
