#include "facility/Topics.h"

#include <QStringList>

namespace spinlane::facility {

namespace {
const QString kRoot = QStringLiteral("spinlane/v1/");
}

bool isValidInstrumentName(const QString& name)
{
    if (name.isEmpty() || name.size() > 64)
        return false;
    for (QChar c : name) {
        if (c == u'/' || c == u'+' || c == u'#' || c.isSpace() || c.category() == QChar::Other_Control)
            return false;
    }
    return true;
}

QString stateTopic(const QString& instrument) { return kRoot + instrument + QStringLiteral("/state"); }
QString onlineTopic(const QString& instrument) { return kRoot + instrument + QStringLiteral("/online"); }
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
    else
        return parts;
    parts.instrument = levels[0];
    return parts;
}

} // namespace spinlane::facility
