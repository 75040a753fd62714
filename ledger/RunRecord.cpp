#include "ledger/RunRecord.h"

#include <algorithm>
#include <iterator>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

const char* const kModeNames[] = {"none", "experiments", "changer"};

} // namespace

const char* runModeName(RunMode mode) { return kModeNames[int(mode)]; }

std::optional<RunMode> runModeFromName(QByteArrayView name)
{
    const auto found = std::find(std::begin(kModeNames), std::end(kModeNames), name);
    if (found == std::end(kModeNames))
        return std::nullopt;
    return RunMode(found - std::begin(kModeNames));
}

bool RunRecord::operator==(const RunRecord& o) const
{
    return takenUp == o.takenUp && ended == o.ended && outcome == o.outcome && mode == o.mode
           && loaded == o.loaded && ejected == o.ejected && loadSeconds == o.loadSeconds
           && spinSeconds == o.spinSeconds && ejectSeconds == o.ejectSeconds
           && experimentSeconds == o.experimentSeconds && title == o.title && solvent == o.solvent;
}

bool isRunOutcome(const QString& outcome)
{
    return outcome == u"Done"_s || outcome == u"Failed"_s || outcome == u"Stopped"_s;
}

double secondsBetween(const QDateTime& from, const QDateTime& to)
{
    if (!from.isValid() || !to.isValid())
        return 0;
    return std::max<qint64>(from.msecsTo(to), 0) / 1000.0;
}

} // namespace spinlane
