#pragma once

#include "core/SystemSeams.h"
#include "runner/DBusAutomation.h"
#include "support/ScaledClock.h"

#include <QDBusConnection>

namespace spinlane::testing {

// While it lives: the real clock (20 times faster), event pump and laboratory bus (a call waits
// at most 2 seconds), and `end` if given.
struct RealLabSeams {
    explicit RealLabSeams(ProgramEnd* end = nullptr)
        : before(installSeams({nullptr, nullptr, nullptr, &clock, &pump, end}))
        , fake(installAutomation(&automation))
    {
    }
    ~RealLabSeams() { installSeams(before), installAutomation(fake); }
    RealLabSeams(const RealLabSeams&) = delete;
    RealLabSeams& operator=(const RealLabSeams&) = delete;

    ScaledClock clock{20};
    QtEventPump pump;
    DBusAutomation automation{QDBusConnection::sessionBus(), DBusAutomation::Timeouts{2000, 10000}};
    const Seams before;
    AutomationBackend* const fake;
};

} // namespace spinlane::testing
