#include "support/FakePrograms.h"

#include "core/RuntimeError.h"
#include "core/Seams.h"

using namespace Qt::StringLiterals;

namespace spinlane::testing {

QStringList actions(const QStringList& calls)
{
    QStringList result;
    for (const QString& call : calls) {
        if (!call.contains(u".Get"_s) && !call.contains(u".Is"_s))
            result.append(call);
    }
    return result;
}

QDateTime clockNow() { return seams().clock->now(); }
QString argument(bool value) { return value ? u"True"_s : u"False"_s; }
QString argument(double value) { return QString::number(value); }

void CallLog::record(const QString& operation, const QString& arguments)
{
    const QString call = operation + u'(' + arguments + u')';
    const bool poll = operation.contains(u".Is"_s) || operation.endsWith(u"GetActualSpinRate"_s);
    if (!poll || calls.isEmpty() || calls.last() != call) {
        calls.append(call);
        times.append(clockNow());
    }
    if (failing.contains(operation))
        throw RuntimeError(RuntimeError::AutomationError);
}

QDateTime CallLog::timeOf(const QString& call) const { return times.value(calls.indexOf(call)); }

void CallLog::clear()
{
    calls.clear();
    times.clear();
}

void FakeProgram::call(const char* operation, const QString& arguments)
{
    m_log.record(m_name + u'.' + QLatin1StringView(operation), arguments);
}

void FakeExpedra::SetSampleInfo(const QStringList& info)
{
    call("SetSampleInfo", info.join(u'|').replace(u"\r\n"_s, u"\\r\\n"_s));
}

void FakeSampleChanger::LoadSample(qint32 position)
{
    call("LoadSample", QString::number(position));
    m_loaded = position;
    m_loadingUntil = clockNow().addSecs(loadSeconds);
}

double FakeSampleChanger::GetActualSpinRate()
{
    call("GetActualSpinRate");
    if (actualSpinRate)
        return actualSpinRate();
    return m_spinning ? m_rate : 0;
}

FakeLab::FakeLab()
    : expedra(std::make_shared<FakeExpedra>(log, "Expedra"))
    , changer(std::make_shared<FakeSampleChanger>(log, "Changer"))
    , tubelink(std::make_shared<FakeTubelink>(log, "Tubelink"))
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
