#include "adapter/ProgramServer.h"

#include "adapter/CommandRun.h"
#include "adapter/Helper.h"
#include "adapter/Values.h"
#include "runner/LabBus.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace spinlane::adapter {
namespace {

const QString kFailed = u"org.spinlane.lab.Error.Failed"_s;

QString connectionName(const QString& className) { return u"spinlane-adapter "_s + className; }

} // namespace

ProgramServer::ProgramServer(const ProgramSetup& setup, const QString& folder, QObject* parent)
    : QDBusVirtualObject(parent)
    , m_setup(setup)
    , m_folder(folder)
    , m_bus(connectionName(setup.className))
{
}

ProgramServer::~ProgramServer()
{
    if (!m_released)
        QDBusConnection::disconnectFromBus(connectionName(m_setup.className));
}

bool ProgramServer::start(QString* error)
{
    if (m_setup.helper) {
        const QString name = m_setup.className + u" helper"_s;
        m_helper = new Helper(m_setup.helper->expand([](const QString&) { return QString(); }),
                              m_folder, name, this);
        if (!m_helper->start(error))
            return false;
        connect(m_helper, &Helper::ended, this, &ProgramServer::release);
    }
    m_bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                          connectionName(m_setup.className));
    const QString busName = labBusName(m_setup.className);
    if (!m_bus.isConnected()) {
        *error = u"no session bus: "_s + m_bus.lastError().message();
        return false;
    }
    if (!m_bus.registerVirtualObject(kLabObjectPath, this, QDBusConnection::SingleNode)
        || !m_bus.registerService(busName)) {
        *error = busName
                 + u" is taken on the session bus: is another adapter or a simulator "
                   u"running?"_s;
        return false;
    }
    return true;
}

QString ProgramServer::introspect(const QString&) const
{
    return labIntrospection(*m_setup.interface);
}

bool ProgramServer::handleMessage(const QDBusMessage& message, const QDBusConnection&)
{
    const QString interfaceName = message.interface();
    if (message.type() != QDBusMessage::MethodCallMessage
        || (interfaceName.startsWith(u"org.freedesktop.DBus."_s)))
        return false; // introspection and the rest: Qt's own
    const OperationSetup* setup = m_setup.find(interfaceName, message.member());
    if (!setup) {
        m_bus.send(message.createErrorReply(QDBusError::UnknownMethod,
                                            message.member() + u" is not an operation of "_s
                                                + m_setup.interface->name));
    } else if (message.signature() != setup->operation->inputSignature()) {
        m_bus.send(message.createErrorReply(QDBusError::InvalidArgs,
                                            setup->operation->name + u" takes \""_s
                                                + setup->operation->inputSignature()
                                                + u"\", not \""_s + message.signature() + u'"'));
    } else {
        m_calls.push_back({message, setup});
        serveNext();
    }
    return true;
}

void ProgramServer::serveNext()
{
    while (!m_busy && !m_calls.empty() && !m_released) {
        const Call call = m_calls.front();
        m_calls.pop_front();
        carryOut(call);
    }
}

void ProgramServer::carryOut(const Call& call)
{
    const LabOperation& op = *call.setup->operation;
    if (!op.stores.isEmpty())
        m_stored.insert(op.stores, call.message.arguments().value(0));
    const auto done = [this, call](const Outcome& outcome) {
        m_busy = false;
        answer(call, outcome);
        serveNext();
    };
    switch (call.setup->service) {
    case Service::Run:
        m_busy = true;
        new CommandRun(call.setup->command->expand(
                           [&](const QString& name) { return placeholderValue(call, name); }),
                       m_folder, op.output, m_setup.timeoutMs, done, this);
        break;
    case Service::Helper:
        m_busy = true;
        m_helper->call(op, call.message.arguments(), m_setup.timeoutMs, done);
        break;
    case Service::Const: answer(call, {call.setup->answer, {}}); break;
    case Service::Store:
    case Service::Nothing:
        // A window left out has the handle 0.
        answer(call, {op.output.isEmpty() ? QVariant() : QVariant(0), {}});
        break;
    }
}

void ProgramServer::answer(const Call& call, const Outcome& outcome)
{
    const LabOperation& op = *call.setup->operation;
    if (!outcome.error.isEmpty()) {
        m_bus.send(call.message.createErrorReply(kFailed, op.name + u": "_s + outcome.error));
        return;
    }
    QVariantList values;
    if (op.endsWithEmptyElement)
        values.append(outcome.answer.toStringList() << QString());
    else if (!op.output.isEmpty())
        values.append(outcome.answer);
    m_bus.send(call.message.createReply(values));
}

QString ProgramServer::placeholderValue(const Call& call, const QString& name) const
{
    const qsizetype dot = name.indexOf(u'.');
    const QString base = name.left(dot);
    bool isNumber = false;
    const int number = base.toInt(&isNumber);
    const QVariant value =
        isNumber ? call.message.arguments().value(number - 1) : m_stored.value(base);
    if (dot < 0)
        return valueText(value);
    return value.toStringList().value(name.mid(dot + 1).toInt() - 1);
}

void ProgramServer::release(const QString& why)
{
    if (m_released)
        return;
    m_released = true;
    std::fprintf(stderr, "spinlane-adapter: %s is gone: its helper %s\n",
                 qPrintable(m_setup.className), qPrintable(why));
    for (const Call& call : std::exchange(m_calls, {}))
        answer(call, {{}, u"the helper "_s + why});
    // The name first, in a round trip that also sees the answers above out; then the connection,
    // so that links to its unique name fail as they do when a program dies.
    m_bus.unregisterService(labBusName(m_setup.className));
    QDBusConnection::disconnectFromBus(connectionName(m_setup.className));
    m_bus = QDBusConnection(QString()); // the last reference: the connection closes now
    Q_EMIT lost(why);
}

} // namespace spinlane::adapter
