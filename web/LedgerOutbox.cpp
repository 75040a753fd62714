#include "web/LedgerOutbox.h"

#include "facility/LedgerMessage.h"
#include "facility/Topics.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace spinlane::web {
namespace {

constexpr int kMostInFlight = 32;
constexpr int kPollMs = 1000;

} // namespace

LedgerOutbox::LedgerOutbox(facility::MqttClient& client, const QString& instrument,
                           const QString& ledgerPath, const QString& brokerAddress,
                           int resendSeconds, QObject* parent)
    : QObject(parent)
    , m_client(client)
    , m_instrument(instrument)
    , m_ledgerPath(ledgerPath)
    , m_sentKey(u"sent to broker "_s + brokerAddress)
    , m_resendMs(resendSeconds * 1000)
{
    m_sinceProgress.start();
    m_poll.setInterval(kPollMs);
    connect(&m_poll, &QTimer::timeout, this, &LedgerOutbox::poll);
    m_poll.start();
    connect(&m_client, &facility::MqttClient::connected, this, [this] {
        m_client.subscribe(facility::ledgerReceivedTopic(m_instrument));
        m_inFlight.clear();
        m_refused = false;
        restartFrom(std::max(m_sent, m_received.value_or(0)));
    });
    connect(&m_client, &facility::MqttClient::disconnected, this, [this] { m_inFlight.clear(); });
    connect(&m_client, &facility::MqttClient::published, this, &LedgerOutbox::published);
    connect(&m_client, &facility::MqttClient::messageReceived, this,
            [this](const QString& topic, const QByteArray& payload) { answered(topic, payload); });
}

LedgerOutbox::~LedgerOutbox() { keepSent(); }

// Spinlane makes the ledger; until it has, there is nothing to send.
bool LedgerOutbox::openLedger()
{
    if (m_ledger)
        return true;
    if (!QFileInfo(m_ledgerPath).isFile())
        return false;
    QString error;
    m_ledger = LedgerStore::open(m_ledgerPath, {}, &error);
    if (!m_ledger) {
        qWarning("spinlane-web: the ledger %s cannot be read: %s", qPrintable(m_ledgerPath),
                 qPrintable(error));
        return false;
    }
    m_sent = m_ledger->meta(m_sentKey).toLongLong();
    m_next = std::max(m_next, m_sent + 1);
    return true;
}

void LedgerOutbox::poll()
{
    keepSent();
    sendMore();
}

void LedgerOutbox::sendMore()
{
    if (!m_client.isConnected() || m_refused || !openLedger())
        return;
    // The facility has not caught up with what the broker took: it was away or lost records.
    if (m_received && *m_received < m_sent && m_inFlight.isEmpty()
        && m_sinceProgress.hasExpired(m_resendMs)) {
        m_sinceProgress.restart();
        restartFrom(*m_received);
    }
    const int room = kMostInFlight - int(m_inFlight.size());
    if (room <= kMostInFlight / 2)
        return;
    QString error;
    const auto records = m_ledger->after(m_next - 1, room, &error);
    if (!records)
        return;
    for (const LedgerRecord& record : *records) {
        const int id = m_client.publish(facility::ledgerTopic(m_instrument),
                                        facility::ledgerMessage(record), false);
        if (id < 0)
            return;
        m_inFlight.insert(record.number, id);
        m_next = record.number + 1;
    }
}

void LedgerOutbox::published(int messageId, bool accepted)
{
    const auto found = std::find(m_inFlight.begin(), m_inFlight.end(), messageId);
    if (found == m_inFlight.end())
        return;
    const qint64 number = found.key();
    if (!accepted) {
        // The broker's access list refuses the topic: try again once the connection is new.
        if (!m_refused)
            qWarning("spinlane-web: broker: the ledger's records are refused on %s",
                     qPrintable(facility::ledgerTopic(m_instrument)));
        m_refused = true;
        m_inFlight.clear();
        m_next = m_sent + 1;
        return;
    }
    m_inFlight.erase(found);
    // In order: everything before the oldest record still in flight was taken.
    setSent(m_inFlight.isEmpty() ? std::max(m_sent, number) : m_inFlight.firstKey() - 1);
    sendMore();
}

void LedgerOutbox::answered(const QString& topic, const QByteArray& payload)
{
    if (topic != facility::ledgerReceivedTopic(m_instrument))
        return;
    // "IDENTITY NUMBER"; an answer about another ledger of this instrument (the one this
    // workstation had before) says nothing about this one.
    const QList<QByteArray> parts = payload.split(' ');
    bool ok = false;
    const qint64 held = parts.value(1).toLongLong(&ok);
    if (parts.size() != 2 || !ok || held < 0 || !openLedger()
        || QString::fromUtf8(parts[0]) != m_ledger->identity())
        return;
    if (!m_received || held > *m_received)
        m_sinceProgress.restart();
    m_received = held;
    if (held > m_sent && m_inFlight.isEmpty()) {
        setSent(held);
        m_next = std::max(m_next, held + 1);
    }
}

// Kept in the ledger at the next poll, not at every acknowledgement: Spinlane writes there too.
void LedgerOutbox::setSent(qint64 number)
{
    m_sentKept = m_sentKept && number == m_sent;
    m_sent = number;
}

void LedgerOutbox::keepSent()
{
    if (!m_sentKept && m_ledger)
        m_sentKept = m_ledger->setMeta(m_sentKey, QString::number(m_sent), nullptr);
}

void LedgerOutbox::restartFrom(qint64 number)
{
    m_inFlight.clear();
    m_next = number + 1;
    if (number < m_sent)
        setSent(number);
    sendMore();
}

} // namespace spinlane::web
