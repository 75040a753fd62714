#pragma once

#include "facility/MqttClient.h"
#include "ledger/LedgerStore.h"

#include <QHash>
#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

// The facility's side of the ledger: takes every instrument's records from the broker into the
// facility's ledger, each once, and answers each instrument (retained, on its ledger-received
// topic) with the number up to which the facility holds every one of its records. Records are
// kept by instrument, the identity of the workstation's ledger and number, so that a ledger made
// anew for an instrument (a new workstation), which numbers from 1 again, loses nothing. An instrument
// sends on from that number, so a record the facility lost (it was killed after the broker's
// delivery but before its write) is sent again; the answer, not the broker's acknowledgement,
// is what tells an instrument that a record arrived.
namespace spinlane::facility {

class LedgerCollector : public QObject {
    Q_OBJECT
public:
    // Listens on `client`, which the facility's model also uses.
    LedgerCollector(MqttClient& client, std::unique_ptr<LedgerStore> ledger,
                    QObject* parent = nullptr);

    // The facility's ledger, for its reports.
    LedgerStore& ledger() { return *m_ledger; }
    quint64 storedRecords() const { return m_stored; } // new records written
    quint64 rejectedMessages() const { return m_rejected; }
    // Why the ledger cannot be written now; empty while it can.
    QString problem() const { return m_problem; }

Q_SIGNALS:
    void messageRejected(const QString& topic, const QString& why);

private:
    void take(const QString& topic, const QByteArray& payload);
    void writeWaiting();
    void answer(const QString& instrument, const QString& ledger);

    MqttClient& m_client;
    std::unique_ptr<LedgerStore> m_ledger;
    std::vector<LedgerRecord> m_waiting; // read, not yet written
    qsizetype m_waitingBytes = 0; // the size of their messages
    QTimer m_write;
    // Per instrument and ledger: every record up to this number is held.
    QHash<std::pair<QString, QString>, qint64> m_held;
    quint64 m_stored = 0;
    quint64 m_rejected = 0;
    QString m_problem;
};

} // namespace spinlane::facility
