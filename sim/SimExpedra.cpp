#include "sim/SimExpedra.h"

#include "runner/Programs.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace spinlane::sim {
namespace {

// Both lists end with one element that is not part of the list, as the real program's do.
QStringList withTrailingElement(QStringList list)
{
    list.append(QString());
    return list;
}

} // namespace

SimExpedra::SimExpedra(const SimSettings& settings)
    : SimProgram(kExpedraClass, u"Expedra"_s, settings.expedra, settings.callLogPath)
    , m_experiments(settings.experiments)
    , m_solvents(settings.solvents)
    , m_failingRuns(settings.failingRuns)
{
}

void SimExpedra::advance()
{
    if (m_state == RunState::Running && m_runClock.elapsed() >= m_runSeconds * 1000) {
        m_state = m_failingRuns.contains(m_runs) ? RunState::Failed : RunState::Finished;
        Q_EMIT changed();
    }
}

SimExpedra::RunState SimExpedra::runState()
{
    advance();
    return m_state;
}

double SimExpedra::runProgress()
{
    switch (runState()) {
    case RunState::Idle: return 0;
    case RunState::Running:
        return m_runSeconds > 0 ? std::min(1.0, m_runClock.elapsed() / (m_runSeconds * 1000)) : 1;
    case RunState::Aborted: return m_runSeconds > 0 ? m_stoppedAt / m_runSeconds : 1;
    case RunState::Finished:
    case RunState::Failed: return 1;
    }
    return 0;
}

void SimExpedra::RunExperiment()
{
    received(u"RunExperiment"_s);
    if (runState() == RunState::Running)
        return refuse(u"An experiment is already running."_s);
    ++m_runs;
    m_runSeconds = current().seconds;
    m_runClock.start();
    m_state = RunState::Running;
    Q_EMIT changed();
}

void SimExpedra::AbortExperiment()
{
    received(u"AbortExperiment"_s);
    if (runState() != RunState::Running)
        return;
    m_stoppedAt = m_runClock.elapsed() / 1000.0;
    m_state = RunState::Aborted;
    Q_EMIT changed();
}

bool SimExpedra::IsExperimentRunning()
{
    received(u"IsExperimentRunning"_s);
    return runState() == RunState::Running;
}

QStringList SimExpedra::GetExperimentTitles()
{
    received(u"GetExperimentTitles"_s);
    QStringList titles;
    for (const Experiment& e : std::as_const(m_experiments))
        titles.append(e.title);
    return withTrailingElement(titles);
}

QStringList SimExpedra::GetSolvents()
{
    received(u"GetSolvents"_s);
    return withTrailingElement(m_solvents);
}

int SimExpedra::GetWindowHandle()
{
    received(u"GetWindowHandle"_s);
    return windowHandle();
}

void SimExpedra::SetShown(bool shown)
{
    received(u"SetShown"_s, recordText(shown));
    setWindowShown(shown);
}

void SimExpedra::Quit()
{
    received(u"Quit"_s);
    quit();
}

QString SimExpedra::GetExperimentDetails()
{
    received(u"GetExperimentDetails"_s);
    return current().details;
}

void SimExpedra::SetCurrentExperiment(int index)
{
    received(u"SetCurrentExperiment"_s, QString::number(index));
    if (index < 0 || index >= m_experiments.size())
        return refuse(u"There is no experiment "_s + QString::number(index) + u'.');
    m_current = index;
    Q_EMIT changed();
}

bool SimExpedra::GetLockRequired()
{
    received(u"GetLockRequired"_s);
    return current().lockRequired;
}

void SimExpedra::SetLockEnabled(bool enabled)
{
    received(u"SetLockEnabled"_s, recordText(enabled));
    m_lockEnabled = enabled;
    Q_EMIT changed();
}

void SimExpedra::SetSetupEnabled(bool enabled)
{
    received(u"SetSetupEnabled"_s, recordText(enabled));
    m_setupEnabled = enabled;
    Q_EMIT changed();
}

void SimExpedra::SetSolventIndex(short index)
{
    received(u"SetSolventIndex"_s, QString::number(index));
    if (index < 0 || index >= m_solvents.size())
        return refuse(u"There is no solvent "_s + QString::number(index) + u'.');
    m_solventIndex = index;
    Q_EMIT changed();
}

void SimExpedra::SetSampleInfo(const QStringList& info)
{
    received(u"SetSampleInfo"_s, recordText(info));
    if (info.size() != 4)
        return refuse(u"The sample information needs four texts."_s);
    m_sampleInfo = info;
    Q_EMIT changed();
}

void SimExpedra::SetOutputFile(const QString& path)
{
    received(u"SetOutputFile"_s, path);
    m_outputFile = path;
    Q_EMIT changed();
}

bool SimExpedra::GetRunFailed()
{
    received(u"GetRunFailed"_s);
    const RunState state = runState();
    return state == RunState::Failed || state == RunState::Aborted;
}

bool SimExpedra::GetSpinOn()
{
    received(u"GetSpinOn"_s);
    return current().spin;
}

double SimExpedra::GetSpinRate()
{
    received(u"GetSpinRate"_s);
    return current().spinRate;
}

void SimExpedra::ReleaseSample()
{
    received(u"ReleaseSample"_s);
    m_solventIndex = -1;
    Q_EMIT changed();
}

} // namespace spinlane::sim
