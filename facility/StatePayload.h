#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <optional>

// Reads an instrument's state as it arrives from the broker: the schema-1 instrument JSON of
// /api/v1/instrument. Anyone allowed to publish under the topic tree can send anything, so the
// reader trusts nothing: it bounds the size, checks every field the facility uses, and refuses a
// state whose instrument is not the one its topic names.
namespace spinlane::facility {

struct StateItem {
    int number = 0;
    QString sample;
    QString experiment;
    QString user;
    QString status;
    QString expectedStart;
    QString expectedEnd;
    QString started; // the current item's
};

struct InstrumentState {
    QString instrument;
    QByteArray json; // the payload as it came, known to be a valid state
    bool spinlane = false;
    QString runState;
    QString updated;
    QString queueEnd;
    std::optional<StateItem> current;
    QVector<StateItem> queue;
    int waiting = 0; // queue items neither done nor being run
};

enum class PayloadFault { None, Malformed, Oversized, Foreign };

struct PayloadReading {
    std::optional<InstrumentState> state; // set exactly when fault is None
    PayloadFault fault = PayloadFault::None;
    QString why; // for the log: what was wrong
};

// `topicInstrument`: the instrument the topic names; a payload naming another one (or of
// another schema) is Foreign.
PayloadReading readStatePayload(const QByteArray& payload, const QString& topicInstrument,
                                qsizetype maxBytes);

const char* faultName(PayloadFault fault); // "malformed", "oversized", "foreign"

} // namespace spinlane::facility
