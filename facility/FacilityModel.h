#pragma once

#include "facility/BrokerSettings.h"
#include "facility/MqttClient.h"
#include "facility/StatePayload.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QTimer>

#include <array>
#include <optional>

// What the facility knows of every instrument it hears on the broker: each one's last valid
// state, whether it is online, and when it was last heard. An instrument is online only while
// its latest word on the online topic is "online" and it has been heard within the configured
// time; otherwise it is offline, by its will or by its silence, and never reported as running.
// Served as /api/v1/facility (facilityJson), per instrument (entryJson), as "my samples"
// (samplesJson) and as /metrics lines with an instrument label (metricsText).
namespace spinlane::facility {

// A label value of the Prometheus text format, escaped.
QByteArray escapedLabel(const QString& value);

class FacilityModel : public QObject {
    Q_OBJECT
public:
    enum class Offline { No, Will, Silent };
    struct Entry {
        QString name;
        std::optional<InstrumentState> state;
        bool saidOnline = false; // its latest word on the online topic
        bool willArrived = false;
        QDateTime lastHeard;
        Offline offline = Offline::Silent;
        bool isOnline() const { return offline == Offline::No; }

        // Written once per change: entryJson's answers, and an offline state's JSON.
        QByteArray full;
        QByteArray summary;
        QByteArray offlineState;
        // When the will arrived and what the instrument had said before, in case the broker's
        // own shutdown sent it.
        QDateTime willAt;
        bool saidOnlineBeforeWill = false;
        bool heardBeforeLoss = false; // known before the facility last lost the broker
        // The items not done by user (case-folded) with their JSON, soonest first: made when
        // first asked for after a change.
        struct Sample {
            qint64 start; // ms since the epoch; the largest for none
            QByteArray json;
        };
        mutable std::optional<QHash<QString, QVector<Sample>>> samples;
    };

    explicit FacilityModel(QObject* parent = nullptr);

    // A will this close before the facility's own connection goes came from the broker's
    // shutdown, not from the instrument.
    static constexpr qint64 kShutdownWillMs = 500;

    void start(const BrokerSettings& settings);
    // Used alone, without start(): how long an instrument may be silent and how large a state.
    void setLimits(int offlineAfterSeconds, int maxPayloadBytes);

    // One message from the broker's topic tree; `retained` when the broker kept it from before.
    void take(const QString& topic, const QByteArray& payload, bool retained = false);
    // Marks the instruments silent for too long offline; a timer calls it every second.
    void checkSilence();

    QStringList instruments() const { return m_entries.keys(); }
    const Entry* entry(const QString& name) const;
    quint64 rejected(PayloadFault fault) const { return m_rejected[std::size_t(fault)]; }
    MqttClient& client() { return m_client; }
    const MqttClient& client() const { return m_client; }

    // Full: every instrument's JSON as it published it (an offline one's run state "unknown").
    // Summary: the same without "queue", with "queueLength" and "waiting" (items neither done nor being run) in
    // its place, for the cards and the live channel.
    enum class Detail { Full, Summary };
    QByteArray facilityJson(Detail detail = Detail::Full) const;
    // One instrument as it stands in facilityJson's "instruments"; empty when unknown.
    QByteArray entryJson(const QString& name, Detail detail = Detail::Full) const;
    // The items of `user` on every instrument that are not done, soonest expected start first.
    QByteArray samplesJson(const QString& user) const;
    QByteArray metricsText() const;

Q_SIGNALS:
    // Its state, its online status or its last-heard time changed (or it was forgotten).
    void instrumentChanged(const QString& name);
    void messageRejected(const QString& topic, const QString& why);

private:
    void reject(PayloadFault fault, const QString& topic, const QString& why);
    void refresh(Entry& entry);
    void changed(const QString& name);
    void prepare(Entry& entry);
    void brokerLost();
    void brokerBack();
    const QVector<Entry::Sample>& samplesOf(const Entry& entry, const QString& user) const;

    MqttClient m_client;
    QMap<QString, Entry> m_entries;
    bool m_brokerLost = false; // once connected, the connection went
    std::array<quint64, 4> m_rejected{};
    int m_offlineAfterSeconds = 90;
    int m_maxPayloadBytes = 4 * 1024 * 1024;
    QTimer m_silence;
};

} // namespace spinlane::facility
