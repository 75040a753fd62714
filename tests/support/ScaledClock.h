#pragma once

#include "core/Seams.h"

#include <QElapsedTimer>

namespace spinlane::testing {

// Real time run faster: every real millisecond counts as `factor` milliseconds, read to whole
// seconds like the system clock. With the real event pump, the runner's fixed waits (5 s after a
// load, 11 s around a spin) pass in a fraction of their time while real programs answer.
class ScaledClock : public Clock {
public:
    explicit ScaledClock(double factor);
    QDateTime now() const override;

private:
    double m_factor;
    QDateTime m_start;
    QElapsedTimer m_elapsed;
};

} // namespace spinlane::testing
