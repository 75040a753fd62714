#include "facility/Topics.h"

#include <QStringList>

namespace spinlane::facility {

namespace {
const QString kRoot = QStringLiteral("spinlane/v1/");
}

bool isValidInstrumentName(const QString& name)
{
    // Also a path segment of the facility's API and a file name, so "." and ".." are not names.
    if (name.isEmpty() || name.size() > 64 || name == u"." || name == u"..")
        return false;
    for (QChar c : name) {
        const bool ok = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z')
                        || (c >= u'0' && c <= u'9') || c == u'-' || c == u'_' || c == u'.';
        if (!ok)
            return false;
    }
    return true;
}

QString stateTopic(const QString& instrument) { return kRoot + instrument + QStringLiteral("/state"); }
QString onlineTopic(const QString& instrument) { return kRoot + instrument + QStringLiteral("/online"); }
QString ledgerTopic(const QString& instrument) { return kRoot + instrument + QStringLiteral("/ledger"); }
QString ledgerReceivedTopic(const QString& instrument)
{
    return kRoot + instrument + QStringLiteral("/ledger-received");
}
QString allLedgersFilter() { return kRoot + QStringLiteral("+/ledger"); }
QString allStatesFilter() { return kRoot + QStringLiteral("+/state"); }
QString allOnlineFilter() { return kRoot + QStringLiteral("+/online"); }

TopicParts parseTopic(const QString& topic)
{
    TopicParts parts;
    if (!topic.startsWith(kRoot))
        return parts;
    const QStringList levels = topic.mid(kRoot.size()).split(u'/');
    if (levels.size() != 2 || !isValidInstrumentName(levels[0]))
        return parts;
    if (levels[1] == u"state")
        parts.kind = TopicParts::State;
    else if (levels[1] == u"online")
        parts.kind = TopicParts::Online;
    else if (levels[1] == u"ledger")
        parts.kind = TopicParts::Ledger;
    else if (levels[1] == u"ledger-received")
        parts.kind = TopicParts::LedgerReceived;
    else
        return parts;
    parts.instrument = levels[0];
    return parts;
}

} // namespace spinlane::facility
