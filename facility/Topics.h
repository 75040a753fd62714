#pragma once

#include <QString>

// The topic tree every instrument publishes under: spinlane/v1/<instrument>/state (the retained
// instrument JSON), spinlane/v1/<instrument>/online (retained "online", or "offline" from the
// instrument's last will) and spinlane/v1/<instrument>/ledger (its ledger records, one message
// each). The facility answers on spinlane/v1/<instrument>/ledger-received (retained): the number
// up to which it holds every one of the instrument's records.
namespace spinlane::facility {

inline constexpr char kOnlinePayload[] = "online";
inline constexpr char kOfflinePayload[] = "offline";

// A name that can stand as one topic level and one path segment: 1 to 64 letters, digits, "-",
// "_" and ".", but not "." or ".." alone.
bool isValidInstrumentName(const QString& name);

QString stateTopic(const QString& instrument);
QString onlineTopic(const QString& instrument);
QString ledgerTopic(const QString& instrument);
QString ledgerReceivedTopic(const QString& instrument);
// What the facility subscribes to.
QString allStatesFilter();
QString allOnlineFilter();
QString allLedgersFilter();

struct TopicParts {
    enum Kind { Other, State, Online, Ledger, LedgerReceived } kind = Other;
    QString instrument;
};
// Which instrument and which of its topics; Other for anything else under the tree or a topic
// whose instrument level is not a valid name.
TopicParts parseTopic(const QString& topic);

} // namespace spinlane::facility
