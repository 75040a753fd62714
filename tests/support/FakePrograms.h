#pragma once

#include "runner/Programs.h"

#include <QDateTime>
#include <QSet>
#include <QStringList>

#include <functional>

// In-process stand-ins for the laboratory programs. They keep time by the installed clock, so a
// test with a virtual clock runs an hour of experiments in milliseconds, and they write every
// call into one log ("Expedra.RunExperiment()"); repeated polls of a busy flag count once.
namespace spinlane::testing {

struct CallLog {
    QStringList calls;
    QList<QDateTime> times; // when each call was made
    QSet<QString> failing; // operations ("Expedra.SetShown") that raise an automation error

    void record(const QString& operation, const QString& arguments = {});
    QDateTime timeOf(const QString& call) const; // of its first occurrence
};

class FakeExpedra : public Expedra {
public:
    explicit FakeExpedra(CallLog& log)
        : m_log(log)
    {
    }

    QStringList titles{QStringLiteral("PROTON"), QStringLiteral("CARBON"), QStringLiteral("COSY")};
    QStringList solvents{QStringLiteral("CDCl3"), QStringLiteral("D2O"), QStringLiteral("DMSO")};
    qint32 experimentSeconds = 60; // IsExperimentRunning stays true this long
    QSet<qint32> lockRequired{0, 1}; // experiments that need the lock
    QSet<qint32> failingExperiments; // GetRunFailed answers true after these
    bool spinOn = true;
    double spinRate = 20;
    qint32 windowHandle = 101;

    void RunExperiment() override;
    void AbortExperiment() override;
    bool IsExperimentRunning() override;
    QStringList GetExperimentTitles() override;
    QStringList GetSolvents() override;
    qint32 GetWindowHandle() override;
    void SetShown(bool shown) override;
    void Quit() override;
    QString GetExperimentDetails() override;
    void SetCurrentExperiment(qint32 index) override;
    bool GetLockRequired() override;
    void SetLockEnabled(bool enabled) override;
    void SetSetupEnabled(bool enabled) override;
    void SetSolventIndex(qint16 index) override;
    void SetSampleInfo(const QStringList& info) override;
    void SetOutputFile(const QString& path) override;
    bool GetRunFailed() override;
    bool GetSpinOn() override;
    double GetSpinRate() override;
    void ReleaseSample() override;

private:
    CallLog& m_log;
    qint32 m_current = 0;
    QDateTime m_runningUntil;
};

class FakeSampleChanger : public SampleChanger {
public:
    explicit FakeSampleChanger(CallLog& log)
        : m_log(log)
    {
    }

    qint32 loadSeconds = 20;
    qint32 ejectSeconds = 10;
    QSet<qint32> failingLoads; // sample positions that cannot be loaded
    bool ejectFails = false;
    // The measured spin rate; by default the rate set, once spinning.
    std::function<double()> actualSpinRate;
    qint32 windowHandle = 202;

    qint32 GetWindowHandle() override;
    void EjectSample() override;
    void LoadSample(qint32 position) override;
    bool IsEjecting() override;
    bool IsLoading() override;
    bool GetEjectFailed() override;
    bool GetLoadFailed() override;
    void Quit() override;
    void SetShown(bool shown) override;
    void SetVisible(bool visible) override;
    double GetActualSpinRate() override;
    void SetSpinRate(double hertz) override;
    void SetSpin(bool on) override;
    bool IsReady() override;

private:
    CallLog& m_log;
    QDateTime m_loadingUntil;
    QDateTime m_ejectingUntil;
    qint32 m_loaded = 0;
    double m_rate = 0;
    bool m_spinning = false;
};

class FakeTubelink : public Tubelink {
public:
    explicit FakeTubelink(CallLog& log)
        : m_log(log)
    {
    }
    qint32 GetWindowHandle() override;

private:
    CallLog& m_log;
};

// The laboratory: which programs run or can be started, and their windows.
class FakeLab : public AutomationBackend {
public:
    FakeLab();
    ~FakeLab() override;

    CallLog log;
    QSet<QString> running{kConsoleClass}; // GetObject finds only these
    QSet<QString> broken; // CreateObject fails for these
    std::shared_ptr<FakeExpedra> expedra;
    std::shared_ptr<FakeSampleChanger> changer;
    std::shared_ptr<FakeTubelink> tubelink;

    std::shared_ptr<AutomationObject> GetObject(const QString& className) override;
    std::shared_ptr<AutomationObject> CreateObject(const QString& className) override;
    void ShowWindow(qint32 handle, WindowCommand command) override;
    void CloseWindow(qint32 handle) override;

private:
    AutomationBackend* m_previous;
};

} // namespace spinlane::testing
