#include "sim/SimSampleChanger.h"

#include "runner/Programs.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane::sim {

SimSampleChanger::SimSampleChanger(const SimSettings& settings)
    : SimProgram(kSampleChangerClass, u"Changer"_s, settings.changer, settings.callLogPath)
    , m_positions(settings.positions)
    , m_loadSeconds(settings.loadSeconds)
    , m_ejectSeconds(settings.ejectSeconds)
    , m_rampHzPerSecond(settings.spinRampHzPerSecond)
    , m_readySeconds(settings.readySeconds)
    , m_failingLoads(settings.failingLoads)
    , m_failingEjects(settings.failingEjects)
{
    m_rateClock.start();
}

bool SimSampleChanger::ready() const { return secondsSinceStart() >= m_readySeconds; }

void SimSampleChanger::advance()
{
    const double seconds = m_rateClock.restart() / 1000.0;
    const double goal = m_spinOn ? m_targetRate : 0;
    const double step = m_rampHzPerSecond * seconds;
    const double before = m_actualRate;
    m_actualRate = m_actualRate < goal ? std::min(goal, m_actualRate + step)
                                       : std::max(goal, m_actualRate - step);

    const bool moved =
        m_motion != Motion::None && m_motionClock.elapsed() >= m_motionSeconds * 1000;
    if (moved && m_motion == Motion::Loading) {
        // A load fails, and changes nothing, for a position outside the carousel or one set to
        // fail. A sample still in the magnet goes back to its position as the new one comes in.
        m_loadFailed = m_movingSample < 1 || m_movingSample > m_positions
                       || m_failingLoads.contains(m_movingSample);
        if (!m_loadFailed)
            m_inMagnet = m_movingSample;
    } else if (moved && m_motion == Motion::Ejecting) {
        m_ejectFailed = m_inMagnet != 0 && m_failingEjects.contains(m_inMagnet);
        if (!m_ejectFailed)
            m_inMagnet = 0;
    }
    if (moved) {
        m_motion = Motion::None;
        m_movingSample = 0;
    }
    if (moved || before != m_actualRate)
        Q_EMIT changed();
}

bool SimSampleChanger::startMotion(Motion motion, double seconds)
{
    advance();
    if (m_motion != Motion::None) {
        refuse(u"The changer is busy."_s);
        return false;
    }
    m_motion = motion;
    m_motionSeconds = seconds;
    m_motionClock.start();
    Q_EMIT changed();
    return true;
}

int SimSampleChanger::GetWindowHandle()
{
    received(u"GetWindowHandle"_s);
    return windowHandle();
}

void SimSampleChanger::EjectSample()
{
    received(u"EjectSample"_s);
    if (startMotion(Motion::Ejecting, m_ejectSeconds))
        m_movingSample = m_inMagnet;
}

void SimSampleChanger::LoadSample(int position)
{
    received(u"LoadSample"_s, QString::number(position));
    if (startMotion(Motion::Loading, m_loadSeconds))
        m_movingSample = position;
}

bool SimSampleChanger::IsEjecting()
{
    received(u"IsEjecting"_s);
    return motion() == Motion::Ejecting;
}

bool SimSampleChanger::IsLoading()
{
    received(u"IsLoading"_s);
    return motion() == Motion::Loading;
}

bool SimSampleChanger::GetEjectFailed()
{
    received(u"GetEjectFailed"_s);
    advance();
    return m_ejectFailed;
}

bool SimSampleChanger::GetLoadFailed()
{
    received(u"GetLoadFailed"_s);
    advance();
    return m_loadFailed;
}

void SimSampleChanger::Quit()
{
    received(u"Quit"_s);
    quit();
}

void SimSampleChanger::SetShown(bool shown)
{
    received(u"SetShown"_s, recordText(shown));
    if (shown)
        setWindowShown(true);
}

void SimSampleChanger::SetVisible(bool visible)
{
    received(u"SetVisible"_s, recordText(visible));
    setWindowShown(visible);
}

double SimSampleChanger::GetActualSpinRate()
{
    received(u"GetActualSpinRate"_s);
    return actualRate();
}

void SimSampleChanger::SetSpinRate(double hertz)
{
    received(u"SetSpinRate"_s, recordText(hertz));
    advance();
    m_targetRate = std::max(0.0, hertz);
    Q_EMIT changed();
}

void SimSampleChanger::SetSpin(bool on)
{
    received(u"SetSpin"_s, recordText(on));
    advance();
    m_spinOn = on;
    Q_EMIT changed();
}

bool SimSampleChanger::IsReady()
{
    received(u"IsReady"_s);
    return ready();
}

} // namespace spinlane::sim
