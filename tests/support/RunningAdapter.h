#pragma once

#include <QList>
#include <QProcess>
#include <QString>

#include <array>

namespace spinlane::testing {

// Ends a child program as a service manager would: SIGTERM, and SIGKILL when it is still there
// after 5 seconds.
void endProcess(QProcess& process);

// spinlane-adapter serving a configuration file on this process's session bus, with its own
// environment additions ("NAME=value"). Ended with SIGTERM at the end.
class RunningAdapter {
public:
    RunningAdapter(const QString& program, const QString& configPath,
                   const QStringList& environment = {});
    ~RunningAdapter();
    RunningAdapter(const RunningAdapter&) = delete;
    RunningAdapter& operator=(const RunningAdapter&) = delete;

    // Waits until it says which programs it serves; false when it ends or stays silent instead.
    bool waitUntilServing(int timeoutMs = 10000);
    qint64 processId() const { return m_process.processId(); }
    QString errors(); // its standard error so far

private:
    QProcess m_process;
    QByteArray m_errors;
};

// Changes to a configuration file, each {section, key, value}.
using Changes = QList<std::array<QString, 3>>;

// The example laboratory of `examples` (examples/adapter) copied into `folder`, its configuration
// changed as `changes` say; returns the configuration's path.
QString copyExampleLab(const QString& examples, const QString& folder, const Changes& changes = {});

// Every operation of the sample changer's own interface carried out as `how` ("helper").
Changes changerServedBy(const QString& how);

} // namespace spinlane::testing
