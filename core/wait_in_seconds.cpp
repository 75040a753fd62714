#include "core/wait_in_seconds.h"

#include "core/Seams.h"

namespace spinlane {

void wait_in_seconds(qint16 seconds)
{
    wait_in_seconds(seconds, [] { return false; });
}

void wait_in_seconds(qint16 seconds, const std::function<bool()>& done)
{
    if (seconds <= 0)
        return;
    const Seams& s = seams();
    const QDateTime end = s.clock->now().addSecs(seconds);
    while (s.clock->now() < end && !done())
        s.eventPump->waitForEvents(kEventWaitMs);
}

} // namespace spinlane
