#include "support/FakePrograms.h"

#include "app/RuntimeError.h"
#include "app/Seams.h"

using namespace Qt::StringLiterals;

namespace spinlane::testing {
namespace {

QDateTime now() { return seams().clock->now(); }
QString text(bool value) { return value ? u"True"_s : u"False"_s; }
QString text(double value) { return QString::number(value); }
bool isPoll(const QString& operation)
{
    return operation.contains(u".Is"_s) || operation.endsWith(u"GetActualSpinRate"_s);
}

} // namespace

void CallLog::record(const QString& operation, const QString& arguments)
{
    const QString call = operation + u'(' + arguments + u')';
    if (!(isPoll(operation) && !calls.isEmpty() && calls.last() == call)) {
        calls.append(call);
        times.append(now());
    }
    if (failing.contains(operation))
        throw RuntimeError(RuntimeError::AutomationError);
}

QDateTime CallLog::timeOf(const QString& call) const
{
    const qsizetype at = calls.indexOf(call);
    return at < 0 ? QDateTime() : times.at(at);
}

void FakeExpedra::RunExperiment()
{
    m_log.record(u"Expedra.RunExperiment"_s);
    m_runningUntil = now().addSecs(experimentSeconds);
}
void FakeExpedra::AbortExperiment()
{
    m_log.record(u"Expedra.AbortExperiment"_s);
    m_runningUntil = now();
}
bool FakeExpedra::IsExperimentRunning()
{
    m_log.record(u"Expedra.IsExperimentRunning"_s);
    return now() < m_runningUntil;
}
QStringList FakeExpedra::GetExperimentTitles()
{
    m_log.record(u"Expedra.GetExperimentTitles"_s);
    return titles;
}
QStringList FakeExpedra::GetSolvents()
{
    m_log.record(u"Expedra.GetSolvents"_s);
    return solvents;
}
qint32 FakeExpedra::GetWindowHandle()
{
    m_log.record(u"Expedra.GetWindowHandle"_s);
    return windowHandle;
}
void FakeExpedra::SetShown(bool shown) { m_log.record(u"Expedra.SetShown"_s, text(shown)); }
void FakeExpedra::Quit() { m_log.record(u"Expedra.Quit"_s); }
QString FakeExpedra::GetExperimentDetails()
{
    m_log.record(u"Expedra.GetExperimentDetails"_s);
    return titles.value(m_current) + u" details"_s;
}
void FakeExpedra::SetCurrentExperiment(qint32 index)
{
    m_log.record(u"Expedra.SetCurrentExperiment"_s, QString::number(index));
    m_current = index;
}
bool FakeExpedra::GetLockRequired()
{
    m_log.record(u"Expedra.GetLockRequired"_s);
    return lockRequired.contains(m_current);
}
void FakeExpedra::SetLockEnabled(bool enabled)
{
    m_log.record(u"Expedra.SetLockEnabled"_s, text(enabled));
}
void FakeExpedra::SetSetupEnabled(bool enabled)
{
    m_log.record(u"Expedra.SetSetupEnabled"_s, text(enabled));
}
void FakeExpedra::SetSolventIndex(qint16 index)
{
    m_log.record(u"Expedra.SetSolventIndex"_s, QString::number(index));
}
void FakeExpedra::SetSampleInfo(const QStringList& info)
{
    m_log.record(u"Expedra.SetSampleInfo"_s, info.join(u'|').replace(u"\r\n"_s, u"\\r\\n"_s));
}
void FakeExpedra::SetOutputFile(const QString& path)
{
    m_log.record(u"Expedra.SetOutputFile"_s, path);
}
bool FakeExpedra::GetRunFailed()
{
    m_log.record(u"Expedra.GetRunFailed"_s);
    return failingExperiments.contains(m_current);
}
bool FakeExpedra::GetSpinOn()
{
    m_log.record(u"Expedra.GetSpinOn"_s);
    return spinOn;
}
double FakeExpedra::GetSpinRate()
{
    m_log.record(u"Expedra.GetSpinRate"_s);
    return spinRate;
}
void FakeExpedra::ReleaseSample() { m_log.record(u"Expedra.ReleaseSample"_s); }

qint32 FakeSampleChanger::GetWindowHandle()
{
    m_log.record(u"Changer.GetWindowHandle"_s);
    return windowHandle;
}
void FakeSampleChanger::EjectSample()
{
    m_log.record(u"Changer.EjectSample"_s);
    m_ejectingUntil = now().addSecs(ejectSeconds);
}
void FakeSampleChanger::LoadSample(qint32 position)
{
    m_log.record(u"Changer.LoadSample"_s, QString::number(position));
    m_loaded = position;
    m_loadingUntil = now().addSecs(loadSeconds);
}
bool FakeSampleChanger::IsEjecting()
{
    m_log.record(u"Changer.IsEjecting"_s);
    return now() < m_ejectingUntil;
}
bool FakeSampleChanger::IsLoading()
{
    m_log.record(u"Changer.IsLoading"_s);
    return now() < m_loadingUntil;
}
bool FakeSampleChanger::GetEjectFailed()
{
    m_log.record(u"Changer.GetEjectFailed"_s);
    return ejectFails;
}
bool FakeSampleChanger::GetLoadFailed()
{
    m_log.record(u"Changer.GetLoadFailed"_s);
    return failingLoads.contains(m_loaded);
}
void FakeSampleChanger::Quit() { m_log.record(u"Changer.Quit"_s); }
void FakeSampleChanger::SetShown(bool shown) { m_log.record(u"Changer.SetShown"_s, text(shown)); }
void FakeSampleChanger::SetVisible(bool visible)
{
    m_log.record(u"Changer.SetVisible"_s, text(visible));
}
double FakeSampleChanger::GetActualSpinRate()
{
    m_log.record(u"Changer.GetActualSpinRate"_s);
    if (actualSpinRate)
        return actualSpinRate();
    return m_spinning ? m_rate : 0;
}
void FakeSampleChanger::SetSpinRate(double hertz)
{
    m_log.record(u"Changer.SetSpinRate"_s, text(hertz));
    m_rate = hertz;
}
void FakeSampleChanger::SetSpin(bool on)
{
    m_log.record(u"Changer.SetSpin"_s, text(on));
    m_spinning = on;
}
bool FakeSampleChanger::IsReady()
{
    m_log.record(u"Changer.IsReady"_s);
    return true;
}

qint32 FakeTubelink::GetWindowHandle()
{
    m_log.record(u"Tubelink.GetWindowHandle"_s);
    return 303;
}

FakeLab::FakeLab()
    : expedra(std::make_shared<FakeExpedra>(log))
    , changer(std::make_shared<FakeSampleChanger>(log))
    , tubelink(std::make_shared<FakeTubelink>(log))
    , m_previous(installAutomation(this))
{
}

FakeLab::~FakeLab() { installAutomation(m_previous); }

std::shared_ptr<AutomationObject> FakeLab::GetObject(const QString& className)
{
    log.record(u"GetObject"_s, className);
    if (!running.contains(className))
        throw RuntimeError(RuntimeError::CannotCreateObject);
    return std::make_shared<Console>();
}

std::shared_ptr<AutomationObject> FakeLab::CreateObject(const QString& className)
{
    log.record(u"CreateObject"_s, className);
    if (broken.contains(className))
        throw RuntimeError(RuntimeError::CannotCreateObject);
    if (className == kExpedraClass)
        return expedra;
    if (className == kSampleChangerClass)
        return changer;
    if (className == kTubelinkClass)
        return tubelink;
    throw RuntimeError(RuntimeError::CannotCreateObject);
}

void FakeLab::ShowWindow(qint32 handle, WindowCommand command)
{
    log.record(u"ShowWindow"_s, QString::number(handle) + u", "_s + QString::number(int(command)));
}

void FakeLab::CloseWindow(qint32 handle) { log.record(u"CloseWindow"_s, QString::number(handle)); }

} // namespace spinlane::testing
