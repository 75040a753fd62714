#include "runner/DBusAutomation.h"

#include "core/RuntimeError.h"
#include "runner/LabBus.h"
#include "runner/LabInterfaces.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QEventLoop>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

const QString kBusDaemon = u"org.freedesktop.DBus"_s;
const QString kBusDaemonPath = u"/org/freedesktop/DBus"_s;

QString errorText(const QDBusMessage& answer)
{
    if (answer.errorMessage().isEmpty())
        return answer.errorName().isEmpty() ? u"no answer from the bus"_s : answer.errorName();
    return answer.errorMessage() + u" ("_s + answer.errorName() + u')';
}

RuntimeError withDetail(qint32 number, const QString& detail)
{
    return RuntimeError(number, RuntimeError::standardDescription(number) + u"\r\n"_s + detail);
}

// Sends the call and waits for its answer at most timeoutMs. Meanwhile the window keeps painting
// and timers run, but no user input is handled, so no handler starts in the middle of a call.
QDBusMessage callAndWait(const QDBusConnection& bus, const QDBusMessage& message, int timeoutMs)
{
    QDBusPendingCallWatcher pending(bus.asyncCall(message, timeoutMs));
    if (!pending.isFinished()) {
        QEventLoop loop;
        QObject::connect(&pending, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    return pending.reply();
}

QDBusMessage methodCall(const QString& destination, const QString& path, const QString& interface,
                        const QString& method, const QVariantList& arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(destination, path, interface, method);
    message.setArguments(arguments);
    // A program that has gone stays gone: the bus must not start a fresh one for a stray call.
    message.setAutoStartService(false);
    return message;
}

QString signatureOf(QMetaType type)
{
    return QString::fromLatin1(QDBusMetaType::typeToSignature(type));
}

// Every call goes out as runner/LabInterfaces describes it; one that does not is a fault here.
void checkCall(const LabInterface& interface, const QString& method, const QVariantList& arguments,
               const QString& output)
{
    const LabOperation* op = interface.operation(method);
    QString signature;
    for (const QVariant& argument : arguments)
        signature += signatureOf(argument.metaType());
    if (!op || op->inputSignature() != signature || op->output != output)
        throw withDetail(RuntimeError::AutomationError, method + u'(' + signature + u')' + output
                                                            + u" is not in "_s + interface.name);
}

// One running process that serves an automation class, addressed by its unique bus name.
class BusProgram {
public:
    BusProgram(const QDBusConnection& bus, const QString& owner, const LabInterface& interface,
               int timeoutMs, std::shared_ptr<DBusAutomation::WindowOwners> windowOwners)
        : m_bus(bus)
        , m_owner(owner)
        , m_interface(interface)
        , m_timeoutMs(timeoutMs)
        , m_windowOwners(std::move(windowOwners))
    {
    }

    QDBusMessage call(const QString& method, const QVariantList& arguments = {},
                      const QString& output = {}) const
    {
        checkCall(m_interface, method, arguments, output);
        const QDBusMessage answer = callAndWait(
            m_bus, methodCall(m_owner, kLabObjectPath, m_interface.name, method, arguments),
            m_timeoutMs);
        if (answer.type() != QDBusMessage::ReplyMessage)
            throw withDetail(RuntimeError::AutomationError, errorText(answer));
        return answer;
    }

    template <typename T> T ask(const QString& method) const
    {
        const QMetaType expected = QMetaType::fromType<T>();
        const QString signature = signatureOf(expected);
        const QDBusMessage answer = call(method, {}, signature);
        const QVariantList values = answer.arguments();
        if (values.size() != 1 || values.first().metaType() != expected)
            throw withDetail(RuntimeError::AutomationError,
                             method + u" answered \""_s + answer.signature() + u"\" instead of \""_s
                                 + signature + u'"');
        return values.first().value<T>();
    }

    qint32 windowHandle() const
    {
        const qint32 handle = ask<qint32>(u"GetWindowHandle"_s);
        m_windowOwners->insert(handle, m_owner);
        return handle;
    }

private:
    QDBusConnection m_bus;
    QString m_owner;
    const LabInterface& m_interface;
    int m_timeoutMs;
    std::shared_ptr<DBusAutomation::WindowOwners> m_windowOwners;
};

class BusExpedra : public Expedra {
public:
    explicit BusExpedra(BusProgram program)
        : m(std::move(program))
    {
    }

    void RunExperiment() override { m.call(u"RunExperiment"_s); }
    void AbortExperiment() override { m.call(u"AbortExperiment"_s); }
    bool IsExperimentRunning() override { return m.ask<bool>(u"IsExperimentRunning"_s); }
    QStringList GetExperimentTitles() override
    {
        return m.ask<QStringList>(u"GetExperimentTitles"_s);
    }
    QStringList GetSolvents() override { return m.ask<QStringList>(u"GetSolvents"_s); }
    qint32 GetWindowHandle() override { return m.windowHandle(); }
    void SetShown(bool shown) override { m.call(u"SetShown"_s, {shown}); }
    void Quit() override { m.call(u"Quit"_s); }
    QString GetExperimentDetails() override { return m.ask<QString>(u"GetExperimentDetails"_s); }
    void SetCurrentExperiment(qint32 index) override { m.call(u"SetCurrentExperiment"_s, {index}); }
    bool GetLockRequired() override { return m.ask<bool>(u"GetLockRequired"_s); }
    void SetLockEnabled(bool enabled) override { m.call(u"SetLockEnabled"_s, {enabled}); }
    void SetSetupEnabled(bool enabled) override { m.call(u"SetSetupEnabled"_s, {enabled}); }
    void SetSolventIndex(qint16 index) override
    {
        m.call(u"SetSolventIndex"_s, {QVariant::fromValue(index)});
    }
    void SetSampleInfo(const QStringList& info) override { m.call(u"SetSampleInfo"_s, {info}); }
    void SetOutputFile(const QString& path) override { m.call(u"SetOutputFile"_s, {path}); }
    bool GetRunFailed() override { return m.ask<bool>(u"GetRunFailed"_s); }
    bool GetSpinOn() override { return m.ask<bool>(u"GetSpinOn"_s); }
    double GetSpinRate() override { return m.ask<double>(u"GetSpinRate"_s); }
    void ReleaseSample() override { m.call(u"ReleaseSample"_s); }

private:
    BusProgram m;
};

class BusSampleChanger : public SampleChanger {
public:
    explicit BusSampleChanger(BusProgram program)
        : m(std::move(program))
    {
    }

    qint32 GetWindowHandle() override { return m.windowHandle(); }
    void EjectSample() override { m.call(u"EjectSample"_s); }
    void LoadSample(qint32 position) override { m.call(u"LoadSample"_s, {position}); }
    bool IsEjecting() override { return m.ask<bool>(u"IsEjecting"_s); }
    bool IsLoading() override { return m.ask<bool>(u"IsLoading"_s); }
    bool GetEjectFailed() override { return m.ask<bool>(u"GetEjectFailed"_s); }
    bool GetLoadFailed() override { return m.ask<bool>(u"GetLoadFailed"_s); }
    void Quit() override { m.call(u"Quit"_s); }
    void SetShown(bool shown) override { m.call(u"SetShown"_s, {shown}); }
    void SetVisible(bool visible) override { m.call(u"SetVisible"_s, {visible}); }
    double GetActualSpinRate() override { return m.ask<double>(u"GetActualSpinRate"_s); }
    void SetSpinRate(double hertz) override { m.call(u"SetSpinRate"_s, {hertz}); }
    void SetSpin(bool on) override { m.call(u"SetSpin"_s, {on}); }
    bool IsReady() override { return m.ask<bool>(u"IsReady"_s); }

private:
    BusProgram m;
};

class BusTubelink : public Tubelink {
public:
    explicit BusTubelink(BusProgram program)
        : m(std::move(program))
    {
    }

    qint32 GetWindowHandle() override { return m.windowHandle(); }

private:
    BusProgram m;
};

} // namespace

DBusAutomation::DBusAutomation(const QDBusConnection& bus)
    : DBusAutomation(bus, Timeouts{})
{
}

DBusAutomation::DBusAutomation(const QDBusConnection& bus, Timeouts timeouts)
    : m_bus(bus)
    , m_timeouts(timeouts)
{
}

QString DBusAutomation::ownerOf(const QString& busName) const
{
    const QDBusMessage answer = callAndWait(
        m_bus, methodCall(kBusDaemon, kBusDaemonPath, kBusDaemon, u"GetNameOwner"_s, {busName}),
        m_timeouts.callMs);
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().size() != 1)
        return {};
    return answer.arguments().first().toString();
}

std::shared_ptr<AutomationObject> DBusAutomation::link(const QString& className,
                                                       const QString& owner)
{
    BusProgram program(m_bus, owner, *labInterface(className), m_timeouts.callMs, m_windowOwners);
    if (className == kExpedraClass)
        return std::make_shared<BusExpedra>(std::move(program));
    if (className == kSampleChangerClass)
        return std::make_shared<BusSampleChanger>(std::move(program));
    if (className == kTubelinkClass)
        return std::make_shared<BusTubelink>(std::move(program));
    return std::make_shared<Console>(); // attached only: nothing is ever called on it
}

std::shared_ptr<AutomationObject> DBusAutomation::GetObject(const QString& className)
{
    const QString owner = labInterface(className) ? ownerOf(labBusName(className)) : QString();
    if (owner.isEmpty())
        throw RuntimeError(RuntimeError::CannotCreateObject);
    return link(className, owner);
}

std::shared_ptr<AutomationObject> DBusAutomation::CreateObject(const QString& className)
{
    if (!labInterface(className))
        throw RuntimeError(RuntimeError::CannotCreateObject);
    const QString busName = labBusName(className);
    QString owner = ownerOf(busName);
    if (owner.isEmpty()) {
        const QDBusMessage started = callAndWait(m_bus,
                                                 methodCall(kBusDaemon, kBusDaemonPath, kBusDaemon,
                                                            u"StartServiceByName"_s, {busName, 0u}),
                                                 m_timeouts.startMs);
        if (started.type() != QDBusMessage::ReplyMessage)
            throw withDetail(RuntimeError::CannotCreateObject, errorText(started));
        owner = ownerOf(busName);
    }
    if (owner.isEmpty())
        throw RuntimeError(RuntimeError::CannotCreateObject);
    return link(className, owner);
}

void DBusAutomation::sendWindowCommand(qint32 handle, const QString& method,
                                       const QVariantList& arguments)
{
    checkCall(labWindowInterface(), method, arguments, {});
    const auto owner = m_windowOwners->constFind(handle);
    if (owner == m_windowOwners->cend())
        return;
    callAndWait(m_bus, methodCall(*owner, kLabObjectPath, kLabWindowInterface, method, arguments),
                m_timeouts.callMs);
}

void DBusAutomation::ShowWindow(qint32 handle, WindowCommand command)
{
    sendWindowCommand(handle, u"ShowWindow"_s, {handle, int(command)});
}

void DBusAutomation::CloseWindow(qint32 handle)
{
    sendWindowCommand(handle, u"CloseWindow"_s, {handle});
}

} // namespace spinlane
