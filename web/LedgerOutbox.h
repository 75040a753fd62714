#pragma once

#include "facility/MqttClient.h"
#include "ledger/LedgerStore.h"

#include <QElapsedTimer>
#include <QMap>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

// An instrument's side of the ledger: sends the records of the workstation's ledger, in order,
// to the instrument's ledger topic (QoS 1), a few at a time. What the broker took is kept in the
// ledger itself ("sent to broker HOST:PORT"), so that a restart sends on from there. The facility
// answers with the number up to which it holds every record; when that answer stays behind what
// the broker took for longer than `resendSeconds` (the facility was away, or lost records), the
// records after it are sent again. Records the facility holds already change nothing there.
namespace spinlane::web {

class LedgerOutbox : public QObject {
    Q_OBJECT
public:
    LedgerOutbox(facility::MqttClient& client, const QString& instrument,
                 const QString& ledgerPath, const QString& brokerAddress, int resendSeconds,
                 QObject* parent = nullptr);
    ~LedgerOutbox() override;

    qint64 sentThrough() const { return m_sent; } // taken by the broker, in order
    std::optional<qint64> receivedThrough() const { return m_received; } // the facility's answer

private:
    bool openLedger();
    void poll();
    void sendMore();
    void published(int messageId, bool accepted);
    void answered(const QString& topic, const QByteArray& payload);
    void setSent(qint64 number);
    void keepSent();
    void restartFrom(qint64 number);

    facility::MqttClient& m_client;
    QString m_instrument;
    QString m_ledgerPath;
    QString m_sentKey;
    int m_resendMs;
    std::unique_ptr<LedgerStore> m_ledger;
    qint64 m_sent = 0;
    bool m_sentKept = true; // m_sent is in the ledger
    qint64 m_next = 1; // the next number to send
    std::optional<qint64> m_received;
    QElapsedTimer m_sinceProgress; // since the facility's answer last moved, or it was asked again
    QMap<qint64, int> m_inFlight; // record number -> message id
    bool m_refused = false;
    QTimer m_poll;
};

} // namespace spinlane::web
