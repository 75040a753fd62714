#include "support/RunningAdapter.h"

#include "core/ProfileFile.h"
#include "runner/LabInterfaces.h"
#include "runner/Programs.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcessEnvironment>

#include <csignal>

namespace spinlane::testing {

RunningAdapter::RunningAdapter(const QString& program, const QString& configPath,
                               const QStringList& environment)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString& setting : environment)
        env.insert(setting.section(u'=', 0, 0), setting.section(u'=', 1));
    m_process.setProcessEnvironment(env);
    m_process.setReadChannel(QProcess::StandardError);
    m_process.start(program, {QStringLiteral("--config"), configPath});
}

void endProcess(QProcess& process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    ::kill(pid_t(process.processId()), SIGTERM);
    if (!process.waitForFinished(5000))
        process.kill();
    process.waitForFinished(5000);
}

RunningAdapter::~RunningAdapter() { endProcess(m_process); }

bool RunningAdapter::waitUntilServing(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!errors().contains(QStringLiteral("spinlane-adapter: serving"))) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return false;
        m_process.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime())));
    }
    return true;
}

QString RunningAdapter::errors()
{
    m_errors += m_process.readAllStandardError();
    return QString::fromUtf8(m_errors);
}

QString copyExampleLab(const QString& examples, const QString& folder, const Changes& changes)
{
    for (const QString& name : QDir(examples).entryList(QDir::Files))
        QFile::copy(examples + u'/' + name, folder + u'/' + name);
    const QString config = folder + QStringLiteral("/adapter.ini");
    ProfileDocument file = ProfileDocument::load(config);
    for (const auto& [section, key, value] : changes)
        file.writeString(section, key, value);
    file.save(config);
    return config;
}

Changes changerServedBy(const QString& how)
{
    Changes changes;
    for (const LabOperation& op : labInterface(kSampleChangerClass)->operations) {
        if (!op.windowOnly)
            changes.append({kSampleChangerClass, op.name, how});
    }
    return changes;
}

} // namespace spinlane::testing
