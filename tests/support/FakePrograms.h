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
    void clear();
};

// The calls that change something, in order: queries ("Get") and polls ("Is") left out.
QStringList actions(const QStringList& calls);

QDateTime clockNow();
QString argument(bool value);
QString argument(double value);

// Writes a program's calls into the log as "<name>.<operation>(<arguments>)".
class FakeProgram {
public:
    FakeProgram(CallLog& log, const char* name)
        : m_log(log)
        , m_name(QLatin1StringView(name))
    {
    }

protected:
    void call(const char* operation, const QString& arguments = {});
    template <typename T> T answer(T value, const char* operation)
    {
        call(operation);
        return value;
    }

private:
    CallLog& m_log;
    QString m_name;
};

class FakeExpedra : public Expedra, private FakeProgram {
public:
    using FakeProgram::FakeProgram;

    QStringList titles{QStringLiteral("PROTON"), QStringLiteral("CARBON"), QStringLiteral("COSY")};
    QStringList solvents{QStringLiteral("CDCl3"), QStringLiteral("D2O"), QStringLiteral("DMSO")};
    qint32 experimentSeconds = 60; // IsExperimentRunning stays true this long
    QSet<qint32> lockRequired{0, 1}; // experiments that need the lock
    QSet<qint32> failingExperiments; // GetRunFailed answers true after these
    bool spinOn = true;
    double spinRate = 20;

    void RunExperiment() override
    {
        call("RunExperiment");
        m_until = clockNow().addSecs(experimentSeconds);
    }
    void AbortExperiment() override
    {
        call("AbortExperiment");
        m_until = clockNow();
    }
    bool IsExperimentRunning() override
    {
        return answer(clockNow() < m_until, "IsExperimentRunning");
    }
    QStringList GetExperimentTitles() override { return answer(titles, "GetExperimentTitles"); }
    QStringList GetSolvents() override { return answer(solvents, "GetSolvents"); }
    qint32 GetWindowHandle() override { return answer(101, "GetWindowHandle"); }
    void SetShown(bool shown) override { call("SetShown", argument(shown)); }
    void Quit() override { call("Quit"); }
    QString GetExperimentDetails() override
    {
        return answer(titles.value(m_current), "GetExperimentDetails");
    }
    void SetCurrentExperiment(qint32 index) override
    {
        call("SetCurrentExperiment", QString::number(index));
        m_current = index;
    }
    bool GetLockRequired() override
    {
        return answer(lockRequired.contains(m_current), "GetLockRequired");
    }
    void SetLockEnabled(bool enabled) override { call("SetLockEnabled", argument(enabled)); }
    void SetSetupEnabled(bool enabled) override { call("SetSetupEnabled", argument(enabled)); }
    void SetSolventIndex(qint16 index) override { call("SetSolventIndex", QString::number(index)); }
    void SetSampleInfo(const QStringList& info) override;
    void SetOutputFile(const QString& path) override { call("SetOutputFile", path); }
    bool GetRunFailed() override
    {
        return answer(failingExperiments.contains(m_current), "GetRunFailed");
    }
    bool GetSpinOn() override { return answer(spinOn, "GetSpinOn"); }
    double GetSpinRate() override { return answer(spinRate, "GetSpinRate"); }
    void ReleaseSample() override { call("ReleaseSample"); }

private:
    qint32 m_current = 0;
    QDateTime m_until;
};

class FakeSampleChanger : public SampleChanger, private FakeProgram {
public:
    using FakeProgram::FakeProgram;

    qint32 loadSeconds = 20;
    qint32 ejectSeconds = 10;
    QSet<qint32> failingLoads; // sample positions that cannot be loaded
    bool ejectFails = false;
    std::function<double()> actualSpinRate; // the measured rate; by default the rate set
    int notReadyPolls = 0; // IsReady answers false this many times first

    qint32 GetWindowHandle() override { return answer(202, "GetWindowHandle"); }
    void EjectSample() override
    {
        call("EjectSample");
        m_ejectingUntil = clockNow().addSecs(ejectSeconds);
    }
    void LoadSample(qint32 position) override;
    bool IsEjecting() override { return answer(clockNow() < m_ejectingUntil, "IsEjecting"); }
    bool IsLoading() override { return answer(clockNow() < m_loadingUntil, "IsLoading"); }
    bool GetEjectFailed() override { return answer(ejectFails, "GetEjectFailed"); }
    bool GetLoadFailed() override
    {
        return answer(failingLoads.contains(m_loaded), "GetLoadFailed");
    }
    void Quit() override { call("Quit"); }
    void SetShown(bool shown) override { call("SetShown", argument(shown)); }
    void SetVisible(bool visible) override { call("SetVisible", argument(visible)); }
    double GetActualSpinRate() override;
    void SetSpinRate(double hertz) override
    {
        call("SetSpinRate", argument(hertz));
        m_rate = hertz;
    }
    void SetSpin(bool on) override
    {
        call("SetSpin", argument(on));
        m_spinning = on;
    }
    bool IsReady() override { return answer(notReadyPolls == 0 || !notReadyPolls--, "IsReady"); }

private:
    QDateTime m_loadingUntil;
    QDateTime m_ejectingUntil;
    qint32 m_loaded = 0;
    double m_rate = 0;
    bool m_spinning = false;
};

class FakeTubelink : public Tubelink, private FakeProgram {
public:
    using FakeProgram::FakeProgram;
    qint32 GetWindowHandle() override { return answer(303, "GetWindowHandle"); }
};

// The laboratory: which programs run or can be started, and their windows. Installed as the
// automation backend for its lifetime.
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
