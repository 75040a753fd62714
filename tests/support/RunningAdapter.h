#pragma once

#include <QProcess>
#include <QString>

namespace spinlane::testing {

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

} // namespace spinlane::testing
