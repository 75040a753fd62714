#pragma once

#include <QByteArray>
#include <QStringList>
#include <QTemporaryDir>

namespace spinlane::testing {

// The simulated laboratory on this process's session bus, which must be a private bus that
// starts the simulators (build/lab-bus/session.conf; CTest gives each lab test its own). Each
// instance writes a simulator settings file of its own, with a call record beside it, and has the
// bus start the simulators with it; at the end it ends every simulator still on the bus.
class SimulatedLab {
public:
    // `settings`: the settings file's text (see README.md); the call record is added to it.
    explicit SimulatedLab(const QByteArray& settings = {});
    ~SimulatedLab();
    SimulatedLab(const SimulatedLab&) = delete;
    SimulatedLab& operator=(const SimulatedLab&) = delete;

    bool isReady() const { return m_ready; } // the bus took the settings
    bool startConsole();

    // Every call the simulators received, in order: "Expedra.SetShown(False)".
    QStringList calls() const;
    void clearCalls();

    // The process that owns the class's bus name; 0 when none does.
    qint64 processId(const QString& className) const;
    bool isRunning(const QString& className) const { return processId(className) != 0; }
    // Waits until nobody owns the class's bus name; false when it is still owned at the end.
    bool waitUntilGone(const QString& className, int timeoutMs = 5000) const;

private:
    QTemporaryDir m_dir;
    bool m_ready = false;
};

} // namespace spinlane::testing
