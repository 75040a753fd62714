#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <optional>

// Reads an instrument's state as it arrives from the broker: the schema-1 instrument JSON of
// /api/v1/instrument. Anyone allowed to publish under the topic tree can send anything, so the
// reader trusts nothing: it bounds the size, the items and every text, checks the type of every
// field, refuses control characters and a state whose instrument is not the one its topic names,
// and keeps only what it checked. The facility serves the state as writeStateJson writes it from
// what was read, never the bytes that came.
namespace spinlane::facility {

struct StateItem {
    int number = 0;
    int position = 0;
    QString sample;
    QString experiment;
    QString user;
    QString status;
    QString expectedStart;
    QString expectedEnd;
    int expectedSeconds = -1;
    QString basis;
    int runs = 0;
    QString started; // the current item's
};

struct InstrumentState {
    QString instrument;
    QByteArray json; // as writeStateJson writes it, once, when it arrives
    bool spinlane = false;
    QString runState;
    bool ifStartedNow = false;
    QString updated;
    QString queueEnd;
    std::optional<StateItem> current;
    QVector<StateItem> queue;
    qsizetype queueAt = 0; // where the queue's array begins in json
    QByteArray queueText; // the queue's bytes as they came: compared, never served
    QByteArrayView queueJson() const
    {
        return QByteArrayView(json).sliced(queueAt, json.size() - 1 - queueAt);
    }
    int waiting = 0; // queue items neither done nor being run
};

// The bounds of a valid state.
inline constexpr int kMaxQueueItems = 1000;
inline constexpr int kMaxTextLength = 256;

enum class PayloadFault { None, Malformed, Oversized, Foreign };

struct PayloadReading {
    std::optional<InstrumentState> state; // set exactly when fault is None
    PayloadFault fault = PayloadFault::None;
    QString why; // for the log: what was wrong
};

// `topicInstrument`: the instrument the topic names; a payload naming another one (or of
// another schema) is Foreign. `previous`, the instrument's last valid state, lends its queue
// when the payload's queue is byte for byte the one it was read from.
PayloadReading readStatePayload(const QByteArray& payload, const QString& topicInstrument,
                                qsizetype maxBytes, const InstrumentState* previous = nullptr);

// The state as compact schema-1 JSON, with `runState` in place of its own when not empty.
QByteArray writeStateJson(const InstrumentState& state, const QString& runState = {});

// A JSON string literal of `text`, quotes included.
void appendJsonString(QByteArray& out, const QString& text);

const char* faultName(PayloadFault fault); // "malformed", "oversized", "foreign"

} // namespace spinlane::facility
