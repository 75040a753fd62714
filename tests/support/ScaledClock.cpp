#include "support/ScaledClock.h"

namespace spinlane::testing {

ScaledClock::ScaledClock(double factor)
    : m_factor(factor)
    , m_start(QDateTime::currentDateTime())
{
    m_start.setTime(QTime(m_start.time().hour(), m_start.time().minute(), m_start.time().second()));
    m_elapsed.start();
}

QDateTime ScaledClock::now() const
{
    const qint64 scaledMs = qint64(double(m_elapsed.elapsed()) * m_factor);
    return m_start.addSecs(scaledMs / 1000);
}

} // namespace spinlane::testing
