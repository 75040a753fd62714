#include "support/SimulatedLab.h"

#include "core/ProfileFile.h"
#include "runner/LabBus.h"
#include "runner/Programs.h"
#include "support/SettingsFiles.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <csignal>

using namespace Qt::StringLiterals;

namespace spinlane::testing {
namespace {

const QStringList kLabClasses{kConsoleClass, kExpedraClass, kSampleChangerClass, kTubelinkClass};

QDBusMessage askBus(const QString& method, const QVariantList& arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message, QDBus::Block, 5000);
}

bool answered(const QDBusMessage& reply) { return reply.type() == QDBusMessage::ReplyMessage; }

} // namespace

SimulatedLab::SimulatedLab(const QByteArray& settings)
{
    const QString settingsPath = m_dir.filePath(u"lab.ini"_s);
    ProfileDocument file = ProfileDocument::fromBytes(settings);
    file.writeString(u"General", u"CallLog", m_dir.filePath(u"calls.log"_s));
    if (!file.save(settingsPath))
        return;

    using Environment = QMap<QString, QString>;
    qDBusRegisterMetaType<Environment>();
    const Environment environment{{u"SPINLANE_SIM_SETTINGS"_s, settingsPath}};
    m_ready =
        answered(askBus(u"UpdateActivationEnvironment"_s, {QVariant::fromValue(environment)}));
}

SimulatedLab::~SimulatedLab()
{
    for (const QString& className : kLabClasses) {
        if (const qint64 pid = processId(className)) {
            ::kill(pid_t(pid), SIGTERM);
            waitUntilGone(className);
        }
    }
}

bool SimulatedLab::startConsole()
{
    return answered(askBus(u"StartServiceByName"_s, {labBusName(kConsoleClass), 0u}));
}

QStringList SimulatedLab::calls() const
{
    return QString::fromUtf8(readFile(m_dir.filePath(u"calls.log"_s)))
        .split(u'\n', Qt::SkipEmptyParts);
}

void SimulatedLab::clearCalls()
{
    // The simulators append, so they go on writing at the new end.
    QFile::resize(m_dir.filePath(u"calls.log"_s), 0);
}

qint64 SimulatedLab::processId(const QString& className) const
{
    const QDBusMessage reply = askBus(u"GetConnectionUnixProcessID"_s, {labBusName(className)});
    return answered(reply) ? reply.arguments().value(0).toLongLong() : 0;
}

bool SimulatedLab::waitUntilGone(const QString& className, int timeoutMs) const
{
    const QDeadlineTimer deadline(timeoutMs);
    while (isRunning(className)) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(10);
    }
    return true;
}

} // namespace spinlane::testing
