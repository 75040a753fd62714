#pragma once

#include "sim/SimProgram.h"

namespace spinlane::sim {

// The sample changer: a carousel of positions, a lift that loads a sample into the magnet and
// ejects it back, each taking its time, and a spinner whose rate ramps towards the rate set.
class SimSampleChanger : public SimProgram {
    Q_OBJECT
public:
    enum class Motion { None, Loading, Ejecting };

    explicit SimSampleChanger(const SimSettings& settings);

    int positions() const { return m_positions; }
    int sampleInMagnet() { return (advance(), m_inMagnet); } // 0: none
    Motion motion() { return (advance(), m_motion); }
    int movingSample() const { return m_movingSample; }
    double targetRate() const { return m_targetRate; }
    bool spinOn() const { return m_spinOn; }
    double actualRate() { return (advance(), m_actualRate); }
    bool ready() const;

public Q_SLOTS:
    int GetWindowHandle();
    void EjectSample();
    void LoadSample(int position);
    bool IsEjecting();
    bool IsLoading();
    bool GetEjectFailed();
    bool GetLoadFailed();
    void Quit();
    void SetShown(bool shown);
    void SetVisible(bool visible);
    double GetActualSpinRate();
    void SetSpinRate(double hertz);
    void SetSpin(bool on);
    bool IsReady();

private:
    bool startMotion(Motion motion, double seconds); // false (and refused) while moving
    void advance(); // ends a motion whose time is up and moves the spin rate on

    int m_positions;
    double m_loadSeconds;
    double m_ejectSeconds;
    double m_rampHzPerSecond;
    double m_readySeconds;
    QList<int> m_failingLoads;
    QList<int> m_failingEjects;

    int m_inMagnet = 0;
    Motion m_motion = Motion::None;
    int m_movingSample = 0;
    double m_motionSeconds = 0;
    QElapsedTimer m_motionClock;
    bool m_loadFailed = false;
    bool m_ejectFailed = false;

    bool m_spinOn = false;
    double m_targetRate = 0;
    double m_actualRate = 0;
    QElapsedTimer m_rateClock; // since the rate was last moved on
};

} // namespace spinlane::sim
