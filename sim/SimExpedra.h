#pragma once

#include "sim/SimProgram.h"

namespace spinlane::sim {

// The experiment set-up program: its experiments and solvents, the set-up Spinlane hands it and
// the experiment it runs, which takes the experiment's duration in real time.
class SimExpedra : public SimProgram {
    Q_OBJECT
public:
    enum class RunState { Idle, Running, Finished, Failed, Aborted };

    explicit SimExpedra(const SimSettings& settings);

    const QList<Experiment>& experiments() const { return m_experiments; }
    const QStringList& solvents() const { return m_solvents; }
    int currentExperiment() const { return m_current; }
    int solventIndex() const { return m_solventIndex; }
    bool lockEnabled() const { return m_lockEnabled; }
    bool setupEnabled() const { return m_setupEnabled; }
    const QStringList& sampleInfo() const { return m_sampleInfo; }
    const QString& outputFile() const { return m_outputFile; }
    RunState runState();
    double runProgress(); // 0 .. 1 of the running or last experiment
    int runNumber() const { return m_runs; }

public Q_SLOTS:
    void RunExperiment();
    void AbortExperiment();
    bool IsExperimentRunning();
    QStringList GetExperimentTitles();
    QStringList GetSolvents();
    int GetWindowHandle();
    void SetShown(bool shown);
    void Quit();
    QString GetExperimentDetails();
    void SetCurrentExperiment(int index);
    bool GetLockRequired();
    void SetLockEnabled(bool enabled);
    void SetSetupEnabled(bool enabled);
    void SetSolventIndex(short index);
    void SetSampleInfo(const QStringList& info);
    void SetOutputFile(const QString& path);
    bool GetRunFailed();
    bool GetSpinOn();
    double GetSpinRate();
    void ReleaseSample();

private:
    void advance(); // ends the run whose time is up
    const Experiment& current() const { return m_experiments.at(m_current); }

    QList<Experiment> m_experiments;
    QStringList m_solvents;
    QList<int> m_failingRuns;
    int m_current = 0;
    int m_solventIndex = -1;
    bool m_lockEnabled = true;
    bool m_setupEnabled = true;
    QStringList m_sampleInfo;
    QString m_outputFile;

    RunState m_state = RunState::Idle;
    int m_runs = 0;
    double m_runSeconds = 0;
    QElapsedTimer m_runClock;
    double m_stoppedAt = 0; // seconds into the run when it was aborted
};

} // namespace spinlane::sim
