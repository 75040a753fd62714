#include "facility/LedgerCollector.h"

#include "facility/LedgerMessage.h"
#include "facility/Topics.h"

#include <QList>

namespace spinlane::facility {
namespace {

// Records waiting for a ledger that cannot be written are let go beyond this many bytes of
// messages: the instruments send them again, since the facility's answer did not move.
constexpr qsizetype kMostWaitingBytes = 16 * 1024 * 1024;
constexpr int kRetryMs = 3000;

} // namespace

LedgerCollector::LedgerCollector(MqttClient& client, std::unique_ptr<LedgerStore> ledger,
                                 QObject* parent)
    : QObject(parent), m_client(client), m_ledger(std::move(ledger))
{
    m_write.setSingleShot(true);
    connect(&m_write, &QTimer::timeout, this, &LedgerCollector::writeWaiting);
    connect(&m_client, &MqttClient::connected, this, [this] {
        m_client.subscribe(allLedgersFilter());
        // Answers again: a broker that lost what it retained asks every instrument for all.
        for (const auto& [instrument, ledger] : m_ledger->ledgersByInstrument())
            answer(instrument, ledger);
    });
    connect(&m_client, &MqttClient::messageReceived, this,
            [this](const QString& topic, const QByteArray& payload) { take(topic, payload); });
}

void LedgerCollector::take(const QString& topic, const QByteArray& payload)
{
    const TopicParts parts = parseTopic(topic);
    if (parts.kind != TopicParts::Ledger)
        return;
    QString why;
    std::optional<LedgerRecord> record = readLedgerMessage(parts.instrument, payload, &why);
    if (!record) {
        ++m_rejected;
        Q_EMIT messageRejected(topic, why);
        return;
    }
    if (m_waitingBytes + payload.size() > kMostWaitingBytes)
        return;
    m_waitingBytes += payload.size();
    m_waiting.push_back(std::move(*record));
    // The records that came together are written in one transaction.
    if (!m_write.isActive())
        m_write.start(0);
}

void LedgerCollector::writeWaiting()
{
    if (m_waiting.empty())
        return;
    QString error;
    const std::optional<int> added = m_ledger->insert(m_waiting, &error);
    if (!added) {
        if (m_problem.isEmpty())
            qWarning("spinlane-web: the facility's ledger cannot be written (%s); its records wait",
                     qPrintable(error));
        m_problem = error;
        m_write.start(kRetryMs);
        return;
    }
    if (!m_problem.isEmpty()) {
        qWarning("spinlane-web: the facility's ledger is written again");
        m_problem.clear();
    }
    m_stored += quint64(*added);
    QList<std::pair<QString, QString>> ledgers; // in the order their last records came
    for (const LedgerRecord& record : m_waiting) {
        ledgers.removeOne({record.instrument, record.ledger});
        ledgers.append({record.instrument, record.ledger});
    }
    m_waiting.clear();
    m_waitingBytes = 0;
    for (const auto& [instrument, ledger] : ledgers)
        answer(instrument, ledger);
}

// "IDENTITY NUMBER": how far the facility holds the records of that ledger of the instrument.
void LedgerCollector::answer(const QString& instrument, const QString& ledger)
{
    const std::pair key{instrument, ledger};
    const std::optional<qint64> held =
        m_ledger->heldThrough(instrument, ledger, m_held.value(key, 0), nullptr);
    if (!held)
        return;
    m_held.insert(key, *held);
    m_client.publish(ledgerReceivedTopic(instrument),
                     ledger.toUtf8() + ' ' + QByteArray::number(*held), true);
}

} // namespace spinlane::facility
