#pragma once

#include "runner/Programs.h"

#include <QDBusConnection>
#include <QHash>

#include <memory>

// The laboratory programs as processes on a D-Bus bus, found by the rule of runner/LabBus.h.
// Every call waits for its answer at most callTimeoutMs, the window painting meanwhile: a program
// that has gone or stopped answering, or that answers with a D-Bus error, raises the automation
// error, whose description carries the D-Bus error. A link is bound to the process it was made
// with, so a program that was restarted since is not reached through an old link.
namespace spinlane {

class DBusAutomation : public AutomationBackend {
public:
    struct Timeouts {
        int callMs = 10000;
        int startMs = 30000; // for the bus to start a program
    };

    explicit DBusAutomation(const QDBusConnection& bus = QDBusConnection::sessionBus());
    DBusAutomation(const QDBusConnection& bus, Timeouts timeouts);

    // Only a program whose bus name has an owner.
    std::shared_ptr<AutomationObject> GetObject(const QString& className) override;
    // Asks the bus to start the program when nobody owns its name.
    std::shared_ptr<AutomationObject> CreateObject(const QString& className) override;
    // Reach the program that reported the handle. Like the platform's own window calls, they
    // report nothing: an unknown handle or a program that has gone is left alone.
    void ShowWindow(qint32 handle, WindowCommand command) override;
    void CloseWindow(qint32 handle) override;

    // Window handle -> the unique bus name of the process that reported it.
    using WindowOwners = QHash<qint32, QString>;

private:
    QString ownerOf(const QString& busName) const;
    std::shared_ptr<AutomationObject> link(const QString& className, const QString& owner);
    void sendWindowCommand(qint32 handle, const QString& method, const QVariantList& arguments);

    QDBusConnection m_bus;
    Timeouts m_timeouts;
    std::shared_ptr<WindowOwners> m_windowOwners = std::make_shared<WindowOwners>();
};

} // namespace spinlane
