#include "sim/SimProgram.h"

#include "runner/LabBus.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QThread>

#include <cstdio>
#include <cstdlib>
#ifdef Q_OS_UNIX
#include <csignal>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace spinlane::sim {
namespace {

[[noreturn]] void dieAbruptly()
{
#ifdef Q_OS_UNIX
    ::kill(::getpid(), SIGKILL);
#endif
    std::_Exit(EXIT_FAILURE);
}

bool isQuery(const QString& operation)
{
    return operation.startsWith(u"Is"_s) || operation == u"GetActualSpinRate"_s;
}

} // namespace

SimProgram::SimProgram(const QString& className, const QString& recordName,
                       const Misbehaviour& misbehaviour, const QString& callLogPath)
    : m_busName(labBusName(className))
    , m_recordName(recordName)
    , m_misbehaviour(misbehaviour)
    , m_callLog(callLogPath)
{
    m_started.start();
    if (!callLogPath.isEmpty()
        && !m_callLog.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        std::fprintf(stderr, "%s: cannot write the call record %s\n", qPrintable(recordName),
                     qPrintable(callLogPath));
    new WindowAdaptor(this);
}

qint32 SimProgram::windowHandle() const { return qint32(QCoreApplication::applicationPid()); }

bool SimProgram::publish(QDBusConnection bus)
{
    return bus.registerObject(kLabObjectPath, m_busName, this,
                              QDBusConnection::ExportAllSlots | QDBusConnection::ExportAdaptors)
           && bus.registerService(m_busName);
}

void SimProgram::received(const QString& operation, const QString& arguments)
{
    record(m_recordName + u'.' + operation + u'(' + arguments + u')', isQuery(operation));
    const int count = ++m_callCounts[operation];
    if (m_misbehaviour.crash.matches(operation, count))
        dieAbruptly();
    if (m_misbehaviour.hang.matches(operation, count)) {
        QThread::msleep(static_cast<unsigned long>(m_misbehaviour.hangSeconds * 1000));
        std::_Exit(EXIT_FAILURE);
    }
}

void SimProgram::record(const QString& line, bool query)
{
    if (query && line == m_lastLine)
        return;
    m_lastLine = line;
    if (m_callLog.isOpen())
        m_callLog.write((line + u'\n').toUtf8());
}

void SimProgram::refuse(const QString& text)
{
    sendErrorReply(u"org.spinlane.lab.Error.Refused"_s, text);
}

void SimProgram::quit()
{
    QDBusConnection bus = connection();
    // The name goes first, so that a program started right after this one is a new one.
    bus.unregisterService(m_busName);
    setDelayedReply(true);
    bus.send(message().createReply());
    // A round trip to the bus: once it is back, the answer above has left too.
    bus.interface()->isServiceRegistered(m_busName);
    QCoreApplication::quit();
}

void SimProgram::setWindowShown(bool shown)
{
    if (!m_window)
        return;
    if (shown) {
        m_window->showNormal();
        m_window->raise();
        m_window->activateWindow();
    } else {
        m_window->hide();
    }
}

void SimProgram::showWindow(qint32 handle, int command)
{
    if (handle != windowHandle()) {
        record(m_recordName + u".ShowWindow(unknown handle "_s + QString::number(handle) + u')',
               false);
        return;
    }
    record(m_recordName + u".ShowWindow("_s + QString::number(command) + u')', false);
    if (command == 0 || command == 5)
        setWindowShown(command == 5);
}

void SimProgram::minimiseWindow(qint32 handle)
{
    if (handle != windowHandle()) {
        record(m_recordName + u".CloseWindow(unknown handle "_s + QString::number(handle) + u')',
               false);
        return;
    }
    record(m_recordName + u".CloseWindow()"_s, false);
    if (m_window)
        m_window->showMinimized();
}

WindowAdaptor::WindowAdaptor(SimProgram* program)
    : QDBusAbstractAdaptor(program)
    , m_program(program)
{
}

void WindowAdaptor::ShowWindow(int handle, int command) { m_program->showWindow(handle, command); }

void WindowAdaptor::CloseWindow(int handle) { m_program->minimiseWindow(handle); }

QString recordText(bool value) { return value ? u"True"_s : u"False"_s; }

QString recordText(double value) { return QString::number(value); }

QString recordText(const QStringList& values)
{
    return values.join(u'|').replace(u"\r\n"_s, u"\\r\\n"_s);
}

} // namespace spinlane::sim
